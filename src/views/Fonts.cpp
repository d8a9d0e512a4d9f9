#include "Fonts.h"

#include <QFontDatabase>

QString Fonts::monospace() const {
    return QFontDatabase::systemFont(QFontDatabase::FixedFont).family();
}

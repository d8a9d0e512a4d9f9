#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

// Symbol names used by the views, each drawn from one icon font (Material Icons, Apache
// 2.0, from Debian's fonts-material-design-icons-iconfont). Views name symbols as the
// design does ("bolt.fill", "brain.head.profile"); this table is the one place that
// decides which glyph each name shows.
class Symbols : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(QString fontFamily READ fontFamily CONSTANT)
public:
    using QObject::QObject;

    // The glyph for a symbol name, as one character of the icon font; a name the table
    // does not know stops the process, so a misspelt symbol cannot ship as an empty box.
    Q_INVOKABLE QString glyph(const QString& name) const;

    QString fontFamily() const;

    // Loads the icon font into the application; false when it is not installed.
    static bool loadFont();
    static const QHash<QString, char16_t>& table();
};

#pragma once

#include <QFontDatabase>
#include <QString>

// The icon font every symbol is drawn from: Material Icons (Apache 2.0), from Debian's
// fonts-material-design-icons-iconfont. Header-only so the tray can draw its icon without
// loading the views.
namespace IconFont {

inline constexpr char32_t brainCodePoint = 0xea4a; // "psychology", the program's brain

inline QString& family() {
    static QString name = QStringLiteral("Material Icons");
    return name;
}

// Loads the font into the application; false when it is not installed.
inline bool load() {
    const int id = QFontDatabase::addApplicationFont(QStringLiteral(
        "/usr/share/fonts/truetype/material-design-icons-iconfont/MaterialIcons-Regular.ttf"));
    if (id >= 0 && !QFontDatabase::applicationFontFamilies(id).isEmpty()) {
        family() = QFontDatabase::applicationFontFamilies(id).first();
        return true;
    }
    return QFontDatabase::hasFamily(family());
}

} // namespace IconFont

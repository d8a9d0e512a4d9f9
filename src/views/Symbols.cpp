#include "Symbols.h"

#include "IconFont.h"

#include <QFontDatabase>

const QHash<QString, char16_t>& Symbols::table() {
    // Code points of the Material Icons font.
    static const QHash<QString, char16_t> symbols = {
        {QStringLiteral("brain.head.profile"), char16_t(IconFont::brainCodePoint)}, // psychology
        {QStringLiteral("bolt.fill"), 0xea0b},                                      // bolt
        {QStringLiteral("keyboard"), 0xe312},                                       // keyboard
        {QStringLiteral("book"), 0xea19},                                           // menu_book
        {QStringLiteral("sparkles"), 0xe65f},                                       // auto_awesome
        {QStringLiteral("music.note"), 0xe405},                                     // music_note
        {QStringLiteral("chart.bar"), 0xe26b},                                      // bar_chart
        {QStringLiteral("thermometer"), 0xf076},                                    // thermostat
        {QStringLiteral("memorychip"), 0xe322},                                     // memory
        {QStringLiteral("chevron.left.forwardslash.chevron.right"), 0xe86f},        // code
        {QStringLiteral("pencil"), 0xe3c9},                                         // edit
        {QStringLiteral("bubble.left.and.bubble.right"), 0xe0bf},                   // forum
        {QStringLiteral("video"), 0xe04b},                                          // videocam
        {QStringLiteral("globe"), 0xe80b},                                          // public
        {QStringLiteral("arrow.left.arrow.right"), 0xe8d4},                         // swap_horiz
        {QStringLiteral("arrow.triangle.2.circlepath"), 0xe863},                    // autorenew
        {QStringLiteral("moon"), 0xe51c},                                           // dark_mode
        {QStringLiteral("arrow.up.circle.fill"), 0xf182},           // arrow_circle_up
        {QStringLiteral("arrow.down.circle.fill"), 0xf181},         // arrow_circle_down
        {QStringLiteral("folder.fill"), 0xe2c7},                    // folder
        {QStringLiteral("calendar.badge.clock"), 0xe916},           // date_range
        {QStringLiteral("crown.fill"), 0xea23},                     // emoji_events
        {QStringLiteral("calendar"), 0xe935},                       // calendar_today
        {QStringLiteral("calendar.badge.exclamationmark"), 0xe615}, // event_busy
        {QStringLiteral("target"), 0xe1b3},                         // gps_fixed
        {QStringLiteral("square.and.arrow.up"), 0xe6b8},            // ios_share
        {QStringLiteral("doc.on.clipboard.fill"), 0xe14f},          // content_paste
        {QStringLiteral("chevron.right"), 0xe5cc},                  // chevron_right
        {QStringLiteral("exclamationmark.circle.fill"), 0xe000},    // error
        {QStringLiteral("cpu"), 0xe30d},                            // developer_board
        {QStringLiteral("safari"), 0xe87a},                         // explore
        {QStringLiteral("chart.line.uptrend.xyaxis"), 0xe8e5},      // trending_up
        {QStringLiteral("gearshape"), 0xe8b8},                      // settings
        {QStringLiteral("bell"), 0xe7f4},                           // notifications
        {QStringLiteral("info.circle"), 0xe88e},                    // info
        {QStringLiteral("slider.horizontal.3"), 0xe429},            // tune
        {QStringLiteral("star.fill"), 0xe838},                      // star
        {QStringLiteral("desktopcomputer"), 0xe30c},                // desktop_windows
        {QStringLiteral("circle.dotted"), 0xe836},                  // radio_button_unchecked
        {QStringLiteral("square.grid.2x2"), 0xe574},                // category
    };
    return symbols;
}

QString Symbols::glyph(const QString& name) const {
    const auto it = table().constFind(name);
    if (it == table().constEnd())
        qFatal("unknown symbol name '%s'", qPrintable(name));
    return QString(QChar(*it));
}

QString Symbols::fontFamily() const {
    return IconFont::family();
}

bool Symbols::loadFont() {
    return IconFont::load();
}

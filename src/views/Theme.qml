pragma Singleton
import QtQuick
import Mindmeter

// One fixed palette of named colours, and the desktop's own colours for backgrounds and
// text, so the dashboard follows light and dark themes.
QtObject {
    readonly property color purple: "#AF52DE"
    readonly property color blue: "#007AFF"
    readonly property color green: "#34C759"
    readonly property color orange: "#FF9500"
    readonly property color red: "#FF3B30"
    readonly property color yellow: "#FFCC00"
    readonly property color cyan: "#32ADE6"
    readonly property color gray: "#8E8E93"

    readonly property SystemPalette system: SystemPalette { colorGroup: SystemPalette.Active }
    readonly property color windowBackground: system.window
    readonly property color controlBackground: system.base
    readonly property color primary: system.windowText
    readonly property color secondary: Qt.rgba(primary.r, primary.g, primary.b, 0.62)
    readonly property bool dark: system.window.hslLightness < 0.5

    // The colour of a token type or mode, by the name the models use.
    function named(name) {
        switch (name) {
        case "purple": return purple
        case "blue": return blue
        case "green": return green
        case "orange": return orange
        case "red": return red
        case "yellow": return yellow
        case "cyan": return cyan
        default: return gray
        }
    }
    function typeColor(type) {
        return named({ reasoning: "purple", output: "blue", input: "green", ai: "orange" }[type])
    }
    function faded(c, opacity) { return Qt.rgba(c.r, c.g, c.b, opacity) }
    // A named colour as text or symbol on a faded fill of itself: lighter on a dark theme,
    // where the plain gray (the "Idle" mode's) would not stand out from the card.
    function onFaded(c) { return dark ? Qt.lighter(c, 1.45) : c }
}

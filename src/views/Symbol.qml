import QtQuick
import Mindmeter

// A named symbol, drawn from the icon font.
Text {
    property string name
    property real size: 12
    font.family: Symbols.fontFamily
    font.pixelSize: size
    text: name.length > 0 ? Symbols.glyph(name) : ""
    color: Theme.primary
    verticalAlignment: Text.AlignVCenter
}

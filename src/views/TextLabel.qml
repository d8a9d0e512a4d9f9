import QtQuick
import Mindmeter

// Text in the system font at a size given in points.
Text {
    property real size: 11
    property bool secondary: false
    font.pixelSize: size
    color: secondary ? Theme.secondary : Theme.primary
    verticalAlignment: Text.AlignVCenter
    elide: Text.ElideRight
}

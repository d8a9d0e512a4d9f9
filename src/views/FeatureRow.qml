import QtQuick
import Mindmeter
import QtQuick.Layouts

// One explanatory row of the welcome page.
RowLayout {
    property string icon
    property color color
    property string title
    property string description
    spacing: 12
    Symbol {
        name: icon
        size: 20
        color: parent.color
        horizontalAlignment: Text.AlignHCenter
        Layout.preferredWidth: 24
        Layout.alignment: Qt.AlignTop
    }
    ColumnLayout {
        spacing: 2
        Layout.fillWidth: true
        TextLabel { text: title; size: 12; font.weight: Font.DemiBold }
        TextLabel {
            text: description
            size: 11
            secondary: true
            wrapMode: Text.WordWrap
            elide: Text.ElideNone
            Layout.fillWidth: true
        }
    }
}

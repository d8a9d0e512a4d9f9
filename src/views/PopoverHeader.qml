import QtQuick
import Mindmeter
import QtQuick.Layouts

// The fixed bar above the dashboard.
Rectangle {
    implicitHeight: row.implicitHeight + 20
    color: Theme.controlBackground
    RowLayout {
        id: row
        anchors.fill: parent
        anchors.leftMargin: 14
        anchors.rightMargin: 14
        spacing: 6
        Symbol { name: "brain.head.profile"; size: 15; font.weight: Font.Medium }
        TextLabel { text: "Mindmeter"; size: 13; font.weight: Font.DemiBold }
        Item { Layout.fillWidth: true }
    }
}

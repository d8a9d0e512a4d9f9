import QtQuick
import Mindmeter

// The frame every card draws its content in: the control background, rounded corners and a
// faint shadow. The content is laid out inside `padding`.
Item {
    id: card
    property real padding: 10
    default property alias content: body.data
    implicitWidth: body.implicitWidth + 2 * padding
    implicitHeight: body.implicitHeight + 2 * padding

    Rectangle { // shadow: black at 0.07, one point down, softened over three
        anchors.fill: parent
        anchors.topMargin: 1
        anchors.bottomMargin: -2
        anchors.leftMargin: -0.5
        anchors.rightMargin: -0.5
        radius: 11
        color: Qt.rgba(0, 0, 0, 0.07)
    }
    Rectangle {
        anchors.fill: parent
        radius: 10
        antialiasing: true
        color: Theme.controlBackground
    }
    Item {
        id: body
        anchors.fill: parent
        anchors.margins: card.padding
        implicitWidth: childrenRect.width
        implicitHeight: childrenRect.height
    }
}

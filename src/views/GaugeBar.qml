import QtQuick
import Mindmeter

// A thin capsule track with a fill of `value` × width, never narrower than a 4-point dot.
Item {
    id: gauge
    property real value: 0
    property color fillColor: Theme.blue
    property bool thermometer: false
    implicitHeight: 8

    Rectangle {
        id: track
        anchors.verticalCenter: parent.verticalCenter
        width: parent.width
        height: 5
        radius: 2.5
        color: Theme.faded(Theme.gray, 0.12)
    }
    Rectangle {
        objectName: "fill"
        anchors.verticalCenter: parent.verticalCenter
        width: Math.max(gauge.width * gauge.value, 4)
        height: 5
        radius: 2.5
        color: gauge.fillColor
        gradient: gauge.thermometer ? scale : null
        Gradient {
            id: scale
            orientation: Gradient.Horizontal
            GradientStop { position: 0.0; color: Theme.blue }
            GradientStop { position: 0.2; color: Theme.cyan }
            GradientStop { position: 0.4; color: Theme.green }
            GradientStop { position: 0.6; color: Theme.yellow }
            GradientStop { position: 0.8; color: Theme.orange }
            GradientStop { position: 1.0; color: Theme.red }
        }
    }
}

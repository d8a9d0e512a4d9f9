import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Mindmeter

// The welcome page of the first launch.
Rectangle {
    id: page
    signal dismiss()
    // Why the desktop cannot be followed yet, with what to do; empty when it can.
    property string desktopNotice
    color: Theme.windowBackground

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 24
        spacing: 16
        ColumnLayout {
            spacing: 6
            Layout.alignment: Qt.AlignHCenter
            Symbol { name: "brain.head.profile"; size: 44; Layout.alignment: Qt.AlignHCenter; color: Theme.purple }
            TextLabel {
                text: "Welcome to Mindmeter"
                size: 20
                font.weight: Font.Bold
                Layout.alignment: Qt.AlignHCenter
            }
            TextLabel {
                text: "Quantify your cognitive load \u2014 before your brain does it for you."
                size: 12
                secondary: true
                wrapMode: Text.WordWrap
                horizontalAlignment: Text.AlignHCenter
                elide: Text.ElideNone
                Layout.fillWidth: true
                Layout.maximumWidth: 300
                Layout.alignment: Qt.AlignHCenter
            }
        }
        ColumnLayout {
            spacing: 12
            Layout.fillWidth: true
            FeatureRow {
                Layout.fillWidth: true
                icon: "bolt.fill"; color: Theme.purple
                title: "Every app earns tokens"
                description: "Coding, writing, AI sessions \u2014 each is weighted by cognitive effort."
            }
            FeatureRow {
                Layout.fillWidth: true
                icon: "cpu"; color: Theme.blue
                title: "Your daily context window"
                description: "Inspired by neuroscience research on prefrontal glutamate saturation."
            }
            FeatureRow {
                Layout.fillWidth: true
                icon: "safari"; color: Theme.orange
                title: "One permission needed"
                description: AppInfo.browserPermissionNote
            }
        }
        TextLabel {
            objectName: "desktopNotice"
            visible: page.desktopNotice !== ""
            text: page.desktopNotice
            size: 11
            color: Theme.orange
            wrapMode: Text.WordWrap
            elide: Text.ElideNone
            Layout.fillWidth: true
        }
        Item { Layout.fillHeight: true }
        Button { // the prominent style: filled with the accent colour
            id: getStarted
            objectName: "getStarted"
            text: "Get Started"
            Layout.alignment: Qt.AlignHCenter
            Layout.preferredWidth: 160
            Layout.preferredHeight: 30
            onClicked: page.dismiss()
            contentItem: Text {
                text: getStarted.text
                color: "white"
                font.pixelSize: 13
                font.weight: Font.DemiBold
                horizontalAlignment: Text.AlignHCenter
                verticalAlignment: Text.AlignVCenter
            }
            background: Rectangle {
                radius: 7
                color: getStarted.down ? Qt.darker(Theme.blue, 1.2) : Theme.blue
            }
        }
    }
}

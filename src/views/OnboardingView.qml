import QtQuick
import QtQuick.Layouts
import Mindmeter

// The welcome page of the first launch.
Rectangle {
    id: page
    signal dismiss()
    // What this desktop asks of the user (an OnboardingNote).
    required property var note
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
                objectName: "noteRow"
                Layout.fillWidth: true
                icon: page.note.icon; color: Theme.named(page.note.colour)
                title: page.note.title
                description: page.note.description
            }
        }
        Item { Layout.fillHeight: true }
        Rectangle { // the prominent button: filled with the accent colour
            id: getStarted
            objectName: "getStarted"
            Layout.alignment: Qt.AlignHCenter
            Layout.preferredWidth: 160
            Layout.preferredHeight: 30
            radius: 7
            color: press.pressed ? Qt.darker(Theme.blue, 1.2) : Theme.blue
            border.width: activeFocus ? 2 : 0
            border.color: Qt.lighter(Theme.blue, 1.5)
            activeFocusOnTab: true
            Accessible.role: Accessible.Button
            Accessible.name: label.text
            Accessible.onPressAction: page.dismiss()
            Keys.onReturnPressed: page.dismiss()
            Keys.onEnterPressed: page.dismiss()
            Keys.onSpacePressed: page.dismiss()
            Text {
                id: label
                anchors.centerIn: parent
                text: "Get Started"
                color: "white"
                font.pixelSize: 13
                font.weight: Font.DemiBold
            }
            MouseArea {
                id: press
                anchors.fill: parent
                onClicked: page.dismiss()
            }
        }
    }
}

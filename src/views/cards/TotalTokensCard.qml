import QtQuick
import QtQuick.Layouts
import Mindmeter

// Today's total and the tokens of the last hour.
Card {
    id: card
    required property var store
    required property var monitor

    RowLayout {
        width: parent.width
        ColumnLayout {
            spacing: 2
            Layout.alignment: Qt.AlignTop
            TextLabel { text: "Tokens Today"; size: 11; secondary: true }
            Text {
                objectName: "total"
                text: Formats.formatK(card.store.totalWeighted)
                font.family: Fonts.monospace
                font.pixelSize: 32
                font.bold: true
                minimumPixelSize: 19
                fontSizeMode: Text.HorizontalFit
                color: Theme.primary
                Layout.fillWidth: true
                Layout.preferredHeight: 40
            }
        }
        ColumnLayout {
            spacing: 4
            Layout.alignment: Qt.AlignTop | Qt.AlignRight
            Layout.topMargin: 6
            RowLayout {
                Layout.alignment: Qt.AlignRight
                spacing: 4
                Symbol { name: "bolt.fill"; size: 14; color: Theme.orange }
                TextLabel {
                    objectName: "velocity"
                    text: Formats.formatK(card.monitor.tokenVelocity)
                    size: 18
                    font.weight: Font.DemiBold
                }
            }
            TextLabel { text: "tokens / hr"; size: 10; secondary: true; Layout.alignment: Qt.AlignRight }
        }
    }
}

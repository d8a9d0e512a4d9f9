import QtQuick
import QtQuick.Layouts
import Mindmeter

// The working mode, its effect on tokens, the switching rate and the active project.
Card {
    id: card
    required property var context
    required property var spotlight
    readonly property color modeColor: Theme.named({
        "Deep Work": "purple", "Writing": "cyan", "Messaging": "green", "Meeting": "blue",
        "AI Session": "orange", "Browsing": "gray", "Switching": "yellow", "Fragmented": "red",
        "Idle": "gray" }[context.modeLabel])
    padding: 8

    RowLayout {
        width: parent.width
        spacing: 12
        Rectangle {
            objectName: "badge"
            Layout.preferredWidth: 76
            implicitHeight: badge.implicitHeight + 12
            radius: 8
            color: Theme.faded(card.modeColor, 0.15)
            ColumnLayout {
                id: badge
                anchors.centerIn: parent
                spacing: 2
                Symbol {
                    name: card.context.modeSymbol
                    size: 16
                    color: Theme.onFaded(card.modeColor)
                    Layout.alignment: Qt.AlignHCenter
                }
                TextLabel {
                    objectName: "modeLabel"
                    text: card.context.modeLabel
                    size: 10
                    font.weight: Font.DemiBold
                    color: Theme.onFaded(card.modeColor)
                    Layout.alignment: Qt.AlignHCenter
                }
            }
        }
        ColumnLayout {
            spacing: 4
            Layout.fillWidth: true
            RowLayout {
                objectName: "multiplierLine"
                visible: card.context.multiplier !== 1.0
                spacing: 4
                Symbol {
                    objectName: "multiplierArrow"
                    name: card.context.multiplier > 1.0 ? "arrow.up.circle.fill" : "arrow.down.circle.fill"
                    size: 12
                    color: card.context.multiplier > 1.0 ? Theme.green : Theme.orange
                }
                TextLabel { objectName: "multiplier"; text: Formats.multiplier(card.context.multiplier); size: 11 }
            }
            RowLayout {
                spacing: 4
                Symbol { name: "arrow.left.arrow.right"; size: 11; color: Theme.secondary }
                TextLabel {
                    objectName: "switches"
                    text: Formats.switches(card.context.switchesLastHour)
                    size: 11
                    secondary: true
                }
            }
            RowLayout {
                objectName: "projectLine"
                visible: !!card.spotlight.activeProject
                spacing: 4
                Symbol { name: "folder.fill"; size: 11; color: Theme.secondary }
                TextLabel { objectName: "project"; text: card.spotlight.activeProject || ""; size: 11; secondary: true }
            }
        }
    }
}

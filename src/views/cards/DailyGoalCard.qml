import QtQuick
import QtQuick.Layouts
import Mindmeter

// Progress towards the day's goal.
Card {
    id: card
    required property var store
    required property var preferences
    readonly property real goal: preferences.dailyGoal
    readonly property real progress: Math.min(store.totalWeighted / Math.max(goal, 1), 1.0)
    readonly property color progressColor: progress < 0.7 ? Theme.green : progress < 0.9 ? Theme.orange : Theme.red

    ColumnLayout {
        width: parent.width
        spacing: 8
        SectionLabel { title: "DAILY GOAL"; icon: "target" }
        RowLayout {
            Layout.fillWidth: true
            spacing: 4
            TextLabel { objectName: "total"; text: Formats.formatK(card.store.totalWeighted); size: 22; font.bold: true }
            TextLabel { objectName: "goal"; text: "/ " + Formats.formatK(card.goal); size: 13; secondary: true }
            Item { Layout.fillWidth: true }
            TextLabel {
                objectName: "percent"
                text: Formats.truncatedPercent(card.progress)
                size: 13
                font.weight: Font.DemiBold
                color: card.progressColor
            }
        }
        Item {
            Layout.fillWidth: true
            implicitHeight: 7
            Rectangle { id: track; anchors.fill: parent; radius: 3.5; color: Theme.faded(Theme.gray, 0.12) }
            Rectangle {
                objectName: "fill"
                height: parent.height
                width: Math.max(track.width * card.progress, 4)
                radius: 3.5
                color: card.progressColor
            }
        }
        TextLabel {
            objectName: "status"
            size: 10
            secondary: true
            text: card.progress < 0.3 ? "Early in the day \u2014 plenty of runway"
                : card.progress < 0.7 ? "On track"
                : card.progress < 0.9 ? "Approaching goal"
                : card.progress < 1.0 ? "Almost there!"
                : "Goal reached!"
        }
    }
}

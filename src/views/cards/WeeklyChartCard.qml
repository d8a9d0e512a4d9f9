import QtQuick
import QtQuick.Layouts
import Mindmeter

// The most recent days with activity, oldest first, and the peak hour.
Card {
    id: card
    required property var store
    readonly property var days: store.weeklyData
    readonly property real scale: Math.max(1, ...days.map(d => d.tokens))

    ColumnLayout {
        width: parent.width
        spacing: 8
        SectionLabel { title: "THIS WEEK"; icon: "calendar.badge.clock" }
        TextLabel {
            objectName: "empty"
            visible: card.days.length === 0
            text: "No history yet."
            size: 11
            secondary: true
        }
        Row {
            objectName: "bars"
            visible: card.days.length > 0
            Layout.fillWidth: true
            Layout.preferredHeight: 76
            spacing: 4
            readonly property real barWidth: card.days.length > 0
                ? (width - spacing * (card.days.length - 1)) / card.days.length : 0
            Repeater {
                model: card.days
                delegate: Column {
                    id: day
                    required property var modelData
                    anchors.bottom: parent ? parent.bottom : undefined
                    spacing: 3
                    Rectangle {
                        objectName: "bar"
                        width: parent ? parent.parent.barWidth : 0
                        height: Math.max(day.modelData.tokens / card.scale * 60, 3)
                        radius: 3
                        color: Theme.faded(Theme.blue, day.modelData.isToday ? 0.9 : 0.3)
                    }
                    TextLabel {
                        text: day.modelData.label
                        size: 8
                        secondary: true
                        width: parent ? parent.parent.barWidth : 0
                        horizontalAlignment: Text.AlignHCenter
                    }
                }
            }
        }
        Rectangle {
            visible: !!card.store.peakHourData
            Layout.fillWidth: true
            height: 1
            color: Theme.faded(Theme.gray, 0.25)
        }
        RowLayout {
            objectName: "peakHour"
            visible: !!card.store.peakHourData
            Layout.fillWidth: true
            spacing: 4
            Symbol { name: "crown.fill"; size: 11; color: Theme.yellow }
            TextLabel {
                objectName: "peakHourText"
                text: "Peak hour: " + (card.store.peakHourData ? card.store.peakHourData.label : "")
                size: 11
                secondary: true
                Layout.fillWidth: true
            }
            TextLabel {
                text: "avg across all days"
                size: 10
                color: Theme.faded(Theme.secondary, 0.6 * Theme.secondary.a)
            }
        }
    }
}

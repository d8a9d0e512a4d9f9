import QtQuick
import QtQuick.Layouts
import Mindmeter

// The recent days with activity: bar length against the best day shown, colour against
// the daily budget.
Card {
    id: card
    required property var store
    required property var preferences
    readonly property var days: store.historicalDays
    readonly property real scale: Math.max(1, ...days.map(d => d.tokens))

    function budgetColor(tokens) {
        const ratio = tokens / preferences.dailyBaseline
        return ratio < 0.4 ? Theme.green : ratio < 0.65 ? Theme.blue : ratio < 0.85 ? Theme.orange : Theme.red
    }

    ColumnLayout {
        width: parent.width
        spacing: 6
        SectionLabel { title: "HISTORY"; icon: "calendar" }
        TextLabel {
            objectName: "empty"
            visible: card.days.length === 0
            text: "No data yet \u2014 come back tomorrow!"
            size: 11
            secondary: true
        }
        Repeater {
            model: card.days
            delegate: RowLayout {
                id: row
                required property var modelData
                objectName: "day"
                Layout.fillWidth: true
                spacing: 6
                TextLabel {
                    text: row.modelData.label
                    size: 11
                    secondary: !row.modelData.isToday
                    Layout.preferredWidth: 70
                }
                Item {
                    Layout.fillWidth: true
                    implicitHeight: 7
                    Rectangle {
                        id: track
                        anchors.fill: parent
                        radius: 3.5
                        color: Theme.faded(Theme.gray, 0.12)
                    }
                    Rectangle {
                        objectName: "fill"
                        height: parent.height
                        width: Math.max(row.modelData.tokens * track.width / card.scale, 3)
                        radius: 3.5
                        color: Theme.faded(card.budgetColor(row.modelData.tokens),
                                           row.modelData.isToday ? 0.9 : 0.6)
                    }
                }
                TextLabel {
                    text: Formats.formatK(row.modelData.tokens)
                    size: 11
                    secondary: true
                    horizontalAlignment: Text.AlignRight
                    Layout.preferredWidth: 44
                }
            }
        }
    }
}

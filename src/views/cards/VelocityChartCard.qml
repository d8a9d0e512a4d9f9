import QtQuick
import QtQuick.Layouts
import Mindmeter

// Weighted tokens started in each of the last eight clock hours.
Card {
    id: card
    required property var monitor
    readonly property var entries: monitor.hourlyData
    readonly property real scale: Math.max(1, ...entries.map(e => e.tokens))

    ColumnLayout {
        width: parent.width
        spacing: 8
        SectionLabel { title: "VELOCITY \u2014 LAST 8 HOURS"; icon: "bolt.fill" }
        Row {
            Layout.alignment: Qt.AlignHCenter
            Layout.preferredHeight: 80
            spacing: 5
            Repeater {
                model: card.entries
                delegate: Column {
                    id: bar
                    required property var modelData
                    readonly property real fraction: modelData.tokens / card.scale
                    anchors.bottom: parent ? parent.bottom : undefined
                    spacing: 3
                    Rectangle {
                        objectName: "bar"
                        width: 30
                        height: Math.max(bar.fraction * 64, 3)
                        radius: 3
                        color: bar.fraction < 0.34 ? Theme.faded(Theme.green, 0.75)
                             : bar.fraction < 0.67 ? Theme.faded(Theme.blue, 0.75)
                             : Theme.faded(Theme.purple, 0.85)
                    }
                    TextLabel {
                        text: bar.modelData.label
                        size: 9
                        secondary: true
                        width: 30
                        horizontalAlignment: Text.AlignHCenter
                        elide: Text.ElideNone
                    }
                }
            }
        }
    }
}

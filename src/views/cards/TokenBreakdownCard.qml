import QtQuick
import QtQuick.Layouts
import Mindmeter

// Today's weighted tokens by kind, every kind shown even at zero.
Card {
    id: card
    required property var store

    ColumnLayout {
        width: parent.width
        spacing: 10
        SectionLabel { title: "BREAKDOWN"; icon: "chart.bar" }
        Repeater {
            model: TypeInfo.allCases
            delegate: RowLayout {
                id: row
                required property string modelData
                readonly property real count: card.store.tokensByType[modelData] || 0
                readonly property real fraction:
                    Math.min(1.0, count / Math.max(card.store.totalWeighted, 1))
                readonly property color typeColor: Theme.typeColor(modelData)
                objectName: "row_" + modelData
                Layout.fillWidth: true
                spacing: 0
                Symbol {
                    name: TypeInfo.symbol(row.modelData)
                    size: 12
                    font.weight: Font.Medium
                    color: row.typeColor
                    horizontalAlignment: Text.AlignHCenter
                    Layout.preferredWidth: 20
                }
                TextLabel { text: TypeInfo.label(row.modelData); size: 11; Layout.preferredWidth: 80 }
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
                        width: track.width * row.fraction
                        radius: 3.5
                        color: row.typeColor
                    }
                }
                TextLabel {
                    objectName: "count"
                    text: Formats.integer(row.count)
                    size: 11
                    secondary: true
                    horizontalAlignment: Text.AlignRight
                    Layout.preferredWidth: 44
                }
            }
        }
    }
}

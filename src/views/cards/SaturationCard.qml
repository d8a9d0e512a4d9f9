import QtQuick
import QtQuick.Layouts
import Mindmeter

// How much of the daily budget is used.
Card {
    id: card
    required property var store
    readonly property real value: store.contextSaturation
    readonly property var tier: value < 0.4 ? [Theme.green, "Fresh"]
                              : value < 0.7 ? [Theme.yellow, "Loading\u2026"]
                              : value < 0.9 ? [Theme.orange, "Near Limit"]
                              : [Theme.red, "Overload"]

    ColumnLayout {
        width: parent.width
        spacing: 8
        SectionLabel { title: "SATURATION"; icon: "memorychip" }
        TextLabel {
            objectName: "value"
            text: Formats.percent(card.value)
            size: 30
            font.bold: true
            color: card.tier[0]
        }
        TextLabel { objectName: "tier"; text: card.tier[1]; size: 11; secondary: true }
        GaugeBar { objectName: "gauge"; Layout.fillWidth: true; value: card.value; fillColor: card.tier[0] }
    }
}

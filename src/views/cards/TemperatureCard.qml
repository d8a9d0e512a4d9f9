import QtQuick
import QtQuick.Layouts
import Mindmeter

// How varied today's mix of work is.
Card {
    id: card
    required property var store
    readonly property real value: store.temperature
    readonly property var tier: value < 0.3 ? [Theme.blue, "Repetitive"]
                              : value < 0.6 ? [Theme.green, "Balanced"]
                              : value < 0.8 ? [Theme.orange, "Creative"]
                              : [Theme.red, "High Flux"]

    ColumnLayout {
        width: parent.width
        spacing: 8
        SectionLabel { title: "TEMPERATURE"; icon: "thermometer" }
        TextLabel {
            objectName: "value"
            text: Formats.percent(card.value)
            size: 30
            font.bold: true
            color: card.tier[0]
        }
        TextLabel { objectName: "tier"; text: card.tier[1]; size: 11; secondary: true }
        GaugeBar { objectName: "gauge"; Layout.fillWidth: true; value: card.value; thermometer: true }
    }
}

import QtQuick
import QtQuick.Layouts
import Mindmeter

// Copy the summary, or export the history as CSV.
Card {
    id: card
    required property var exporter
    property bool copied: false

    Timer {
        id: copiedReset
        interval: 2000
        onTriggered: card.copied = false
    }

    component ActionRow: MouseArea {
        id: action
        property string symbol
        property string title
        Layout.fillWidth: true
        implicitHeight: 24
        cursorShape: Qt.PointingHandCursor
        RowLayout {
            anchors.fill: parent
            spacing: 0
            Symbol { name: action.symbol; size: 13; color: Theme.blue; Layout.preferredWidth: 22 }
            TextLabel { objectName: "title"; text: action.title; size: 12; Layout.fillWidth: true }
            Symbol { name: "chevron.right"; size: 12; color: Theme.secondary }
        }
    }

    ColumnLayout {
        width: parent.width
        spacing: 6
        SectionLabel { title: "EXPORT"; icon: "square.and.arrow.up" }
        ActionRow {
            objectName: "copy"
            symbol: "doc.on.clipboard.fill"
            title: card.copied ? "Copied!" : "Copy Summary"
            onClicked: {
                card.exporter.copyMarkdownSummary()
                card.copied = true
                copiedReset.restart()
            }
        }
        Rectangle { Layout.fillWidth: true; height: 1; color: Theme.faded(Theme.gray, 0.25) }
        ActionRow {
            objectName: "csv"
            symbol: "arrow.down.circle.fill"
            title: "Export CSV\u2026"
            onClicked: card.exporter.exportCSV()
        }
    }
}

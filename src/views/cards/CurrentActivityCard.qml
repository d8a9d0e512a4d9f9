import QtQuick
import QtQuick.Layouts
import Mindmeter

// What is being tracked now: the front application and the kind of tokens it earns.
Card {
    id: card
    required property var monitor
    readonly property bool earning: monitor.currentRate !== 0
    readonly property color typeColor: Theme.typeColor(monitor.currentType)
    padding: 8

    RowLayout {
        width: parent.width
        spacing: 10
        Rectangle {
            objectName: "dot"
            width: 8; height: 8; radius: 4
            color: card.earning ? card.typeColor : Theme.faded(Theme.gray, 0.4)
        }
        TextLabel { text: "Now:"; size: 11; secondary: true }
        TextLabel {
            objectName: "app"
            text: card.monitor.currentApp
            size: 11
            font.weight: Font.Medium
            Layout.fillWidth: true
        }
        Rectangle {
            objectName: "pill"
            color: Theme.faded(Theme.gray, 0.1)
            radius: height / 2
            implicitWidth: pill.implicitWidth + 16
            implicitHeight: pill.implicitHeight + 8
            RowLayout {
                id: pill
                anchors.centerIn: parent
                spacing: 4
                Symbol {
                    name: card.earning ? TypeInfo.symbol(card.monitor.currentType) : "music.note"
                    size: 10
                    color: card.earning ? card.typeColor : Theme.secondary
                }
                TextLabel {
                    objectName: "pillText"
                    text: card.earning ? TypeInfo.label(card.monitor.currentType) : "no tokens"
                    size: 10
                    color: card.earning ? card.typeColor : Theme.secondary
                }
            }
        }
    }
}

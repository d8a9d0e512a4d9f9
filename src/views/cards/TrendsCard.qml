import QtQuick
import QtQuick.Layouts
import Mindmeter

// This week against last week, and the heaviest weekday.
Card {
    id: card
    required property var store
    readonly property var week: store.weekOverWeekData

    ColumnLayout {
        width: parent.width
        spacing: 8
        SectionLabel { title: "90-DAY TRENDS"; icon: "chart.line.uptrend.xyaxis" }
        TextLabel {
            objectName: "empty"
            visible: !card.week
            text: "Not enough history yet \u2014 check back in two weeks."
            size: 11
            secondary: true
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
        }
        RowLayout {
            visible: !!card.week
            Layout.fillWidth: true
            ColumnLayout {
                spacing: 2
                TextLabel { text: "This week"; size: 10; secondary: true }
                TextLabel { objectName: "thisWeek"; text: card.week ? Formats.formatK(card.week["this"]) : ""; size: 18 }
            }
            Item { Layout.fillWidth: true }
            ColumnLayout {
                spacing: 2
                TextLabel { text: "vs last week"; size: 10; secondary: true; Layout.alignment: Qt.AlignRight }
                TextLabel {
                    objectName: "change"
                    Layout.alignment: Qt.AlignRight
                    text: card.week ? Formats.change(card.week.change) : ""
                    size: 18
                    color: !card.week ? Theme.secondary
                         : card.week.change >= 0.05 ? Theme.red
                         : card.week.change <= -0.05 ? Theme.green
                         : Theme.secondary
                }
            }
        }
        Rectangle {
            visible: !!card.store.peakDayOfWeek
            Layout.fillWidth: true
            height: 1
            color: Theme.faded(Theme.gray, 0.25)
        }
        RowLayout {
            objectName: "peakDay"
            visible: !!card.store.peakDayOfWeek
            spacing: 4
            Symbol { name: "calendar.badge.exclamationmark"; size: 11; color: Theme.secondary }
            TextLabel { objectName: "peakDayText"; text: "Heaviest day: " + (card.store.peakDayOfWeek || ""); size: 11; secondary: true }
        }
    }
}

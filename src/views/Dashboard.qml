import QtQuick
import Mindmeter
import QtQuick.Layouts


// The column of cards, top to bottom. Used inside the scrolling popover and, at its full
// height, by the snapshot export.
ColumnLayout {
    id: column
    required property var store
    required property var monitor
    required property var context
    required property var spotlight
    required property var checker
    required property var exporter
    required property var preferences
    spacing: 8

    CurrentActivityCard { objectName: "CurrentActivityCard"; monitor: column.monitor; Layout.fillWidth: true }
    TotalTokensCard { objectName: "TotalTokensCard"; store: column.store; monitor: column.monitor; Layout.fillWidth: true }
    TokenBreakdownCard { objectName: "TokenBreakdownCard"; store: column.store; Layout.fillWidth: true }
    RowLayout {
        objectName: "GaugeRow"
        Layout.fillWidth: true
        spacing: 8
        TemperatureCard { objectName: "TemperatureCard"; store: column.store; Layout.fillWidth: true; Layout.preferredWidth: 1 }
        SaturationCard { objectName: "SaturationCard"; store: column.store; Layout.fillWidth: true; Layout.preferredWidth: 1 }
    }
    SessionModeCard {
        objectName: "SessionModeCard"
        context: column.context
        spotlight: column.spotlight
        Layout.fillWidth: true
    }
    VelocityChartCard { objectName: "VelocityChartCard"; monitor: column.monitor; Layout.fillWidth: true }
    WeeklyChartCard { objectName: "WeeklyChartCard"; store: column.store; Layout.fillWidth: true }
    DailyHistoryCard {
        objectName: "DailyHistoryCard"
        store: column.store
        preferences: column.preferences
        Layout.fillWidth: true
    }
    TrendsCard { objectName: "TrendsCard"; store: column.store; Layout.fillWidth: true }
    Loader {
        objectName: "DailyGoalSlot"
        active: column.preferences.goalEnabled
        visible: active
        Layout.fillWidth: true
        sourceComponent: DailyGoalCard {
            objectName: "DailyGoalCard"
            store: column.store
            preferences: column.preferences
        }
    }
    ExportCard { objectName: "ExportCard"; exporter: column.exporter; Layout.fillWidth: true }
    AppVersionRow { objectName: "AppVersionRow"; checker: column.checker; Layout.fillWidth: true }
}

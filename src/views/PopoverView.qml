import QtQuick
import Mindmeter
import QtQuick.Layouts

// The dashboard: the fixed header over a scrolling column of cards.
Rectangle {
    id: view
    required property var store
    required property var monitor
    required property var context
    required property var spotlight
    required property var checker
    required property var exporter
    required property var preferences
    property alias dashboard: dashboard
    property alias scroller: scroller
    color: Theme.windowBackground

    ColumnLayout {
        anchors.fill: parent
        spacing: 0
        PopoverHeader { objectName: "header"; Layout.fillWidth: true }
        Rectangle { Layout.fillWidth: true; height: 1; color: Theme.faded(Theme.gray, 0.3) }
        Flickable {
            id: scroller
            objectName: "scroller"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            contentWidth: width
            contentHeight: dashboard.implicitHeight + 20
            boundsBehavior: Flickable.StopAtBounds
            Dashboard {
                id: dashboard
                objectName: "dashboard"
                x: 10
                y: 10
                width: scroller.width - 20
                store: view.store
                monitor: view.monitor
                context: view.context
                spotlight: view.spotlight
                checker: view.checker
                exporter: view.exporter
                preferences: view.preferences
            }
        }
    }
}

import QtQuick
import QtQuick.Layouts
import Mindmeter

// The version, and the update button while a newer version is known.
RowLayout {
    id: row
    required property var checker
    property bool isDownloading: false
    property bool downloadFailed: false
    spacing: 6

    Connections {
        target: row.checker
        function onDownloadFinished(success) {
            row.isDownloading = false
            row.downloadFailed = !success
        }
    }
    TextLabel {
        objectName: "version"
        text: "v" + AppInfo.versionNumber + " \u00b7 " + AppInfo.versionDate
        size: 10
        secondary: true
        opacity: 0.7
    }
    Item { Layout.fillWidth: true }
    MouseArea {
        objectName: "update"
        visible: row.checker.updateAvailable
        implicitWidth: updateContent.implicitWidth
        implicitHeight: updateContent.implicitHeight
        cursorShape: Qt.PointingHandCursor
        onClicked: {
            if (row.isDownloading)
                return
            row.isDownloading = true
            row.downloadFailed = false
            row.checker.downloadAndOpenUpdate()
        }
        RowLayout {
            id: updateContent
            spacing: 4
            Symbol {
                visible: row.isDownloading
                name: "arrow.triangle.2.circlepath"
                size: 12
                color: Theme.orange
                RotationAnimator on rotation {
                    running: row.isDownloading
                    from: 0
                    to: 360
                    duration: 1200
                    loops: Animation.Infinite
                }
            }
            Symbol {
                visible: !row.isDownloading
                name: row.downloadFailed ? "exclamationmark.circle.fill" : "arrow.down.circle.fill"
                size: 11
                color: row.downloadFailed ? Theme.red : Theme.orange
            }
            TextLabel {
                objectName: "updateText"
                size: 10
                text: row.isDownloading ? "Downloading\u2026"
                    : row.downloadFailed ? "Failed \u2014 retry"
                    : row.checker.latestVersion + " available"
                color: row.isDownloading ? Theme.secondary : row.downloadFailed ? Theme.red : Theme.orange
            }
        }
    }
}

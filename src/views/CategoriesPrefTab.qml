import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Mindmeter

// Your own categories: the applications seen in the last 30 days, each reassigned with a
// click, and the rules made so far, each removable (the built-in list applies again).
Flickable {
    id: tab
    required property var categories
    contentHeight: column.implicitHeight + 24
    clip: true

    component Box: ColumnLayout {
        property string title
        default property alias content: inner.data
        Layout.fillWidth: true
        spacing: 4
        TextLabel { text: title; size: 11; font.weight: Font.DemiBold; secondary: true; Layout.leftMargin: 4 }
        Rectangle {
            Layout.fillWidth: true
            implicitHeight: inner.implicitHeight + 20
            radius: 8
            color: Theme.controlBackground
            ColumnLayout {
                id: inner
                anchors.fill: parent
                anchors.margins: 10
                spacing: 6
            }
        }
    }
    component Note: TextLabel {
        size: 10
        secondary: true
        wrapMode: Text.WordWrap
        elide: Text.ElideNone
        Layout.fillWidth: true
    }

    ColumnLayout {
        id: column
        x: 12; y: 12
        width: tab.width - 24
        spacing: 14

        Box {
            objectName: "unreadable"
            visible: tab.categories.rulesUnreadable
            title: "Your rules"
            Note { text: "The stored rules cannot be read and are ignored: the built-in categories apply." }
            Button {
                objectName: "removeUnreadable"
                text: "Remove the unreadable rules"
                onClicked: tab.categories.removeUnreadableRules()
            }
        }

        Box {
            title: "Applications (last 30 days)"
            Repeater {
                objectName: "applications"
                model: tab.categories.applications
                delegate: RowLayout {
                    required property var modelData
                    Layout.fillWidth: true
                    spacing: 8
                    ColumnLayout {
                        spacing: 0
                        Layout.fillWidth: true
                        TextLabel { text: modelData.name; size: 12; Layout.fillWidth: true }
                        TextLabel { text: modelData.bundleID; size: 9; secondary: true; Layout.fillWidth: true }
                    }
                    ComboBox {
                        objectName: "category_" + modelData.bundleID
                        enabled: !tab.categories.rulesUnreadable
                        model: tab.categories.categoryNames
                        currentIndex: model.indexOf(modelData.category)
                        // A rule of a type and a rate of its own shows as it is.
                        displayText: modelData.category
                        font.bold: modelData.ruled
                        implicitWidth: 150
                        onActivated: index => tab.categories.assign(modelData.bundleID, model[index])
                    }
                }
            }
            Note {
                visible: tab.categories.applications.length === 0
                text: "No applications recorded in the last 30 days yet."
            }
            Note { text: "Pick a category to reassign an application; it counts at the new rate from the next minute. Your choices (in bold) come before the built-in list." }
        }

        Box {
            title: "Your rules"
            visible: !tab.categories.rulesUnreadable
            Repeater {
                objectName: "rules"
                model: tab.categories.rules
                delegate: RowLayout {
                    required property var modelData
                    Layout.fillWidth: true
                    TextLabel {
                        text: (modelData.site ? "Site " : "") + modelData.match
                        size: 12
                        Layout.fillWidth: true
                    }
                    TextLabel { text: modelData.target; size: 12; secondary: true }
                    Button {
                        objectName: "remove_" + modelData.match
                        text: "Remove"
                        onClicked: tab.categories.removeRule(modelData.site, modelData.match)
                    }
                }
            }
            Note {
                visible: tab.categories.rules.length === 0
                text: "None yet. Sites and rates of your own can be set with \u201cmindmeter categories set\u201d."
            }
        }
    }
}

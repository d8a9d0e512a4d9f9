import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Mindmeter

// The preferences: tabs of settings, each written the moment it changes.
Pane {
    id: view
    required property var preferences
    // Launch at login and the digest's rescheduling.
    required property var actions
    // The user's own categories (CategoriesModel); the tab stays empty without it.
    property var categories: null
    property alias selectedTab: tabs.currentIndex
    width: 420
    height: 480
    padding: 0
    background: Rectangle { color: Theme.windowBackground }
    // The controls take the desktop's colours through the same palette as the cards.
    palette.window: Theme.windowBackground
    palette.windowText: Theme.primary
    palette.base: Theme.controlBackground
    palette.text: Theme.primary
    palette.button: Theme.controlBackground
    palette.buttonText: Theme.primary
    palette.highlight: Theme.blue
    palette.highlightedText: "white"
    palette.mid: Theme.faded(Theme.gray, 0.5)
    palette.dark: Theme.faded(Theme.gray, 0.7)
    palette.light: Theme.faded(Theme.gray, 0.2)

    component Section: ColumnLayout {
        property string title
        default property alias content: box.data
        Layout.fillWidth: true
        spacing: 4
        TextLabel { text: title; size: 11; font.weight: Font.DemiBold; secondary: true; Layout.leftMargin: 4 }
        Rectangle {
            Layout.fillWidth: true
            implicitHeight: box.implicitHeight + 20
            radius: 8
            color: Theme.controlBackground
            ColumnLayout {
                id: box
                anchors.fill: parent
                anchors.margins: 10
                spacing: 8
            }
        }
    }
    component Help: TextLabel {
        size: 10
        secondary: true
        wrapMode: Text.WordWrap
        elide: Text.ElideNone
        Layout.fillWidth: true
    }
    // A stepper: a value between from and to in fixed steps, shown through `text`.
    component Stepper: RowLayout {
        id: stepper
        property string label
        property string text
        property int value
        property int from
        property int to
        property int step
        signal moved(int value)
        Layout.fillWidth: true
        TextLabel { text: stepper.label; size: 12; Layout.fillWidth: true }
        TextLabel {
            objectName: "valueText"
            text: stepper.text
            size: 12
            font.family: Fonts.monospace
            horizontalAlignment: Text.AlignRight
            Layout.minimumWidth: 110
        }
        SpinBox { // only the up and down arrows: the value is the text beside them
            objectName: "spin"
            from: stepper.from
            to: stepper.to
            stepSize: stepper.step
            value: stepper.value
            editable: false
            implicitWidth: 22
            contentItem: Item {}
            background: Item {}
            onValueModified: stepper.moved(value)
        }
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0
        TabBar {
            id: tabs
            objectName: "tabs"
            Layout.fillWidth: true
            Repeater {
                model: [["General", "slider.horizontal.3"], ["Alerts", "star.fill"], ["System", "desktopcomputer"],
                        ["Categories", "square.grid.2x2"]]
                delegate: TabButton {
                    id: tab
                    required property var modelData
                    // The selected tab is marked by more than a shade, which a dark theme
                    // flattens: a raised fill, an accent line and full-strength text.
                    contentItem: RowLayout {
                        spacing: 4
                        Item { Layout.fillWidth: true }
                        Symbol { name: modelData[1]; size: 13; color: tab.checked ? Theme.blue : Theme.secondary }
                        TextLabel { text: modelData[0]; size: 12; secondary: !tab.checked; font.weight: tab.checked ? Font.DemiBold : Font.Normal }
                        Item { Layout.fillWidth: true }
                    }
                    background: Rectangle {
                        implicitHeight: 28
                        color: tab.checked ? Theme.controlBackground : Theme.windowBackground
                        Rectangle {
                            anchors.bottom: parent.bottom
                            width: parent.width
                            height: 2
                            color: Theme.blue
                            visible: tab.checked
                        }
                    }
                }
            }
        }
        StackLayout {
            currentIndex: tabs.currentIndex
            Layout.fillWidth: true
            Layout.fillHeight: true

            // General
            Flickable {
                contentHeight: general.implicitHeight + 24
                clip: true
                ColumnLayout {
                    id: general
                    x: 12; y: 12
                    width: parent.width - 24
                    spacing: 14
                    Section {
                        title: "Tracking"
                        Stepper {
                            objectName: "baseline"
                            label: "Daily context window"
                            text: Number(view.preferences.dailyBaseline).toLocaleString(Qt.locale(), "f", 0) + " tokens"
                            value: view.preferences.dailyBaseline
                            from: 5000; to: 200000; step: 5000
                            onMoved: value => view.preferences.dailyBaseline = value
                        }
                        Help { text: "The token ceiling for a fully saturated day. Default: 25 000 (\u2248 4 hours of deep work)." }
                        RowLayout {
                            Layout.fillWidth: true
                            TextLabel { text: "Idle timeout"; size: 12; Layout.fillWidth: true }
                            ComboBox {
                                objectName: "idleTimeout"
                                readonly property var minutes: [1, 3, 5, 10]
                                model: ["1 minute", "3 minutes", "5 minutes", "10 minutes"]
                                // A stored value that is none of the choices selects nothing.
                                currentIndex: minutes.indexOf(view.preferences.idleTimeoutMinutes)
                                onActivated: index => view.preferences.idleTimeoutMinutes = minutes[index]
                                implicitWidth: 140
                            }
                        }
                        Help { text: "How long without keyboard/mouse input before tracking pauses." }
                    }
                    Section {
                        title: "Menu Bar"
                        TextLabel { text: "Display"; size: 12 }
                        Repeater {
                            model: [["Icon and token count", "iconAndCount"], ["Icon only", "iconOnly"],
                                    ["Token count only", "countOnly"]]
                            delegate: RadioButton {
                                required property var modelData
                                palette.text: Theme.onFaded(Theme.blue) // the dot: the accent, lighter on a dark theme
                                objectName: "style_" + modelData[1]
                                text: modelData[0]
                                checked: view.preferences.menuBarStyle === modelData[1]
                                onClicked: view.preferences.menuBarStyle = modelData[1]
                            }
                        }
                        RowLayout {
                            Layout.fillWidth: true
                            TextLabel { text: "Show the count"; size: 12; Layout.fillWidth: true }
                            ComboBox {
                                objectName: "countPlacement"
                                readonly property var values: ["automatic", "beside", "inIcon"]
                                model: ["Automatically", "Beside the icon", "In the icon"]
                                currentIndex: values.indexOf(view.preferences.countPlacement)
                                onActivated: index => view.preferences.countPlacement = values[index]
                                implicitWidth: 150
                            }
                        }
                        Help { text: "Some panels draw no text beside icons; there the count is drawn into the icon. Choose here if the panel is guessed wrong." }
                    }
                }
            }

            // Alerts, digest and goal
            Flickable {
                contentHeight: alerts.implicitHeight + 24
                clip: true
                ColumnLayout {
                    id: alerts
                    x: 12; y: 12
                    width: parent.width - 24
                    spacing: 14
                    Section {
                        title: "Alerts"
                        Switch {
                            objectName: "alertEnabled"
                            text: "Alert at baseline threshold"
                            checked: view.preferences.alertEnabled
                            onToggled: view.preferences.alertEnabled = checked
                        }
                        Help { text: "Fire a notification when your daily token count crosses the configured %." }
                        Stepper {
                            objectName: "alertThreshold"
                            visible: view.preferences.alertEnabled
                            label: "Threshold"
                            text: view.preferences.alertThreshold + "% of baseline"
                            value: view.preferences.alertThreshold
                            from: 50; to: 95; step: 5
                            onMoved: value => view.preferences.alertThreshold = value
                        }
                        Switch {
                            objectName: "tempAlertEnabled"
                            text: "High-flux nudge"
                            checked: view.preferences.tempAlertEnabled
                            onToggled: view.preferences.tempAlertEnabled = checked
                        }
                        Help { text: "Notify when cognitive temperature stays above a threshold for a sustained period." }
                        Stepper {
                            objectName: "tempAlertThreshold"
                            visible: view.preferences.tempAlertEnabled
                            label: "Temperature above"
                            text: view.preferences.tempAlertThreshold + "%"
                            value: view.preferences.tempAlertThreshold
                            from: 70; to: 95; step: 5
                            onMoved: value => view.preferences.tempAlertThreshold = value
                        }
                        Stepper {
                            objectName: "tempAlertMinutes"
                            visible: view.preferences.tempAlertEnabled
                            label: "Sustained for"
                            text: view.preferences.tempAlertMinutes + " min"
                            value: view.preferences.tempAlertMinutes
                            from: 5; to: 60; step: 5
                            onMoved: value => view.preferences.tempAlertMinutes = value
                        }
                        Switch {
                            objectName: "endOfDayEnabled"
                            text: "End-of-day digest"
                            checked: view.preferences.endOfDayEnabled
                            onToggled: view.preferences.endOfDayEnabled = checked
                        }
                        Help { text: "A short summary of today's cognitive load at a time you choose." }
                        RowLayout {
                            objectName: "deliveryTime"
                            visible: view.preferences.endOfDayEnabled
                            Layout.fillWidth: true
                            readonly property int seconds: Math.floor(view.preferences.endOfDayTime)
                            function store(hours, minutes) {
                                view.preferences.endOfDayTime = hours * 3600 + minutes * 60
                                view.actions.rescheduleDigest()
                            }
                            TextLabel { text: "Delivery time"; size: 12; Layout.fillWidth: true }
                            SpinBox {
                                objectName: "hours"
                                from: 0; to: 23
                                value: Math.floor(parent.seconds / 3600) % 24
                                textFromValue: v => String(v).padStart(2, "0")
                                onValueModified: parent.store(value, Math.floor(parent.seconds % 3600 / 60))
                                implicitWidth: 80
                            }
                            TextLabel { text: ":"; size: 12 }
                            SpinBox {
                                objectName: "minutes"
                                from: 0; to: 59
                                value: Math.floor(parent.seconds % 3600 / 60)
                                textFromValue: v => String(v).padStart(2, "0")
                                onValueModified: parent.store(Math.floor(parent.seconds / 3600) % 24, value)
                                implicitWidth: 80
                            }
                        }
                    }
                    Section {
                        title: "Goal"
                        Switch {
                            objectName: "goalEnabled"
                            text: "Daily token goal"
                            checked: view.preferences.goalEnabled
                            onToggled: view.preferences.goalEnabled = checked
                        }
                        Help { text: "Show a progress bar toward a self-set daily token target." }
                        Stepper {
                            objectName: "dailyGoal"
                            visible: view.preferences.goalEnabled
                            label: "Target"
                            text: Formats.thousands(view.preferences.dailyGoal) + " tokens"
                            value: view.preferences.dailyGoal
                            from: 5000; to: 200000; step: 5000
                            onMoved: value => view.preferences.dailyGoal = value
                        }
                    }
                }
            }

            // System
            ColumnLayout {
                spacing: 14
                Section {
                    Layout.margins: 12
                    title: "System"
                    Switch {
                        objectName: "launchAtLogin"
                        text: "Launch at login"
                        checked: view.actions.launchAtLogin
                        onToggled: view.actions.setLaunchAtLogin(checked)
                    }
                    Help {
                        objectName: "launchAtLoginHelp"
                        visible: text.length > 0
                        text: view.actions.launchAtLoginHelp
                    }
                }
                Item { Layout.fillHeight: true }
            }

            Loader {
                active: view.categories !== null
                sourceComponent: CategoriesPrefTab { categories: view.categories }
            }
        }
    }
}

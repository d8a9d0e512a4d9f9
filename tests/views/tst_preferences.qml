import QtQuick
import QtQuick.Controls
import QtTest
import Mindmeter

// The preferences' controls on the live items: ranges, steps, what shows when, and what is
// written.
TestCase {
    id: test
    name: "Preferences"
    width: 420
    height: 480
    visible: true
    when: windowShown

    Fakes { id: fakes }
    function init() { failOnWarning(/.?/) } // any warning fails the test

    Component {
        id: preferencesView
        PreferencesView { preferences: fakes.preferences; actions: fakes.actions; categories: fakes.categories }
    }

    function make(tab) {
        const view = createTemporaryObject(preferencesView, test)
        verify(view)
        view.selectedTab = tab
        waitForRendering(view)
        return view
    }
    function spin(view, name) {
        const s = findChild(findChild(view, name), "spin")
        verify(s, name)
        return s
    }
    // Steps a stepper n times up (or down, for negative n) as the user would.
    function step(box, n) {
        for (let i = 0; i < Math.abs(n); ++i) {
            if (n > 0) box.increase(); else box.decrease()
            box.valueModified()
        }
    }

    function test_baselineStepper() {
        fakes.preferences.dailyBaseline = 25000
        const view = make(0)
        const box = spin(view, "baseline")
        compare(findChild(findChild(view, "baseline"), "valueText").text, "25,000 tokens")
        step(box, 1)
        compare(fakes.preferences.dailyBaseline, 30000)
        step(box, 100)
        compare(fakes.preferences.dailyBaseline, 200000)
        step(box, -100)
        compare(fakes.preferences.dailyBaseline, 5000)
        fakes.preferences.dailyBaseline = 25000
    }

    function test_idleTimeoutChoices() {
        fakes.preferences.idleTimeoutMinutes = 3
        const view = make(0)
        const combo = findChild(view, "idleTimeout")
        compare(combo.currentText, "3 minutes")
        fakes.preferences.idleTimeoutMinutes = 7 // none of the choices: nothing selected
        compare(combo.currentIndex, -1)
        compare(fakes.preferences.idleTimeoutMinutes, 7) // and left as it is
        combo.activated(3)
        compare(fakes.preferences.idleTimeoutMinutes, 10)
    }

    function test_menuBarStyle() {
        const view = make(0)
        verify(findChild(view, "style_iconAndCount").checked)
        mouseClick(findChild(view, "style_countOnly"))
        compare(fakes.preferences.menuBarStyle, "countOnly")
        verify(!findChild(view, "style_iconAndCount").checked)
        const placement = findChild(view, "countPlacement")
        compare(placement.currentText, "Automatically")
        placement.activated(2)
        compare(fakes.preferences.countPlacement, "inIcon")
    }

    function test_alertSteppers_data() {
        return [
            { name: "alertThreshold", key: "alertThreshold", toggle: "alertEnabled", from: 50, to: 95, start: 80 },
            { name: "tempAlertThreshold", key: "tempAlertThreshold", toggle: "tempAlertEnabled", from: 70, to: 95, start: 85 },
            { name: "tempAlertMinutes", key: "tempAlertMinutes", toggle: "tempAlertEnabled", from: 5, to: 60, start: 20 },
        ]
    }
    function test_alertSteppers(row) {
        fakes.preferences[row.toggle] = false
        const view = make(1)
        const stepper = findChild(view, row.name)
        verify(!stepper.visible) // only while its switch is on
        fakes.preferences[row.toggle] = true
        verify(stepper.visible)
        const box = spin(view, row.name)
        step(box, 1)
        compare(fakes.preferences[row.key], row.start + 5)
        step(box, 50)
        compare(fakes.preferences[row.key], row.to)
        step(box, -50)
        compare(fakes.preferences[row.key], row.from)
        fakes.preferences[row.key] = row.start
        fakes.preferences[row.toggle] = false
        compare(fakes.preferences[row.key], row.start) // hidden, not reset
    }

    function test_digestTime() {
        fakes.preferences.endOfDayEnabled = true
        fakes.preferences.endOfDayTime = 66600
        fakes.actions.testReschedules = 0
        const view = make(1)
        const hours = findChild(view, "hours")
        const minutes = findChild(view, "minutes")
        compare(hours.displayText, "18")
        compare(minutes.displayText, "30")
        minutes.increase()
        minutes.valueModified()
        compare(fakes.preferences.endOfDayTime, 18 * 3600 + 31 * 60)
        compare(fakes.actions.testReschedules, 1)
        hours.decrease()
        hours.valueModified()
        compare(fakes.preferences.endOfDayTime, 17 * 3600 + 31 * 60)
        compare(fakes.actions.testReschedules, 2)
        fakes.preferences.endOfDayEnabled = false
        verify(!findChild(view, "deliveryTime").visible)
    }

    function test_goal() {
        fakes.preferences.goalEnabled = true
        fakes.preferences.dailyGoal = 20000
        const view = make(1)
        compare(findChild(findChild(view, "dailyGoal"), "valueText").text, "20k tokens")
        mouseClick(findChild(view, "goalEnabled"))
        compare(fakes.preferences.goalEnabled, false)
        verify(!findChild(view, "dailyGoal").visible)
    }

    function test_launchAtLogin() {
        fakes.actions.testRequested = []
        const view = make(2)
        const toggle = findChild(view, "launchAtLogin")
        compare(toggle.checked, false)
        compare(findChild(view, "launchAtLoginHelp").text, "Enable to start Mindmeter automatically at login.")
        mouseClick(toggle)
        compare(fakes.actions.testRequested, [true])
        fakes.actions.launchAtLoginHelp = ""
        verify(!findChild(view, "launchAtLoginHelp").visible)
    }

    function test_categories() {
        const view = make(3)
        const kate = findChild(view, "category_org.kde.kate")
        verify(kate && kate.visible)
        // A rule of a type and a rate of its own shows as it is, and counts as the user's.
        const discord = findChild(view, "category_com.discord")
        compare(discord.displayText, "reasoning, 20 per minute")
        verify(discord.font.bold && !kate.font.bold)
        kate.activated(1)
        mouseClick(findChild(view, "remove_chat.example.com"))
        compare(fakes.categories.testCalls, [["assign", "org.kde.kate", "Writing"],
                                       ["remove", true, "chat.example.com"]])
        // Nothing can be reassigned on top of rules that cannot be read.
        fakes.categories.rulesUnreadable = true
        verify(!kate.enabled)
        verify(findChild(view, "unreadable").visible)
        fakes.categories.rulesUnreadable = false
    }
}

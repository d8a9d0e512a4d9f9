import QtQuick
import QtQuick.Controls
import Mindmeter

// The preferences' controls on the live items: ranges, steps, what shows when, and what is
// written.
ViewTestCase {
    id: test
    name: "Preferences"
    width: 420
    height: 480

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
    // Steps a stepper n times up (or down, for negative n) as the user would.
    function step(box, n) {
        for (let i = 0; i < Math.abs(n); ++i) {
            if (n > 0) box.increase(); else box.decrease()
            box.valueModified()
        }
    }

    // Each stepper: one step up, then to either end; shown only while its switch is on.
    function test_steppers_data() {
        return [
            { name: "baseline", tab: 0, step: 5000, from: 5000, to: 200000, start: 25000, shown: "25,000 tokens" },
            { name: "alertThreshold", tab: 1, toggle: "alertEnabled", step: 5, from: 50, to: 95, start: 80 },
            { name: "tempAlertThreshold", tab: 1, toggle: "tempAlertEnabled", step: 5, from: 70, to: 95, start: 85 },
            { name: "tempAlertMinutes", tab: 1, toggle: "tempAlertEnabled", step: 5, from: 5, to: 60, start: 20 },
            { name: "dailyGoal", tab: 1, toggle: "goalEnabled", step: 5000, from: 5000, to: 200000, start: 20000, shown: "20k tokens" },
        ]
    }
    function test_steppers(row) {
        const key = row.name === "baseline" ? "dailyBaseline" : row.name
        const view = make(row.tab)
        const stepper = findChild(view, row.name)
        if (row.toggle) {
            verify(!stepper.visible)
            fakes.preferences[row.toggle] = true
        }
        verify(stepper.visible)
        if (row.shown)
            compare(findChild(stepper, "valueText").text, row.shown)
        const box = findChild(stepper, "spin")
        step(box, 1)
        compare(fakes.preferences[key], row.start + row.step)
        step(box, 100)
        compare(fakes.preferences[key], row.to)
        step(box, -100)
        compare(fakes.preferences[key], row.from)
        if (row.toggle) {
            mouseClick(findChild(view, row.toggle))
            compare(fakes.preferences[row.toggle], false)
            verify(!stepper.visible)
            compare(fakes.preferences[key], row.from) // hidden, not reset
        }
    }

    function test_idleTimeoutAndStyle() {
        const view = make(0)
        const combo = findChild(view, "idleTimeout")
        compare(combo.currentText, "3 minutes")
        combo.activated(3)
        compare(fakes.preferences.idleTimeoutMinutes, 10)
        verify(findChild(view, "style_iconAndCount").checked)
        mouseClick(findChild(view, "style_countOnly"))
        compare(fakes.preferences.menuBarStyle, "countOnly")
        verify(!findChild(view, "style_iconAndCount").checked)
        compare(findChild(view, "countPlacement").currentText, "Automatically")
        findChild(view, "countPlacement").activated(2)
        compare(fakes.preferences.countPlacement, "inIcon")
    }

    function test_digestTime() {
        fakes.preferences.endOfDayEnabled = true
        const view = make(1)
        compare([findChild(view, "hours").displayText, findChild(view, "minutes").displayText],
                ["18", "30"])
        step(findChild(view, "minutes"), 1) // stored with the hour as it stands, and so on
        step(findChild(view, "hours"), -1)
        compare([fakes.preferences.endOfDayTime, fakes.actions.testReschedules], [17 * 3600 + 31 * 60, 2])
        fakes.preferences.endOfDayEnabled = false
        verify(!findChild(view, "deliveryTime").visible)
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
    }
}

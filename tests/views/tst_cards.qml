import QtQuick
import QtTest
import Mindmeter

// The rules the cards apply to their models: tiers, formats and what shows when.
TestCase {
    id: test
    name: "Cards"
    width: 380
    height: 600
    visible: true
    when: windowShown

    Fakes { id: fakes }
    function init() { failOnWarning(/.?/) } // any warning fails the test

    Component { id: temperatureCard; TemperatureCard { width: 180; store: fakes.store } }
    Component { id: saturationCard; SaturationCard { width: 180; store: fakes.store } }
    Component { id: breakdownCard; TokenBreakdownCard { width: 360; store: fakes.store } }
    Component { id: activityCard; CurrentActivityCard { width: 360; monitor: fakes.monitor } }
    Component { id: modeCard; SessionModeCard { width: 360; context: fakes.context; spotlight: fakes.spotlight } }
    Component { id: goalCard; DailyGoalCard { width: 360; store: fakes.store; preferences: fakes.preferences } }
    Component { id: trendsCard; TrendsCard { width: 360; store: fakes.store } }
    Component { id: historyCard; DailyHistoryCard { width: 360; store: fakes.store; preferences: fakes.preferences } }
    Component { id: velocityCard; VelocityChartCard { width: 360; monitor: fakes.monitor } }
    Component { id: weeklyCard; WeeklyChartCard { width: 360; store: fakes.store } }

    function make(component) {
        const item = createTemporaryObject(component, test)
        verify(item)
        waitForRendering(item)
        return item
    }
    function child(item, name) {
        const found = findChild(item, name)
        verify(found, "no " + name)
        return found
    }
    function sameColor(actual, expected, message) {
        const a = Qt.color(actual), e = Qt.color(expected)
        const close = (x, y) => Math.abs(x - y) < 0.01
        verify(close(a.r, e.r) && close(a.g, e.g) && close(a.b, e.b) && close(a.a, e.a),
               message + ": " + actual + " is not " + expected)
    }

    function test_temperatureTiers_data() {
        return [
            { v: 0.0, text: "0%", word: "Repetitive", color: Theme.blue },
            { v: 0.2999, text: "30%", word: "Repetitive", color: Theme.blue },
            { v: 0.3, text: "30%", word: "Balanced", color: Theme.green },
            { v: 0.6, text: "60%", word: "Creative", color: Theme.orange },
            { v: 0.8, text: "80%", word: "High Flux", color: Theme.red },
            { v: 1.0, text: "100%", word: "High Flux", color: Theme.red },
        ]
    }
    function test_temperatureTiers(row) {
        fakes.store.temperature = row.v
        const card = make(temperatureCard)
        compare(child(card, "value").text, row.text)
        compare(child(card, "tier").text, row.word)
        sameColor(child(card, "value").color, row.color, "tier colour")
    }

    function test_saturationTiers_data() {
        return [
            { v: 0.39, word: "Fresh", color: Theme.green },
            { v: 0.4, word: "Loading\u2026", color: Theme.yellow },
            { v: 0.7, word: "Near Limit", color: Theme.orange },
            { v: 0.9, word: "Overload", color: Theme.red },
        ]
    }
    function test_saturationTiers(row) {
        fakes.store.contextSaturation = row.v
        const card = make(saturationCard)
        compare(child(card, "tier").text, row.word)
        sameColor(child(card, "value").color, row.color, "tier colour")
        sameColor(child(child(card, "gauge"), "fill").color, row.color, "bar colour")
    }

    function test_gaugeKeepsADotAtZero() {
        fakes.store.contextSaturation = 0
        const card = make(saturationCard)
        compare(child(child(card, "gauge"), "fill").width, 4)
        fakes.store.contextSaturation = 0.5
        const gauge = child(card, "gauge")
        fuzzyCompare(child(gauge, "fill").width, gauge.width * 0.5, 0.01)
    }

    function test_breakdown() {
        fakes.store.totalWeighted = 0
        fakes.store.tokensByType = {}
        let card = make(breakdownCard)
        for (const type of ["reasoning", "output", "input", "ai"]) {
            const row = child(card, "row_" + type)
            compare(child(row, "count").text, "0")
            compare(child(row, "fill").width, 0)
        }
        fakes.store.totalWeighted = 1500
        fakes.store.tokensByType = { ai: 1500 }
        card = make(breakdownCard)
        const ai = child(card, "row_ai")
        compare(child(ai, "count").text, "1500") // plain, not 1.5k
        const track = child(ai, "fill").parent
        fuzzyCompare(child(ai, "fill").width, track.width, 0.01)
        compare(child(child(card, "row_output"), "fill").width, 0)
    }

    function test_currentActivity() {
        fakes.monitor.currentRate = 8
        let card = make(activityCard)
        compare(child(card, "pillText").text, "Reasoning")
        sameColor(child(card, "dot").color, Theme.purple, "earning dot")
        fakes.monitor.currentRate = 0
        compare(child(card, "pillText").text, "no tokens")
        sameColor(child(card, "dot").color, Theme.faded(Theme.gray, 0.4), "idle dot")
        compare(child(card, "app").text, "Terminal")
    }

    function test_modeCard() {
        fakes.context.multiplier = 1.0
        const card = make(modeCard)
        verify(!child(card, "multiplierLine").visible)
        fakes.context.multiplier = 1.5
        verify(child(card, "multiplierLine").visible)
        compare(child(card, "multiplier").text, "\u00d71.5 token multiplier")
        sameColor(child(card, "multiplierArrow").color, Theme.green, "up arrow")
        fakes.context.multiplier = 0.5
        compare(child(card, "multiplier").text, "\u00d70.5 token multiplier")
        sameColor(child(card, "multiplierArrow").color, Theme.orange, "down arrow")

        for (const [count, text] of [[0, "0 app switches this hour"], [1, "1 app switch this hour"],
                                      [7, "7 app switches this hour"]]) {
            fakes.context.switchesLastHour = count
            compare(child(card, "switches").text, text)
        }
        verify(!child(card, "projectLine").visible)
        fakes.spotlight.activeProject = "mindmeter"
        verify(child(card, "projectLine").visible)
        compare(child(card, "project").text, "mindmeter")
        fakes.spotlight.activeProject = undefined
        fakes.context.modeLabel = "Fragmented"
        sameColor(child(card, "modeLabel").color, Theme.red, "fragmented is red")
    }

    function test_goal_data() {
        return [
            { total: 0, goal: 20000, percent: "0%", status: "Early in the day \u2014 plenty of runway", color: Theme.green },
            { total: 6000, goal: 20000, percent: "30%", status: "On track", color: Theme.green },
            { total: 14000, goal: 20000, percent: "70%", status: "Approaching goal", color: Theme.orange },
            { total: 18000, goal: 20000, percent: "90%", status: "Almost there!", color: Theme.red },
            { total: 20000, goal: 20000, percent: "100%", status: "Goal reached!", color: Theme.red },
            { total: 55000, goal: 20000, percent: "100%", status: "Goal reached!", color: Theme.red },
            { total: 5, goal: 0, percent: "100%", status: "Goal reached!", color: Theme.red },
        ]
    }
    function test_goal(row) {
        fakes.store.totalWeighted = row.total
        fakes.preferences.dailyGoal = row.goal
        const card = make(goalCard)
        compare(child(card, "percent").text, row.percent)
        compare(child(card, "status").text, row.status)
        sameColor(child(card, "percent").color, row.color, "progress colour")
        verify(child(card, "fill").width >= 4)
        fakes.preferences.dailyGoal = 20000
    }

    function test_trends_data() {
        return [
            { change: 0, text: "\u21910%", color: Theme.secondary },
            { change: 0.05, text: "\u21915%", color: Theme.red },
            { change: -0.05, text: "\u21935%", color: Theme.green },
            { change: -0.123, text: "\u219312%", color: Theme.green },
            { change: 0.049, text: "\u21914%", color: Theme.secondary },
        ]
    }
    function test_trends(row) {
        fakes.store.weekOverWeekData = { "this": 12300, "last": 10000, "change": row.change }
        fakes.store.peakDayOfWeek = "Tuesday"
        const card = make(trendsCard)
        compare(child(card, "change").text, row.text)
        sameColor(child(card, "change").color, row.color, "change colour")
        compare(child(card, "thisWeek").text, "12.3k")
        verify(!child(card, "empty").visible)
        compare(child(card, "peakDayText").text, "Heaviest day: Tuesday")
        fakes.store.weekOverWeekData = undefined
        fakes.store.peakDayOfWeek = undefined
        verify(child(card, "empty").visible)
        verify(!child(card, "peakDay").visible)
    }

    function test_historyColoursFollowTheBudget() {
        fakes.store.historicalDays = [
            { label: "Today", tokens: 10000, isToday: true },   // 0.4 of 25000: blue
            { label: "Yest.", tokens: 21250, isToday: false },  // 0.85: red
            { label: "Mon", tokens: 0, isToday: false },        // still a stub
        ]
        const card = make(historyCard)
        const fills = findChildren(card, "fill")
        compare(fills.length, 3)
        sameColor(fills[0].color, Theme.faded(Theme.blue, 0.9), "today at 0.4")
        sameColor(fills[1].color, Theme.faded(Theme.red, 0.6), "0.85 of the budget")
        compare(fills[2].width, 3)
        fuzzyCompare(fills[1].width, fills[1].parent.width, 0.01) // the best day fills the track
        fakes.store.historicalDays = []
        verify(child(card, "empty").visible)
    }

    function test_chartsWithNothingToShow() {
        fakes.monitor.hourlyData = [0, 1, 2, 3, 4, 5, 6, 7].map(h => ({ hour: h, label: h + " AM", tokens: 0 }))
        const velocity = make(velocityCard)
        const bars = findChildren(velocity, "bar")
        compare(bars.length, 8)
        for (const bar of bars)
            compare(bar.height, 3)
        fakes.store.weeklyData = []
        const weekly = make(weeklyCard)
        verify(child(weekly, "empty").visible)
        verify(!child(weekly, "bars").visible)
        verify(!child(weekly, "peakHour").visible)
    }

    function test_velocityBarColours() {
        fakes.monitor.hourlyData = [{ hour: 1, label: "1 AM", tokens: 33 }, { hour: 2, label: "2 AM", tokens: 34 },
                              { hour: 3, label: "3 AM", tokens: 67 }, { hour: 4, label: "4 AM", tokens: 100 }]
        const bars = findChildren(make(velocityCard), "bar")
        sameColor(bars[0].color, Theme.faded(Theme.green, 0.75), "0.33")
        sameColor(bars[1].color, Theme.faded(Theme.blue, 0.75), "0.34")
        sameColor(bars[2].color, Theme.faded(Theme.purple, 0.85), "0.67")
        compare(bars[3].height, 64)
    }

    function findChildren(item, name) {
        let found = []
        for (let i = 0; i < item.children.length; ++i) {
            const c = item.children[i]
            if (c.objectName === name)
                found.push(c)
            found = found.concat(findChildren(c, name))
        }
        return found
    }
}

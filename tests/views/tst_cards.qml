import QtQuick
import Mindmeter

// The rules the cards apply to their models: tiers, formats and what shows when.
ViewTestCase {
    id: test
    name: "Cards"
    width: 380
    height: 600

    Component { id: temperatureCard; TemperatureCard { width: 180; store: fakes.store } }
    Component { id: saturationCard; SaturationCard { width: 180; store: fakes.store } }
    Component { id: breakdownCard; TokenBreakdownCard { width: 360; store: fakes.store } }
    Component { id: historyCard; DailyHistoryCard { width: 360; store: fakes.store; preferences: fakes.preferences } }
    Component { id: weeklyCard; WeeklyChartCard { width: 360; store: fakes.store } }
    Component { id: activityCard; CurrentActivityCard { width: 360; monitor: fakes.monitor } }
    Component { id: modeCard; SessionModeCard { width: 360; context: fakes.context; spotlight: fakes.spotlight } }
    Component { id: goalCard; DailyGoalCard { width: 360; store: fakes.store; preferences: fakes.preferences } }
    Component { id: trendsCard; TrendsCard { width: 360; store: fakes.store } }

    function make(component) {
        const item = createTemporaryObject(component, test)
        verify(item)
        waitForRendering(item)
        return item
    }
    function child(item, path) { // "row_ai/count": count in row_ai
        for (const name of path.split("/"))
            verify(item = findChild(item, name), "no " + name)
        return item
    }
    function sameColor(actual, expected, message) {
        const a = Qt.color(actual), e = Qt.color(expected)
        const close = (x, y) => Math.abs(x - y) < 0.01
        verify(close(a.r, e.r) && close(a.g, e.g) && close(a.b, e.b) && close(a.a, e.a),
               message + ": " + actual + " is not " + expected)
    }

    // Each row: a card, what its models say ("role.property"), and the texts, colours and
    // visibility of its named parts.
    function test_card_data() {
        const week = { "this": 12300, "last": 10000, "change": 0 }
        const trend = (change) => ({ "store.weekOverWeekData": Object.assign({}, week, { change: change }), "store.peakDayOfWeek": "Tuesday" })
        return [
            { tag: "temperature rounds, tier below", card: temperatureCard, set: { "store.temperature": 0.2999 }, text: { value: "30%", tier: "Repetitive" }, color: { value: Theme.blue } },
            { tag: "temperature 0.3", card: temperatureCard, set: { "store.temperature": 0.3 }, text: { tier: "Balanced" }, color: { value: Theme.green } },
            { tag: "temperature 1.0", card: temperatureCard, set: { "store.temperature": 1.0 }, text: { value: "100%", tier: "High Flux" }, color: { value: Theme.red } },
            { tag: "saturation 0.39", card: saturationCard, set: { "store.contextSaturation": 0.39 }, text: { tier: "Fresh" }, color: { value: Theme.green, fill: Theme.green } },
            { tag: "saturation 0.4", card: saturationCard, set: { "store.contextSaturation": 0.4 }, text: { tier: "Loading\u2026" }, color: { value: Theme.yellow, fill: Theme.yellow } },
            { tag: "saturation 0.9", card: saturationCard, set: { "store.contextSaturation": 0.9 }, text: { tier: "Overload" }, color: { value: Theme.red, fill: Theme.red } },
            { tag: "goal at 0", card: goalCard, set: { "store.totalWeighted": 0 }, text: { percent: "0%", status: "Early in the day \u2014 plenty of runway" }, color: { percent: Theme.green } },
            { tag: "goal at 30%", card: goalCard, set: { "store.totalWeighted": 6000 }, text: { percent: "30%", status: "On track" }, color: { percent: Theme.green } },
            { tag: "goal at 90%", card: goalCard, set: { "store.totalWeighted": 18000 }, text: { percent: "90%", status: "Almost there!" }, color: { percent: Theme.red } },
            { tag: "goal passed", card: goalCard, set: { "store.totalWeighted": 55000 }, text: { percent: "100%", status: "Goal reached!" }, color: { percent: Theme.red } },
            { tag: "no goal", card: goalCard, set: { "store.totalWeighted": 5, "preferences.dailyGoal": 0 }, text: { percent: "100%", status: "Goal reached!" } },
            { tag: "week unchanged", card: trendsCard, set: trend(0), text: { change: "\u21910%", thisWeek: "12.3k", peakDayText: "Heaviest day: Tuesday" }, color: { change: Theme.secondary }, shown: { empty: false, peakDay: true } },
            { tag: "week up under 5%", card: trendsCard, set: trend(0.049), text: { change: "\u21914%" }, color: { change: Theme.secondary } },
            { tag: "week down", card: trendsCard, set: trend(-0.123), text: { change: "\u219312%" }, color: { change: Theme.green } },
            { tag: "no weeks", card: trendsCard, set: {}, shown: { empty: true, peakDay: false } },
            { tag: "breakdown, nothing yet", card: breakdownCard, text: { "row_ai/count": "0", "row_reasoning/count": "0" } },
            { tag: "breakdown, plain count", card: breakdownCard, set: { "store.totalWeighted": 1500, "store.tokensByType": { ai: 1500 } }, text: { "row_ai/count": "1500", "row_output/count": "0" } },
            { tag: "no history", card: historyCard, shown: { empty: true } },
            { tag: "no weeks of hours", card: weeklyCard, shown: { empty: true, bars: false, peakHour: false } },
            { tag: "earning", card: activityCard, set: { "monitor.currentRate": 8 }, text: { pillText: "Reasoning", app: "Terminal" }, color: { dot: Theme.purple } },
            { tag: "not earning", card: activityCard, set: { "monitor.currentRate": 0 }, text: { pillText: "no tokens" }, color: { dot: Theme.faded(Theme.gray, 0.4) } },
            { tag: "no multiplier", card: modeCard, set: { "context.multiplier": 1.0 }, shown: { multiplierLine: false, projectLine: false } },
            { tag: "multiplier up", card: modeCard, set: { "context.multiplier": 1.5 }, text: { multiplier: "\u00d71.5 token multiplier" }, color: { multiplierArrow: Theme.green }, shown: { multiplierLine: true } },
            { tag: "multiplier down", card: modeCard, set: { "context.multiplier": 0.5 }, text: { multiplier: "\u00d70.5 token multiplier" }, color: { multiplierArrow: Theme.orange } },
            { tag: "one switch", card: modeCard, set: { "context.switchesLastHour": 1 }, text: { switches: "1 app switch this hour" } },
            { tag: "a project", card: modeCard, set: { "spotlight.activeProject": "mindmeter" }, text: { project: "mindmeter" }, shown: { projectLine: true } },
            { tag: "fragmented", card: modeCard, set: { "context.modeLabel": "Fragmented" }, color: { modeLabel: Theme.red } },
        ]
    }
    function test_card(row) {
        for (const key in row.set)
            fakes[key.split(".")[0]][key.split(".")[1]] = row.set[key]
        const card = make(row.card)
        for (const name in row.text)
            compare(child(card, name).text, row.text[name], name)
        for (const name in row.color)
            sameColor(child(card, name).color, row.color[name], name)
        for (const name in row.shown)
            compare(child(card, name).visible, row.shown[name], name)
    }

}

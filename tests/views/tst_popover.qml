import QtQuick
import QtTest
import Mindmeter

// The popover's root: welcome page or dashboard, and what finishing the welcome does.
TestCase {
    id: test
    name: "Popover"
    width: 380
    height: 460
    visible: true
    when: windowShown

    QtObject {
        id: fakeStore
        property real totalWeighted: 12345
        property var tokensByType: ({ reasoning: 12345 })
        property real temperature: 0
        property real contextSaturation: 0.5
        property var weeklyData: []
        property var historicalDays: []
        property var peakHourData: undefined
        property var weekOverWeekData: undefined
        property var peakDayOfWeek: undefined
    }
    QtObject {
        id: fakeMonitor
        property string currentApp: "Terminal"
        property string currentType: "reasoning"
        property int currentRate: 8
        property real tokenVelocity: 0
        property var hourlyData: []
    }
    QtObject {
        id: fakeContext
        property string modeLabel: "Idle"
        property string modeSymbol: "moon"
        property real multiplier: 1.0
        property int switchesLastHour: 0
    }
    QtObject { id: fakeSpotlight; property var activeProject: undefined }
    QtObject {
        id: fakeChecker
        property bool updateAvailable: false
        property string latestVersion: "1.5.0"
        property int downloads: 0
        signal downloadFinished(bool success)
        function downloadAndOpenUpdate() { ++downloads }
    }
    QtObject {
        id: fakeExporter
        property int copies: 0
        property int exports: 0
        function copyMarkdownSummary() { ++copies }
        function exportCSV() { ++exports }
    }
    QtObject {
        id: fakePreferences
        property bool hasLaunchedBefore: false
        property bool goalEnabled: false
        property real dailyGoal: 20000
        property real dailyBaseline: 25000
    }
    QtObject {
        id: fakeEvents
        property int onboardingCompletions: 0
        property string desktopNotice: ""
        function postOnboardingComplete() { ++onboardingCompletions }
    }

    Component {
        id: rootView
        RootPopoverView {
            store: fakeStore; monitor: fakeMonitor; context: fakeContext; spotlight: fakeSpotlight
            checker: fakeChecker; exporter: fakeExporter; preferences: fakePreferences; events: fakeEvents
        }
    }

    function make() {
        const root = createTemporaryObject(rootView, test)
        verify(root)
        waitForRendering(root)
        return root
    }

    function test_firstLaunchShowsTheWelcomePage() {
        fakePreferences.hasLaunchedBefore = false
        fakeEvents.onboardingCompletions = 0
        const root = make()
        compare(root.width, 380)
        compare(root.height, 460)
        const button = findChild(root, "getStarted")
        verify(button, "the welcome page is shown")
        verify(!findChild(root, "popover"))
        // What keeps the desktop from being followed is said there, and goes when it is fixed.
        const notice = findChild(root, "desktopNotice")
        verify(!notice.visible)
        fakeEvents.desktopNotice = "Turn it on with gnome-extensions enable x"
        verify(notice.visible)
        compare(notice.text, fakeEvents.desktopNotice)
        fakeEvents.desktopNotice = ""
        verify(!notice.visible)
        mouseClick(button)
        compare(fakePreferences.hasLaunchedBefore, true)
        compare(fakeEvents.onboardingCompletions, 1)
        tryVerify(() => findChild(root, "popover") !== null)
        tryVerify(() => findChild(root, "getStarted") === null)
        compare(fakeEvents.onboardingCompletions, 1)
    }

    function test_dashboardColumn() {
        fakePreferences.hasLaunchedBefore = true
        fakePreferences.goalEnabled = false
        const root = make()
        const dashboard = findChild(root, "dashboard")
        verify(dashboard)
        const visibleEntries = () => {
            const names = []
            for (let i = 0; i < dashboard.children.length; ++i)
                if (dashboard.children[i].visible)
                    names.push(dashboard.children[i].objectName)
            return names
        }
        compare(visibleEntries(), ["CurrentActivityCard", "TotalTokensCard", "TokenBreakdownCard",
                                   "GaugeRow", "SessionModeCard", "VelocityChartCard",
                                   "WeeklyChartCard", "DailyHistoryCard", "TrendsCard",
                                   "ExportCard", "AppVersionRow"])
        fakePreferences.goalEnabled = true
        tryVerify(() => findChild(root, "DailyGoalCard") !== null)
        const entries = visibleEntries()
        compare(entries.length, 12)
        compare(entries[9], "DailyGoalSlot") // between the trends and the export
        fakePreferences.goalEnabled = false
        tryVerify(() => findChild(root, "DailyGoalCard") === null)

        // The column scrolls under the header; the header stays.
        const scroller = findChild(root, "scroller")
        verify(scroller.contentHeight > scroller.height)
        const header = findChild(root, "header")
        const headerY = header.mapToItem(root, 0, 0).y
        scroller.contentY = 200
        compare(header.mapToItem(root, 0, 0).y, headerY)
    }

    function test_exportCard() {
        fakePreferences.hasLaunchedBefore = true
        fakeExporter.copies = 0
        const root = make()
        const copy = findChild(root, "copy")
        const scroller = findChild(root, "scroller")
        scroller.contentY = scroller.contentHeight - scroller.height
        waitForRendering(root)
        mouseClick(copy)
        compare(fakeExporter.copies, 1)
        compare(findChild(copy, "title").text, "Copied!")
        tryCompare(findChild(copy, "title"), "text", "Copy Summary", 3000)
        mouseClick(findChild(root, "csv"))
        compare(fakeExporter.exports, 1)
    }

    function test_updateButton() {
        fakePreferences.hasLaunchedBefore = true
        fakeChecker.updateAvailable = false
        const root = make()
        const button = findChild(root, "update")
        verify(!button.visible)
        fakeChecker.updateAvailable = true
        verify(button.visible)
        const text = findChild(root, "updateText")
        compare(text.text, "1.5.0 available")
        const scroller = findChild(root, "scroller")
        scroller.contentY = scroller.contentHeight - scroller.height
        waitForRendering(root)
        fakeChecker.downloads = 0
        mouseClick(button)
        compare(text.text, "Downloading\u2026")
        mouseClick(button) // nothing further while a download runs
        compare(fakeChecker.downloads, 1)
        fakeChecker.downloadFinished(false)
        compare(text.text, "Failed \u2014 retry")
        mouseClick(button)
        compare(fakeChecker.downloads, 2)
        fakeChecker.downloadFinished(true)
        compare(text.text, "1.5.0 available")
        compare(findChild(root, "version").text, "v1.4.5 \u00b7 2026-05-30")
    }
}

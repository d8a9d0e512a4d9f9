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

    Fakes { id: fakes }
    function init() { failOnWarning(/.?/) } // any warning fails the test

    Component {
        id: rootView
        RootPopoverView {
            store: fakes.store; monitor: fakes.monitor; context: fakes.context; spotlight: fakes.spotlight
            checker: fakes.checker; exporter: fakes.exporter; preferences: fakes.preferences; events: fakes.events
            onboardingNote: fakes.onboardingNote
        }
    }

    // `realMembers` (set by tst_views.cpp) lists each real object's members by role.
    function test_fakesOfferOnlyWhatTheRealObjectsHave() {
        compare(fakes.drift(realMembers), [])
    }

    function make() {
        const root = createTemporaryObject(rootView, test)
        verify(root)
        waitForRendering(root)
        return root
    }

    function test_firstLaunchShowsTheWelcomePage() {
        fakes.preferences.hasLaunchedBefore = false
        fakes.events.testOnboardingCompletions = 0
        const root = make()
        const button = findChild(root, "getStarted")
        verify(button, "the welcome page is shown")
        // The last row says what the desktop's backend says, and follows it.
        const note = findChild(root, "noteRow")
        compare(note.title, "One extension needed")
        fakes.onboardingNote.title = "Shell extension on"
        compare(note.title, "Shell extension on")
        fakes.onboardingNote.title = "One extension needed"
        verify(!findChild(root, "popover"))
        mouseClick(button)
        compare(fakes.preferences.hasLaunchedBefore, true)
        compare(fakes.events.testOnboardingCompletions, 1)
        tryVerify(() => findChild(root, "popover") !== null)
        tryVerify(() => findChild(root, "getStarted") === null)
        compare(fakes.events.testOnboardingCompletions, 1)
    }

    function test_dashboardColumn() {
        fakes.preferences.hasLaunchedBefore = true
        fakes.preferences.goalEnabled = false
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
        fakes.preferences.goalEnabled = true
        tryVerify(() => findChild(root, "DailyGoalCard") !== null)
        const entries = visibleEntries()
        compare(entries.length, 12)
        compare(entries[9], "DailyGoalSlot") // between the trends and the export
        fakes.preferences.goalEnabled = false
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
        fakes.preferences.hasLaunchedBefore = true
        fakes.exporter.testCopies = 0
        const root = make()
        const copy = findChild(root, "copy")
        const scroller = findChild(root, "scroller")
        scroller.contentY = scroller.contentHeight - scroller.height
        waitForRendering(root)
        mouseClick(copy)
        compare(fakes.exporter.testCopies, 1)
        compare(findChild(copy, "title").text, "Copied!")
        tryCompare(findChild(copy, "title"), "text", "Copy Summary", 3000)
        mouseClick(findChild(root, "csv"))
        compare(fakes.exporter.testExports, 1)
    }

    function test_updateButton() {
        fakes.preferences.hasLaunchedBefore = true
        fakes.checker.updateAvailable = false
        const root = make()
        const button = findChild(root, "update")
        verify(!button.visible)
        fakes.checker.updateAvailable = true
        verify(button.visible)
        const text = findChild(root, "updateText")
        compare(text.text, "1.5.0 available")
        const scroller = findChild(root, "scroller")
        scroller.contentY = scroller.contentHeight - scroller.height
        waitForRendering(root)
        fakes.checker.testDownloads = 0
        mouseClick(button)
        compare(text.text, "Downloading\u2026")
        mouseClick(button) // nothing further while a download runs
        compare(fakes.checker.testDownloads, 1)
        fakes.checker.downloadFinished(false)
        compare(text.text, "Failed \u2014 retry")
        mouseClick(button)
        compare(fakes.checker.testDownloads, 2)
        fakes.checker.downloadFinished(true)
        compare(text.text, "1.5.0 available")
        compare(findChild(root, "version").text, "v1.4.5 \u00b7 2026-05-30")
    }
}

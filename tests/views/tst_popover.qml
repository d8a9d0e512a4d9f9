import QtQuick
import Mindmeter

// The popover's dashboard: its column of cards and the buttons at its end.
ViewTestCase {
    id: test
    name: "Popover"
    width: 380
    height: 460

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
        fakes.preferences.hasLaunchedBefore = true
        const root = createTemporaryObject(rootView, test)
        verify(root)
        waitForRendering(root)
        return root
    }

    function test_exportAndUpdate() {
        const root = make()
        const update = findChild(root, "update")
        verify(!update.visible)
        fakes.checker.updateAvailable = true
        const scroller = findChild(root, "scroller") // to its end: the export and version rows
        scroller.contentY = scroller.contentHeight - scroller.height
        waitForRendering(root)
        const copy = findChild(root, "copy")
        mouseClick(copy)
        compare(fakes.exporter.testCopies, 1)
        compare(findChild(copy, "title").text, "Copied!")
        tryCompare(findChild(copy, "title"), "text", "Copy Summary", 10000)
        mouseClick(findChild(root, "csv"))
        compare(fakes.exporter.testExports, 1)

        const text = findChild(root, "updateText")
        compare(text.text, "1.5.0 available")
        mouseClick(update)
        compare(text.text, "Downloading\u2026")
        mouseClick(update) // nothing further while a download runs
        compare(fakes.checker.testDownloads, 1)
        fakes.checker.downloadFinished(false)
        compare(text.text, "Failed \u2014 retry")
        mouseClick(update)
        compare(fakes.checker.testDownloads, 2)
        fakes.checker.downloadFinished(true)
        compare(text.text, "1.5.0 available")
        compare(findChild(root, "version").text, "v1.4.5 \u00b7 2026-05-30")
    }
}

import QtQuick

// The objects the views are given, as plain QML objects the tests can set. Members whose
// names start with "test" are the tests' own bookkeeping; every other member must exist on
// the real object under the same name (see drift()), so a fake cannot promise the views
// something the application does not give them.
QtObject {
    id: fakes
    property QtObject store: QtObject {
        property real totalWeighted: 0
        property var tokensByType: ({})
        property real temperature: 0
        property real contextSaturation: 0
        property var weeklyData: []
        property var historicalDays: []
        property var peakHourData: undefined
        property var weekOverWeekData: undefined
        property var peakDayOfWeek: undefined
    }
    property QtObject monitor: QtObject {
        property string currentApp: "Terminal"
        property string currentType: "reasoning"
        property int currentRate: 8
        property real tokenVelocity: 0
        property var hourlyData: []
    }
    property QtObject context: QtObject {
        property string modeLabel: "Deep Work"
        property string modeSymbol: "chevron.left.forwardslash.chevron.right"
        property real multiplier: 1.4
        property int switchesLastHour: 0
    }
    property QtObject spotlight: QtObject { property var activeProject: undefined }
    property QtObject checker: QtObject {
        property bool updateAvailable: false
        property string latestVersion: "1.5.0"
        property int testDownloads: 0
        signal downloadFinished(bool success)
        function downloadAndOpenUpdate() { ++testDownloads }
    }
    property QtObject exporter: QtObject {
        property int testCopies: 0
        property int testExports: 0
        function copyMarkdownSummary() { ++testCopies }
        function exportCSV() { ++testExports }
    }
    property QtObject preferences: QtObject {
        property bool hasLaunchedBefore: false
        property real dailyBaseline: 25000
        property int idleTimeoutMinutes: 3
        property string menuBarStyle: "iconAndCount"
        property string countPlacement: "automatic"
        property bool alertEnabled: false
        property real alertThreshold: 80
        property bool tempAlertEnabled: false
        property real tempAlertThreshold: 85
        property real tempAlertMinutes: 20
        property bool endOfDayEnabled: false
        property real endOfDayTime: 66600
        property bool goalEnabled: false
        property real dailyGoal: 20000
    }
    property QtObject events: QtObject { function postOnboardingComplete() {} }
    property QtObject onboardingNote: QtObject {
        property string icon: "desktopcomputer"
        property string colour: "orange"
        property string title: "One extension needed"
        property string description: "Turn it on"
    }
    property QtObject actions: QtObject {
        property bool launchAtLogin: false
        property string launchAtLoginHelp: "Enable to start Mindmeter automatically at login."
        property int testReschedules: 0
        function setLaunchAtLogin(on) {}
        function rescheduleDigest() { ++testReschedules }
    }
    property QtObject categories: QtObject {
        property var applications: [
            { bundleID: "org.kde.kate", name: "Kate", category: "Other", ruled: false },
            { bundleID: "com.discord", name: "Discord", category: "reasoning, 20 per minute", ruled: true }]
        property var rules: [{ site: true, match: "chat.example.com", target: "AI Tool" }]
        property var categoryNames: ["AI Tool", "Writing", "Messaging"]
        property bool rulesUnreadable: false
        property var testCalls: []
        function assign(id, category) { testCalls = testCalls.concat([["assign", id, category]]) }
        function removeRule(site, match) { testCalls = testCalls.concat([["remove", site, match]]) }
    }

    // The members of the fakes that the real objects lack, as "role.member". `real` maps each
    // role to the names of its real class's properties, methods and signals.
    function drift(real) {
        const missing = []
        for (const role of Object.keys(real)) {
            for (const member of Object.keys(fakes[role])) {
                const own = member.startsWith("test") || member.endsWith("Changed")
                if (!own && real[role].indexOf(member) < 0)
                    missing.push(role + "." + member)
            }
        }
        return missing
    }
}

import QtQuick
import Mindmeter

// The popover's content: the welcome page until it has been completed once, then the
// dashboard, always in the fixed 380 × 460 frame.
Item {
    id: root
    required property var store
    required property var monitor
    required property var context
    required property var spotlight
    required property var checker
    required property var exporter
    required property var preferences
    required property var events
    width: 380
    height: 460

    function finishOnboarding() {
        root.preferences.hasLaunchedBefore = true
        root.events.postOnboardingComplete()
    }

    Loader {
        id: content
        objectName: "content"
        anchors.fill: parent
        sourceComponent: root.preferences.hasLaunchedBefore ? dashboard : onboarding
        // The page swap after onboarding eases in over 0.25 s; the first content just appears.
        property bool swapped: false
        onLoaded: if (swapped) fade.restart()
        onSourceComponentChanged: swapped = true
        NumberAnimation { id: fade; target: content.item; property: "opacity"; from: 0; to: 1; duration: 250; easing.type: Easing.InOutQuad }
    }
    Component {
        id: onboarding
        OnboardingView {
            objectName: "onboarding"
            desktopNotice: root.events.desktopNotice || ""
            onDismiss: root.finishOnboarding()
        }
    }
    Component {
        id: dashboard
        PopoverView {
            objectName: "popover"
            store: root.store
            monitor: root.monitor
            context: root.context
            spotlight: root.spotlight
            checker: root.checker
            exporter: root.exporter
            preferences: root.preferences
        }
    }
}

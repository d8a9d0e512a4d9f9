import QtQuick
import QtTest

// A shown test case whose every warning fails the test that caused it, with fakes made
// afresh for each test (so no test sees what another set).
TestCase {
    id: testCase
    visible: true
    when: windowShown

    property Fakes fakes
    Component { id: freshFakes; Fakes {} }
    function init() {
        failOnWarning(/.?/)
        if (fakes)
            fakes.destroy()
        fakes = freshFakes.createObject(testCase)
    }
}

// `mindmeter track` on real Wayland compositors without an X11 display: the front
// application and its identity, focus switches in order, no time counted while
// the user is away past the idle timeout, and time counted again after input.

#include "HeadlessKWin.h"
#include "HeadlessSway.h"
#include "TrackerProcess.h"

#include <QTemporaryDir>
#include <QTest>

class TrackWaylandTest : public QObject {
    Q_OBJECT
private slots:
    void followsSway();
    void followsKWin();

private:
    struct App {
        QString appId;    // what the window announces
        QString bundleID; // what it is recorded as
        QString name;
    };
    void followFocusAndIdle(HeadlessCompositor& compositor, const App& first, const App& second,
                            const QByteArray& backend);
};

void TrackWaylandTest::followFocusAndIdle(HeadlessCompositor& compositor, const App& first,
                                          const App& second, const QByteArray& backend) {
    const QString started = compositor.start();
    QVERIFY2(started.isEmpty(), qPrintable(started));
    QVERIFY2(compositor.openWindow(second.appId), qPrintable(compositor.log()));
    QVERIFY2(compositor.openWindow(first.appId), qPrintable(compositor.log()));
    QVERIFY2(compositor.focus(first.appId), qPrintable(compositor.log()));

    QTemporaryDir dir;
    TrackerProcess tracker(MINDMETER_EXECUTABLE, dir.path());
    // The shortest idle timeout, a minute; a tick of 200 ms counts ten seconds.
    tracker.setEnvironment(compositor.clientEnvironment(tracker.environment()));
    int status = -1;
    tracker.run({"defaults", "write", "mindmeter.idleTimeoutMinutes", "-int", "1"}, &status);
    QCOMPARE(status, 0);
    tracker.start(200);
    QVERIFY2(tracker.waitUntilTracking(), tracker.said().constData());
    QVERIFY2(tracker.said().contains("following the desktop through " + backend),
             tracker.said().constData());

    const auto recorded = [&](const App& app, const QDateTime& after) {
        const QList<ActivitySession> all = tracker.sessions();
        return std::any_of(all.begin(), all.end(), [&](const ActivitySession& s) {
            return s.appBundleID == app.bundleID && s.endTime.toDateTime() > after;
        });
    };
    // Each stay lasts until a minute of it is recorded.
    QTRY_VERIFY_WITH_TIMEOUT(recorded(first, {}), 20000);
    QDateTime switched = QDateTime::currentDateTimeUtc();
    QVERIFY(compositor.focus(second.appId));
    QTRY_VERIFY_WITH_TIMEOUT(recorded(second, switched), 20000);
    switched = QDateTime::currentDateTimeUtc();
    QVERIFY(compositor.focus(first.appId));
    QTRY_VERIFY_WITH_TIMEOUT(recorded(first, switched), 20000);

    // No input since the tracker started: a minute later the user is away. Leave a margin
    // for the tick that notices, then stay away ten seconds more before typing.
    const QDateTime awaySure = QDateTime::currentDateTimeUtc().addSecs(65);
    QTest::qWait(int(QDateTime::currentDateTimeUtc().msecsTo(awaySure.addSecs(10))));
    const QDateTime back = QDateTime::currentDateTimeUtc();
    QVERIFY2(compositor.userInput(), qPrintable(compositor.log()));
    QTRY_VERIFY_WITH_TIMEOUT(recorded(first, back), 20000);
    QVERIFY(tracker.stop());
    QStringList order;
    for (const ActivitySession& s : tracker.sessions()) {
        const App& app = s.appBundleID == first.bundleID ? first : second;
        QCOMPARE(s.appBundleID, app.bundleID);
        QCOMPARE(s.appName, app.name);
        if (order.isEmpty() || order.last() != s.appBundleID)
            order << s.appBundleID;
        const QDateTime end = s.endTime.toDateTime();
        QVERIFY2(end <= awaySure || end >= back,
                 qPrintable("a session ended while the user was away: " +
                            end.toString(Qt::ISODateWithMs)));
    }
    QCOMPARE(order, (QStringList{first.bundleID, second.bundleID, first.bundleID}));
}

void TrackWaylandTest::followsSway() {
    HeadlessSway sway;
    followFocusAndIdle(sway, {"code", "com.microsoft.VSCode", "Visual Studio Code"},
                       {"firefox", "org.mozilla.firefox", "Firefox"}, "a wlroots compositor");
}

void TrackWaylandTest::followsKWin() {
    // weston's demo clients, which no desktop entry or alias names: tracked by app_id.
    const QString terminal = "org.freedesktop.weston.wayland-terminal";
    const QString flower = "org.freedesktop.weston.flower";
    HeadlessKWin kwin;
    followFocusAndIdle(kwin, {terminal, terminal, terminal}, {flower, flower, flower},
                       "KWin on Wayland");
}

QTEST_GUILESS_MAIN(TrackWaylandTest)
#include "tst_trackwayland.moc"

// `mindmeter track` on GNOME on Wayland, beside a real headless GNOME Shell (see
// support/run-with-gnome-shell.sh) where Mindmeter's extension is installed but off. Native
// GTK windows stand for the applications, focus moves through a test-only extension, and
// input arrives through Mutter's remote desktop interface.

#include "TrackerProcess.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace {

QDBusMessage call(const QString& service, const QString& path, const QString& interface,
                  const QString& method, const QVariantList& arguments = {}) {
    QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
    message.setArguments(arguments);
    return QDBusConnection::sessionBus().call(message, QDBus::Block, 10000);
}

QString extensionUuid() {
    QFile metadata(QStringLiteral(MINDMETER_GNOME_EXTENSION "/metadata.json"));
    if (!metadata.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(metadata.readAll()).object()["uuid"].toString();
}

bool saidYes(const QDBusMessage& reply) {
    return reply.type() == QDBusMessage::ReplyMessage && reply.arguments().value(0).toBool();
}

bool extensionCall(const QString& method) {
    return saidYes(call("org.gnome.Shell.Extensions", "/org/gnome/Shell/Extensions",
                        "org.gnome.Shell.Extensions", method, {extensionUuid()}));
}

// Brings the window of an application to the front as a click would.
bool activate(const QString& appId) {
    return saidYes(call("app.mindmeter.tests.Focus", "/app/mindmeter/tests/Focus",
                        "app.mindmeter.tests.Focus", "Activate", {appId}));
}

double idleSeconds() {
    const QDBusMessage reply =
        call("org.gnome.Mutter.IdleMonitor", "/org/gnome/Mutter/IdleMonitor/Core",
             "org.gnome.Mutter.IdleMonitor", "GetIdletime");
    return double(reply.arguments().value(0).toULongLong()) / 1000.0;
}

} // namespace

class GnomeTrackTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void followsTheExtensionAndMutterIdleTime();

private:
    void openWindow(const QString& appId);

    QTemporaryDir m_dir;
    TrackerProcess m_track{MINDMETER_EXECUTABLE, m_dir.path()};
    QString m_remoteSession;
    QTimer m_input; // the user at the mouse while it runs
};

void GnomeTrackTest::initTestCase() {
    QVERIFY(!extensionUuid().isEmpty());
    // A remote desktop session moves the pointer; it lives as long as this bus connection.
    const QDBusMessage created =
        call("org.gnome.Mutter.RemoteDesktop", "/org/gnome/Mutter/RemoteDesktop",
             "org.gnome.Mutter.RemoteDesktop", "CreateSession");
    QVERIFY2(created.type() == QDBusMessage::ReplyMessage, qPrintable(created.errorMessage()));
    m_remoteSession = created.arguments().value(0).value<QDBusObjectPath>().path();
    const QDBusMessage started = call("org.gnome.Mutter.RemoteDesktop", m_remoteSession,
                                      "org.gnome.Mutter.RemoteDesktop.Session", "Start");
    QVERIFY2(started.type() == QDBusMessage::ReplyMessage, qPrintable(started.errorMessage()));
    m_input.setInterval(500);
    connect(&m_input, &QTimer::timeout, this, [this] {
        static double dx = 1;
        dx = -dx;
        call("org.gnome.Mutter.RemoteDesktop", m_remoteSession,
             "org.gnome.Mutter.RemoteDesktop.Session", "NotifyPointerMotionRelative", {dx, 0.0});
    });

    // Identities come from the alias table: no desktop entries are visible to the tracker.
    QVERIFY(
        m_track.run({"defaults", "write", "mindmeter.idleTimeoutMinutes", "-int", "1"}).isEmpty());
    openWindow("org.gnome.Console");
    if (!QTest::currentTestFailed())
        openWindow("com.slack.Slack");
}

// A window that ends with the shell.
void GnomeTrackTest::openWindow(const QString& appId) {
    QVERIFY(
        QProcess::startDetached(QStringLiteral(MINDMETER_TEST_SUPPORT "/gtk-window.py"), {appId}));
    QTRY_VERIFY_WITH_TIMEOUT(activate(appId), 30000);
}

void GnomeTrackTest::followsTheExtensionAndMutterIdleTime() {
    const QByteArray command = "gnome-extensions enable " + extensionUuid().toUtf8();
    QVERIFY(activate("org.gnome.Console"));
    m_input.start();

    // The extension is off: the tracker says how to turn it on, and counts nothing.
    m_track.start(50);
    QVERIFY2(m_track.waitUntilTracking(), m_track.said().constData());
    QVERIFY2(m_track.said().contains(command), m_track.said().constData());
    QTest::qWait(1500); // thirty ticks: five minutes as the tracker counts
    QCOMPARE(m_track.sessions().size(), 0);

    // Turned on while the tracker runs, it is followed from then on.
    QVERIFY(extensionCall("EnableExtension"));
    QVERIFY2(m_track.waitForMessage("following GNOME Shell"), m_track.said().constData());
    const auto has = [this](const QString& id) {
        const QList<ActivitySession> all = m_track.sessions();
        return std::any_of(all.begin(), all.end(),
                           [&](const ActivitySession& s) { return s.appBundleID == id; });
    };
    QTRY_VERIFY_WITH_TIMEOUT(has("com.apple.Terminal.Console"), 20000);
    QVERIFY(activate("com.slack.Slack"));
    QTRY_VERIFY_WITH_TIMEOUT(has("com.tinyspeck.slackmacgap"), 20000);
    QStringList seen;
    for (const ActivitySession& s : m_track.sessions())
        if (seen.isEmpty() || seen.last() != s.appName)
            seen << s.appName;
    QCOMPARE(seen, (QStringList{"Console", "Slack"}));

    // Nothing more is counted from now on: the sessions a second later all ended before.
    const auto nothingCountedFromNow = [&] {
        const Timestamp now = Timestamp::fromDateTime(QDateTime::currentDateTimeUtc());
        QTest::qWait(1000); // twenty ticks: a last store write has landed
        const QList<ActivitySession> counted = m_track.sessions();
        QTest::qWait(1000);
        QCOMPARE(m_track.sessions().size(), counted.size());
        for (const ActivitySession& s : counted)
            QVERIFY(s.endTime < now);
    };
    // The user leaves: past the one-minute timeout nothing more is counted.
    m_input.stop();
    QTRY_VERIFY_WITH_TIMEOUT(idleSeconds() > 62, 90000);
    nothingCountedFromNow();

    // And comes back: counted again.
    const qsizetype before = m_track.sessions().size();
    m_input.start();
    QTRY_VERIFY_WITH_TIMEOUT(m_track.sessions().size() > before, 20000);
    QCOMPARE(m_track.sessions().last().appBundleID, QString("com.tinyspeck.slackmacgap"));

    // Switched off while the user works: the stay in Slack ends there, and nothing more is
    // counted although the user is at the mouse.
    const qsizetype told = m_track.said().count(command);
    QVERIFY(extensionCall("DisableExtension"));
    QTRY_VERIFY2(m_track.said().count(command) > told, m_track.said().constData());
    nothingCountedFromNow();
    QVERIFY(m_track.stop());
}

QTEST_GUILESS_MAIN(GnomeTrackTest)
#include "tst_gnometrack.moc"

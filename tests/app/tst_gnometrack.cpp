// `mindmeter track` on GNOME on Wayland, beside a real headless GNOME Shell (see
// support/run-with-gnome-shell.sh): Mindmeter's extension is installed but off when the
// test starts, native GTK windows stand for the applications, focus moves through a
// test-only extension, and input arrives through Mutter's remote desktop interface. Switched
// on while tracking, the extension is followed; switched off, nothing more is counted.

#include "RunProcess.h"

#include "model/SessionCodec.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <signal.h>

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

bool extensionCall(const QString& method) {
    const QDBusMessage reply = call("org.gnome.Shell.Extensions", "/org/gnome/Shell/Extensions",
                                    "org.gnome.Shell.Extensions", method, {extensionUuid()});
    return reply.type() == QDBusMessage::ReplyMessage && reply.arguments().value(0).toBool();
}

// Brings the window of an application to the front as a click would.
bool activate(const QString& appId) {
    const QDBusMessage reply = call("app.mindmeter.tests.Focus", "/app/mindmeter/tests/Focus",
                                    "app.mindmeter.tests.Focus", "Activate", {appId});
    return reply.type() == QDBusMessage::ReplyMessage && reply.arguments().value(0).toBool();
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
    void cleanupTestCase();
    void followsTheExtensionAndMutterIdleTime();

private:
    QProcessEnvironment environment() const;
    QByteArray run(const QStringList& args);
    QList<ActivitySession> sessions();
    void openWindow(const QString& appId);

    QTemporaryDir m_dir;
    QList<QProcess*> m_windows;
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
    QVERIFY(run({"defaults", "write", "mindmeter.idleTimeoutMinutes", "-int", "1"}).isEmpty());
    openWindow("org.gnome.Console");
    if (!QTest::currentTestFailed())
        openWindow("com.slack.Slack");
}

void GnomeTrackTest::cleanupTestCase() {
    for (QProcess* window : std::as_const(m_windows)) {
        window->terminate();
        window->waitForFinished(5000);
    }
}

void GnomeTrackTest::openWindow(const QString& appId) {
    auto* window = new QProcess(this);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("GDK_BACKEND", "wayland");
    window->setProcessEnvironment(env);
    window->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    window->start(QStringLiteral(MINDMETER_TEST_SUPPORT "/gtk-window.py"), {appId});
    m_windows << window;
    QTRY_VERIFY_WITH_TIMEOUT(activate(appId), 30000);
}

QProcessEnvironment GnomeTrackTest::environment() const {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_DATA_HOME", m_dir.filePath("data"));
    env.insert("XDG_DATA_DIRS", m_dir.filePath("no-system-entries"));
    env.insert("HOME", m_dir.filePath("home"));
    env.insert("TZ", "UTC");
    return env;
}

QByteArray GnomeTrackTest::run(const QStringList& args) {
    const ProcessResult r = runProcess(MINDMETER_EXECUTABLE, args, environment());
    return r.out + r.err;
}

QList<ActivitySession> GnomeTrackTest::sessions() {
    const QString day = QDateTime::currentDateTimeUtc().date().toString(Qt::ISODate);
    return SessionCodec::decodeDay(run({"defaults", "read", "mindmeter.sessions." + day}))
        .value_or(QList<ActivitySession>{});
}

void GnomeTrackTest::followsTheExtensionAndMutterIdleTime() {
    const QByteArray command = "gnome-extensions enable " + extensionUuid().toUtf8();
    QVERIFY(activate("org.gnome.Console"));
    m_input.start();

    // The extension is off: the tracker says how to turn it on, and counts nothing.
    QProcess track;
    track.setProcessEnvironment(environment());
    track.start(MINDMETER_EXECUTABLE, {"track", "--tick-ms", "50"});
    QByteArray said;
    QTRY_VERIFY2((said += track.readAllStandardError()).contains("tracking"), said.constData());
    QVERIFY2(said.contains(command), said.constData());
    QTest::qWait(1500); // thirty ticks: five minutes as the tracker counts
    QCOMPARE(sessions().size(), 0);

    // Turned on while the tracker runs, it is followed from then on.
    QVERIFY(extensionCall("EnableExtension"));
    QTRY_VERIFY2((said += track.readAllStandardError()).contains("following GNOME Shell"),
                 said.constData());
    const auto has = [this](const QString& id) {
        const QList<ActivitySession> all = sessions();
        return std::any_of(all.begin(), all.end(),
                           [&](const ActivitySession& s) { return s.appBundleID == id; });
    };
    QTRY_VERIFY_WITH_TIMEOUT(has("com.apple.Terminal.Console"), 20000);
    QVERIFY(activate("com.slack.Slack"));
    QTRY_VERIFY_WITH_TIMEOUT(has("com.tinyspeck.slackmacgap"), 20000);

    QList<ActivitySession> all = sessions();
    const ActivitySession& first = all.first();
    QCOMPARE(first.appName, QString("Console"));
    QCOMPARE(first.tokenType, TokenType::reasoning);
    const ActivitySession& last = all.last();
    QCOMPARE(last.appName, QString("Slack"));
    QCOMPARE(last.tokenType, TokenType::output);
    for (const ActivitySession& s : all)
        QVERIFY2(s.appBundleID == first.appBundleID || s.appBundleID == last.appBundleID,
                 qPrintable(s.appBundleID));

    // The user leaves: past the one-minute timeout nothing more is counted.
    m_input.stop();
    QTRY_VERIFY_WITH_TIMEOUT(idleSeconds() > 62, 90000);
    const Timestamp idle = Timestamp::fromDateTime(QDateTime::currentDateTimeUtc());
    all = sessions();
    QTest::qWait(1000); // twenty idle ticks
    QCOMPARE(sessions().size(), all.size());
    for (const ActivitySession& s : all)
        QVERIFY(s.endTime < idle);

    // And comes back: counted again.
    m_input.start();
    QTRY_VERIFY_WITH_TIMEOUT(sessions().size() > all.size(), 20000);
    QCOMPARE(sessions().last().appBundleID, QString("com.tinyspeck.slackmacgap"));

    // Switched off while the user works: the stay in Slack ends there, and nothing more is
    // counted although the user is at the mouse.
    const qsizetype told = (said += track.readAllStandardError()).count(command);
    QVERIFY(extensionCall("DisableExtension"));
    QTRY_VERIFY2((said += track.readAllStandardError()).count(command) > told, said.constData());
    const Timestamp off = Timestamp::fromDateTime(QDateTime::currentDateTimeUtc());
    QTest::qWait(1000); // twenty active ticks: the last stay's store write has landed
    all = sessions();
    QTest::qWait(1000);
    QCOMPARE(sessions().size(), all.size());
    for (const ActivitySession& s : all)
        QVERIFY(s.endTime < off);

    ::kill(pid_t(track.processId()), SIGTERM);
    QVERIFY(track.waitForFinished(10000));
    QCOMPARE(track.exitCode(), 0);
}

QTEST_GUILESS_MAIN(GnomeTrackTest)
#include "tst_gnometrack.moc"

// The tray application as a user meets it, on a private X server (see
// support/run-with-xvfb.sh) with a private session bus. With a status-notifier host written
// for the test: it registers, its label follows the day, a click opens the dashboard, and
// Quit from its menu stores the day and ends it. On Debian's Xfce panel, whose tray draws no
// label, the count is in the icon, for every menu-bar style. A second start in the same login
// session hands over to the running tray.

#include "LocalHttpServer.h"
#include "PrivateSessionBus.h"
#include "RunProcess.h"
#include "StatusNotifierHost.h"
#include "X11Windows.h"
#include "XfcePanel.h"

#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRect>
#include <QScreen>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

namespace {

// The app's own home, settings and runtime folder, on the test's bus.
QProcessEnvironment appEnvironment(const QTemporaryDir& home, const QString& busAddress) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", home.path());
    env.insert("XDG_DATA_HOME", home.filePath(".local/share"));
    env.insert("XDG_CONFIG_HOME", home.filePath(".config"));
    env.insert("XDG_CACHE_HOME", home.filePath(".cache"));
    env.insert("XDG_RUNTIME_DIR", home.filePath("run"));
    QDir().mkpath(home.filePath("run"));
    QFile::setPermissions(home.filePath("run"),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    env.insert("DBUS_SESSION_BUS_ADDRESS", busAddress);
    env.insert("TZ", "UTC");
    return env;
}

// `mindmeter ARGS` to its end; its standard output.
QByteArray runCommand(const QProcessEnvironment& env, const QStringList& arguments) {
    return runProcess(MINDMETER_EXECUTABLE, arguments, env).out.trimmed();
}

bool startApp(QProcess& app, const QProcessEnvironment& env) {
    app.setProcessEnvironment(env);
    app.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    app.start(MINDMETER_EXECUTABLE, {});
    return app.waitForStarted();
}

// xdotool on the app's shown window (the popover); its answer, empty while none is shown.
QString onPopover(const QStringList& command = {}) {
    return X11Windows::xdotool(QStringList{"search", "--onlyvisible", "--name", "^Mindmeter$"} +
                               command)
        .trimmed();
}

QRect popoverGeometry() {
    const QString g = onPopover({"getwindowgeometry", "--shell"});
    const auto value = [&](const QString& key) {
        return g.section(key + "=", 1).section('\n', 0, 0).toInt();
    };
    return QRect(value("X"), value("Y"), value("WIDTH"), value("HEIGHT"));
}

// The description of a status item's tooltip (its count), read from the bus: (s a(iiay) s s).
QString toolTipText(QDBusInterface& properties) {
    const QDBusReply<QDBusVariant> reply =
        properties.call("Get", "org.kde.StatusNotifierItem", "ToolTip");
    const QDBusArgument tip = reply.value().variant().value<QDBusArgument>();
    QString icon, title, text;
    tip.beginStructure();
    tip >> icon;
    tip.beginArray(); // the tooltip's own bitmaps: none
    tip.endArray();
    tip >> title >> text;
    tip.endStructure();
    return reply.isValid() ? text : QString();
}

int differingPixels(const QImage& a, const QImage& b) {
    int n = 0;
    for (int y = 0; y < qMin(a.height(), b.height()); ++y)
        for (int x = 0; x < qMin(a.width(), b.width()); ++x)
            n += a.pixel(x, y) != b.pixel(x, y);
    return n;
}

} // namespace

class TrayAppTest : public QObject {
    Q_OBJECT
private slots:
    void aDayInThePanel();
    void theCountOnAnXfcePanel();
    void oneTrayPerLoginSession();
};

void TrayAppTest::aDayInThePanel() {
    PrivateSessionBus bus;
    QCOMPARE(bus.start(), QString());
    QDBusConnection connection = bus.connect();
    TestWatcher watcher;
    QVERIFY(watcher.serveOn(connection));

    QTemporaryDir home;
    QProcessEnvironment env = appEnvironment(home, bus.address());
    env.insert("MINDMETER_TICK_MS", "50"); // each tick still counts ten seconds
    // This test's host draws labels, but is no panel the app knows: it is told so.
    runCommand(env, {"defaults", "write", "mindmeter.countPlacement", "-string", "beside"});
    // The vendor's site, on loopback, offers a newer version.
    LocalHttpServer site;
    QVERIFY(site.listen());
    site.answer("/version.json", HttpAnswer::make(200, R"({"version": "9.9.9"})"));
    env.insert("MINDMETER_VENDOR_URL", site.baseUrl());

    X11Windows windows;
    const quint32 terminal = windows.openTerminal("xterm", "XTerm");
    QVERIFY(terminal);
    X11Windows::activate(terminal);
    X11Windows::moveMouse(40, 40);

    QProcess app;
    QVERIFY(startApp(app, env));
    QTRY_VERIFY_WITH_TIMEOUT(!watcher.registrations.isEmpty(), 15000);
    const QString service = watcher.registrations.first();
    QDBusInterface item(service, "/StatusNotifierItem", "org.kde.StatusNotifierItem", connection);

    // The terminal in front earns reasoning tokens: the label's count grows and shows the
    // kind of work.
    QTRY_VERIFY_WITH_TIMEOUT(
        item.property("XAyatanaLabel").toString().trimmed().section(' ', 0, 0).toInt() >= 24,
        20000);
    QVERIFY(item.property("XAyatanaLabel").toString().contains(QChar(0x26A1)));

    // The first launch opened the welcome page; "Get Started" turns it into the dashboard and
    // is remembered.
    QTRY_VERIFY_WITH_TIMEOUT(!onPopover().isEmpty(), 10000);
    QTest::qWait(300);
    const QRect welcome = popoverGeometry();
    QCOMPARE(welcome.size(), QSize(380, 460));
    X11Windows::xdotool({"mousemove", QString::number(welcome.x() + 190),
                         QString::number(welcome.y() + 421), "click", "1"});
    QTRY_COMPARE(runCommand(env, {"defaults", "read", "mindmeter.hasLaunchedBefore"}),
                 QByteArray("1"));

    // A click on the icon closes the dashboard; another opens it again.
    item.call("Activate", 1200, 8);
    QTRY_VERIFY(onPopover().isEmpty());
    item.call("Activate", 1200, 8);
    QTRY_VERIFY(!onPopover().isEmpty());
    QTest::qWait(500);

    // Below the icon, which the host placed at the top; drawn, not a blank rectangle.
    const QImage screen = QGuiApplication::primaryScreen()->grabWindow(0).toImage();
    const QRect popover = popoverGeometry();
    QCOMPARE(popover.size(), QSize(380, 460));
    QVERIFY(popover.top() > 8);
    QSet<QRgb> colours;
    for (int dy = 0; dy < 460; dy += 5)
        for (int dx = 0; dx < 380; dx += 5)
            colours.insert(screen.pixel(qBound(0, popover.x() + dx, screen.width() - 1),
                                        qBound(0, popover.y() + dy, screen.height() - 1)));
    QVERIFY2(colours.size() > 20, "the dashboard is drawn");

    // The update check ran at start and found a newer version: the menu offers it. Opening
    // the menu asks again.
    QTRY_VERIFY(site.hits("/version.json") >= 1);
    QDBusInterface menu(service, "/MenuBar", "com.canonical.dbusmenu", connection);
    const auto layout = [&] {
        return MenuNode::fromReply(menu.call("GetLayout", 0, -1, QStringList()));
    };
    QTRY_COMPARE(layout().labels().value(2), QString("\u2b06 Update available \u2014 v9.9.9"));
    const int checks = site.hits("/version.json");
    menu.call("AboutToShow", 0);
    QTRY_COMPARE(site.hits("/version.json"), checks + 1);

    // Quit from the menu: the day is stored and the app ends.
    const MenuNode root = layout();
    QCOMPARE(root.labels().value(0), QString("Mindmeter v1.4.5 \u00b7 2026-05-30"));
    QCOMPARE(root.labels().constLast(), QString("Quit"));
    menu.call("Event", root.children.constLast().id, "clicked",
              QVariant::fromValue(QDBusVariant(QString())), uint(0));
    QVERIFY(app.waitForFinished(15000));
    QCOMPARE(app.exitCode(), 0); // not a crash either: that would be its signal

    const QJsonObject today =
        QJsonDocument::fromJson(runCommand(env, {"status", "--json"})).object();
    QVERIFY(today["totalWeighted"].toInteger() >= 24);
    QVERIFY(today["tokensByType"].toObject().contains("reasoning"));
}

void TrayAppTest::theCountOnAnXfcePanel() {
    PrivateSessionBus bus;
    QCOMPARE(bus.start(), QString());
    QDBusConnection connection = bus.connect();
    XfcePanel panel;
    QCOMPARE(panel.start(bus.address()), QString());
    QTRY_VERIFY_WITH_TIMEOUT(
        connection.interface()->isServiceRegistered(TestWatcher::service).value(), 30000);
    // The empty panel, once it is drawn and still.
    QImage emptyPanel;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            const QImage before = XfcePanel::grab();
            QTest::qWait(200);
            emptyPanel = XfcePanel::grab();
            return emptyPanel == before && emptyPanel.pixel(5, 5) != qRgb(0, 0, 0);
        }(),
        20000);

    // A day on a budget large enough that the icon keeps its normal colour throughout.
    QTemporaryDir home;
    QProcessEnvironment env = appEnvironment(home, bus.address());
    env.insert("MINDMETER_TICK_MS", "100");
    runCommand(env, {"defaults", "write", "mindmeter.hasLaunchedBefore", "-bool", "true"});
    runCommand(env, {"defaults", "write", "mindmeter.dailyTokenBaseline", "-int", "200000"});
    X11Windows windows;
    const quint32 terminal = windows.openTerminal("xterm", "XTerm");
    QVERIFY(terminal);
    X11Windows::activate(terminal);
    X11Windows::moveMouse(600, 400);

    QProcess app;
    QVERIFY(startApp(app, env));
    QString service;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            for (const QString& name : connection.interface()->registeredServiceNames().value())
                if (name.startsWith("org.kde.StatusNotifierItem-"))
                    service = name;
            return !service.isEmpty();
        }(),
        20000);
    QDBusInterface properties(service, "/StatusNotifierItem", "org.freedesktop.DBus.Properties",
                              connection);
    QDBusInterface item(service, "/StatusNotifierItem", "org.kde.StatusNotifierItem", connection);

    // Xfce's tray draws no label: the item offers none, and the count is in its bitmaps.
    QTRY_VERIFY_WITH_TIMEOUT(toolTipText(properties).section(' ', 0, 0).toInt() > 0, 20000);
    QCOMPARE(item.property("XAyatanaLabel").toString() + item.property("IconName").toString(),
             QString());

    // The panel as it shows one count; the count is read before and after, so it is known
    // the picture was taken while it stood.
    const auto panelAtACount = [&](QString* count) {
        for (;;) {
            const QString before = toolTipText(properties);
            QTest::qWait(50); // the panel's redraw of a change just heard
            const QImage shot = XfcePanel::grab();
            if (toolTipText(properties) == before) {
                *count = before;
                return shot;
            }
        }
    };
    QString firstCount, secondCount;
    QImage first, second;
    QTRY_VERIFY_WITH_TIMEOUT(differingPixels(first = panelAtACount(&firstCount), emptyPanel) > 20,
                             20000);
    QTRY_VERIFY_WITH_TIMEOUT(toolTipText(properties) != firstCount, 20000);
    QTRY_VERIFY_WITH_TIMEOUT(differingPixels(second = panelAtACount(&secondCount), emptyPanel) > 20,
                             20000);
    QVERIFY2(firstCount != secondCount, qPrintable(firstCount));
    QVERIFY2(differingPixels(first, second) > 10, qPrintable(firstCount + " / " + secondCount));

    // "Token count only", set from a terminal: the running app draws the count alone at once,
    // and the tray is not left with an empty spot.
    runCommand(env, {"defaults", "write", "mindmeter.menuBarStyle", "-string", "countOnly"});
    QImage countOnly;
    QTRY_VERIFY_WITH_TIMEOUT(differingPixels(countOnly = XfcePanel::grab(), second) > 10 &&
                                 differingPixels(countOnly, first) > 10,
                             20000);
    QVERIFY(differingPixels(countOnly, emptyPanel) > 20);

    // A window of the app has focus: Ctrl+Q quits, as the menu's Quit does. A click on its
    // header gives it the keyboard, as it would a user's.
    item.call("Activate", 600, 10);
    QTRY_VERIFY_WITH_TIMEOUT(!onPopover().isEmpty(), 15000);
    X11Windows::xdotool({"mousemove", "--window", onPopover(), "150", "15", "click", "1"});
    X11Windows::xdotool({"key", "--clearmodifiers", "ctrl+q"});
    QVERIFY(app.waitForFinished(15000));
    QCOMPARE(app.exitCode(), 0);
}

void TrayAppTest::oneTrayPerLoginSession() {
    // Two login sessions of one user, each with its own runtime folder (and data, since one
    // tracker runs per data folder), sharing the temporary folder: each runs its own tray.
    PrivateSessionBus bus;
    QCOMPARE(bus.start(), QString());
    QDBusConnection connection = bus.connect();
    TestWatcher watcher; // a panel, so that no dashboard opens by itself
    QVERIFY(watcher.serveOn(connection));
    QTemporaryDir homes[2];
    QProcessEnvironment env[2];
    QProcess apps[2];
    for (int i : {0, 1}) {
        env[i] = appEnvironment(homes[i], bus.address());
        env[i].insert("TMPDIR", homes[0].path());
        runCommand(env[i], {"defaults", "write", "mindmeter.hasLaunchedBefore", "-bool", "true"});
        QVERIFY(startApp(apps[i], env[i]));
    }
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(homes[0].filePath("run/mindmeter.socket")) &&
                                 QFileInfo::exists(homes[1].filePath("run/mindmeter.socket")),
                             30000);
    QVERIFY(apps[0].state() == QProcess::Running && apps[1].state() == QProcess::Running);

    // A second start in the first session (whatever its data) asks its tray to show the
    // dashboard, and ends.
    QTemporaryDir other;
    QProcessEnvironment again = appEnvironment(other, bus.address());
    again.insert("XDG_RUNTIME_DIR", homes[0].filePath("run"));
    const ProcessResult handOver = runProcess(MINDMETER_EXECUTABLE, {}, again);
    QCOMPARE(handOver.exitCode, 0);
    QVERIFY(handOver.err.contains("already running"));
    QTRY_COMPARE_WITH_TIMEOUT(onPopover({"getwindowpid"}), QString::number(apps[0].processId()),
                              20000);
    for (QProcess& app : apps) {
        app.terminate();
        QVERIFY(app.waitForFinished(15000));
        QCOMPARE(app.exitCode(), 0);
    }
}

QTEST_MAIN(TrayAppTest)
#include "tst_trayapp.moc"

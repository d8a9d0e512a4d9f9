// The tray application as a user meets it, on a private X server (see
// support/run-with-xvfb.sh) with a private session bus. With a status-notifier host written
// for the test: it registers, its label follows the day, a click opens the dashboard, and
// Quit from its menu stores the day and ends it. On Debian's Xfce panel, whose tray draws no
// label, the count is in the icon, for every menu-bar style. A second start in the same login
// session hands over to the running tray.

#include "LocalHttpServer.h"
#include "PrivateSessionBus.h"
#include "RunProcess.h"
#include "X11Windows.h"
#include "XfcePanel.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDBusVariant>
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

class TestWatcher : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)
public:
    QStringList registrations;
    bool hostRegistered() const { return true; }
public slots:
    void RegisterStatusNotifierItem(const QString& service) { registrations << service; }
signals:
    void StatusNotifierHostRegistered();
};

// The menu's top-level items as (id, label, type).
QList<std::tuple<int, QString, QString>> menuItems(const QDBusMessage& reply) {
    QList<std::tuple<int, QString, QString>> items;
    const QDBusArgument layout = reply.arguments().at(1).value<QDBusArgument>();
    layout.beginStructure();
    int id = 0;
    QVariantMap properties;
    layout >> id >> properties;
    layout.beginArray();
    while (!layout.atEnd()) {
        QDBusVariant child;
        layout >> child;
        const QDBusArgument node = child.variant().value<QDBusArgument>();
        node.beginStructure();
        int childId = 0;
        QVariantMap childProperties;
        node >> childId >> childProperties;
        node.endStructure();
        items.append({childId, childProperties.value("label").toString(),
                      childProperties.value("type").toString()});
    }
    layout.endArray();
    layout.endStructure();
    return items;
}

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
    QVERIFY(connection.registerObject("/StatusNotifierWatcher", &watcher,
                                      QDBusConnection::ExportAllContents));
    QVERIFY(connection.registerService("org.kde.StatusNotifierWatcher"));

    QTemporaryDir home;
    QProcessEnvironment env = appEnvironment(home, bus.address());
    env.insert("MINDMETER_TICK_MS", "50");             // each tick still counts ten seconds
    env.insert("MINDMETER_WINDOWS_RELEASE_MS", "300"); // closed windows are let go soon
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
    app.setProcessEnvironment(env);
    app.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    app.start(MINDMETER_EXECUTABLE, {});
    QVERIFY(app.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(!watcher.registrations.isEmpty(), 15000);
    const QString service = watcher.registrations.first();
    QDBusInterface properties(service, "/StatusNotifierItem", "org.freedesktop.DBus.Properties",
                              connection);
    const auto label = [&] {
        QDBusReply<QDBusVariant> r =
            properties.call("Get", "org.kde.StatusNotifierItem", "XAyatanaLabel");
        return r.isValid() ? r.value().variant().toString() : QString();
    };

    // The terminal in front earns reasoning tokens: the label's count grows and shows the
    // kind of work.
    QTRY_VERIFY_WITH_TIMEOUT(label().trimmed().section(' ', 0, 0).toInt() >= 24, 20000);
    QVERIFY2(label().contains(QChar(0x26A1)), qPrintable(label()));

    // The first launch opened the welcome page; "Get Started" turns it into the dashboard and
    // is remembered.
    const auto popoverShown = [] {
        return !X11Windows::xdotool({"search", "--onlyvisible", "--name", "^Mindmeter$"})
                    .trimmed()
                    .isEmpty();
    };
    const auto popoverGeometry = [] {
        const QString g = X11Windows::xdotool(
            {"search", "--onlyvisible", "--name", "^Mindmeter$", "getwindowgeometry", "--shell"});
        return QRect(g.section("X=", 1).section('\n', 0, 0).toInt(),
                     g.section("Y=", 1).section('\n', 0, 0).toInt(),
                     g.section("WIDTH=", 1).section('\n', 0, 0).toInt(),
                     g.section("HEIGHT=", 1).section('\n', 0, 0).toInt());
    };
    QTRY_VERIFY_WITH_TIMEOUT(popoverShown(), 10000);
    QTest::qWait(300);
    const QRect welcome = popoverGeometry();
    QCOMPARE(welcome.size(), QSize(380, 460));
    X11Windows::xdotool({"mousemove", QString::number(welcome.x() + 190),
                         QString::number(welcome.y() + 421), "click", "1"});
    QTRY_COMPARE(runCommand(env, {"defaults", "read", "mindmeter.hasLaunchedBefore"}),
                 QByteArray("1"));

    // A click on the icon closes the dashboard; another opens it again.
    QDBusInterface item(service, "/StatusNotifierItem", "org.kde.StatusNotifierItem", connection);
    item.call("Activate", 1200, 8);
    QTRY_VERIFY(!popoverShown());
    // Closed a while, the windows and their QML engine are let go; the click makes them again.
    QTRY_VERIFY(!X11Windows::xdotool({"search", "--name", "^Mindmeter$", "getwindowgeometry", "%@"})
                     .contains("380x460"));
    item.call("Activate", 1200, 8);
    QTRY_VERIFY(popoverShown());
    QTest::qWait(500);

    // What the screen shows, kept for people to look at.
    const QString shot = QDir(QCoreApplication::applicationDirPath()).filePath("tray-popover.png");
    const QImage screen = QGuiApplication::primaryScreen()->grabWindow(0).toImage();
    QVERIFY(screen.save(shot));
    const QRect popover = popoverGeometry();
    QCOMPARE(popover.size(), QSize(380, 460));
    QVERIFY(popover.top() > 8); // below the icon, which the host placed at the top
    QSet<QRgb> colours;
    for (int dy = 0; dy < 460; dy += 5)
        for (int dx = 0; dx < 380; dx += 5)
            colours.insert(screen.pixel(qBound(0, popover.x() + dx, screen.width() - 1),
                                        qBound(0, popover.y() + dy, screen.height() - 1)));
    QVERIFY2(colours.size() > 20, "the dashboard is drawn"); // not a blank rectangle
    // It is no task of its own.
    QProcess xprop;
    xprop.start(
        "xprop",
        {"-id", X11Windows::xdotool({"search", "--onlyvisible", "--name", "^Mindmeter$"}).trimmed(),
         "_NET_WM_STATE"});
    QVERIFY(xprop.waitForFinished(10000));
    const QByteArray states = xprop.readAllStandardOutput();
    QVERIFY2(states.contains("_NET_WM_STATE_SKIP_TASKBAR") &&
                 states.contains("_NET_WM_STATE_SKIP_PAGER"),
             states.constData());

    // The update check ran at start and found a newer version: the menu offers it. Opening
    // the menu asks again.
    QTRY_VERIFY(site.hits("/version.json") >= 1);
    QDBusInterface menu(service, "/MenuBar", "com.canonical.dbusmenu", connection);
    const auto labels = [&] {
        QStringList l;
        for (const auto& item : menuItems(menu.call("GetLayout", 0, -1, QStringList())))
            l << (std::get<2>(item) == "separator" ? QString("-") : std::get<1>(item));
        return l;
    };
    QTRY_COMPARE(labels().value(2), QString("\u2b06 Update available \u2014 v9.9.9"));
    const int checks = site.hits("/version.json");
    menu.call("AboutToShow", 0);
    QTRY_COMPARE(site.hits("/version.json"), checks + 1);

    // Quit from the menu: the day is stored and the app ends.
    const auto items = menuItems(menu.call("GetLayout", 0, -1, QStringList()));
    QVERIFY(!items.isEmpty());
    QCOMPARE(std::get<1>(items.first()), QString("Mindmeter v1.4.5 \u00b7 2026-05-30"));
    QCOMPARE(std::get<1>(items.last()), QString("Quit"));
    menu.call("Event", std::get<0>(items.last()), "clicked",
              QVariant::fromValue(QDBusVariant(QString())), uint(0));
    QVERIFY(app.waitForFinished(15000));
    QCOMPARE(app.exitStatus(), QProcess::NormalExit);
    QCOMPARE(app.exitCode(), 0);

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
        connection.interface()->isServiceRegistered("org.kde.StatusNotifierWatcher").value(),
        30000);
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
    app.setProcessEnvironment(env);
    app.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    app.start(MINDMETER_EXECUTABLE, {});
    QVERIFY(app.waitForStarted());
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
    QImage first;
    QTRY_VERIFY_WITH_TIMEOUT(differingPixels(first = panelAtACount(&firstCount), emptyPanel) > 20,
                             20000);
    QTRY_VERIFY_WITH_TIMEOUT(toolTipText(properties) != firstCount, 20000);
    QImage second;
    QTRY_VERIFY_WITH_TIMEOUT(differingPixels(second = panelAtACount(&secondCount), emptyPanel) > 20,
                             20000);
    const QDir out(QCoreApplication::applicationDirPath());
    first.save(out.filePath("xfce-panel-count-1.png"));
    second.save(out.filePath("xfce-panel-count-2.png"));
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
    countOnly.save(out.filePath("xfce-panel-count-only.png"));

    // A window of the app has focus: Ctrl+Q quits, as the menu's Quit does.
    item.call("Activate", 600, 10);
    QString popover;
    QTRY_VERIFY_WITH_TIMEOUT(
        !(popover =
              X11Windows::xdotool({"search", "--onlyvisible", "--name", "^Mindmeter$"}).trimmed())
             .isEmpty(),
        15000);
    // A click on its header gives it the keyboard, as it would a user's.
    X11Windows::xdotool({"mousemove", "--window", popover, "150", "15", "click", "1"});
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
    QVERIFY(connection.registerObject("/StatusNotifierWatcher", &watcher,
                                      QDBusConnection::ExportAllContents));
    QVERIFY(connection.registerService("org.kde.StatusNotifierWatcher"));
    QTemporaryDir first, second, third;
    const auto environment = [&](const QTemporaryDir& home) {
        QProcessEnvironment env = appEnvironment(home, bus.address());
        env.insert("TMPDIR", first.path());
        runCommand(env, {"defaults", "write", "mindmeter.hasLaunchedBefore", "-bool", "true"});
        return env;
    };
    QProcess a, b;
    for (auto [app, home] : {std::pair{&a, &first}, std::pair{&b, &second}}) {
        app->setProcessEnvironment(environment(*home));
        app->start(MINDMETER_EXECUTABLE, {});
        QVERIFY(app->waitForStarted());
    }
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(first.filePath("run/mindmeter.socket")) &&
                                 QFileInfo::exists(second.filePath("run/mindmeter.socket")),
                             30000);
    QVERIFY(a.state() == QProcess::Running && b.state() == QProcess::Running);

    // A second start in the first session asks its tray to show the dashboard, and ends.
    QProcessEnvironment again = environment(third);
    again.insert("XDG_RUNTIME_DIR", first.filePath("run"));
    QProcess handOver;
    handOver.setProcessEnvironment(again);
    handOver.start(MINDMETER_EXECUTABLE, {});
    QVERIFY(handOver.waitForFinished(30000));
    QCOMPARE(handOver.exitCode(), 0);
    QVERIFY(handOver.readAllStandardError().contains("already running"));
    QTRY_COMPARE_WITH_TIMEOUT(
        X11Windows::xdotool({"search", "--onlyvisible", "--name", "^Mindmeter$", "getwindowpid"})
            .trimmed(),
        QString::number(a.processId()), 20000);

    for (QProcess* app : {&a, &b}) {
        app->terminate();
        QVERIFY(app->waitForFinished(15000));
        QCOMPARE(app->exitCode(), 0);
    }
}

QTEST_MAIN(TrayAppTest)
#include "tst_trayapp.moc"

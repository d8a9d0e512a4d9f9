// Runs on a private X server with a window manager (see support/run-with-xvfb.sh).

#include "X11Windows.h"

#include "platform/Clock.h"
#include "platform/linux/AppAliases.h"
#include "platform/linux/AppIdentityResolver.h"
#include "platform/linux/DesktopEntryIndex.h"
#include "platform/linux/X11IdleSource.h"
#include "platform/linux/X11Workspace.h"

#include <QSignalSpy>
#include <QTest>

#include <xcb/xcb.h>

namespace {

// A window with WM_CLASS (instance, className), transient for `owner` as a dialog is (0: an
// ordinary window), on a connection of its own; returns its id once it is shown, 0 on failure.
quint32 openDialog(xcb_connection_t* c, const QByteArray& instance, const QByteArray& className,
                   quint32 owner) {
    if (xcb_connection_has_error(c))
        return 0;
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const xcb_window_t w = xcb_generate_id(c);
    xcb_create_window(c, XCB_COPY_FROM_PARENT, w, screen->root, 10, 10, 200, 100, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
    const QByteArray wmClass = instance + '\0' + className + '\0';
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                        wmClass.size(), wmClass.constData());
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_TRANSIENT_FOR, XCB_ATOM_WINDOW, 32,
                        1, &owner);
    xcb_map_window(c, w);
    xcb_flush(c);
    const QString found =
        X11Windows::xdotool({"search", "--sync", "--classname", "^" + instance + "$"});
    return found.split(u'\n', Qt::SkipEmptyParts).contains(QString::number(w)) ? w : 0;
}

} // namespace

class X11WorkspaceTest : public QObject {
    Q_OBJECT
private slots:
    void activationsCarryTheApplication();
    void idleTimeFollowsInput();
};

void X11WorkspaceTest::activationsCarryTheApplication() {
    QVERIFY2(qEnvironmentVariableIsSet("DISPLAY"), "run through run-with-xvfb.sh");
    DesktopEntryIndex entries(QStringList{}, QStringList{});
    AppIdentityResolver resolver(entries, AppAliases::builtIn(), 0, "com.mindmeter.Mindmeter");
    QString error;
    const std::unique_ptr<X11Workspace> workspace = X11Workspace::open(resolver, &error);
    QVERIFY2(workspace, qPrintable(error));
    QVERIFY(workspace->hasActiveWindowSupport()); // openbox publishes it

    // Two windows: one that calls itself VS Code by its class (known to the alias table), and
    // a plain xterm.
    X11Windows windows;
    const quint32 code = windows.openTerminal("code", "Code");
    const quint32 term = windows.openTerminal("xterm", "XTerm");
    QVERIFY(code && term);
    QSignalSpy activated(workspace.get(), &Workspace::applicationActivated);
    const auto front = [&] { return activated.last().at(0).value<RunningApp>(); };
    X11Windows::activate(code);
    QTRY_VERIFY(!activated.isEmpty());
    QCOMPARE(front().localizedName, QString("Visual Studio Code"));
    QCOMPARE(workspace->frontmostApplication()->bundleID, QString("com.microsoft.VSCode"));
    X11Windows::activate(term);
    QTRY_COMPARE(front().bundleID, QString("com.apple.Terminal.XTerm"));

    // A dialog with a class of its own (LibreOffice's say "soffice") belongs to its owner.
    const auto connection = std::unique_ptr<xcb_connection_t, void (*)(xcb_connection_t*)>(
        xcb_connect(nullptr, nullptr), xcb_disconnect);
    const quint32 dialog = openDialog(connection.get(), "soffice", "Soffice", code);
    QVERIFY(dialog);
    X11Windows::activate(dialog);
    QTRY_COMPARE(front().bundleID, QString("com.microsoft.VSCode"));
}

void X11WorkspaceTest::idleTimeFollowsInput() {
    // The server's alarms, with a one-second threshold: 0 until it passes, then counted from
    // the last input; input brings it back to 0.
    const Clock& clock = Clock::system();
    QString error;
    std::unique_ptr<X11IdleSource> idle = X11IdleSource::open(clock, &error, 1000);
    QVERIFY2(idle, qPrintable(error));
    QCOMPARE(idle->mechanism(), QString("SYNC IDLETIME"));
    X11Windows::moveMouse(100, 100);
    QTRY_COMPARE(idle->secondsSinceLastInput(), 0.0);
    QTRY_VERIFY(idle->secondsSinceLastInput() >= 1.0);
    QTest::qWait(1000);
    const double later = idle->secondsSinceLastInput();
    QVERIFY2(later >= 1.9 && later < 4.0, qPrintable(QString::number(later)));
    X11Windows::moveMouse(200, 150);
    QTRY_COMPARE(idle->secondsSinceLastInput(), 0.0);
    // A second round: the alarms stay armed.
    QTRY_VERIFY(idle->secondsSinceLastInput() >= 1.0);
    X11Windows::moveMouse(100, 100);
    QTRY_COMPARE(idle->secondsSinceLastInput(), 0.0);
}

QTEST_GUILESS_MAIN(X11WorkspaceTest)
#include "tst_x11workspace.moc"

// Runs on a private X server with a window manager (see support/run-with-xvfb.sh).

#include "X11Windows.h"

#include "platform/linux/AppAliases.h"
#include "platform/linux/AppIdentityResolver.h"
#include "platform/linux/DesktopEntryIndex.h"
#include "platform/linux/X11IdleSource.h"
#include "platform/linux/X11Workspace.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
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
    void initTestCase();
    void activationsCarryTheApplication();
    void runningApplications();
    void idleTimeFollowsInput();

private:
    QTemporaryDir m_data;
    std::unique_ptr<DesktopEntryIndex> m_entries;
    std::unique_ptr<AppIdentityResolver> m_resolver;
    std::unique_ptr<X11Workspace> m_workspace;
    X11Windows m_windows;
    quint32 m_code = 0, m_term = 0;
};

void X11WorkspaceTest::initTestCase() {
    QVERIFY2(qEnvironmentVariableIsSet("DISPLAY"), "run through run-with-xvfb.sh");
    QDir().mkpath(m_data.filePath("applications"));
    QFile entry(m_data.filePath("applications/code.desktop"));
    QVERIFY(entry.open(QIODevice::WriteOnly));
    entry.write(
        "[Desktop Entry]\nType=Application\nName=Visual Studio Code\nStartupWMClass=Code\n");
    entry.close();
    m_entries = std::make_unique<DesktopEntryIndex>(QStringList{m_data.path()}, QStringList{});
    m_resolver = std::make_unique<AppIdentityResolver>(*m_entries, AppAliases::builtIn(), 0,
                                                       "com.mindmeter.Mindmeter");
    QString error;
    m_workspace = X11Workspace::open(*m_resolver, &error);
    QVERIFY2(m_workspace, qPrintable(error));
    QVERIFY(m_workspace->hasActiveWindowSupport()); // openbox publishes it

    // Two windows: one that calls itself VS Code by its class, and a plain xterm.
    m_code = m_windows.openTerminal("code", "Code");
    m_term = m_windows.openTerminal("xterm", "XTerm");
    QVERIFY(m_code && m_term);
}

void X11WorkspaceTest::activationsCarryTheApplication() {
    QSignalSpy activated(m_workspace.get(), &Workspace::applicationActivated);
    X11Windows::activate(m_code);
    QTRY_VERIFY(!activated.isEmpty());
    RunningApp app = activated.last().at(0).value<RunningApp>();
    QCOMPARE(app.bundleID, QString("com.microsoft.VSCode"));
    QCOMPARE(app.localizedName, QString("Visual Studio Code"));
    QCOMPARE(m_workspace->frontmostApplication()->bundleID, QString("com.microsoft.VSCode"));

    X11Windows::activate(m_term);
    QTRY_COMPARE(activated.last().at(0).value<RunningApp>().bundleID,
                 QString("com.apple.Terminal.XTerm"));
    const qsizetype count = activated.size();

    // Activating the window already in front again is no new activation.
    X11Windows::activate(m_term);
    QTest::qWait(300);
    QCOMPARE(activated.size(), count);
    QCOMPARE(m_workspace->frontmostApplication()->localizedName, QString("XTerm"));

    // A dialog with a class of its own (LibreOffice's say "soffice") belongs to its owner.
    const auto connection = std::unique_ptr<xcb_connection_t, void (*)(xcb_connection_t*)>(
        xcb_connect(nullptr, nullptr), xcb_disconnect);
    const quint32 dialog = openDialog(connection.get(), "soffice", "Soffice", m_code);
    QVERIFY(dialog);
    X11Windows::activate(dialog);
    QTRY_COMPARE(activated.last().at(0).value<RunningApp>().bundleID,
                 QString("com.microsoft.VSCode"));
}

void X11WorkspaceTest::runningApplications() {
    const auto ids = [this] {
        QStringList ids;
        for (const RunningApp& a : m_workspace->runningApplications())
            ids << a.bundleID;
        return ids;
    };
    QVERIFY2(ids().contains("com.microsoft.VSCode"), qPrintable(ids().join(',')));
    QVERIFY(ids().contains("com.apple.Terminal.XTerm"));
    QCOMPARE(ids().size(), 2);

    // The list is kept between questions: a window that opens or closes later is seen.
    const auto connection = std::unique_ptr<xcb_connection_t, void (*)(xcb_connection_t*)>(
        xcb_connect(nullptr, nullptr), xcb_disconnect);
    const quint32 other = openDialog(connection.get(), "other", "Other", 0);
    QVERIFY(other);
    QTRY_COMPARE(ids().size(), 3);
    xcb_destroy_window(connection.get(), other);
    xcb_flush(connection.get());
    QTRY_COMPARE(ids().size(), 2);
}

void X11WorkspaceTest::idleTimeFollowsInput() {
    QString error;
    std::unique_ptr<X11IdleSource> idle = X11IdleSource::open(&error);
    QVERIFY2(idle, qPrintable(error));
    X11Windows::moveMouse(100, 100);
    QTest::qWait(1500);
    const double before = idle->secondsSinceLastInput();
    QVERIFY2(before >= 1.0, qPrintable(QString::number(before)));
    X11Windows::moveMouse(200, 150);
    QTRY_VERIFY(idle->secondsSinceLastInput() < before);
    QVERIFY(idle->secondsSinceLastInput() < 1.0);
}

QTEST_GUILESS_MAIN(X11WorkspaceTest)
#include "tst_x11workspace.moc"

#include "X11Workspace.h"

#include "LogindWakeWatcher.h"

#include <QLoggingCategory>

#include <xcb/xcb.h>

#include <cstdlib>

Q_LOGGING_CATEGORY(lcX11, "mindmeter.x11")

namespace {

template <typename T> struct FreeDeleter {
    void operator()(T* p) const { std::free(p); }
};
template <typename T> using XcbReply = std::unique_ptr<T, FreeDeleter<T>>;

// WM_CLASS and similar: NUL-separated strings.
QStringList splitNul(const QByteArray& bytes) {
    QStringList parts;
    for (const QByteArray& p : bytes.split('\0'))
        if (!p.isEmpty())
            parts.append(QString::fromUtf8(p));
    return parts;
}

} // namespace

X11Workspace::X11Workspace(xcb_connection_t* connection, int screen, AppIdentityResolver& resolver)
    : m_connection(connection)
    , m_resolver(resolver) {
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; i < screen && it.rem; ++i)
        xcb_screen_next(&it);
    m_root = it.data->root;

    // Only property changes on the root window are wanted.
    const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(connection, m_root, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(connection);
    m_activeWindowAtom = atom("_NET_ACTIVE_WINDOW");
    m_clientListAtom = atom("_NET_CLIENT_LIST");

    m_notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection),
                                                   QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &X11Workspace::readEvents);

    m_wakeWatcher = new LogindWakeWatcher(this);
    connect(m_wakeWatcher, &LogindWakeWatcher::didWake, this, &Workspace::didWake);

    m_activeWindow = activeWindow();
    m_lastActivated = frontmostApplication();
    // Whatever comes forward after a stretch with nothing in front is a new stay.
    connect(this, &Workspace::nothingInFront, this, [this] { m_lastActivated.reset(); });
}

X11Workspace::~X11Workspace() {
    m_notifier.reset();
    xcb_disconnect(m_connection);
}

std::unique_ptr<X11Workspace> X11Workspace::open(AppIdentityResolver& resolver, QString* error) {
    const QByteArray display = qgetenv("DISPLAY");
    if (display.isEmpty()) {
        if (error)
            *error = QStringLiteral("no X11 display: DISPLAY is not set");
        return nullptr;
    }
    int screen = 0;
    xcb_connection_t* c = xcb_connect(display.constData(), &screen);
    if (const int failure = xcb_connection_has_error(c)) {
        xcb_disconnect(c);
        if (error)
            *error = QStringLiteral("cannot connect to the X11 display %1 (error %2)")
                         .arg(QString::fromLocal8Bit(display))
                         .arg(failure);
        return nullptr;
    }
    return std::unique_ptr<X11Workspace>(new X11Workspace(c, screen, resolver));
}

bool X11Workspace::connectionBroken() const {
    if (!xcb_connection_has_error(m_connection))
        return false;
    if (!m_reportedBroken) {
        m_reportedBroken = true;
        qCWarning(lcX11) << "the connection to the X server was lost; no application is in front";
    }
    return true;
}

quint32 X11Workspace::atom(const char* name) const {
    const QString key = QString::fromLatin1(name);
    const auto it = m_atoms.constFind(key);
    if (it != m_atoms.constEnd())
        return *it;
    XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, uint16_t(strlen(name)), name), nullptr));
    const quint32 value = reply ? quint32(reply->atom) : quint32(XCB_ATOM_NONE);
    if (reply)
        m_atoms.insert(key, value);
    return value;
}

QByteArray X11Workspace::property(quint32 window, quint32 prop, quint32 type,
                                  quint32 maxLongs) const {
    if (prop == XCB_ATOM_NONE)
        return {};
    XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        m_connection, xcb_get_property(m_connection, 0, window, prop, type, 0, maxLongs), nullptr));
    scheduleEventDrain();
    if (!reply || reply->type == XCB_ATOM_NONE)
        return {};
    const int length = xcb_get_property_value_length(reply.get());
    return QByteArray(static_cast<const char*>(xcb_get_property_value(reply.get())), length);
}

QList<quint32> X11Workspace::windowList(quint32 window, quint32 prop) const {
    const QByteArray bytes = property(window, prop, XCB_ATOM_ANY, 65536);
    QList<quint32> list;
    for (qsizetype i = 0; i + 4 <= bytes.size(); i += 4) {
        quint32 w = 0;
        memcpy(&w, bytes.constData() + i, 4);
        list.append(w);
    }
    return list;
}

quint32 X11Workspace::activeWindow() const {
    const QList<quint32> w = windowList(m_root, m_activeWindowAtom);
    return w.isEmpty() ? 0 : w.first();
}

bool X11Workspace::hasActiveWindowSupport() const {
    const QList<quint32> supported = windowList(m_root, atom("_NET_SUPPORTED"));
    return supported.contains(m_activeWindowAtom);
}

std::optional<RunningApp> X11Workspace::appForWindow(quint32 window) const {
    if (window == 0 || connectionBroken())
        return std::nullopt;
    const auto cached = m_appsByWindow.constFind(window);
    if (cached != m_appsByWindow.constEnd())
        return *cached;

    // A dialog or other secondary window belongs to the window it is transient for, whatever
    // class it gives itself (LibreOffice's dialogs say "soffice"); chains are followed a few
    // steps, never in a circle.
    quint32 subject = window;
    for (int step = 0; step < 4; ++step) {
        const QList<quint32> owner = windowList(subject, XCB_ATOM_WM_TRANSIENT_FOR);
        if (owner.isEmpty() || owner.first() == 0 || owner.first() == m_root ||
            owner.first() == window)
            break;
        subject = owner.first();
    }
    const QStringList wmClass = splitNul(property(subject, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING));
    WindowFacts facts;
    facts.wmInstance = wmClass.value(0);
    facts.wmClass = wmClass.value(1);
    const quint32 utf8 = atom("UTF8_STRING");
    facts.gtkApplicationId =
        QString::fromUtf8(property(subject, atom("_GTK_APPLICATION_ID"), utf8));
    facts.kdeDesktopFile =
        QString::fromUtf8(property(subject, atom("_KDE_NET_WM_DESKTOP_FILE"), utf8));
    const QList<quint32> pid = windowList(subject, atom("_NET_WM_PID"));
    facts.pid = pid.isEmpty() ? 0 : qint64(pid.first());

    const RunningApp app = m_resolver.resolve(facts);
    m_appsByWindow.insert(window, app);
    return app;
}

bool X11Workspace::isTaskbarWindow(quint32 window) const {
    const QList<quint32> types = windowList(window, atom("_NET_WM_WINDOW_TYPE"));
    if (!types.isEmpty() && !types.contains(atom("_NET_WM_WINDOW_TYPE_NORMAL")) &&
        !types.contains(atom("_NET_WM_WINDOW_TYPE_DIALOG")))
        return false;
    const QList<quint32> state = windowList(window, atom("_NET_WM_STATE"));
    return !state.contains(atom("_NET_WM_STATE_SKIP_TASKBAR"));
}

std::optional<RunningApp> X11Workspace::frontmostApplication() const {
    if (connectionBroken())
        return std::nullopt;
    // A change already in xcb's queue is taken now; its activation follows on the next turn
    // of the event loop. What is still in the socket is the socket notifier's to read.
    if (takeEvents(false))
        QMetaObject::invokeMethod(const_cast<X11Workspace*>(this),
                                  &X11Workspace::handleActiveWindowChange, Qt::QueuedConnection);
    return appForWindow(m_activeWindow);
}

QList<RunningApp> X11Workspace::runningApplications() const {
    if (connectionBroken())
        return {};
    if (takeEvents(false))
        QMetaObject::invokeMethod(const_cast<X11Workspace*>(this),
                                  &X11Workspace::handleActiveWindowChange, Qt::QueuedConnection);
    // Listed again only after the window manager changed the window list or the active
    // window; a window's type and taskbar state are read when the list is made.
    if (m_running)
        return *m_running;
    const QList<quint32> clients = windowList(m_root, m_clientListAtom);
    // Forget windows that are gone, so the cache stays as large as the desktop.
    for (auto it = m_appsByWindow.begin(); it != m_appsByWindow.end();)
        it = clients.contains(it.key()) ? std::next(it) : m_appsByWindow.erase(it);

    QList<RunningApp> apps;
    for (quint32 w : clients) {
        if (!isTaskbarWindow(w))
            continue;
        const std::optional<RunningApp> app = appForWindow(w);
        if (app && !apps.contains(*app))
            apps.append(*app);
    }
    if (!connectionBroken())
        m_running = apps;
    return apps;
}

void X11Workspace::scheduleEventDrain() const {
    // A reply can pull events off the socket into xcb's queue, where the socket notifier
    // would not see them; look at the queue on the next turn of the event loop.
    if (m_drainScheduled)
        return;
    m_drainScheduled = true;
    QMetaObject::invokeMethod(const_cast<X11Workspace*>(this), &X11Workspace::readEvents,
                              Qt::QueuedConnection);
}

void X11Workspace::readEvents() {
    m_drainScheduled = false;
    if (connectionBroken()) {
        m_notifier->setEnabled(false);
        return;
    }
    if (takeEvents(true))
        handleActiveWindowChange();
}

bool X11Workspace::takeEvents(bool readSocket) const {
    bool activeChanged = false;
    const auto next = [&] {
        return readSocket ? xcb_poll_for_event(m_connection)
                          : xcb_poll_for_queued_event(m_connection);
    };
    while (xcb_generic_event_t* event = next()) {
        if ((event->response_type & 0x7f) == XCB_PROPERTY_NOTIFY) {
            const auto* p = reinterpret_cast<xcb_property_notify_event_t*>(event);
            if (p->window == m_root && p->atom == m_activeWindowAtom) {
                activeChanged = true;
            } else if (p->window == m_root && p->atom == m_clientListAtom) {
                m_appsByWindow.clear(); // window ids may be reused
                m_running.reset();
            }
        }
        std::free(event);
    }
    if (activeChanged) {
        m_activeWindow = activeWindow();
        m_running.reset();
    }
    return activeChanged;
}

void X11Workspace::handleActiveWindowChange() {
    const std::optional<RunningApp> app = frontmostApplication();
    if (!app) {
        // No active window: the desktop itself, or nothing, is in front.
        noWindowInFront(connectionBroken());
        return;
    }
    // Moving between two windows of one application is not an activation.
    if (m_lastActivated && m_lastActivated->bundleID == app->bundleID &&
        m_lastActivated->pid == app->pid)
        return;
    m_lastActivated = app;
    emit applicationActivated(*app);
}

#include "PopoverWindow.h"

#include "ViewHost.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQuickWindow>
#include <QScreen>
#include <QtGui/qguiapplication_platform.h>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>

#include <algorithm>

Q_LOGGING_CATEGORY(lcPopover, "mindmeter.popover")

namespace {
constexpr QSize popoverSize(380, 460);
constexpr int gap = 6; // between the panel and the icon, and from the screen's edges

xcb_atom_t internAtom(xcb_connection_t* connection, const char* name) {
    const xcb_intern_atom_cookie_t cookie =
        xcb_intern_atom(connection, 0, uint16_t(std::strlen(name)), name);
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(connection, cookie, nullptr);
    const xcb_atom_t atom = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    std::free(reply);
    return atom;
}

// A panel that belongs to the tray icon is no task of its own: no taskbar button, no pager
// entry. The states are set before each mapping (window managers drop them on unmapping);
// Qt keeps states it finds there when it adds its own.
void keepOffTaskbarAndPager(QWindow& window) {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || window.isVisible())
        return;
    xcb_connection_t* connection = x11->connection();
    const xcb_atom_t states[] = {internAtom(connection, "_NET_WM_STATE_SKIP_TASKBAR"),
                                 internAtom(connection, "_NET_WM_STATE_SKIP_PAGER")};
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, xcb_window_t(window.winId()),
                        internAtom(connection, "_NET_WM_STATE"), XCB_ATOM_ATOM, 32, 2, states);
    xcb_flush(connection);
}
} // namespace

PopoverWindow::PopoverWindow(ViewHost& host, QVariantMap models, Style style, QObject* parent)
    : QObject(parent)
    , m_host(host)
    , m_models(std::move(models))
    , m_style(style) {}

PopoverWindow::~PopoverWindow() = default;

bool PopoverWindow::isVisible() const {
    return m_window && m_window->isVisible();
}

bool PopoverWindow::ensureWindow() {
    if (m_window)
        return true;
    QString error;
    m_window = m_host.createWindow(QStringLiteral("RootPopoverView"), m_models, &error);
    if (!m_window) {
        qCWarning(lcPopover) << "cannot build the dashboard:" << error;
        return false;
    }
    m_window->setTitle(QStringLiteral("Mindmeter"));
    m_window->setMinimumSize(popoverSize);
    m_window->setMaximumSize(popoverSize);
    // Not kept above other windows: the save dialog it opens must come in front of it.
    if (m_style == Style::popover)
        m_window->setFlags(Qt::Tool | Qt::FramelessWindowHint);
    return true;
}

QPoint PopoverWindow::placement(QPoint anchor, const QRect& screen, QSize size) {
    const bool below = anchor.y() < screen.center().y();
    int x = anchor.x() - size.width() / 2;
    int y = below ? anchor.y() + 2 * gap : anchor.y() - size.height() - 2 * gap;
    x = std::clamp(x, screen.left() + gap,
                   std::max(screen.left() + gap, screen.right() - size.width() - gap));
    y = std::clamp(y, screen.top() + gap,
                   std::max(screen.top() + gap, screen.bottom() - size.height() - gap));
    return {x, y};
}

void PopoverWindow::show(QPoint anchor) {
    if (!ensureWindow())
        return;
    if (m_style == Style::popover) {
        QScreen* screen = anchor.isNull() ? nullptr : QGuiApplication::screenAt(anchor);
        if (!screen)
            screen = QGuiApplication::primaryScreen();
        const QRect area = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 800);
        if (anchor.isNull())
            anchor = QPoint(area.right() - popoverSize.width() / 2, area.top());
        m_window->setPosition(placement(anchor, area, popoverSize));
        keepOffTaskbarAndPager(*m_window);
    }
    m_window->show();
    m_window->raise();
    m_window->requestActivate();
}

void PopoverWindow::hide() {
    if (m_window)
        m_window->hide();
}

void PopoverWindow::toggle(QPoint anchor) {
    if (isVisible())
        hide();
    else
        show(anchor);
}

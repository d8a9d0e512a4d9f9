#include "PopoverWindow.h"

#include "ViewHost.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQuickWindow>
#include <QScreen>

#include <algorithm>

Q_LOGGING_CATEGORY(lcPopover, "mindmeter.popover")

namespace {
constexpr QSize popoverSize(380, 460);
constexpr int gap = 6; // between the panel and the icon, and from the screen's edges
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
    if (m_style == Style::popover)
        m_window->setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
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

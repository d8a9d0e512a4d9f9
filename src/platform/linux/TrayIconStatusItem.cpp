#include "TrayIconStatusItem.h"

#include "StatusLabel.h"

#include <QAction>
#include <QCursor>
#include <QIcon>
#include <QMenu>
#include <QPixmap>

TrayIconStatusItem::TrayIconStatusItem(const StatusIconGlyph& glyph, QObject* parent)
    : StatusItem(parent)
    , m_painter(glyph)
    , m_tray(this)
    , m_menu(std::make_unique<QMenu>()) {
    connect(m_menu.get(), &QMenu::aboutToShow, this, &StatusItem::menuAboutToShow);
    m_tray.setContextMenu(m_menu.get());
    connect(&m_tray, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::MiddleClick)
                    emit activated(QCursor::pos());
            });
    redraw();
    m_tray.show();
}

TrayIconStatusItem::~TrayIconStatusItem() {
    m_tray.setContextMenu(nullptr);
}

void TrayIconStatusItem::setTitle(const QString& text, const QString&) {
    // The kind-of-work symbol has no room on the icon; the tooltip carries the full count.
    m_count = StatusLabel::shortCount(text);
    m_toolTip = text.trimmed();
    redraw();
}

void TrayIconStatusItem::setIcon(Icon icon) {
    m_icon = icon;
    redraw();
}

void TrayIconStatusItem::setMenu(const QList<StatusMenuItem>& items) {
    // Rebuilt in place: the tray keeps its pointer, and this may run from aboutToShow.
    m_menu->clear();
    for (const StatusMenuItem& item : items) {
        if (item.separator) {
            m_menu->addSeparator();
            continue;
        }
        QString title = item.title;
        QAction* action = m_menu->addAction(title.replace(QLatin1Char('&'), QStringLiteral("&&")));
        action->setEnabled(item.enabled);
        if (!item.shortcut.isEmpty()) {
            action->setShortcut(QKeySequence(item.shortcut));
            action->setShortcutContext(Qt::WidgetShortcut); // a hint in the menu, not app-wide
        }
        if (item.action)
            connect(action, &QAction::triggered, this, [run = item.action] { run(); });
    }
}

bool TrayIconStatusItem::isVisible() const {
    return m_tray.isVisible() && QSystemTrayIcon::isSystemTrayAvailable();
}

QImage TrayIconStatusItem::iconImage(int size) const {
    return m_painter.imageWithCount(size, m_icon, m_count);
}

void TrayIconStatusItem::redraw() {
    QIcon icon;
    for (int size : iconSizes)
        icon.addPixmap(QPixmap::fromImage(iconImage(size)));
    m_tray.setIcon(icon);
    m_tray.setToolTip(m_toolTip.isEmpty() ? QStringLiteral("Mindmeter")
                                          : QStringLiteral("Mindmeter — ") + m_toolTip);
}

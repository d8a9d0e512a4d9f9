#pragma once

#include "StatusIconPainter.h"

#include "platform/StatusItem.h"

#include <QSystemTrayIcon>

#include <memory>

class QMenu;

// The status item as a classic tray icon (QSystemTrayIcon, the XEmbed system tray), for
// desktops without a StatusNotifierWatcher. Such trays show no text, so the count is drawn into
// the icon: the glyph in the state's colour with the short count ("12k") over its lower part.
// Needs a QApplication, as the menu is a QMenu.
class TrayIconStatusItem : public StatusItem {
    Q_OBJECT
public:
    inline static const QList<int> iconSizes = {22, 32};

    explicit TrayIconStatusItem(const StatusIconGlyph& glyph, QObject* parent = nullptr);
    ~TrayIconStatusItem() override;

    void setTitle(const QString& text, const QString& symbol) override;
    void setIcon(Icon icon) override;
    void setMenu(const QList<StatusMenuItem>& items) override;
    bool isVisible() const override;

    // The icon as drawn now, at one size.
    QImage iconImage(int size) const;
    QMenu* menu() const { return m_menu.get(); }

private:
    void redraw();

    StatusIconPainter m_painter;
    QSystemTrayIcon m_tray;
    std::unique_ptr<QMenu> m_menu;
    QString m_count;
    QString m_toolTip;
    Icon m_icon = Icon::normal;
};

#pragma once

#include "SniDBusTypes.h"
#include "StatusIconPainter.h"

#include "platform/StatusItem.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QHash>

class DBusMenuExporter;
class SniItemAdaptor;

// The status item as a StatusNotifierItem on the session bus, the tray protocol of KDE Plasma,
// GNOME (with the AppIndicator extension), XFCE, LXQt and most bars.
//
// The item is the object /StatusNotifierItem (interface org.kde.StatusNotifierItem) under its
// own name org.kde.StatusNotifierItem-<pid>-<n>; its menu is com.canonical.dbusmenu at /MenuBar.
// It registers with org.kde.StatusNotifierWatcher, and again whenever a watcher appears (panels
// restart). The count is the Ayatana label (XAyatanaLabel) where the host draws that label
// beside the icon (see PanelHost, asked at each registration); elsewhere it is drawn into the
// icon bitmaps, with no icon name and no label, as the XEmbed tray icon draws it. The tooltip
// carries it either way.
//
// Icons: each state is offered both ways hosts read icons. IconName names an SVG written into
// the item's own icon folder (IconThemePath); for the normal state it is a symbolic icon, which
// hosts paint in the panel's text colour, so it follows a light or dark panel. Orange and red
// keep their colours. IconPixmap carries the same glyph as bitmaps (16 to 48 px) for hosts
// that ignore names, the normal one in a grey that reads on light and dark panels. Icon::none
// has no name and transparent bitmaps, which leaves the label alone.
class SniStatusItem : public StatusItem {
    Q_OBJECT
public:
    inline static const QString itemPath = QStringLiteral("/StatusNotifierItem");
    inline static const QString menuPath = QStringLiteral("/MenuBar");
    inline static const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
    inline static const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");
    inline static const QString watcherInterface = QStringLiteral("org.kde.StatusNotifierWatcher");
    inline static const QList<int> pixmapSizes = {16, 22, 24, 32, 48};

    struct Options {
        // Where the icon SVGs are written; empty for a folder under the user's runtime folder.
        QString iconFolder;
        int callTimeoutMs = 5000;
    };

    SniStatusItem(const QDBusConnection& connection, const StatusIconGlyph& glyph, Options options,
                  QObject* parent = nullptr);
    SniStatusItem(const QDBusConnection& connection, const StatusIconGlyph& glyph,
                  QObject* parent = nullptr)
        : SniStatusItem(connection, glyph, Options{}, parent) {}
    ~SniStatusItem() override;

    void setTitle(const QString& text, const QString& symbol) override;
    void setIcon(Icon icon) override;
    void setMenu(const QList<StatusMenuItem>& items) override;
    void setCountPlacement(CountPlacement placement) override;
    // Registered with a watcher that reports a host to show it.
    bool isVisible() const override { return m_registered && m_hostPresent; }

    // The bus name hosts reach the item under; empty without a bus.
    QString serviceName() const { return m_serviceName; }
    // The icon-theme name each state is offered under (empty for none, or when no icon folder
    // could be written).
    QString iconName(Icon icon) const;
    // Whether the count is drawn into the icon now (rather than left to the host's label).
    bool countInIcon() const;

private slots:
    void hostRegistered();
    void hostUnregistered();

private:
    void registerWithWatcher();
    void readHostPresence();
    void watcherGone();
    bool writeIconTheme();
    QList<SniPixmap> pixmaps(Icon icon) const;
    void publish();

    QDBusConnection m_connection;
    Options m_options;
    StatusIconPainter m_painter;
    SniItemAdaptor* m_adaptor = nullptr;
    DBusMenuExporter* m_menu = nullptr;
    QDBusServiceWatcher m_watcherWatch;
    QString m_serviceName;
    bool m_ownsServiceName = false;
    bool m_themeWritten = false;
    bool m_registered = false;
    bool m_hostPresent = true;
    Icon m_icon = Icon::normal;
    QString m_text;
    QString m_symbol;
    CountPlacement m_placement = CountPlacement::automatic;
    bool m_hostDrawsLabel = false;
};

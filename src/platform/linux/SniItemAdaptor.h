#pragma once

#include "SniDBusTypes.h"

#include <QDBusAbstractAdaptor>
#include <QDBusObjectPath>

class StatusItem;

// The org.kde.StatusNotifierItem face of a status item: the properties hosts read, the change
// signals they listen to (with the Ayatana label extension), and the clicks they forward. It
// holds what the item currently shows; the item decides what that is.
class SniItemAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category)
    Q_PROPERTY(QString Id READ id)
    Q_PROPERTY(QString Title READ title)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(int WindowId READ windowId)
    Q_PROPERTY(QString IconThemePath READ iconThemePath)
    Q_PROPERTY(QString IconName READ iconName)
    Q_PROPERTY(SniPixmapList IconPixmap READ iconPixmap)
    Q_PROPERTY(QString OverlayIconName READ emptyName)
    Q_PROPERTY(SniPixmapList OverlayIconPixmap READ noPixmaps)
    Q_PROPERTY(QString AttentionIconName READ emptyName)
    Q_PROPERTY(SniPixmapList AttentionIconPixmap READ noPixmaps)
    Q_PROPERTY(QString AttentionMovieName READ emptyName)
    Q_PROPERTY(SniToolTip ToolTip READ toolTip)
    Q_PROPERTY(QDBusObjectPath Menu READ menu)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu)
    Q_PROPERTY(QString XAyatanaLabel READ label)
    Q_PROPERTY(QString XAyatanaLabelGuide READ labelGuide)
public:
    inline static const QString interfaceName = QStringLiteral("org.kde.StatusNotifierItem");

    SniItemAdaptor(StatusItem* item, const QDBusObjectPath& menu);

    QString category() const { return QStringLiteral("ApplicationStatus"); }
    QString id() const { return QStringLiteral("mindmeter"); }
    QString title() const { return QStringLiteral("Mindmeter"); }
    QString status() const { return QStringLiteral("Active"); }
    int windowId() const { return 0; }
    QString iconThemePath() const { return m_iconThemePath; }
    QString iconName() const { return m_iconName; }
    SniPixmapList iconPixmap() const { return m_iconPixmap; }
    QString emptyName() const { return {}; }
    SniPixmapList noPixmaps() const { return {}; }
    SniToolTip toolTip() const;
    QDBusObjectPath menu() const { return m_menu; }
    bool itemIsMenu() const { return false; }
    QString label() const { return m_label; }
    QString labelGuide() const { return m_labelGuide; }

    void setIconThemePath(const QString& path) { m_iconThemePath = path; }
    // Each setter announces a change to hosts, and only a change.
    void setIcon(const QString& name, const SniPixmapList& pixmaps);
    void setLabel(const QString& label, const QString& guide, const QString& toolTipText);

public slots:
    void Activate(int x, int y);
    void SecondaryActivate(int x, int y);
    void ContextMenu(int x, int y);
    void Scroll(int delta, const QString& orientation);

signals:
    void NewTitle();
    void NewIcon();
    void NewAttentionIcon();
    void NewOverlayIcon();
    void NewToolTip();
    void NewStatus(const QString& status);
    void XAyatanaNewLabel(const QString& label, const QString& guide);

private:
    StatusItem* m_item;
    QDBusObjectPath m_menu;
    QString m_iconThemePath;
    QString m_iconName;
    SniPixmapList m_iconPixmap;
    QString m_label;
    QString m_labelGuide;
    QString m_toolTipText;
};

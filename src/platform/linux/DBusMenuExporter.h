#pragma once

#include "DBusMenuTypes.h"

#include "platform/StatusItem.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QObject>

// A flat menu of StatusMenuItems exported as com.canonical.dbusmenu, the menu protocol that
// StatusNotifierItem hosts read through the item's Menu property.
//
// The root has id 0; the item at position i has id i + 1, so ids stay the same for as long as
// the menu does. setMenu replaces the whole menu, raises the layout revision and announces it
// with LayoutUpdated. A click on an enabled item runs its action on the main thread after the
// D-Bus reply has gone out. Ids the menu does not have, and calls with wrong argument types,
// get an error reply.
class DBusMenuExporter : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
    Q_PROPERTY(uint Version READ version)
    Q_PROPERTY(QString TextDirection READ textDirection)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(QStringList IconThemePath READ iconThemePath)
public:
    inline static const QString interfaceName = QStringLiteral("com.canonical.dbusmenu");

    explicit DBusMenuExporter(QObject* parent = nullptr);
    ~DBusMenuExporter() override;

    // Puts the menu on the bus at the path; false when the path is taken or there is no bus.
    bool exportOn(const QDBusConnection& connection, const QString& path);

    void setMenu(const QList<StatusMenuItem>& items);
    uint revision() const { return m_revision; }

    uint version() const { return 3; }
    QString textDirection() const { return QStringLiteral("ltr"); }
    QString status() const { return QStringLiteral("normal"); }
    QStringList iconThemePath() const { return {}; }

    // The properties of one menu item as the protocol names them; empty for an unknown id.
    QVariantMap itemProperties(int id) const;

public slots:
    Q_SCRIPTABLE uint GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                                DBusMenuLayoutItem& layout);
    Q_SCRIPTABLE QList<DBusMenuItemProperties> GetGroupProperties(const QList<int>& ids,
                                                                  const QStringList& propertyNames);
    Q_SCRIPTABLE QDBusVariant GetProperty(int id, const QString& name);
    Q_SCRIPTABLE void Event(int id, const QString& eventId, const QDBusVariant& data,
                            uint timestamp);
    Q_SCRIPTABLE QList<int> EventGroup(const QList<DBusMenuEvent>& events);
    Q_SCRIPTABLE bool AboutToShow(int id);
    Q_SCRIPTABLE QList<int> AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors);

signals:
    Q_SCRIPTABLE void LayoutUpdated(uint revision, int parent);
    // Not on the bus: the host is about to open the menu.
    void aboutToShow();

private:
    bool hasItem(int id) const { return id >= 0 && id <= m_items.size(); }
    // Runs a click; false for an unknown id.
    bool handleEvent(int id, const QString& eventId);
    // Opens the root: tells the owner, and answers whether the layout changed meanwhile.
    bool openRoot();
    void unknownId(int id);

    QList<StatusMenuItem> m_items;
    uint m_revision = 1;
    QDBusConnection m_connection{QString()};
    QString m_path;
};

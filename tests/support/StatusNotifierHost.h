#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QObject>
#include <QVariantMap>

// The watcher half of a status-notifier host, as a panel runs it: records every item that
// registers. (A target using it lists this header among its sources, for moc.)
class TestWatcher : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered MEMBER hostRegistered)
public:
    static constexpr const char* service = "org.kde.StatusNotifierWatcher";
    QStringList registrations;
    bool hostRegistered = true;

    // Serves this watcher on the connection, as a panel that starts does.
    bool serveOn(QDBusConnection& connection) {
        return connection.registerObject(QStringLiteral("/StatusNotifierWatcher"), this,
                                         QDBusConnection::ExportAllContents) &&
               connection.registerService(service);
    }
public slots:
    void RegisterStatusNotifierItem(const QString& item) { registrations << item; }
signals:
    void StatusNotifierHostRegistered();
};

// A dbusmenu layout node, read by hand from the wire so that a fault in the item's own
// marshalling cannot cancel out.
struct MenuNode {
    int id = -1;
    QVariantMap properties;
    QList<MenuNode> children;

    static MenuNode read(const QDBusArgument& argument) {
        MenuNode node;
        argument.beginStructure();
        argument >> node.id >> node.properties;
        argument.beginArray();
        while (!argument.atEnd()) {
            QDBusVariant child;
            argument >> child;
            node.children.append(read(child.variant().value<QDBusArgument>()));
        }
        argument.endArray();
        argument.endStructure();
        return node;
    }
    // From a GetLayout reply, (u(ia{sv}av)); an empty node for anything else.
    static MenuNode fromReply(const QDBusMessage& reply) {
        return reply.signature() == QLatin1String("u(ia{sv}av)")
                   ? read(reply.arguments().at(1).value<QDBusArgument>())
                   : MenuNode();
    }
    // The children's labels, "-" for a separator.
    QStringList labels() const {
        QStringList l;
        for (const MenuNode& child : children)
            l << (child.properties.value("type") == "separator"
                      ? QStringLiteral("-")
                      : child.properties.value("label").toString());
        return l;
    }
};

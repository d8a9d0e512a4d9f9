#include "DBusMenuExporter.h"

#include <QDBusError>
#include <QTimer>

namespace {

// Mnemonics are marked with "_" in dbusmenu labels; a literal one is doubled.
QString escapedLabel(const QString& title) {
    QString label = title;
    return label.replace(QLatin1Char('_'), QStringLiteral("__"));
}

// dbusmenu names keys as X keysyms do; the punctuation the menu uses gets its keysym name.
QString keyName(const QString& key) {
    static const QHash<QString, QString> names = {
        {QStringLiteral(","), QStringLiteral("comma")},
        {QStringLiteral("."), QStringLiteral("period")},
        {QStringLiteral(";"), QStringLiteral("semicolon")},
        {QStringLiteral("/"), QStringLiteral("slash")},
    };
    return names.value(key, key);
}

QVariantMap filtered(const QVariantMap& properties, const QStringList& names) {
    if (names.isEmpty())
        return properties;
    QVariantMap kept;
    for (const QString& name : names)
        if (properties.contains(name))
            kept.insert(name, properties.value(name));
    return kept;
}

} // namespace

DBusMenuExporter::DBusMenuExporter(QObject* parent)
    : QObject(parent) {
    registerDBusMenuTypes();
}

DBusMenuExporter::~DBusMenuExporter() {
    if (!m_path.isEmpty())
        m_connection.unregisterObject(m_path);
}

bool DBusMenuExporter::exportOn(const QDBusConnection& connection, const QString& path) {
    if (!connection.isConnected())
        return false;
    if (!m_path.isEmpty())
        m_connection.unregisterObject(m_path);
    m_connection = connection;
    m_path.clear();
    if (!m_connection.registerObject(path, this, QDBusConnection::ExportScriptableContents))
        return false;
    m_path = path;
    return true;
}

void DBusMenuExporter::setMenu(const QList<StatusMenuItem>& items) {
    m_items = items;
    ++m_revision;
    emit LayoutUpdated(m_revision, 0);
}

QVariantMap DBusMenuExporter::itemProperties(int id) const {
    if (id == 0)
        return {{QStringLiteral("children-display"), QStringLiteral("submenu")}};
    if (!hasItem(id))
        return {};
    const StatusMenuItem& item = m_items.at(id - 1);
    if (item.separator)
        return {{QStringLiteral("type"), QStringLiteral("separator")}};
    QVariantMap properties{
        {QStringLiteral("type"), QStringLiteral("standard")},
        {QStringLiteral("label"), escapedLabel(item.title)},
        {QStringLiteral("enabled"), item.enabled},
        {QStringLiteral("visible"), true},
    };
    if (!item.shortcut.isEmpty())
        properties.insert(QStringLiteral("shortcut"),
                          QVariant::fromValue(DBusMenuShortcut{{keyName(item.shortcut)}}));
    return properties;
}

uint DBusMenuExporter::GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                                 DBusMenuLayoutItem& layout) {
    if (!hasItem(parentId)) {
        unknownId(parentId);
        return m_revision;
    }
    layout.id = parentId;
    layout.properties = filtered(itemProperties(parentId), propertyNames);
    layout.children.clear();
    // Only the root has children; a depth of 0 asks for the node alone.
    if (parentId == 0 && recursionDepth != 0) {
        for (int id = 1; id <= m_items.size(); ++id)
            layout.children.append({id, filtered(itemProperties(id), propertyNames), {}});
    }
    return m_revision;
}

QList<DBusMenuItemProperties>
DBusMenuExporter::GetGroupProperties(const QList<int>& ids, const QStringList& propertyNames) {
    DBusMenuItemPropertiesList result;
    // Unknown ids are left out, as hosts ask for ids of layouts they may not have caught up on.
    for (int id : ids)
        if (hasItem(id))
            result.append({id, filtered(itemProperties(id), propertyNames)});
    return result;
}

QDBusVariant DBusMenuExporter::GetProperty(int id, const QString& name) {
    const QVariantMap properties = itemProperties(id);
    if (!hasItem(id) || !properties.contains(name)) {
        if (calledFromDBus())
            sendErrorReply(QDBusError::InvalidArgs,
                           QStringLiteral("menu item %1 has no property %2").arg(id).arg(name));
        return QDBusVariant(QVariant(QString()));
    }
    return QDBusVariant(properties.value(name));
}

void DBusMenuExporter::Event(int id, const QString& eventId, const QDBusVariant&, uint) {
    if (!handleEvent(id, eventId))
        unknownId(id);
}

QList<int> DBusMenuExporter::EventGroup(const QList<DBusMenuEvent>& events) {
    QList<int> idErrors;
    for (const DBusMenuEvent& event : events)
        if (!handleEvent(event.id, event.eventId))
            idErrors.append(event.id);
    return idErrors;
}

bool DBusMenuExporter::AboutToShow(int id) {
    if (!hasItem(id)) {
        unknownId(id);
        return false;
    }
    return id == 0 && openRoot();
}

QList<int> DBusMenuExporter::AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors) {
    QList<int> updatesNeeded;
    idErrors.clear();
    for (int id : ids) {
        if (!hasItem(id))
            idErrors.append(id);
        else if (id == 0 && openRoot())
            updatesNeeded.append(0);
    }
    return updatesNeeded;
}

bool DBusMenuExporter::handleEvent(int id, const QString& eventId) {
    if (!hasItem(id))
        return false;
    if (id == 0 || eventId != QLatin1String("clicked"))
        return true; // "opened", "closed", "hovered": nothing to do
    const StatusMenuItem& item = m_items.at(id - 1);
    if (item.separator || !item.enabled || !item.action)
        return true;
    // After the reply: an action may open a dialog or quit, which must not hold up the host.
    QTimer::singleShot(0, this, item.action);
    return true;
}

bool DBusMenuExporter::openRoot() {
    const uint before = m_revision;
    emit aboutToShow(); // the owner may rebuild the menu here
    return m_revision != before;
}

void DBusMenuExporter::unknownId(int id) {
    if (calledFromDBus())
        sendErrorReply(QDBusError::InvalidArgs, QStringLiteral("no menu item with id %1").arg(id));
}

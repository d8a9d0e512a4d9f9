#include "SniStatusItem.h"

#include "DBusMenuExporter.h"
#include "PanelHost.h"
#include "SniItemAdaptor.h"
#include "StatusLabel.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QDir>
#include <QSaveFile>
#include <QStandardPaths>

#include <atomic>

namespace {

const QString symbolicName = QStringLiteral("mindmeter-status-symbolic");
const QString orangeName = QStringLiteral("mindmeter-status-orange");
const QString redName = QStringLiteral("mindmeter-status-red");

bool writeFile(const QString& path, const QString& text) {
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) >= 0 && file.commit();
}

} // namespace

SniStatusItem::SniStatusItem(const QDBusConnection& connection, const StatusIconGlyph& glyph,
                             Options options, QObject* parent)
    : StatusItem(parent)
    , m_connection(connection)
    , m_options(std::move(options))
    , m_painter(glyph) {
    registerSniDBusTypes();
    m_menu = new DBusMenuExporter(this);
    connect(m_menu, &DBusMenuExporter::aboutToShow, this, &StatusItem::menuAboutToShow);
    m_adaptor = new SniItemAdaptor(this, QDBusObjectPath(menuPath));
    if (m_options.iconFolder.isEmpty())
        m_options.iconFolder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation) +
                               QStringLiteral("/mindmeter-icons");
    m_themeWritten = writeIconTheme();
    if (m_themeWritten)
        m_adaptor->setIconThemePath(m_options.iconFolder);
    publish();

    if (!m_connection.isConnected())
        return;
    if (!m_connection.registerObject(itemPath, this, QDBusConnection::ExportAdaptors)) {
        qWarning("status item: %s is taken on this connection", qPrintable(itemPath));
        return;
    }
    m_menu->exportOn(m_connection, menuPath);
    static std::atomic<int> itemsMade{0};
    m_serviceName = QStringLiteral("org.kde.StatusNotifierItem-%1-%2")
                        .arg(QCoreApplication::applicationPid())
                        .arg(++itemsMade);
    m_ownsServiceName = m_connection.registerService(m_serviceName);
    if (!m_ownsServiceName)
        m_serviceName = m_connection.baseService(); // watchers accept the unique name too

    m_watcherWatch.setConnection(m_connection);
    m_watcherWatch.setWatchMode(QDBusServiceWatcher::WatchForRegistration |
                                QDBusServiceWatcher::WatchForUnregistration);
    m_watcherWatch.addWatchedService(watcherService);
    connect(&m_watcherWatch, &QDBusServiceWatcher::serviceRegistered, this,
            &SniStatusItem::registerWithWatcher);
    connect(&m_watcherWatch, &QDBusServiceWatcher::serviceUnregistered, this,
            &SniStatusItem::watcherGone);
    m_connection.connect(watcherService, watcherPath, watcherInterface,
                         QStringLiteral("StatusNotifierHostRegistered"), this,
                         SLOT(hostRegistered()));
    m_connection.connect(watcherService, watcherPath, watcherInterface,
                         QStringLiteral("StatusNotifierHostUnregistered"), this,
                         SLOT(hostUnregistered()));
    registerWithWatcher();
}

SniStatusItem::~SniStatusItem() {
    if (m_serviceName.isEmpty())
        return;
    // Leaving the bus name is what tells the watcher the item is gone.
    m_connection.unregisterObject(itemPath);
    if (m_ownsServiceName)
        m_connection.unregisterService(m_serviceName);
}

void SniStatusItem::setTitle(const QString& text, const QString& symbol) {
    m_text = text;
    m_symbol = symbol;
    publish();
}

void SniStatusItem::setIcon(Icon icon) {
    m_icon = icon;
    publish();
}

void SniStatusItem::setCountPlacement(CountPlacement placement) {
    m_placement = placement;
    publish();
}

bool SniStatusItem::countInIcon() const {
    return m_placement == CountPlacement::inIcon ||
           (m_placement == CountPlacement::automatic && !m_hostDrawsLabel);
}

void SniStatusItem::publish() {
    const QString label = StatusLabel::text(m_text, m_symbol);
    if (countInIcon() && !m_text.isEmpty()) {
        // No name: hosts prefer a themed icon over bitmaps, and the count is in the bitmaps.
        m_adaptor->setIcon(QString(), pixmaps(m_icon));
        m_adaptor->setLabel(QString(), QString(), label);
    } else {
        m_adaptor->setIcon(iconName(m_icon), pixmaps(m_icon));
        m_adaptor->setLabel(label, m_text.isEmpty() ? QString() : StatusLabel::guide(m_symbol),
                            label);
    }
}

void SniStatusItem::setMenu(const QList<StatusMenuItem>& items) {
    m_menu->setMenu(items);
}

QString SniStatusItem::iconName(Icon icon) const {
    if (!m_themeWritten)
        return {};
    switch (icon) {
    case Icon::normal:
        return symbolicName;
    case Icon::orange:
        return orangeName;
    case Icon::red:
        return redName;
    case Icon::none:
        break;
    }
    return {};
}

void SniStatusItem::registerWithWatcher() {
    if (m_serviceName.isEmpty())
        return;
    QDBusMessage call =
        QDBusMessage::createMethodCall(watcherService, watcherPath, watcherInterface,
                                       QStringLiteral("RegisterStatusNotifierItem"));
    call << m_serviceName;
    // Asked afresh each time: a new watcher may be another panel.
    m_hostDrawsLabel = PanelHost::drawsLabel(PanelHost::observe(m_connection, watcherService));
    publish();
    auto* pending =
        new QDBusPendingCallWatcher(m_connection.asyncCall(call, m_options.callTimeoutMs), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
        w->deleteLater();
        m_registered = !w->isError();
        if (m_registered)
            readHostPresence();
    });
}

void SniStatusItem::readHostPresence() {
    QDBusMessage get = QDBusMessage::createMethodCall(
        watcherService, watcherPath, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    get << watcherInterface << QStringLiteral("IsStatusNotifierHostRegistered");
    auto* pending =
        new QDBusPendingCallWatcher(m_connection.asyncCall(get, m_options.callTimeoutMs), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
        w->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *w;
        const QVariant value = reply.isError() ? QVariant() : reply.value().variant();
        // A watcher that does not say is taken to have a host: it is there to serve one.
        m_hostPresent = value.typeId() == QMetaType::Bool ? value.toBool() : true;
    });
}

void SniStatusItem::hostRegistered() {
    m_hostPresent = true;
}

// Another host may still be there; the watcher knows.
void SniStatusItem::hostUnregistered() {
    readHostPresence();
}

void SniStatusItem::watcherGone() {
    m_registered = false;
}

bool SniStatusItem::writeIconTheme() {
    const struct {
        QString name;
        QColor colour;
        bool symbolic;
    } icons[] = {
        {symbolicName, StatusIconPainter::colour(Icon::normal), true},
        {orangeName, StatusIconPainter::colour(Icon::orange), false},
        {redName, StatusIconPainter::colour(Icon::red), false},
    };
    const QDir folder(m_options.iconFolder);
    for (const auto& icon : icons) {
        const QString svg = m_painter.svg(icon.colour, icon.symbolic);
        const QString file = icon.name + QStringLiteral(".svg");
        // GTK hosts find loose icons in the folder, KDE hosts look in a hicolor tree below it.
        if (!writeFile(folder.filePath(file), svg) ||
            !writeFile(folder.filePath(QStringLiteral("hicolor/scalable/status/") + file), svg))
            return false;
    }
    return true;
}

QList<SniPixmap> SniStatusItem::pixmaps(Icon icon) const {
    QList<SniPixmap> list;
    const QString count = countInIcon() ? StatusLabel::shortCount(m_text) : QString();
    for (int size : pixmapSizes)
        list.append(SniPixmap::fromImage(m_painter.imageWithCount(size, icon, count)));
    return list;
}

#include "MutterIdleSource.h"

#include <QDBusMessage>
#include <QDBusPendingCall>

namespace {

const QString service = QStringLiteral("org.gnome.Mutter.IdleMonitor");
const QString path = QStringLiteral("/org/gnome/Mutter/IdleMonitor/Core");
const QString interfaceName = QStringLiteral("org.gnome.Mutter.IdleMonitor");
constexpr int callTimeoutMs = 3000;

} // namespace

MutterIdleSource::MutterIdleSource(const QDBusConnection& bus)
    : m_bus(bus) {
    m_clock.start();
}

MutterIdleSource::~MutterIdleSource() {
    // Mutter also drops the watches of a client that leaves the bus.
    for (const uint id : {m_idleWatch, m_activeWatch})
        if (id)
            m_bus.asyncCall(QDBusMessage::createMethodCall(service, path, interfaceName,
                                                           QStringLiteral("RemoveWatch"))
                            << id);
}

QDBusMessage MutterIdleSource::call(const QString& method, const QVariantList& arguments) const {
    QDBusMessage message = QDBusMessage::createMethodCall(service, path, interfaceName, method);
    message.setArguments(arguments);
    return m_bus.call(message, QDBus::Block, callTimeoutMs);
}

std::unique_ptr<MutterIdleSource> MutterIdleSource::open(QDBusConnection bus, QString* error) {
    std::unique_ptr<MutterIdleSource> source(new MutterIdleSource(bus));
    bus.connect(service, path, interfaceName, QStringLiteral("WatchFired"), source.get(),
                SLOT(watchFired(uint)));
    const QDBusMessage watch =
        source->call(QStringLiteral("AddIdleWatch"), {QVariant::fromValue(quint64(watchMs))});
    const QDBusMessage idle = source->call(QStringLiteral("GetIdletime"));
    if (watch.type() != QDBusMessage::ReplyMessage || idle.type() != QDBusMessage::ReplyMessage) {
        if (error)
            *error = QStringLiteral("Mutter's idle monitor does not answer: %1")
                         .arg(idle.errorMessage());
        return nullptr;
    }
    source->m_idleWatch = watch.arguments().value(0).toUInt();
    const qint64 idleMs = qint64(idle.arguments().value(0).toULongLong());
    source->m_lastInputMs = -idleMs;
    if (idleMs >= watchMs) {
        source->m_idle = true;
        source->watchForInput();
    }
    return source;
}

void MutterIdleSource::watchForInput() {
    const QDBusMessage reply = call(QStringLiteral("AddUserActiveWatch"));
    m_activeWatch =
        reply.type() == QDBusMessage::ReplyMessage ? reply.arguments().value(0).toUInt() : 0;
}

void MutterIdleSource::watchFired(uint id) {
    if (id == m_idleWatch && !m_idle) {
        m_idle = true;
        m_lastInputMs = m_clock.elapsed() - watchMs;
        watchForInput();
    } else if (id == m_activeWatch && id != 0) {
        // Active watches fire once and are gone.
        m_activeWatch = 0;
        m_idle = false;
        m_lastInputMs = m_clock.elapsed();
    }
}

double MutterIdleSource::secondsSinceLastInput() const {
    const qint64 sinceMs = m_clock.elapsed() - m_lastInputMs;
    // Without an idle watch firing, the last input was less than watchMs ago.
    return double(m_idle ? sinceMs : qMin(sinceMs, watchMs - 1)) / 1000.0;
}

#include "Alerts.h"

#include "platform/linux/DBusNotificationSink.h"
#include "sensing/SessionContextEngine.h"
#include "services/NotificationManager.h"

#include <QDBusConnection>

Alerts::Alerts(DayStore& store, SessionContextEngine& context, Defaults& defaults,
               const Clock& clock) {
    DBusNotificationSink::Options options;
    options.appIcon = QStringLiteral("com.mindmeter.Mindmeter");
    options.desktopEntry = QStringLiteral("com.mindmeter.Mindmeter");
    m_sink = std::make_unique<DBusNotificationSink>(QDBusConnection::sessionBus(), defaults, clock,
                                                    options);
    m_manager = std::make_unique<NotificationManager>(*m_sink, defaults, clock);
    m_manager->attach(store);
    QObject::connect(&context, &SessionContextEngine::temperatureCheckRequested, m_manager.get(),
                     &NotificationManager::checkTemperature);
}

Alerts::~Alerts() = default;

NotificationSink& Alerts::sink() const {
    return *m_sink;
}

#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <ctime>

// Runs a block under another local time zone and restores the previous one.
class TimeZoneScope {
public:
    explicit TimeZoneScope(const char* zone)
        : m_had(qEnvironmentVariableIsSet("TZ"))
        , m_previous(qgetenv("TZ")) {
        qputenv("TZ", zone);
        tzset();
    }
    ~TimeZoneScope() {
        if (m_had)
            qputenv("TZ", m_previous);
        else
            qunsetenv("TZ");
        tzset();
    }
    TimeZoneScope(const TimeZoneScope&) = delete;
    TimeZoneScope& operator=(const TimeZoneScope&) = delete;

private:
    bool m_had;
    QByteArray m_previous;
};

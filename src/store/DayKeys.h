#pragma once

#include <QDateTime>
#include <QString>

// Names of the stored days. A day is named by its local calendar date, "yyyy-MM-dd"
// (Gregorian, ASCII digits), in the time zone in force when the name is taken.
namespace DayKeys {

inline QString dayText(const QDate& day) {
    return day.toString(QStringLiteral("yyyy-MM-dd"));
}

inline QString dayText(const QDateTime& when) {
    return dayText(when.toLocalTime().date());
}

inline QString sessions(const QString& day) {
    return QStringLiteral("mindmeter.sessions.") + day;
}
inline QString recovery(const QString& day) {
    return QStringLiteral("mindmeter.recovery.") + day;
}
// Where an undecodable day is kept before today's first write replaces it.
inline QString quarantine(const QString& day) {
    return QStringLiteral("mindmeter.quarantine.sessions.") + day;
}

} // namespace DayKeys

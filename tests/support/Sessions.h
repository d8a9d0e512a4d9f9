#pragma once

#include "model/ActivitySession.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QUuid>

// A finished session of `raw` tokens that started at `start` and lasted a minute.
inline ActivitySession makeSession(TokenType type, qint64 raw, const QDateTime& start,
                                   const QString& bundle = QStringLiteral("com.apple.Terminal")) {
    const Timestamp t = Timestamp::fromDateTime(start);
    return ActivitySession{QUuid::createUuid(), bundle, QStringLiteral("App"), type, t,
                           t.addSeconds(60),    raw};
}

// A local date and time in the zone in force when called.
inline QDateTime local(int y, int m, int d, int h = 0, int min = 0) {
    return QDateTime(QDate(y, m, d), QTime(h, min));
}

// Runs the work that store operations posted to the event loop.
inline void settle() {
    QCoreApplication::processEvents();
}

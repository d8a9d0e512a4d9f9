#pragma once

#include "model/ActivitySession.h"

#include <QDateTime>
#include <QUuid>

// A finished session of `raw` tokens that started at `start` and lasted a minute.
inline ActivitySession makeSession(TokenType type, qint64 raw, const QDateTime& start,
                                   const QString& bundle = QStringLiteral("com.apple.Terminal"))
{
    const Timestamp t = Timestamp::fromDateTime(start);
    return ActivitySession{QUuid::createUuid(), bundle, QStringLiteral("App"), type, t,
                           t.addSeconds(60), raw};
}

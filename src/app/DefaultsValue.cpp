#include "DefaultsValue.h"

#include "model/AppPreferences.h"
#include "model/SessionCodec.h"

#include <QFile>

#include <cmath>
#include <limits>

QVariant DefaultsValue::parse(const QString& type, const QString& text, FILE* in, QString* error) {
    if (type == QLatin1String("-int") || type == QLatin1String("-integer")) {
        bool ok = false;
        const qint64 v = text.toLongLong(&ok);
        if (!ok)
            *error = QStringLiteral("'%1' is not a 64-bit integer").arg(text);
        return ok ? QVariant::fromValue(v) : QVariant();
    }
    if (type == QLatin1String("-float")) {
        bool ok = false;
        const double v = text.toDouble(&ok);
        if (!ok || !std::isfinite(v)) {
            *error = QStringLiteral("'%1' is not a finite number").arg(text);
            return {};
        }
        return QVariant::fromValue(v);
    }
    if (type == QLatin1String("-bool") || type == QLatin1String("-boolean")) {
        const QString t = text.toLower();
        if (t == QLatin1String("true") || t == QLatin1String("yes") || t == QLatin1String("1"))
            return QVariant::fromValue(true);
        if (t == QLatin1String("false") || t == QLatin1String("no") || t == QLatin1String("0"))
            return QVariant::fromValue(false);
        *error = QStringLiteral("'%1' is not true or false").arg(text);
        return {};
    }
    if (type == QLatin1String("-string"))
        return text;
    if (type == QLatin1String("-data-file")) {
        QFile file;
        const bool opened = text == QLatin1String("-")
                                ? file.open(in, QIODevice::ReadOnly)
                                : (file.setFileName(text), file.open(QIODevice::ReadOnly));
        if (!opened) {
            *error = QStringLiteral("cannot read %1: %2").arg(text, file.errorString());
            return {};
        }
        return file.readAll();
    }
    *error = QStringLiteral("unknown value type '%1'").arg(type);
    return {};
}

QString DefaultsValue::rejectReason(const QString& key, const QVariant& value) {
    if (key.startsWith(QLatin1String("mindmeter.sessions."))) {
        const std::optional<QByteArray> bytes = Defaults::toData(value);
        if (!bytes || !SessionCodec::decodeDay(*bytes))
            return QStringLiteral("a day must be written with -data-file as a JSON array of "
                                  "sessions, and this one does not decode");
    }
    if (key == AppPreferences::idleTimeoutMinutes &&
        Defaults::toInteger(value) > std::numeric_limits<qint64>::max() / 60)
        return QStringLiteral("the idle time-out is too large");
    // The notification manager stops the program on values it cannot convert.
    if (key == AppPreferences::proTempAlertMinutes &&
        Defaults::toInteger(value) > std::numeric_limits<qint64>::max() / 60)
        return QStringLiteral("the temperature alert duration is too large");
    if (key == AppPreferences::proEndOfDayTime && !(Defaults::toReal(value) < 9.2e18))
        return QStringLiteral("the digest time is too large");
    return {};
}

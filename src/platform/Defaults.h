#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <cstdint>
#include <optional>

// The user's settings database: one typed value per key.
//
// Stored values are one of qint64, double, bool, QString or QByteArray. The typed reads
// follow the conversions of the macOS defaults database so that settings behave the same
// on every platform: an absent key reads as 0 / 0.0 / false / missing, and a value stored
// under one type is converted when read as another (see docs/settings.md).
class Defaults : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // Raw access; an invalid QVariant means the key is absent. *ok, when given, is set to
    // false if the database could not be read (so "absent" can be told from "unknown").
    virtual QVariant value(const QString& key, bool* ok = nullptr) const = 0;
    // Writes report false when the value could not be stored (disk full, read-only, ...).
    virtual bool setValue(const QString& key, const QVariant& value) = 0;
    virtual bool remove(const QString& key) = 0;
    virtual QStringList keys() const = 0;
    // A number that changes whenever the key is written or removed; 0 when absent.
    // Lets readers cache what they decoded from a value.
    virtual quint64 revision(const QString& key) const;
    // A number that differs from every earlier answer once any value may have changed, so a
    // reader that asks often can keep what it read until then. This base never knows: every
    // answer is new. A store told of every change answers from memory.
    virtual quint64 changeStamp() const { return ++m_unknownChanges; }
    // Where the values are kept (a file's path), for messages; empty when nowhere on disk.
    virtual QString path() const { return {}; }
    // Why the last read or write failed, for messages; empty when nothing is known.
    virtual QString lastError() const { return {}; }

    qint64 integer(const QString& key) const { return toInteger(value(key)); }
    double real(const QString& key) const { return toReal(value(key)); }
    bool boolean(const QString& key) const { return toBool(value(key)); }
    std::optional<QString> string(const QString& key) const { return toString(value(key)); }
    std::optional<QByteArray> data(const QString& key) const { return toData(value(key)); }

    bool setInteger(const QString& key, qint64 v) { return setValue(key, QVariant::fromValue(v)); }
    bool setReal(const QString& key, double v) { return setValue(key, QVariant::fromValue(v)); }
    bool setBool(const QString& key, bool v) { return setValue(key, QVariant::fromValue(v)); }
    bool setString(const QString& key, const QString& v) { return setValue(key, v); }
    bool setData(const QString& key, const QByteArray& v) { return setValue(key, v); }

    // The conversions behind the typed reads.
    static qint64 toInteger(const QVariant& v);
    static double toReal(const QVariant& v);
    static bool toBool(const QVariant& v);
    static std::optional<QString> toString(const QVariant& v);
    static std::optional<QByteArray> toData(const QVariant& v);
    // True for the five value types a store keeps; a NaN double is not kept.
    static bool isStorable(const QVariant& v);

signals:
    // Emitted after a write or removal made through this object.
    void valueChanged(const QString& key);

private:
    mutable quint64 m_unknownChanges = 0;
};

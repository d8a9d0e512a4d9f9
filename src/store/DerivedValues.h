#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// Bytes derived from stored values (a summary of a day, say), kept by a settings store
// beside the values so that no reader, in this process or another, derives them twice. They
// are given back only for the revision (Defaults::revision) of the value they were made
// from, and they are not settings: a store's value() and keys() never show them. Keeping
// them is best effort (they can always be derived again) and changes no value, so it is
// allowed through a read-only view of the store.
class DerivedValues {
public:
    struct Item {
        QString key;
        quint64 revision = 0;
        QByteArray bytes;
    };

    virtual ~DerivedValues() = default;
    virtual std::optional<QByteArray> derivedData(const QString& key, quint64 revision) const = 0;
    virtual void keepDerivedData(const QList<Item>& items) const = 0;
};

// Any value can be stored by a hand-edited database or `defaults write`, and the typed reads
// convert it (text read as a number, ...). The first byte picks the stored type, the rest is the
// value: conversions must not crash or invoke undefined behaviour, numbers survive their text
// form, the store gives back what it accepted, and as category rules it is read whole or not.

#include "model/CategoryRules.h"
#include "store/SqliteDefaults.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

template <typename Number> QVariant number(const char* bytes, size_t size) {
    Number v = 0;
    std::memcpy(&v, bytes, std::min(size, sizeof v));
    return QVariant::fromValue(v);
}

QVariant valueFrom(const uint8_t* data, size_t size) {
    const auto* bytes = reinterpret_cast<const char*>(data + 1);
    const qsizetype n = qsizetype(size - 1);
    switch (data[0] % 6) {
    case 0:
        return number<qint64>(bytes, size - 1);
    case 1:
        return number<double>(bytes, size - 1);
    case 2:
        return QVariant::fromValue(n > 0 && (bytes[0] & 1));
    case 3:
        return QString::fromUtf8(bytes, n);
    case 4:
        return QString(reinterpret_cast<const QChar*>(bytes), n / 2);
    default:
        return QByteArray(bytes, n);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const QVariant v = valueFrom(data, size);
    const qint64 asInteger = Defaults::toInteger(v);
    const double asReal = Defaults::toReal(v);
    (void)Defaults::toBool(v);
    const std::optional<QString> asString = Defaults::toString(v);
    (void)Defaults::toData(v);

    // A number written out as text reads back as the same number.
    if (v.typeId() == QMetaType::LongLong && Defaults::toInteger(*asString) != asInteger)
        std::abort();
    if (v.typeId() == QMetaType::Double && std::isfinite(asReal) &&
        Defaults::toReal(*asString) != asReal)
        std::abort();

    static const std::unique_ptr<SqliteDefaults> db =
        SqliteDefaults::open(QStringLiteral(":memory:"));
    const QString key = CategoryRules::key;
    // Only a NaN is refused (SQLite would keep it as NULL).
    const bool nan = v.typeId() == QMetaType::Double && std::isnan(asReal);
    if (db->setValue(key, v) == nan)
        std::abort();
    if (nan)
        return 0;
    const QVariant back = db->value(key);
    if (back.typeId() != v.typeId())
        std::abort();
    // Compare the bits of doubles: -0.0 must stay -0.0.
    if (v.typeId() == QMetaType::Double) {
        const double a = v.toDouble(), b = back.toDouble();
        if (std::memcmp(&a, &b, sizeof a) != 0)
            std::abort();
    } else if (v.typeId() == QMetaType::QString) {
        // Stored as UTF-8: only an unpaired surrogate comes back changed, as U+FFFD.
        if (back.toString() != QString::fromUtf8(v.toString().toUtf8()))
            std::abort();
    } else if (back != v) {
        std::abort();
    }

    // Rules that read are stored again as the same rules.
    const CategoryRules rules = CategoryRules::read(*db);
    if (!rules.isCorrupt()) {
        const auto again = CategoryRules::decode(CategoryRules::encode(rules.rules()));
        if (!again || CategoryRules::encode(*again) != CategoryRules::encode(rules.rules()))
            std::abort();
        (void)rules.categoryFor(QStringLiteral("org.kde.kate"));
        (void)rules.siteRule(QStringLiteral("https://chat.example.com/"));
    }
    return 0;
}

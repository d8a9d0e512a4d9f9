#include "FirefoxSession.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>

namespace {

// A 1-based position stored as a JSON number; none unless it is a whole number in
// 1...count.
std::optional<qsizetype> position(const QJsonValue& v, qsizetype count) {
    if (!v.isDouble())
        return std::nullopt;
    const double d = v.toDouble();
    if (!std::isfinite(d) || d != std::floor(d) || d < 1 || d > double(count))
        return std::nullopt;
    return qsizetype(d) - 1;
}

} // namespace

std::optional<QString> FirefoxSession::selectedTabURL(const QByteArray& json) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    const QJsonObject root = doc.object();

    // Private windows are never written to the file; the selected window is the
    // last-focused window among those that are.
    const QJsonArray windows = root.value(QLatin1String("windows")).toArray();
    const auto w = position(root.value(QLatin1String("selectedWindow")), windows.size());
    if (!w)
        return std::nullopt;
    const QJsonObject window = windows.at(*w).toObject();

    const QJsonArray tabs = window.value(QLatin1String("tabs")).toArray();
    const auto t = position(window.value(QLatin1String("selected")), tabs.size());
    if (!t)
        return std::nullopt;
    const QJsonObject tab = tabs.at(*t).toObject();

    // The tab's back/forward list and its 1-based current entry; like Firefox when it
    // restores a tab, a missing index means the last entry and one out of range is clamped.
    const QJsonArray entries = tab.value(QLatin1String("entries")).toArray();
    if (entries.isEmpty())
        return std::nullopt;
    qsizetype current = entries.size() - 1;
    const QJsonValue index = tab.value(QLatin1String("index"));
    if (index.isDouble() && std::isfinite(index.toDouble()))
        current = qsizetype(std::clamp(index.toDouble() - 1, 0.0, double(entries.size() - 1)));
    else if (!index.isUndefined())
        return std::nullopt;

    const QJsonValue url = entries.at(current).toObject().value(QLatin1String("url"));
    if (!url.isString() || url.toString().isEmpty())
        return std::nullopt;
    return url.toString();
}

#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// Reads Firefox's session store document (the JSON inside recovery.jsonlz4).
class FirefoxSession {
public:
    FirefoxSession() = delete;

    // The address shown by the selected tab of the selected window: the tab's current
    // history entry. None when the document is malformed, names a window or tab that is
    // not there, or the entry has no address.
    static std::optional<QString> selectedTabURL(const QByteArray& json);
};

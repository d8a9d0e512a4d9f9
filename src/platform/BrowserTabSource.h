#pragma once

#include "RunningApp.h"

#include <QList>
#include <QString>

#include <optional>

// Reads the address of the tab a browser shows. Used on the main thread only.
class BrowserTabSource {
public:
    virtual ~BrowserTabSource() = default;

    // Whether this source has a way to read `app`'s tabs at all. Applications it cannot
    // ask are never asked.
    virtual bool canAsk(const RunningApp& app) const = 0;

    // The address of the active tab of `front`'s front window: none when it has no
    // window, refuses to answer, or the answer could not be read.
    virtual std::optional<QString> activeTabURL(const RunningApp& front) = 0;

    // Where reading tabs needs the user's consent, asks one running browser a harmless
    // question so the consent prompt comes at a predictable moment. Does nothing where no
    // consent exists.
    virtual void probeForPermission(const QList<RunningApp>& running) = 0;
};

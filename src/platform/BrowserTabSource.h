#pragma once

#include "RunningApp.h"

#include <QList>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

// Reads the address of the tab a browser shows. Called from one thread at a time.
class BrowserTabSource {
public:
    virtual ~BrowserTabSource() = default;

    // Whether this source has a way to read `app`'s tabs at all. Applications it cannot
    // ask are never asked.
    virtual bool canAsk(const RunningApp& app) const = 0;

    // The address of the active tab of `front`'s front window: none when it has no
    // window, refuses to answer, or the answer could not be read.
    virtual std::optional<QString> activeTabURL(const RunningApp& front) = 0;

    // The same answer without blocking the caller: `reply` runs on `context`'s thread, and
    // not at all once `context` is gone. Sources that answer at once reply at once; sources
    // that read files read them elsewhere and reply later.
    using Reply = std::function<void(std::optional<QString>)>;
    virtual void requestActiveTabURL(const RunningApp& front, QObject* context, Reply reply) {
        Q_UNUSED(context)
        reply(activeTabURL(front));
    }

    // Where reading tabs needs the user's consent, asks one running browser a harmless
    // question so the consent prompt comes at a predictable moment. Does nothing where no
    // consent exists.
    virtual void probeForPermission(const QList<RunningApp>& running) = 0;
};

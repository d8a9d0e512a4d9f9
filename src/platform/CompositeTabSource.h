#pragma once

#include "BrowserTabSource.h"

#include <QThreadPool>

// Several tab sources as one: each browser is asked through the first source that can ask
// it. Answers requested with requestActiveTabURL() are read on a worker thread of this
// object's own, one at a time, so reading a large or slow file never holds up the caller;
// the sources themselves are then only ever used on that thread. Replies come back on the
// thread that created this object.
class CompositeTabSource final : public BrowserTabSource {
public:
    explicit CompositeTabSource(QList<BrowserTabSource*> sources);
    ~CompositeTabSource() override; // waits for a read in progress

    bool canAsk(const RunningApp& app) const override;
    std::optional<QString> activeTabURL(const RunningApp& front) override;
    void requestActiveTabURL(const RunningApp& front, QObject* context, Reply reply) override;
    void probeForPermission(const QList<RunningApp>& running) override;

private:
    BrowserTabSource* sourceFor(const RunningApp& app) const;

    QList<BrowserTabSource*> m_sources;
    QObject m_replies; // lives on the creating thread; replies are delivered through it
    QThreadPool m_worker;
};

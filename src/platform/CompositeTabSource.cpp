#include "CompositeTabSource.h"

#include <QMetaObject>
#include <QPointer>

CompositeTabSource::CompositeTabSource(QList<BrowserTabSource*> sources)
    : m_sources(std::move(sources)) {
    m_worker.setMaxThreadCount(1);
    m_worker.setObjectName(QStringLiteral("browser tabs"));
    m_worker.setExpiryTimeout(-1); // asked every 30 s while a browser is in front
}

CompositeTabSource::~CompositeTabSource() {
    m_worker.waitForDone();
}

BrowserTabSource* CompositeTabSource::sourceFor(const RunningApp& app) const {
    for (BrowserTabSource* source : m_sources)
        if (source->canAsk(app))
            return source;
    return nullptr;
}

bool CompositeTabSource::canAsk(const RunningApp& app) const {
    return sourceFor(app) != nullptr;
}

std::optional<QString> CompositeTabSource::activeTabURL(const RunningApp& front) {
    BrowserTabSource* source = sourceFor(front);
    return source ? source->activeTabURL(front) : std::nullopt;
}

void CompositeTabSource::requestActiveTabURL(const RunningApp& front, QObject* context,
                                             Reply reply) {
    BrowserTabSource* source = sourceFor(front);
    if (!source)
        return reply(std::nullopt);
    // The receiver is only looked at on its own thread, once the answer is back.
    m_worker.start(
        [this, source, front, receiver = QPointer<QObject>(context), reply = std::move(reply)] {
            std::optional<QString> url = source->activeTabURL(front);
            QMetaObject::invokeMethod(
                &m_replies,
                [receiver, reply, url = std::move(url)] {
                    if (receiver)
                        reply(url);
                },
                Qt::QueuedConnection);
        });
}

void CompositeTabSource::probeForPermission(const QList<RunningApp>& running) {
    for (BrowserTabSource* source : m_sources)
        source->probeForPermission(running);
}

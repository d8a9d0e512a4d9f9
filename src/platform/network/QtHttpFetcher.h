#pragma once

#include "platform/HttpFetcher.h"

#include <QNetworkAccessManager>

// HttpFetcher over Qt Network. Answers are never taken from or written to a cache, every
// redirect is vetted before it is followed, and the network is read no faster than the body
// is taken, so a hostile server cannot make the process buffer more than one piece.
class QtHttpFetcher final : public HttpFetcher {
public:
    QtHttpFetcher() = default;
    ~QtHttpFetcher() override;

    void get(const Request& request, Receive receive, Done done) override;

private:
    QNetworkAccessManager m_network;
};

#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <functional>

// One HTTP GET at a time, for the update check and its download. The network libraries (and
// their TLS) live behind this, in a module loaded only by a process that goes on line, so the
// tray app that runs all day never maps them.
class HttpFetcher {
public:
    struct Request {
        QUrl url;
        QByteArray accept;
        // A body (or an announced length) over maxBytes stops the transfer with tooLargeError.
        qint64 maxBytes = 0;
        QString tooLargeError;
        // No data for stallTimeoutMs, or not done after deadlineMs, fails.
        int stallTimeoutMs = 0;
        int deadlineMs = 0;
        // Asked before each redirect is followed (a redirect to another scheme or back to an
        // address already visited is refused before it is asked); *reason says why not.
        std::function<bool(const QUrl& target, QString* reason)> acceptRedirect;
    };

    struct Reply {
        // Empty when the exchange completed, whatever its status; else why it did not.
        QString error;
        // The HTTP status of the last answer, 0 when none came.
        int status = 0;
    };

    // Takes one piece of the body; a non-empty reason stops the transfer with it.
    using Receive = std::function<QString(const QByteArray& piece)>;
    using Done = std::function<void(const Reply& reply)>;

    virtual ~HttpFetcher() = default;

    // Starts the request. Later, on the calling thread: receive for each piece of the body as
    // it arrives, then done once. Nothing is called after the fetcher is destroyed.
    virtual void get(const Request& request, Receive receive, Done done) = 0;
};

// What the network module offers, by name: a new fetcher, owned by the caller.
extern "C" {
using CreateHttpFetcher = HttpFetcher* (*)();
}

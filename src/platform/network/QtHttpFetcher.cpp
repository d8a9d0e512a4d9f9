#include "QtHttpFetcher.h"

#include <QNetworkReply>
#include <QSet>
#include <QTimer>

#include <memory>

namespace {

const char* const refusalProperty = "mindmeterRefusal";

// Stops a transfer and records why, so its finished handler reports that reason. The abort
// is posted: aborting inside one of the reply's own signals can upset it, and the handlers
// take no more data once a reason is recorded.
void refuse(QNetworkReply* reply, const QString& reason) {
    if (!reply->property(refusalProperty).toString().isEmpty())
        return;
    reply->setProperty(refusalProperty, reason);
    QMetaObject::invokeMethod(reply, &QNetworkReply::abort, Qt::QueuedConnection);
}

QString refusalOf(const QNetworkReply* reply) {
    return reply->property(refusalProperty).toString();
}

// An answer with an HTTP error status: the exchange completed, and its body is read as any
// other.
bool isHttpErrorStatus(const QNetworkReply* reply) {
    if (!reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid())
        return false;
    const int e = reply->error();
    return (e >= QNetworkReply::ContentAccessDenied && e <= QNetworkReply::UnknownContentError) ||
           e == QNetworkReply::ProtocolInvalidOperationError ||
           (e >= QNetworkReply::InternalServerError && e <= QNetworkReply::UnknownServerError);
}

QString transferError(const QNetworkReply* reply) {
    const QString refusal = refusalOf(reply);
    if (!refusal.isEmpty())
        return refusal;
    if (reply->error() == QNetworkReply::NoError || isHttpErrorStatus(reply))
        return {};
    if (reply->error() == QNetworkReply::OperationCanceledError)
        return QStringLiteral("the server stopped sending (timed out)");
    return reply->errorString();
}

void vetRedirects(QNetworkReply* reply, const HttpFetcher::Request& request) {
    const QString scheme = request.url.scheme().toLower();
    auto visited =
        std::make_shared<QSet<QUrl>>(QSet<QUrl>{request.url.adjusted(QUrl::NormalizePathSegments)});
    QObject::connect(
        reply, &QNetworkReply::redirected, reply,
        [reply, scheme, visited, accept = request.acceptRedirect](const QUrl& target) {
            QString reason;
            const QString shown = target.toString(QUrl::RemoveUserInfo);
            const QUrl normalized = target.adjusted(QUrl::NormalizePathSegments);
            if (visited->contains(normalized))
                refuse(reply, QStringLiteral("redirect loop: %1 leads back to itself").arg(shown));
            else if (target.scheme().toLower() != scheme)
                refuse(reply, QStringLiteral("redirect to another scheme refused (%1)").arg(shown));
            else if (accept && !accept(target, &reason))
                refuse(reply, QStringLiteral("redirect refused (%1): %2").arg(shown, reason));
            else
                emit reply->redirectAllowed();
            visited->insert(normalized);
        });
}

} // namespace

QtHttpFetcher::~QtHttpFetcher() {
    // Replies still under way must not call back into an owner being destroyed.
    const QList<QNetworkReply*> replies = m_network.findChildren<QNetworkReply*>();
    for (QNetworkReply* reply : replies) {
        reply->disconnect();
        reply->abort();
    }
}

void QtHttpFetcher::get(const Request& request, Receive receive, Done done) {
    QNetworkRequest http(request.url);
    http.setRawHeader("Accept", request.accept);
    http.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    http.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    http.setRawHeader("Cache-Control", "no-cache");
    http.setRawHeader("Pragma", "no-cache");
    http.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                      QNetworkRequest::UserVerifiedRedirectPolicy);
    http.setMaximumRedirectsAllowed(5);
    http.setTransferTimeout(request.stallTimeoutMs);
    QNetworkReply* reply = m_network.get(http);
    // Bounds memory: the network is not read faster than the body is taken.
    reply->setReadBufferSize(std::min<qint64>(request.maxBytes + 1, 1024 * 1024));
    vetRedirects(reply, request);
    QTimer::singleShot(request.deadlineMs, reply, [reply] {
        refuse(reply, QStringLiteral("the server took too long (timed out)"));
    });

    const qint64 cap = request.maxBytes;
    const QString tooLarge = request.tooLargeError;
    auto received = std::make_shared<qint64>(0);
    auto take = [reply, receive, received, cap, tooLarge] {
        if (!refusalOf(reply).isEmpty() || !reply->isOpen())
            return;
        const QByteArray piece = reply->read(cap + 1 - *received);
        *received += piece.size();
        if (*received > cap)
            return refuse(reply, tooLarge);
        if (piece.isEmpty())
            return;
        const QString reason = receive(piece);
        if (!reason.isEmpty())
            refuse(reply, reason);
    };
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, [reply, cap, tooLarge] {
        if (reply->header(QNetworkRequest::ContentLengthHeader).toLongLong() > cap)
            refuse(reply, tooLarge);
    });
    QObject::connect(reply, &QNetworkReply::readyRead, reply, take);
    QObject::connect(reply, &QNetworkReply::finished, reply, [reply, take, done] {
        reply->deleteLater();
        take();
        done({transferError(reply),
              reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt()});
    });
}

#include "UpdateChecker.h"

#include "model/AppVersion.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QSysInfo>
#include <QTemporaryFile>

#include <cerrno>
#include <cstdio>
#include <limits>
#include <memory>

#include <unistd.h>

#ifndef MINDMETER_DEFAULT_VENDOR_URL
#error "the build sets MINDMETER_DEFAULT_VENDOR_URL from the CMake variable MINDMETER_VENDOR_URL"
#endif

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

// An answer with an HTTP error status: its body is still read, as any other.
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
    if (reply->error() == QNetworkReply::OperationCanceledError)
        return QStringLiteral("the server stopped sending (timed out)");
    return reply->errorString();
}

// A piece of a version that is a decimal integer: an optional sign and digits, nothing else.
std::optional<qint64> versionPiece(QStringView piece) {
    qsizetype i = 0;
    bool negative = false;
    if (i < piece.size() && (piece[i] == u'+' || piece[i] == u'-'))
        negative = piece[i++] == u'-';
    if (i == piece.size())
        return std::nullopt;
    qint64 value = 0;
    for (; i < piece.size(); ++i) {
        if (piece[i] < u'0' || piece[i] > u'9')
            return std::nullopt;
        const int digit = piece[i].unicode() - u'0';
        if (value > (std::numeric_limits<qint64>::max() - digit) / 10)
            return std::nullopt;
        value = value * 10 + digit;
    }
    return negative ? -value : value;
}

QList<qint64> versionNumbers(const QString& version) {
    QList<qint64> numbers;
    for (QStringView piece : QStringView(version).split(u'.', Qt::SkipEmptyParts))
        if (const std::optional<qint64> n = versionPiece(piece))
            numbers.append(*n);
    return numbers;
}

QString debianArchitecture() {
    const QString cpu = QSysInfo::buildCpuArchitecture();
    if (cpu == QLatin1String("x86_64"))
        return QStringLiteral("amd64");
    if (cpu == QLatin1String("i386"))
        return QStringLiteral("i386");
    if (cpu == QLatin1String("arm64"))
        return QStringLiteral("arm64");
    return cpu;
}

} // namespace

UpdateChecker::UpdateChecker(Opener& opener, Options options, QObject* parent)
    : QObject(parent)
    , m_opener(opener)
    , m_options(std::move(options)) {
    if (!m_options.quit)
        m_options.quit = [] { QCoreApplication::quit(); };
    const QString text =
        m_options.vendorUrl.isEmpty() ? configuredVendorUrl() : m_options.vendorUrl;
    const QUrl url(text, QUrl::StrictMode);
    if (isAcceptableUrl(url, &m_vendorRefusal)) {
        m_vendorUrl = url.adjusted(QUrl::RemoveUserInfo | QUrl::RemoveQuery | QUrl::RemoveFragment |
                                   QUrl::StripTrailingSlash);
    } else {
        m_vendorRefusal = QStringLiteral("refusing vendor URL '%1': %2").arg(text, m_vendorRefusal);
        qWarning("UpdateChecker: %s", qUtf8Printable(m_vendorRefusal));
    }
    connect(&m_periodic, &QTimer::timeout, this, &UpdateChecker::checkForUpdates);
}

UpdateChecker::~UpdateChecker() {
    // Replies still under way must not call back into a checker being destroyed.
    if (!m_network)
        return;
    const QList<QNetworkReply*> replies = m_network->findChildren<QNetworkReply*>();
    for (QNetworkReply* reply : replies) {
        reply->disconnect();
        reply->abort();
    }
}

QString UpdateChecker::configuredVendorUrl() {
    const QString fromEnvironment = qEnvironmentVariable("MINDMETER_VENDOR_URL");
    return fromEnvironment.isEmpty() ? QStringLiteral(MINDMETER_DEFAULT_VENDOR_URL)
                                     : fromEnvironment;
}

bool UpdateChecker::isAcceptableUrl(const QUrl& url, QString* reason) {
    auto no = [reason](const QString& why) {
        if (reason)
            *reason = why;
        return false;
    };
    if (!url.isValid() || url.host().isEmpty())
        return no(QStringLiteral("not an absolute URL with a host"));
    const QString scheme = url.scheme().toLower();
    if (scheme == QLatin1String("https"))
        return true;
    if (scheme != QLatin1String("http"))
        return no(QStringLiteral("only https, or http to a loopback address, is allowed"));
    const QString host = url.host();
    if (host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0 ||
        QHostAddress(host).isLoopback())
        return true;
    return no(QStringLiteral("http is allowed only to a loopback address"));
}

QUrl UpdateChecker::manifestUrl() const {
    if (m_vendorUrl.isEmpty())
        return {};
    QUrl url = m_vendorUrl;
    url.setPath(m_vendorUrl.path() + manifestPath);
    return url;
}

QString UpdateChecker::packageFileName(const QString& version) {
    static const QRegularExpression safe(QStringLiteral("^[0-9A-Za-z][0-9A-Za-z.+~-]{0,63}$"));
    if (!safe.match(version).hasMatch())
        return {};
    return QStringLiteral("mindmeter_%1_%2.deb").arg(version, debianArchitecture());
}

QUrl UpdateChecker::packageUrl(const QString& version) const {
    const QString name = packageFileName(version);
    if (m_vendorUrl.isEmpty() || name.isEmpty())
        return {};
    QUrl url = m_vendorUrl;
    url.setPath(m_vendorUrl.path() + u'/' + name);
    return url;
}

QString UpdateChecker::downloadsFolder() const {
    if (!m_options.downloadsFolder.isEmpty())
        return m_options.downloadsFolder;
    return QStandardPaths::writableLocation(QStandardPaths::DownloadLocation);
}

// --- Transfers ---------------------------------------------------------------------------

QNetworkAccessManager* UpdateChecker::network() {
    if (!m_network)
        m_network = new QNetworkAccessManager(this);
    return m_network;
}

void UpdateChecker::checkInChild(std::function<void(const CheckResult&)> done) {
    auto* child = new QProcess(this);
    child->setProgram(m_options.checkProgram);
    child->setArguments(m_options.checkArguments);
    child->setProcessChannelMode(QProcess::SeparateChannels);
    // The child keeps its own deadline; this one only ends a child that hangs past it.
    QTimer::singleShot(m_options.requestTimeoutMs + 5000, child, [child] { child->kill(); });
    connect(child, &QProcess::finished, this, [this, child, done] {
        child->deleteLater();
        CheckResult result;
        const QByteArray out = child->readAllStandardOutput();
        if (child->exitStatus() == QProcess::NormalExit && child->exitCode() == 0 &&
            out.size() <= maxManifestBytes) {
            const QJsonObject answer = QJsonDocument::fromJson(out).object();
            result = parseManifest(
                QJsonDocument(
                    QJsonObject{
                        {QStringLiteral("version"), answer.value(QStringLiteral("latestVersion"))},
                        {QStringLiteral("sha256"), answer.value(QStringLiteral("sha256"))}})
                    .toJson());
        } else {
            // The command line says "mindmeter: update check failed: <why>".
            const QString said = QString::fromUtf8(child->readAllStandardError()).trimmed();
            const qsizetype colon = said.lastIndexOf(QStringLiteral("failed: "));
            result.error = said.isEmpty() ? QStringLiteral("the update check did not finish")
                           : colon >= 0   ? said.mid(colon + 8)
                                          : said;
        }
        if (result.ok)
            publish(result);
        done(result);
    });
    connect(child, &QProcess::errorOccurred, this, [child, done](QProcess::ProcessError e) {
        if (e != QProcess::FailedToStart)
            return;
        child->deleteLater();
        done({false, child->errorString(), {}, {}});
    });
    child->start(QIODevice::ReadOnly);
}

QNetworkReply* UpdateChecker::get(const QUrl& url, const QByteArray& accept, int stallTimeoutMs,
                                  int deadlineMs, qint64 bufferBytes) {
    QNetworkRequest request(url);
    request.setRawHeader("Accept", accept);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setRawHeader("Cache-Control", "no-cache");
    request.setRawHeader("Pragma", "no-cache");
    // Every redirect is vetted below before it is followed.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    request.setMaximumRedirectsAllowed(5);
    request.setTransferTimeout(stallTimeoutMs);
    QNetworkReply* reply = network()->get(request);
    // Bounds memory: the network is not read faster than the handlers take the data.
    reply->setReadBufferSize(bufferBytes);

    const QString scheme = url.scheme().toLower();
    auto visited =
        std::make_shared<QSet<QUrl>>(QSet<QUrl>{url.adjusted(QUrl::NormalizePathSegments)});
    connect(reply, &QNetworkReply::redirected, reply, [reply, scheme, visited](const QUrl& target) {
        QString reason;
        const QUrl normalized = target.adjusted(QUrl::NormalizePathSegments);
        if (visited->contains(normalized))
            refuse(reply, QStringLiteral("redirect loop: %1 leads back to itself")
                              .arg(target.toString(QUrl::RemoveUserInfo)));
        else if (target.scheme().toLower() != scheme)
            refuse(reply, QStringLiteral("redirect to another scheme refused (%1)")
                              .arg(target.toString(QUrl::RemoveUserInfo)));
        else if (!isAcceptableUrl(target, &reason))
            refuse(reply, QStringLiteral("redirect refused (%1): %2")
                              .arg(target.toString(QUrl::RemoveUserInfo), reason));
        else
            emit reply->redirectAllowed();
        visited->insert(normalized);
    });
    QTimer::singleShot(deadlineMs, reply, [reply] {
        refuse(reply, QStringLiteral("the server took too long (timed out)"));
    });
    return reply;
}

void UpdateChecker::checkForUpdates() {
    check([](const CheckResult&) {});
}

void UpdateChecker::check(std::function<void(const CheckResult&)> done) {
    if (m_vendorUrl.isEmpty()) {
        QMetaObject::invokeMethod(
            this,
            [this, done] {
                done({false, m_vendorRefusal, {}, {}});
            },
            Qt::QueuedConnection);
        return;
    }
    if (!m_options.checkProgram.isEmpty())
        return checkInChild(std::move(done));
    QNetworkReply* reply = get(manifestUrl(), "application/json", m_options.requestTimeoutMs,
                               m_options.requestTimeoutMs, maxManifestBytes + 1);
    auto body = std::make_shared<QByteArray>();
    auto tooLarge = [reply] {
        refuse(reply, QStringLiteral("the manifest is larger than %1 bytes").arg(maxManifestBytes));
    };
    connect(reply, &QNetworkReply::metaDataChanged, reply, [reply, tooLarge] {
        if (reply->header(QNetworkRequest::ContentLengthHeader).toLongLong() > maxManifestBytes)
            tooLarge();
    });
    connect(reply, &QNetworkReply::readyRead, reply, [reply, body, tooLarge] {
        if (!refusalOf(reply).isEmpty())
            return;
        body->append(reply->read(maxManifestBytes + 1 - body->size()));
        if (body->size() > maxManifestBytes)
            tooLarge();
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply, body, done] {
        reply->deleteLater();
        if (refusalOf(reply).isEmpty() && reply->isOpen() && body->size() <= maxManifestBytes)
            body->append(reply->read(maxManifestBytes + 1 - body->size()));
        CheckResult result;
        if (!refusalOf(reply).isEmpty() ||
            (reply->error() != QNetworkReply::NoError && !isHttpErrorStatus(reply))) {
            result.error = transferError(reply);
        } else if (body->size() > maxManifestBytes) {
            result.error =
                QStringLiteral("the manifest is larger than %1 bytes").arg(maxManifestBytes);
        } else {
            // The status is not looked at: an error page fails because it is not a manifest.
            result = parseManifest(*body);
        }
        if (result.ok)
            publish(result);
        done(result);
    });
}

UpdateChecker::CheckResult UpdateChecker::parseManifest(const QByteArray& body) {
    CheckResult result;
    const QJsonDocument doc = QJsonDocument::fromJson(body);
    const QJsonValue version = doc.object().value(QStringLiteral("version"));
    if (!doc.isObject() || !version.isString()) {
        result.error = QStringLiteral("the answer is not a manifest (a JSON object with a text "
                                      "\"version\")");
        return result;
    }
    result.ok = true;
    result.version = version.toString();
    const QJsonValue sha = doc.object().value(QStringLiteral("sha256"));
    if (sha.isString())
        result.sha256 = sha.toString();
    return result;
}

void UpdateChecker::publish(const CheckResult& result) {
    m_latestSHA256 = result.sha256;
    const bool newer = isNewer(result.version, QString::fromLatin1(AppVersion::number));
    if (m_latestVersion != result.version) {
        m_latestVersion = result.version;
        emit latestVersionChanged();
    }
    if (m_updateAvailable != newer) {
        m_updateAvailable = newer;
        emit updateAvailableChanged();
    }
}

void UpdateChecker::startPeriodicChecks(double intervalHours) {
    checkForUpdates();
    const double ms = intervalHours * 3600.0 * 1000.0;
    if (!(ms >= 1.0))
        return;
    m_periodic.start(int(std::min(ms, double(std::numeric_limits<int>::max()))));
}

void UpdateChecker::stopPeriodicChecks() {
    m_periodic.stop();
}

// --- Download ----------------------------------------------------------------------------

void UpdateChecker::downloadAndOpenUpdate() {
    downloadAndOpenUpdate([this](bool success) { emit downloadFinished(success); });
}

void UpdateChecker::downloadAndOpenUpdate(std::function<void(bool)> completion) {
    auto fail = [this, completion] {
        QMetaObject::invokeMethod(
            this, [completion] { completion(false); }, Qt::QueuedConnection);
    };
    const QString version = m_latestVersion.value_or(QString());
    const std::optional<QString> expected = m_latestSHA256;
    const QUrl url = packageUrl(version);
    if (m_downloading || url.isEmpty())
        return fail();

    const QString staging = m_options.stagingFolder.isEmpty()
                                ? QStandardPaths::writableLocation(QStandardPaths::CacheLocation) +
                                      QStringLiteral("/updates")
                                : m_options.stagingFolder;
    QDir().mkpath(staging);
    auto file = std::make_shared<QTemporaryFile>(staging + QStringLiteral("/update-XXXXXX.part"));
    if (!file->open())
        return fail();

    m_downloading = true;
    const qint64 cap = m_options.maxDownloadBytes;
    QNetworkReply* reply =
        get(url, "*/*", m_options.downloadStallTimeoutMs, m_options.downloadTimeoutMs, 1024 * 1024);
    auto tooLarge = [reply, cap] {
        refuse(reply, QStringLiteral("the package is larger than %1 bytes").arg(cap));
    };
    auto take = [reply, file, cap, tooLarge] {
        if (!refusalOf(reply).isEmpty())
            return;
        const QByteArray data = reply->readAll();
        if (file->size() + data.size() > cap)
            return tooLarge();
        if (file->write(data) != data.size())
            refuse(reply, QStringLiteral("cannot write the download: %1").arg(file->errorString()));
    };
    connect(reply, &QNetworkReply::metaDataChanged, reply, [reply, cap, tooLarge] {
        if (reply->header(QNetworkRequest::ContentLengthHeader).toLongLong() > cap)
            tooLarge();
    });
    connect(reply, &QNetworkReply::readyRead, reply, take);
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, file, take, expected, version, completion] {
                reply->deleteLater();
                m_downloading = false;
                if (refusalOf(reply).isEmpty() && reply->error() == QNetworkReply::NoError)
                    take();
                const int status =
                    reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
                // Unlike the manifest, an error page is never saved as a package.
                if (!refusalOf(reply).isEmpty() || reply->error() != QNetworkReply::NoError ||
                    status < 200 || status > 299 || !file->flush())
                    return completion(false);
                if (expected) {
                    const std::optional<QString> got = streamSHA256(file->fileName());
                    if (!got || *got != *expected) {
                        qWarning("UpdateChecker: SHA-256 mismatch \u2014 expected %s got %s",
                                 qUtf8Printable(*expected), got ? qUtf8Printable(*got) : "(null)");
                        return completion(false);
                    }
                }
                file->close();
                const QString destination = downloadsFolder() + u'/' + packageFileName(version);
                if (!install(file->fileName(), destination))
                    return completion(false);
                file->setAutoRemove(false); // it is the installed file now
                completion(true);
                m_opener.open(QUrl::fromLocalFile(destination));
                QTimer::singleShot(m_options.quitDelayMs, this, [this] { m_options.quit(); });
            });
}

bool UpdateChecker::install(const QString& stagedPath, const QString& destination) {
    if (!QDir().mkpath(QFileInfo(destination).absolutePath()))
        return false;
    // One rename replaces any earlier file whole.
    if (std::rename(QFile::encodeName(stagedPath).constData(),
                    QFile::encodeName(destination).constData()) == 0)
        return true;
    if (errno != EXDEV)
        return false;
    // Another file system: copy into a new file beside the destination, then rename it into
    // place. The rename replaces whatever stands at the destination, a symbolic link
    // included, and never writes through it (as a save that resolves links would).
    QFile in(stagedPath);
    QTemporaryFile out(QFileInfo(destination).absolutePath() +
                       QStringLiteral("/.mindmeter-download-XXXXXX"));
    if (!in.open(QIODevice::ReadOnly) || !out.open())
        return false;
    while (true) {
        const QByteArray chunk = in.read(65536);
        if (chunk.isEmpty())
            break;
        if (out.write(chunk) != chunk.size())
            return false;
    }
    if (in.error() != QFileDevice::NoError || !out.flush() || ::fsync(out.handle()) != 0 ||
        std::rename(QFile::encodeName(out.fileName()).constData(),
                    QFile::encodeName(destination).constData()) != 0)
        return false;
    out.setAutoRemove(false);
    QFile::remove(stagedPath);
    return true;
}

// --- Helpers -----------------------------------------------------------------------------

bool UpdateChecker::isNewer(const QString& a, const QString& than) {
    const QList<qint64> x = versionNumbers(a);
    const QList<qint64> y = versionNumbers(than);
    for (qsizetype i = 0; i < std::max(x.size(), y.size()); ++i) {
        const qint64 p = i < x.size() ? x[i] : 0;
        const qint64 q = i < y.size() ? y[i] : 0;
        if (p != q)
            return p > q;
    }
    return false;
}

std::optional<QString> UpdateChecker::streamSHA256(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QCryptographicHash hash(QCryptographicHash::Sha256);
    while (true) {
        const QByteArray chunk = file.read(65536);
        if (chunk.isEmpty())
            break;
        hash.addData(chunk);
    }
    return QString::fromLatin1(hash.result().toHex());
}

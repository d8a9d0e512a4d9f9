#include "UpdateChecker.h"

#include "model/AppVersion.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QSysInfo>
#include <QTemporaryFile>

#include <cerrno>
#include <cstdio>
#include <limits>
#include <memory>

#include <arpa/inet.h>
#include <unistd.h>

#ifndef MINDMETER_DEFAULT_VENDOR_URL
#error "the build sets MINDMETER_DEFAULT_VENDOR_URL from the CMake variable MINDMETER_VENDOR_URL"
#endif

namespace {

// An IP address in the loopback range: 127.0.0.0/8, ::1, or 127.x mapped into IPv6.
bool isLoopbackAddress(const QString& host) {
    const QByteArray text = host.toLatin1();
    in_addr v4{};
    if (inet_pton(AF_INET, text.constData(), &v4) == 1)
        return (ntohl(v4.s_addr) >> 24) == 127;
    in6_addr v6{};
    if (inet_pton(AF_INET6, text.constData(), &v6) != 1)
        return false;
    if (IN6_IS_ADDR_LOOPBACK(&v6))
        return true;
    return IN6_IS_ADDR_V4MAPPED(&v6) && v6.s6_addr[12] == 127;
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

UpdateChecker::~UpdateChecker() = default;

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
        isLoopbackAddress(host))
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

HttpFetcher* UpdateChecker::fetcher(QString* error) {
    if (!m_fetcher && m_options.makeFetcher)
        m_fetcher = m_options.makeFetcher(error);
    else if (!m_fetcher)
        *error = QStringLiteral("this process cannot go on line");
    return m_fetcher.get();
}

void UpdateChecker::failLater(std::function<void()> report) {
    QMetaObject::invokeMethod(this, std::move(report), Qt::QueuedConnection);
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

HttpFetcher::Request UpdateChecker::request(const QUrl& url, const QByteArray& accept,
                                            qint64 maxBytes, const QString& tooLargeError,
                                            int stallTimeoutMs, int deadlineMs) const {
    return {url,
            accept,
            maxBytes,
            tooLargeError,
            stallTimeoutMs,
            deadlineMs,
            [](const QUrl& target, QString* reason) { return isAcceptableUrl(target, reason); }};
}

void UpdateChecker::checkForUpdates() {
    check([](const CheckResult&) {});
}

void UpdateChecker::check(std::function<void(const CheckResult&)> done) {
    if (m_vendorUrl.isEmpty())
        return failLater([this, done] { done({false, m_vendorRefusal, {}, {}}); });
    if (!m_options.checkProgram.isEmpty())
        return checkInChild(std::move(done));
    QString error;
    HttpFetcher* http = fetcher(&error);
    if (!http)
        return failLater([done, error] { done({false, error, {}, {}}); });
    auto body = std::make_shared<QByteArray>();
    http->get(
        request(manifestUrl(), "application/json", maxManifestBytes,
                QStringLiteral("the manifest is larger than %1 bytes").arg(maxManifestBytes),
                m_options.requestTimeoutMs, m_options.requestTimeoutMs),
        [body](const QByteArray& piece) {
            body->append(piece);
            return QString();
        },
        [this, body, done](const HttpFetcher::Reply& reply) {
            // The status is not looked at: an error page fails because it is not a manifest.
            const CheckResult result = reply.error.isEmpty()
                                           ? parseManifest(*body)
                                           : CheckResult{false, reply.error, {}, {}};
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
    auto fail = [this, completion] { failLater([completion] { completion(false); }); };
    const QString version = m_latestVersion.value_or(QString());
    const std::optional<QString> expected = m_latestSHA256;
    const QUrl url = packageUrl(version);
    if (m_downloading || url.isEmpty())
        return fail();
    QString error;
    HttpFetcher* http = fetcher(&error);
    if (!http) {
        qWarning("UpdateChecker: cannot download: %s", qUtf8Printable(error));
        return fail();
    }

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
    http->get(
        request(url, "*/*", cap, QStringLiteral("the package is larger than %1 bytes").arg(cap),
                m_options.downloadStallTimeoutMs, m_options.downloadTimeoutMs),
        [file](const QByteArray& piece) {
            return file->write(piece) == piece.size()
                       ? QString()
                       : QStringLiteral("cannot write the download: %1").arg(file->errorString());
        },
        [this, file, expected, version, completion](const HttpFetcher::Reply& reply) {
            m_downloading = false;
            // Unlike the manifest, an error page is never saved as a package.
            if (!reply.error.isEmpty() || reply.status < 200 || reply.status > 299 ||
                !file->flush())
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

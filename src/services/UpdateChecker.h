#pragma once

#include "platform/HttpFetcher.h"
#include "platform/Opener.h"

#include <QObject>
#include <QString>
#include <QTimer>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

// Asks the vendor's site for the version manifest ("/version.json": {"version": "1.4.2",
// "sha256": "<64 lower-case hex digits>"}), publishes whether it names a newer version, and on
// request downloads that version's Debian package into the user's Downloads folder, verifies
// its SHA-256, opens it with the desktop's handler and quits so the user can install it.
//
// The site is MINDMETER_VENDOR_URL from the environment, else the base URL chosen at build
// time. Only https is accepted, or http to a loopback address (for self-hosting and tests);
// any other address is refused with a log line and every check fails.
//
// Hostile answers fail quietly and change nothing: a manifest over 64 KiB, a body that is not
// a JSON object with a text "version", a redirect to another scheme or to a non-loopback http
// address, a package over the size cap, a server that stalls or runs past the deadline. A
// download is staged outside the Downloads folder and moved there only once whole and
// verified, so nothing half-written is ever left there.
//
// Lives on the main thread; published values change only there.
class UpdateChecker : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString latestVersion READ latestVersionText NOTIFY latestVersionChanged)
    Q_PROPERTY(bool updateAvailable READ updateAvailable NOTIFY updateAvailableChanged)
public:
    inline static const QString manifestPath = QStringLiteral("/version.json");
    static constexpr qint64 maxManifestBytes = 64 * 1024;

    struct Options {
        // Empty: configuredVendorUrl().
        QString vendorUrl;
        // Empty: the user's Downloads folder (XDG user directory).
        QString downloadsFolder;
        // Where a download is written before it is verified. Empty: the user's cache folder.
        QString stagingFolder;
        // The manifest request: no data for this long, or not done after it, fails.
        int requestTimeoutMs = 10000;
        // The package download: no data for stallTimeoutMs, or not done after timeoutMs, fails.
        int downloadStallTimeoutMs = 60000;
        int downloadTimeoutMs = 30 * 60 * 1000;
        qint64 maxDownloadBytes = qint64(512) * 1024 * 1024;
        // After a verified download is opened, quit() runs this much later.
        int quitDelayMs = 1000;
        std::function<void()> quit; // empty: QCoreApplication::quit
        // When set, a check runs this program with these arguments and reads its answer
        // ("update --check --json" of the command line) instead of asking the site itself,
        // so a long-lived process never loads the network's TLS libraries for the hourly
        // check. Empty: the check is made in this process.
        QString checkProgram;
        QStringList checkArguments;
        // Makes the fetcher for a check in this process and for a download, on first use;
        // null, with the reason in *error, when there is no network module.
        std::function<std::unique_ptr<HttpFetcher>(QString* error)> makeFetcher;
    };

    // What one manifest check found; error says why it failed.
    struct CheckResult {
        bool ok = false;
        QString error;
        QString version;
        std::optional<QString> sha256;
    };

    UpdateChecker(Opener& opener, Options options, QObject* parent = nullptr);
    explicit UpdateChecker(Opener& opener, QObject* parent = nullptr)
        : UpdateChecker(opener, Options{}, parent) {}
    ~UpdateChecker() override;

    // Checks now, then every intervalHours.
    void startPeriodicChecks(double intervalHours = 1.0);
    void stopPeriodicChecks();
    // One check; the published values change when it succeeds.
    void checkForUpdates();
    // The same check, reporting its result (later, on this object's thread).
    void check(std::function<void(const CheckResult&)> done);
    // Downloads, verifies and opens the announced version, then quits. completion gets
    // false (later, on this object's thread) when nothing was opened.
    void downloadAndOpenUpdate(std::function<void(bool success)> completion);
    // The same for the views: the outcome arrives as downloadFinished().
    Q_INVOKABLE void downloadAndOpenUpdate();

    std::optional<QString> latestVersion() const { return m_latestVersion; }
    bool updateAvailable() const { return m_updateAvailable; }
    // The vendor's base URL, or an empty URL when the configured one was refused.
    QUrl vendorUrl() const { return m_vendorUrl; }
    QUrl manifestUrl() const;
    QUrl packageUrl(const QString& version) const;
    QString downloadsFolder() const;

    // "mindmeter_<version>_<arch>.deb", arch as Debian names it (amd64 on x86-64); empty when
    // the version holds anything but letters, digits and . + ~ - (so it cannot name a path).
    static QString packageFileName(const QString& version);
    // The manifest's fields, or why the body is not a manifest (any size; the caller caps it).
    static CheckResult parseManifest(const QByteArray& body);
    // MINDMETER_VENDOR_URL when set and not empty, else the build-time default.
    static QString configuredVendorUrl();
    // https anywhere, or http to a loopback host; *reason says why not.
    static bool isAcceptableUrl(const QUrl& url, QString* reason = nullptr);
    // Dotted numbers compared piece by piece; pieces that are not integers are dropped and a
    // missing piece counts as 0 ("1.10" > "1.9", "1.2" == "1.2.0", "v2.0" < "1.0").
    static bool isNewer(const QString& a, const QString& than);
    // The file's SHA-256 in lower-case hex, read 64 KiB at a time; none if it cannot be read.
    static std::optional<QString> streamSHA256(const QString& path);

signals:
    void latestVersionChanged();
    void updateAvailableChanged();
    void downloadFinished(bool success);

private:
    void checkInChild(std::function<void(const CheckResult&)> done);
    HttpFetcher* fetcher(QString* error);
    HttpFetcher::Request request(const QUrl& url, const QByteArray& accept, qint64 maxBytes,
                                 const QString& tooLargeError, int stallTimeoutMs,
                                 int deadlineMs) const;
    // Reports a failure later, as a transfer would.
    void failLater(std::function<void()> report);
    void publish(const CheckResult& result);
    bool install(const QString& stagedPath, const QString& destination);
    QString latestVersionText() const { return m_latestVersion.value_or(QString()); }

    Opener& m_opener;
    Options m_options;
    QUrl m_vendorUrl;
    QString m_vendorRefusal;
    std::unique_ptr<HttpFetcher> m_fetcher; // made on first use
    QTimer m_periodic;
    bool m_downloading = false;

    std::optional<QString> m_latestSHA256;
    std::optional<QString> m_latestVersion;
    bool m_updateAvailable = false;
};

// `mindmeter update --check [--json]`: one manifest check against the vendor's site.
#include "CommandLine.h"
#include "PrivateModules.h"

#include "model/AppVersion.h"
#include "platform/Opener.h"
#include "services/UpdateChecker.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

// A check opens nothing.
class NoOpener final : public Opener {
public:
    bool open(const QUrl&) override { return false; }
};

} // namespace

int CommandLine::update(const QStringList& args) {
    bool check = false;
    bool json = false;
    for (const QString& a : args) {
        if (a == QLatin1String("--check"))
            check = true;
        else if (a == QLatin1String("--json"))
            json = true;
        else
            return usageError(QStringLiteral("update does not take '%1'").arg(a));
    }
    if (!check)
        return usageError(QStringLiteral("update needs --check"));

    NoOpener opener;
    UpdateChecker::Options options;
    options.makeFetcher = &PrivateModules::createHttpFetcher;
    UpdateChecker checker(opener, options);
    UpdateChecker::CheckResult result;
    bool finished = false;
    QEventLoop loop;
    checker.check([&](const UpdateChecker::CheckResult& r) {
        result = r;
        finished = true;
        loop.quit();
    });
    if (!finished)
        loop.exec();
    if (!result.ok)
        return failure(QStringLiteral("update check failed: %1").arg(result.error));

    const bool newer =
        UpdateChecker::isNewer(result.version, QString::fromLatin1(AppVersion::number));
    if (json) {
        const QJsonObject o{
            {QStringLiteral("latestVersion"), result.version},
            {QStringLiteral("updateAvailable"), newer},
            {QStringLiteral("sha256"), result.sha256 ? QJsonValue(*result.sha256) : QJsonValue()}};
        printBytes(QJsonDocument(o).toJson(QJsonDocument::Indented));
        return 0;
    }
    print(QStringLiteral("Latest version: %1\nRunning version: %2\nUpdate available: %3\n")
              .arg(result.version, QString::fromLatin1(AppVersion::number),
                   newer ? QStringLiteral("yes") : QStringLiteral("no")));
    return 0;
}

#include "PrivateModules.h"

#include <QFileInfo>
#include <QLibrary>

#include <map>

QFunctionPointer PrivateModules::resolve(const QString& fileName, const QString& installedFolder,
                                         const char* symbol, QString* error) {
    // Loaded once and kept for the life of the process: objects made by a module must not
    // outlive its code.
    static std::map<QString, QLibrary> libraries;
    QLibrary& library = libraries[fileName];
    if (!library.isLoaded()) {
        const QString self = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
        const QString folder = QFileInfo(self).absolutePath();
        QStringList tried;
        for (const QString& path :
             {folder + u'/' + fileName, folder + u'/' + installedFolder + u'/' + fileName}) {
            if (self.isEmpty() || !QFileInfo::exists(path))
                continue;
            library.setFileName(path);
            if (library.load())
                break;
            tried << library.errorString();
        }
        if (!library.isLoaded()) {
            if (error)
                *error = tried.isEmpty() ? QStringLiteral("%1 is not installed").arg(fileName)
                                         : tried.join(QStringLiteral("; "));
            return nullptr;
        }
    }
    const QFunctionPointer function = library.resolve(symbol);
    if (!function && error)
        *error = library.errorString();
    return function;
}

CreateDashboardWindows PrivateModules::createDashboardWindows(QString* error) {
    return reinterpret_cast<CreateDashboardWindows>(
        resolve(QStringLiteral("mindmeter-ui.so"), QStringLiteral(MINDMETER_UI_LIBRARY_DIR),
                "mindmeter_create_dashboard_windows", error));
}

RunSnapshot PrivateModules::runSnapshot(QString* error) {
    return reinterpret_cast<RunSnapshot>(resolve(QStringLiteral("mindmeter-ui.so"),
                                                 QStringLiteral(MINDMETER_UI_LIBRARY_DIR),
                                                 "mindmeter_run_snapshot", error));
}

std::unique_ptr<HttpFetcher> PrivateModules::createHttpFetcher(QString* error) {
    const auto create = reinterpret_cast<CreateHttpFetcher>(resolve(
        QStringLiteral("mindmeter-network.so"), QStringLiteral(MINDMETER_NETWORK_LIBRARY_DIR),
        "mindmeter_create_http_fetcher", error));
    return std::unique_ptr<HttpFetcher>(create ? create() : nullptr);
}

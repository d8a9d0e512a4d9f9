#pragma once

#include "DashboardWindows.h"
#include "platform/HttpFetcher.h"

#include <QString>

#include <memory>

// Finds and loads the program's own modules, each when first wanted: beside the executable (a
// build tree), else in the folder it was installed to. The views (Qt Quick) and the network
// (Qt Network and TLS) stay out of a process that never opens a window or goes on line.
class PrivateModules {
public:
    // Null, with the reason in *error, when the module cannot be loaded.
    static CreateDashboardWindows createDashboardWindows(QString* error);
    static RunSnapshot runSnapshot(QString* error);
    static std::unique_ptr<HttpFetcher> createHttpFetcher(QString* error);

private:
    static QFunctionPointer resolve(const QString& fileName, const QString& installedFolder,
                                    const char* symbol, QString* error);
};

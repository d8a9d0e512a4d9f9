#pragma once

#include "DashboardWindows.h"

#include <QLibrary>
#include <QString>

// Finds and loads the UI library: beside the executable (a build tree) or in the library
// folder it was installed to.
class UiLibrary {
public:
    // Null, with the reason in *error, when it cannot be loaded.
    static CreateDashboardWindows createDashboardWindows(QString* error);
    static RunSnapshot runSnapshot(QString* error);

private:
    static QFunctionPointer resolve(const char* symbol, QString* error);
};

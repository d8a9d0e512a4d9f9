#include "UiLibrary.h"

#include <QFileInfo>

namespace {

QStringList candidates() {
    // Beside the executable (a build tree), then where it is installed relative to it.
    const QString self = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    if (self.isEmpty())
        return {};
    const QString folder = QFileInfo(self).absolutePath();
    return {folder + QStringLiteral("/mindmeter-ui.so"),
            folder + QStringLiteral("/" MINDMETER_UI_LIBRARY_DIR "/mindmeter-ui.so")};
}

} // namespace

QFunctionPointer UiLibrary::resolve(const char* symbol, QString* error) {
    static QLibrary library;
    if (!library.isLoaded()) {
        QStringList tried;
        for (const QString& path : candidates()) {
            if (!QFileInfo::exists(path))
                continue;
            library.setFileName(path);
            if (library.load())
                break;
            tried << library.errorString();
        }
        if (!library.isLoaded()) {
            if (error)
                *error = tried.isEmpty()
                             ? QStringLiteral("the views (mindmeter-ui.so) are not installed")
                             : tried.join(QStringLiteral("; "));
            return nullptr;
        }
    }
    const QFunctionPointer function = library.resolve(symbol);
    if (!function && error)
        *error = library.errorString();
    return function;
}

CreateDashboardWindows UiLibrary::createDashboardWindows(QString* error) {
    return reinterpret_cast<CreateDashboardWindows>(
        resolve("mindmeter_create_dashboard_windows", error));
}

RunSnapshot UiLibrary::runSnapshot(QString* error) {
    return reinterpret_cast<RunSnapshot>(resolve("mindmeter_run_snapshot", error));
}

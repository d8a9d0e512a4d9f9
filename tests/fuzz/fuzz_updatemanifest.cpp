// The update manifest comes from the network: parsing it, comparing versions and naming the
// package must not crash, and a version that could name a path never becomes a file name.

#include "model/AppVersion.h"
#include "services/UpdateChecker.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray body(reinterpret_cast<const char*>(data), qsizetype(size));
    const UpdateChecker::CheckResult result = UpdateChecker::parseManifest(body);
    if (result.ok == !result.error.isEmpty())
        std::abort();
    if (!result.ok)
        return 0;

    const QString ours = QString::fromLatin1(AppVersion::number);
    // No version is newer than itself, and "newer" runs one way only.
    if (UpdateChecker::isNewer(result.version, result.version))
        std::abort();
    if (UpdateChecker::isNewer(result.version, ours) &&
        UpdateChecker::isNewer(ours, result.version))
        std::abort();

    const QString name = UpdateChecker::packageFileName(result.version);
    // A name is one path component of our own package, never a way out of the folder.
    if (!name.isEmpty() &&
        (name.contains(u'/') || name.contains(u'\\') || name.contains(QChar(0)) ||
         !name.startsWith(QLatin1String("mindmeter_")) || !name.endsWith(QLatin1String(".deb"))))
        std::abort();
    return 0;
}

// Desktop entry files (*.desktop) are installed by any package or written by the user; the
// application names come from them.

#include "platform/linux/DesktopEntry.h"

#include <QStringList>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray text(reinterpret_cast<const char*>(data), qsizetype(size));
    static const QStringList languages = {QStringLiteral("de_DE@euro"), QStringLiteral("de_DE"),
                                          QStringLiteral("de@euro"), QStringLiteral("de")};
    const QString id = QStringLiteral("org.example.App");
    const std::optional<DesktopEntry> entry = DesktopEntry::parse(id, text, languages);
    if (entry && entry->id != id)
        std::abort();
    // Without languages only the plain Name can be chosen.
    const std::optional<DesktopEntry> plain = DesktopEntry::parse(id, text, {});
    if (bool(entry) != bool(plain))
        std::abort();
    return 0;
}

// A Chromium session log is written by another program while it is read and may end anywhere. The
// input is read as a whole file, behind a valid header (so the commands are explored) and cut
// short; any answer is a non-empty address.

#include "platform/linux/SnssSession.h"

#include <cstdlib>

namespace {

void check(const QByteArray& file) {
    const std::optional<QString> url = SnssSession::selectedTabURL(file);
    if (url && url->isEmpty())
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    check(input);
    check(QByteArray("SNSS\3\0\0\0", 8) + input);
    check(input.left(input.size() / 2));
    return 0;
}

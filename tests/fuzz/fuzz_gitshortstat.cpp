// What `git diff --shortstat` and `git rev-parse HEAD` print: the line count stays within its cap
// whatever git says, so a commit session can never carry a day's sums towards overflow.

#include "sensing/GitCommand.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    const qint64 lines = GitCommand::sumChangedLines(text);
    if (lines < 0 || lines > (qint64(1) << 40))
        std::abort();
    if (GitCommand::isCommitHash(text) && text.size() != 40 && text.size() != 64)
        std::abort();
    return 0;
}

#include "Clock.h"

#include <time.h>

namespace {
class SystemClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTime(); }
    qint64 elapsedMs() const override {
        timespec ts{};
        clock_gettime(CLOCK_BOOTTIME, &ts);
        return qint64(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
    }
};
} // namespace

const Clock& Clock::system() {
    static const SystemClock clock;
    return clock;
}

#pragma once

#include "platform/Clock.h"

#include <atomic>

// A clock that stands still until a test moves it. Safe to read from worker threads.
class FakeClock final : public Clock {
public:
    explicit FakeClock(const QDateTime& start) { set(start); }

    QDateTime now() const override {
        return QDateTime::fromMSecsSinceEpoch(m_ms.load(), Qt::LocalTime);
    }
    void set(const QDateTime& t) { m_ms.store(t.toMSecsSinceEpoch()); }
    void advanceSeconds(qint64 s) { m_ms.fetch_add(s * 1000); }

private:
    std::atomic<qint64> m_ms{0};
};

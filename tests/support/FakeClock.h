#pragma once

#include "platform/Clock.h"

#include <atomic>

// A clock that stands still until a test moves it. Safe to read from worker threads.
//
// Moving it (set, advanceSeconds) lets time pass: the wall clock and the elapsed-time clock
// move together. Jumping it (jumpSeconds) changes the wall clock alone, as setting the
// clock by hand or a time server's correction does.
class FakeClock final : public Clock {
public:
    explicit FakeClock(const QDateTime& start) { m_ms.store(start.toMSecsSinceEpoch()); }

    QDateTime now() const override {
        return QDateTime::fromMSecsSinceEpoch(m_ms.load(), Qt::LocalTime);
    }
    qint64 elapsedMs() const override { return m_elapsedMs.load(); }

    void set(const QDateTime& t) {
        const qint64 to = t.toMSecsSinceEpoch();
        m_elapsedMs.fetch_add(to - m_ms.exchange(to));
    }
    void advanceSeconds(qint64 s) {
        m_ms.fetch_add(s * 1000);
        m_elapsedMs.fetch_add(s * 1000);
    }
    void jumpSeconds(qint64 s) { m_ms.fetch_add(s * 1000); }

private:
    std::atomic<qint64> m_ms{0};
    std::atomic<qint64> m_elapsedMs{0};
};

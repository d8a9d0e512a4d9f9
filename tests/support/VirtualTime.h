#pragma once

#include "FakeClock.h"
#include "Sessions.h"

#include "store/DayStore.h"

#include <QList>
#include <QObject>
#include <QPointer>

// Runs the sensing loop in virtual time. Each tick moves the clock ten seconds and calls the
// "tick" slot of every ticker, then lets the store do what they posted. The store's midnight
// timer is a real one armed for hours, so it is fired here instead, when its interval has
// passed on the timer's own clock: like the kernel's monotonic clock, that clock stops while
// the machine sleeps and ignores the wall clock being set.
class VirtualTime {
public:
    VirtualTime(FakeClock& clock, DayStore& store)
        : m_clock(clock)
        , m_store(store) {
        arm();
    }

    void addTicker(QObject* ticker) { m_tickers.append(ticker); }

    // n ticks of ten seconds each.
    void tick(qint64 n = 1) {
        for (qint64 i = 0; i < n; ++i) {
            m_clock.advanceSeconds(10);
            m_monotonicMs += 10000;
            fireMidnightIfDue();
            for (const QPointer<QObject>& t : std::as_const(m_tickers))
                if (t)
                    QMetaObject::invokeMethod(t.data(), "tick");
            settle();
            noticeNewDay();
        }
    }
    void minutes(qint64 n) { tick(n * 6); }

    // The machine sleeps: the wall clock and the elapsed-time clock move, no timer runs.
    // On waking the desktop may or may not say so (there is no signal without logind).
    void sleep(qint64 seconds, bool wakeSignal) {
        m_clock.advanceSeconds(seconds);
        if (wakeSignal) {
            m_store.handleWake();
            settle();
            noticeNewDay();
        }
    }

    qint64 midnightFirings() const { return m_firings; }

private:
    // Takes the interval the store just armed its timer for.
    void arm() {
        const int remaining = m_store.midnightTimerRemaining();
        m_dueMs = remaining < 0 ? -1 : m_monotonicMs + remaining;
        m_day = m_store.day();
    }
    // The store re-arms its timer whenever its day changes.
    void noticeNewDay() {
        if (m_store.day() != m_day)
            arm();
    }
    void fireMidnightIfDue() {
        if (m_dueMs < 0 || m_monotonicMs < m_dueMs)
            return;
        ++m_firings;
        QMetaObject::invokeMethod(&m_store, "midnightTick");
        settle();
        arm();
    }

    FakeClock& m_clock;
    DayStore& m_store;
    QList<QPointer<QObject>> m_tickers;
    qint64 m_monotonicMs = 0;
    qint64 m_dueMs = -1;
    QDate m_day;
    qint64 m_firings = 0;
};

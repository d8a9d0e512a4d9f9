#pragma once

#include "platform/Clock.h"
#include "platform/IdleSource.h"

#include <optional>

// Answers from the last question to another idle source while that answer is recent. The
// activity monitor and the working-mode engine both tick every ten seconds, in the same turn
// of the event loop: with this in front of the desktop's idle source they share one question
// (one round trip to the X server, or one D-Bus call) instead of asking twice.
class RecentIdleSource final : public IdleSource {
public:
    RecentIdleSource(IdleSource& source, const Clock& clock, qint64 maxAgeMs)
        : m_source(source)
        , m_clock(clock)
        , m_maxAgeMs(maxAgeMs) {}

    double secondsSinceLastInput() const override {
        const qint64 now = m_clock.elapsedMs();
        if (!m_askedMs || now - *m_askedMs < 0 || now - *m_askedMs >= m_maxAgeMs) {
            m_seconds = m_source.secondsSinceLastInput();
            m_askedMs = now;
            return m_seconds;
        }
        // The input of a moment ago is as old now as it was then, plus the moment.
        return m_seconds + double(now - *m_askedMs) / 1000.0;
    }

private:
    IdleSource& m_source;
    const Clock& m_clock;
    const qint64 m_maxAgeMs;
    mutable std::optional<qint64> m_askedMs;
    mutable double m_seconds = 0;
};

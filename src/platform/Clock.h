#pragma once

#include <QDateTime>

// The source of "now" for every rule that depends on time. Production code uses
// Clock::system(); tests inject a clock they can move.
class Clock {
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;

    // Milliseconds on a clock that never jumps when the wall clock is set, and keeps counting
    // while the machine sleeps (Linux's CLOCK_BOOTTIME): for measuring how long something
    // lasted. Only differences mean anything.
    virtual qint64 elapsedMs() const { return now().toMSecsSinceEpoch(); }

    static const Clock& system();
};

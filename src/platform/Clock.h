#pragma once

#include <QDateTime>

// The source of "now" for every rule that depends on time. Production code uses
// Clock::system(); tests inject a clock they can move.
class Clock {
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;

    static const Clock& system();
};

#pragma once

// Seconds since the user last pressed a key, moved the mouse, clicked or scrolled.
class IdleSource {
public:
    virtual ~IdleSource() = default;
    virtual double secondsSinceLastInput() const = 0;
};

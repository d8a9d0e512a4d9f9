#pragma once

#include <QBasicTimer>
#include <QObject>
#include <QTimerEvent>

// A repeating timer that calls a member function of its owner straight from the event loop's
// timer event, where QTimer would emit a signal and run a slot object on the way: the ticks
// that run all day take the short road.
template <class Owner, void (Owner::*Tick)()> class TickTimer final : public QObject {
public:
    TickTimer(Owner* owner, int intervalMs)
        : QObject(owner)
        , m_owner(owner)
        , m_intervalMs(intervalMs) {}

    void start() { m_timer.start(m_intervalMs, this); }
    void stop() { m_timer.stop(); }
    bool isActive() const { return m_timer.isActive(); }

protected:
    void timerEvent(QTimerEvent* event) override {
        if (event->timerId() == m_timer.timerId())
            (m_owner->*Tick)();
        else
            QObject::timerEvent(event);
    }

private:
    Owner* m_owner;
    int m_intervalMs;
    QBasicTimer m_timer;
};

#pragma once

#include "platform/IdleSource.h"

#include <QObject>
#include <QString>

#include <memory>
#include <optional>

class Clock;
class QSocketNotifier;
struct xcb_connection_t;

// Seconds since the last keyboard or mouse input on an X server.
//
// Where the server's SYNC extension has the IDLETIME counter (every X.Org server), two alarms
// on it say when the input stopped a threshold ago ("idle") and when it came back: the process
// is woken only by those, and a question costs no round trip. As on Wayland, the answer is 0
// until the threshold has passed, then counted from the input the alarm names; every rule that
// compares against the idle timeout (a minute at the least) decides the same either way.
// Without IDLETIME each question asks MIT-SCREEN-SAVER for the exact time.
//
// MIT-SCREEN-SAVER must be there in either case: Xwayland lacks it, and its counters see
// only the input given to X clients, so there the compositor is asked instead.
class X11IdleSource final : public QObject, public IdleSource {
    Q_OBJECT
public:
    // Milliseconds of no input after which the idle alarm fires.
    static constexpr int defaultThresholdMs = 10000;

    ~X11IdleSource() override;

    // Null, with the reason in *error, when there is no display or no MIT-SCREEN-SAVER.
    static std::unique_ptr<X11IdleSource> open(const Clock& clock, QString* error,
                                               int thresholdMs = defaultThresholdMs);

    double secondsSinceLastInput() const override;

    // "SYNC IDLETIME" when woken by alarms, "MIT-SCREEN-SAVER" when asking each time.
    QString mechanism() const;

private:
    X11IdleSource(xcb_connection_t* connection, quint32 root, const Clock& clock);
    bool setUpAlarms(int thresholdMs);
    void readEvents();

    xcb_connection_t* m_connection;
    quint32 m_root;
    const Clock& m_clock;
    std::unique_ptr<QSocketNotifier> m_notifier; // set when alarms are in use
    quint8 m_syncEventBase = 0;
    quint32 m_idleAlarm = 0;
    quint32 m_resetAlarm = 0;
    // On the clock's elapsed scale: when the last input happened, known once idle.
    std::optional<qint64> m_lastInputMs;
};

#pragma once

#include "platform/IdleSource.h"

#include <QDBusConnection>
#include <QElapsedTimer>
#include <QObject>

#include <memory>

// Seconds since the last input on GNOME on Wayland, from Mutter's idle monitor
// (org.gnome.Mutter.IdleMonitor, whose core monitor counts every input device). Rather than
// asking on every tick it keeps two watches, so the process wakes only when the user stops
// or comes back: one that fires once the user has been idle for a few seconds, and one that
// fires at the next input after that. Between them the answer follows from the clock.
class MutterIdleSource final : public QObject, public IdleSource {
    Q_OBJECT
public:
    // Any idle timeout is longer than this, so below it the exact figure never matters.
    static constexpr qint64 watchMs = 10000;

    ~MutterIdleSource() override;

    // Null, with the reason in *error, when Mutter's idle monitor does not answer.
    static std::unique_ptr<MutterIdleSource> open(QDBusConnection bus, QString* error);

    double secondsSinceLastInput() const override;

private slots:
    void watchFired(uint id);

private:
    explicit MutterIdleSource(const QDBusConnection& bus);
    QDBusMessage call(const QString& method, const QVariantList& arguments = {}) const;
    void watchForInput();

    mutable QDBusConnection m_bus; // its calls are not const
    QElapsedTimer m_clock;
    // On m_clock: when the last input is known to have happened.
    qint64 m_lastInputMs = 0;
    bool m_idle = false;
    uint m_idleWatch = 0;
    uint m_activeWatch = 0;
};

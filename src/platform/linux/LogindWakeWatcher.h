#pragma once

#include <QObject>

// Tells when the machine has woken from sleep: logind announces PrepareForSleep(false) on
// the system bus. Without a system bus or logind there is simply no signal.
class LogindWakeWatcher : public QObject {
    Q_OBJECT
public:
    explicit LogindWakeWatcher(QObject* parent = nullptr);

signals:
    void didWake();

private slots:
    void prepareForSleep(bool sleeping);
};

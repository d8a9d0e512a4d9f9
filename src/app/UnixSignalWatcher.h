#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <initializer_list>
#include <memory>

// Turns SIGINT, SIGTERM and the like into a Qt signal delivered in the event loop, so a
// stop request can flush and close things in order instead of cutting them off.
class UnixSignalWatcher : public QObject {
    Q_OBJECT
public:
    explicit UnixSignalWatcher(std::initializer_list<int> signalNumbers, QObject* parent = nullptr);
    ~UnixSignalWatcher() override;

signals:
    void received(int signal);

private slots:
    void readSignal();

private:
    std::unique_ptr<QSocketNotifier> m_notifier;
};

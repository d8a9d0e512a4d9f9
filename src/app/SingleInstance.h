#pragma once

#include <QObject>
#include <QString>

// One tray app per login session (per user without a runtime folder): the first one listens on a
// local socket; a second start finds it there, asks it to show the dashboard, and exits. Plain
// Unix sockets, so the long-lived process does not load Qt Network for it.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    explicit SingleInstance(QObject* parent = nullptr);
    ~SingleInstance() override;

    // True when this process is the first; false after another one was asked to show itself.
    bool claim();

    // $XDG_RUNTIME_DIR/mindmeter.socket, else mindmeter-UID in the temporary folder.
    static QString socketPath();

signals:
    void showRequested();

private:
    void acceptPeers();
    void readPeer(int peer);

    int m_listener = -1;
    QString m_path;
};

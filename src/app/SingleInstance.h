#pragma once

#include <QLocalServer>
#include <QObject>

// One tray app per login session (per user without a runtime folder): the first one listens on a
// local socket; a second start finds it there, asks it to show the dashboard, and exits.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    explicit SingleInstance(QObject* parent = nullptr);

    // True when this process is the first; false after another one was asked to show itself.
    bool claim();

    // $XDG_RUNTIME_DIR/mindmeter.socket, else mindmeter-UID in the temporary folder.
    static QString socketName();

signals:
    void showRequested();

private:
    QLocalServer m_server;
};

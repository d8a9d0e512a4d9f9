#include "SingleInstance.h"

#include <QFileInfo>
#include <QLocalSocket>

#include <unistd.h>

SingleInstance::SingleInstance(QObject* parent)
    : QObject(parent) {
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* peer = m_server.nextPendingConnection()) {
            connect(peer, &QLocalSocket::readyRead, this, [this, peer] {
                if (peer->readAll().contains("show"))
                    emit showRequested();
                peer->disconnectFromServer();
            });
            connect(peer, &QLocalSocket::disconnected, peer, &QObject::deleteLater);
        }
    });
}

// In the session's runtime folder when there is one: one app per login session (and per
// test's own session), not per machine.
QString SingleInstance::socketName() {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QFileInfo(runtime).isDir())
        return runtime + QStringLiteral("/mindmeter.socket");
    return QStringLiteral("mindmeter-%1").arg(::getuid());
}

bool SingleInstance::claim() {
    QLocalSocket other;
    other.connectToServer(socketName());
    if (other.waitForConnected(1000)) {
        other.write("show\n");
        other.waitForBytesWritten(1000);
        other.disconnectFromServer();
        return false;
    }
    // Nobody answers: a socket left by a process that crashed is removed first.
    QLocalServer::removeServer(socketName());
    return m_server.listen(socketName());
}

#include "SingleInstance.h"

#include <QDir>
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

QString SingleInstance::socketName() {
    // One per login session, in the user's private runtime folder; only without one (no
    // session manager) in the shared temporary folder, named by user.
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (QDir::isAbsolutePath(runtime) && QFileInfo(runtime).isDir())
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

#pragma once

#include <QDBusConnection>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

// A dbus-daemon of the test's own (Debian package dbus-daemon), so tests never touch the
// desktop's session bus. Each connect() opens a separate connection, as another process would.
class PrivateSessionBus {
public:
    ~PrivateSessionBus() {
        disconnectAll();
        m_daemon.terminate();
        m_daemon.waitForFinished(5000);
    }

    // Starts the daemon: empty when it runs, otherwise what failed.
    QString start() {
        QFile config(m_dir.filePath(QStringLiteral("session.conf")));
        if (!m_dir.isValid() || !config.open(QIODevice::WriteOnly))
            return QStringLiteral("cannot write the bus configuration");
        // The session bus's usual policy: anyone may talk to anyone and own any name.
        config.write(QStringLiteral("<busconfig><type>session</type><listen>unix:dir=%1</listen>"
                                    "<auth>EXTERNAL</auth><policy context=\"default\">"
                                    "<allow send_destination=\"*\" eavesdrop=\"true\"/>"
                                    "<allow eavesdrop=\"true\"/><allow own=\"*\"/>"
                                    "</policy></busconfig>")
                         .arg(m_dir.path())
                         .toUtf8());
        config.close();
        m_daemon.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--config-file=") + config.fileName(),
                        QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
        if (!m_daemon.waitForStarted())
            return QStringLiteral("dbus-daemon is needed (Debian package dbus-daemon)");
        for (int i = 0; i < 100 && !m_daemon.canReadLine(); ++i)
            m_daemon.waitForReadyRead(100);
        m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
        return m_address.startsWith(QStringLiteral("unix:")) ? QString()
                                                             : QStringLiteral("no bus address");
    }

    QDBusConnection connect() { return connectTo(m_address); }
    QString address() const { return m_address; } // other processes' DBUS_SESSION_BUS_ADDRESS
    // A connection to where no bus listens: never connected.
    QDBusConnection connectNowhere() { return connectTo(QStringLiteral("unix:path=/nonexistent")); }

    void disconnectAll() {
        for (const QString& name : std::as_const(m_names))
            QDBusConnection::disconnectFromBus(name);
        m_names.clear();
    }

private:
    QDBusConnection connectTo(const QString& address) {
        m_names << QStringLiteral("private-bus-%1").arg(m_serial++);
        return QDBusConnection::connectToBus(address, m_names.last());
    }

    QTemporaryDir m_dir;
    QProcess m_daemon;
    QString m_address;
    QStringList m_names;
    int m_serial = 0;
};

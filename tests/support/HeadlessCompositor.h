#pragma once

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <memory>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

// A Wayland compositor of the test's own, without a screen or input devices, with a runtime
// folder of its own so tests never touch the desktop of the person running them.
class HeadlessCompositor {
public:
    virtual ~HeadlessCompositor() {
        for (auto& p : m_clients) {
            p->kill();
            p->waitForFinished(5000);
        }
        if (m_server) {
            m_server->terminate();
            if (!m_server->waitForFinished(10000)) {
                m_server->kill();
                m_server->waitForFinished(5000);
            }
        }
    }

    // Empty once the compositor accepts clients, otherwise what went wrong.
    virtual QString start() = 0;
    // Opens a window of the application with that id and waits until it is in front.
    virtual bool openWindow(const QString& appId) = 0;
    virtual bool focus(const QString& appId) = 0;
    // Input from the user, which ends any idleness.
    virtual bool userInput() = 0;

    // The environment of a client of this compositor: no X11 display.
    virtual QProcessEnvironment clientEnvironment(QProcessEnvironment env) const {
        env.remove("DISPLAY");
        env.insert("XDG_RUNTIME_DIR", m_runtime.path());
        env.insert("WAYLAND_DISPLAY", m_display);
        env.insert("XDG_SESSION_TYPE", "wayland");
        return env;
    }
    QProcessEnvironment clientEnvironment() const {
        return clientEnvironment(QProcessEnvironment::systemEnvironment());
    }
    QString log() const { return m_server ? QString::fromLocal8Bit(m_serverLog) : QString(); }

protected:
    // Starts the server; the runtime folder belongs to `uid` (the server may refuse root).
    bool launch(const QString& program, const QStringList& args, const QProcessEnvironment& env,
                uid_t uid) {
        if (!m_runtime.isValid())
            return false;
        if (uid != getuid() && (::chown(qPrintable(m_runtime.path()), uid, uid) != 0))
            return false;
        ::chmod(qPrintable(m_runtime.path()), 0700);
        m_server = std::make_unique<QProcess>();
        m_server->setProcessChannelMode(QProcess::MergedChannels);
        QObject::connect(m_server.get(), &QProcess::readyRead,
                         [this] { m_serverLog += m_server->readAll(); });
        m_server->setProcessEnvironment(env);
        m_server->start(program, args);
        if (!m_server->waitForStarted())
            return false;
        // Ready once the listening socket appears.
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < 30000 && m_server->state() == QProcess::Running) {
            const QStringList sockets =
                QDir(m_runtime.path()).entryList({"wayland-*"}, QDir::System | QDir::Files);
            for (const QString& s : sockets)
                if (!s.endsWith(QLatin1String(".lock"))) {
                    m_display = s;
                    return true;
                }
            m_server->waitForReadyRead(100);
        }
        return false;
    }

    // Runs a short command to the end; true when it succeeded.
    bool run(const QString& program, const QStringList& args, const QProcessEnvironment& env) {
        QProcess p;
        p.setProcessEnvironment(env);
        p.setProcessChannelMode(QProcess::MergedChannels);
        p.start(program, args);
        const bool ok =
            p.waitForFinished(30000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
        if (!ok)
            m_serverLog += program.toUtf8() + ": " + p.readAll() + '\n';
        return ok;
    }

    // A client that lives until the compositor stops.
    void spawn(const QString& program, const QStringList& args, const QProcessEnvironment& env) {
        auto p = std::make_unique<QProcess>();
        p->setProcessEnvironment(env);
        p->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        p->setStandardOutputFile(QProcess::nullDevice());
        p->start(program, args);
        m_clients.push_back(std::move(p));
    }

    // Polls a condition of the compositor's state (which it only tells when asked).
    template <typename F> static bool eventually(F condition, int timeoutMs = 20000) {
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < timeoutMs) {
            if (condition())
                return true;
            QThread::msleep(100);
        }
        return false;
    }

    QTemporaryDir m_runtime;
    QString m_display;
    std::unique_ptr<QProcess> m_server;
    QByteArray m_serverLog;
    std::vector<std::unique_ptr<QProcess>> m_clients;
};

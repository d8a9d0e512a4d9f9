#pragma once

#include "RunProcess.h"

#include "model/SessionCodec.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>

#include <functional>

#include <signal.h>

// `mindmeter track`, or the tray app, as a child process, over a data folder, a home folder
// and a runtime folder of the test's own, with a short tick. Run on the test's private X
// server (support/run-with-xvfb.sh). The tray app is given no session bus and an update
// site that refuses at once.
class TrackerProcess {
public:
    TrackerProcess(const QString& executable, const QString& root)
        : m_executable(executable)
        , m_root(root) {}

    QString dataFolder() const { return m_root + "/data/mindmeter"; }
    QString databasePath() const { return dataFolder() + "/mindmeter.sqlite3"; }

    QProcessEnvironment environment() const {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_DATA_HOME", m_root + "/data");
        // Application identities come from the built-in alias table alone.
        env.insert("XDG_DATA_DIRS", m_root + "/no-entries");
        env.insert("HOME", m_root + "/home");
        env.insert("TZ", "UTC");
        return env;
    }

    // Replaces the environment built from the test's folders (to add a display, say).
    void setEnvironment(const QProcessEnvironment& env) { m_env = env; }

    // Runs in the child between fork and exec (to limit it, say).
    void setChildSetup(std::function<void()> setup) { m_setup = std::move(setup); }

    enum class Program { track, tray };

    void start(int tickMs, Program program = Program::track) {
        QDir().mkpath(m_root + "/home");
        m_process = std::make_unique<QProcess>();
        QProcessEnvironment env = childEnvironment();
        if (program == Program::tray) {
            QDir(m_root).mkdir("run", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            env.insert("XDG_RUNTIME_DIR", m_root + "/run");
            env.insert("MINDMETER_TICK_MS", QString::number(tickMs));
            env.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + m_root + "/run/no-bus");
            env.insert("MINDMETER_VENDOR_URL", "http://127.0.0.1:1");
        }
        m_process->setProcessEnvironment(env);
        if (m_setup)
            m_process->setChildProcessModifier(m_setup);
        m_said.clear();
        m_process->start(m_executable,
                         program == Program::tray
                             ? QStringList()
                             : QStringList{"track", "--tick-ms", QString::number(tickMs)});
    }

    // Waits until the tracker says it is tracking; false if it ends first. A sanitizer build
    // on a busy machine can take long to start; only a hang should fail.
    bool waitUntilTracking(int timeoutMs = 120000) {
        return waitForMessage("mindmeter: tracking; ", timeoutMs);
    }

    // Waits until stderr holds `text`; false if the process ends first or after timeoutMs.
    bool waitForMessage(const QByteArray& text, int timeoutMs = 30000) {
        QElapsedTimer t;
        t.start();
        while (!said().contains(text)) {
            if (m_process->state() == QProcess::NotRunning || t.elapsed() > timeoutMs)
                return false;
            m_process->waitForReadyRead(50);
        }
        return true;
    }

    // Everything the tracker wrote to stderr so far.
    QByteArray said() {
        if (m_process)
            m_said += m_process->readAllStandardError();
        return m_said;
    }

    // Ends the process with `signal`; true when it then exits cleanly.
    bool stop(int signal = SIGTERM) {
        ::kill(pid_t(pid()), signal);
        return m_process->waitForFinished(10000) &&
               m_process->exitStatus() == QProcess::NormalExit && m_process->exitCode() == 0;
    }

    // Runs the executable with `args` in the tracker's environment: stdout and stderr.
    QByteArray run(const QStringList& args, int* exitCode = nullptr) const {
        const ProcessResult r = runProcess(m_executable, args, childEnvironment());
        if (exitCode)
            *exitCode = r.exitCode;
        return r.out + r.err;
    }

    // Today's stored sessions, as `defaults read` gives them.
    QList<ActivitySession> sessions() const {
        const QString day = QDateTime::currentDateTimeUtc().date().toString(Qt::ISODate);
        const QStringList args = {"defaults", "read", "mindmeter.sessions." + day};
        return SessionCodec::decodeDay(runProcess(m_executable, args, childEnvironment()).out)
            .value_or(QList<ActivitySession>{});
    }

    qint64 pid() const { return m_process ? m_process->processId() : 0; }
    QProcess& process() { return *m_process; }

private:
    QProcessEnvironment childEnvironment() const { return m_env.isEmpty() ? environment() : m_env; }

    QString m_executable;
    QString m_root;
    std::function<void()> m_setup;
    QProcessEnvironment m_env;
    std::unique_ptr<QProcess> m_process;
    QByteArray m_said;
};

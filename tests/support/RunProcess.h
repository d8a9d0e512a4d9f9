#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>

#include <functional>

// What a finished child process left: its exit status (-1 when it could not start, crashed
// or had to be stopped) and everything it wrote.
struct ProcessResult {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

// Runs a program to the end, childSetup between fork and exec. The event loop keeps running
// meanwhile, for servers that live in the test's own process. The time limit only stops a
// hung child; it is not a check.
inline ProcessResult
runProcess(const QString& program, const QStringList& args,
           const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment(),
           const QByteArray& input = {}, int limitMs = 600000,
           const std::function<void()>& childSetup = {}) {
    QProcess p;
    p.setProcessEnvironment(env);
    if (childSetup)
        p.setChildProcessModifier(childSetup);
    p.start(program, args);
    if (!p.waitForStarted())
        return {-1, {}, p.errorString().toUtf8()};
    p.write(input);
    p.closeWriteChannel();
    const QDeadlineTimer limit(limitMs);
    while (p.state() != QProcess::NotRunning && !p.waitForFinished(10) && !limit.hasExpired())
        QCoreApplication::processEvents();
    if (p.state() != QProcess::NotRunning) {
        p.kill();
        p.waitForFinished();
    }
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
            p.readAllStandardError()};
}

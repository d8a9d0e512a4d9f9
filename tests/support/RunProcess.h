#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>

// What a finished child process left: its exit status (-1 when it could not start, crashed
// or had to be stopped) and everything it wrote.
struct ProcessResult {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

// Runs a program to the end. The time limit only stops a hung child; it is not a check.
inline ProcessResult
runProcess(const QString& program, const QStringList& args,
           const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment(),
           const QByteArray& input = {}, int limitMs = 600000) {
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(program, args);
    if (!p.waitForStarted())
        return {-1, {}, p.errorString().toUtf8()};
    p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(limitMs)) {
        p.kill();
        p.waitForFinished();
    }
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
            p.readAllStandardError()};
}

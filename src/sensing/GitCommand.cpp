#include "GitCommand.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>

#include <algorithm>

namespace {

// More than any answer git gives to the commands used here.
constexpr qsizetype maxOutput = 1024 * 1024;
// How often a waiting call looks at the clock and the cancel flag.
constexpr int waitSliceMs = 100;
// 2^40 lines: beyond any real commit, yet far below where sums of tokens overflow.
constexpr qint64 maxChangedLines = qint64(1) << 40;

QProcessEnvironment gitEnvironment() {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    // The summary line is parsed: keep git's messages untranslated.
    env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    env.remove(QStringLiteral("LANGUAGE"));
    // Never take the index lock the user's own git commands need, never prompt.
    env.insert(QStringLiteral("GIT_OPTIONAL_LOCKS"), QStringLiteral("0"));
    env.insert(QStringLiteral("GIT_TERMINAL_PROMPT"), QStringLiteral("0"));
    return env;
}

} // namespace

GitCommand::GitCommand(QString executable, int timeoutMs, const std::atomic<bool>& cancelled)
    : m_executable(std::move(executable))
    , m_timeoutMs(timeoutMs)
    , m_cancelled(cancelled) {}

QString GitCommand::run(const QStringList& args) const {
    if (m_cancelled.load())
        return {};
    QProcess git;
    git.setProgram(m_executable);
    git.setArguments(args);
    git.setProcessEnvironment(gitEnvironment());
    git.setStandardInputFile(QProcess::nullDevice());
    git.setStandardErrorFile(QProcess::nullDevice());
    QElapsedTimer clock;
    clock.start();
    git.start();
    if (!git.waitForStarted(m_timeoutMs))
        return {};

    QByteArray out;
    auto take = [&] {
        const QByteArray chunk = git.readAllStandardOutput();
        out.append(chunk.left(std::max<qsizetype>(maxOutput - out.size(), 0)));
    };
    while (git.state() != QProcess::NotRunning) {
        const qint64 left = m_timeoutMs - clock.elapsed();
        if (left <= 0 || m_cancelled.load()) {
            git.kill();
            git.waitForFinished(-1);
            break;
        }
        const int slice = int(std::min<qint64>(left, waitSliceMs));
        // With its output closed but still running, wait for the exit instead.
        if (!git.waitForReadyRead(slice) && git.state() != QProcess::NotRunning)
            git.waitForFinished(slice);
        take();
    }
    take();
    return QString::fromUtf8(out).trimmed();
}

QString GitCommand::gitRoot(const QString& folder) const {
    const QString root = run({QStringLiteral("-C"), folder, QStringLiteral("rev-parse"),
                              QStringLiteral("--show-toplevel")});
    // Anything but one absolute path is not an answer.
    return QDir::isAbsolutePath(root) && !root.contains(u'\n') ? root : QString();
}

QString GitCommand::currentHead(const QString& root) const {
    const QString head =
        run({QStringLiteral("-C"), root, QStringLiteral("rev-parse"), QStringLiteral("HEAD")});
    return isCommitHash(head) ? head : QString();
}

qint64 GitCommand::changedLines(const QString& root, const QString& from, const QString& to) const {
    return sumChangedLines(run({QStringLiteral("-C"), root, QStringLiteral("diff"),
                                QStringLiteral("--shortstat"), from, to}));
}

qint64 GitCommand::sumChangedLines(const QString& shortstat) {
    static const QRegularExpression count(QStringLiteral("(\\d+) (?:insertion|deletion)"));
    qint64 sum = 0;
    for (auto it = count.globalMatch(shortstat); it.hasNext();) {
        bool ok = false;
        const qint64 n = it.next().captured(1).toLongLong(&ok);
        if (ok)
            sum = std::min(sum + std::min(n, maxChangedLines), maxChangedLines);
    }
    return sum;
}

bool GitCommand::isCommitHash(const QString& text) {
    if (text.size() != 40 && text.size() != 64)
        return false;
    return std::all_of(text.cbegin(), text.cend(), [](QChar c) {
        return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f');
    });
}

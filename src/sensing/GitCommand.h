#pragma once

#include <QString>
#include <QStringList>

#include <atomic>

// Runs git with an argument list (never through a shell) and returns what it printed.
//
// Blocks the calling thread: meant for a worker. A git that outlives the time-out, or is
// still running when the owner cancels, is killed; its output is read to the end but kept
// only up to a cap, so a git that prints without end cannot exhaust memory.
class GitCommand {
public:
    GitCommand(QString executable, int timeoutMs, const std::atomic<bool>& cancelled);

    // Trimmed standard output; empty when git cannot be started.
    QString run(const QStringList& args) const;

    // The top folder of the repository holding `folder`; empty when it lies in none.
    QString gitRoot(const QString& folder) const;
    // The commit HEAD names in the repository at `root`; empty when unknown.
    QString currentHead(const QString& root) const;
    // Lines inserted plus lines deleted between two commits.
    qint64 changedLines(const QString& root, const QString& from, const QString& to) const;

    // The sum of the counts in git's "--shortstat" summary. Counts that are not numbers
    // are skipped and the sum is capped far above any real change, so garbage output can
    // never carry a day's token sums towards overflow.
    static qint64 sumChangedLines(const QString& shortstat);
    static bool isCommitHash(const QString& text);

private:
    QString m_executable;
    int m_timeoutMs;
    const std::atomic<bool>& m_cancelled;
};

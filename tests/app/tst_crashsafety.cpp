// The real tracker killed with SIGKILL 200 times and started again each time: at random
// moments (some before it has even opened the store) and on its writes (the moment SQLite
// appends a new version of today to the write-ahead log). After every kill the store must pass
// SQLite's integrity check, every day must decode, no session may be lost or stored twice, and
// no more may be stored than the tracker can have counted in the time it ran.

#include "SqliteIntegrity.h"
#include "TrackerProcess.h"
#include "X11Windows.h"

#include "model/AppPreferences.h"
#include "model/SessionCodec.h"
#include "store/DayKeys.h"
#include "store/SqliteDefaults.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <sqlite3.h>

#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

constexpr int cycles = 200;
constexpr int tickMs = 10;
// A seeded day this large takes a few milliseconds to write, so a kill can land inside.
constexpr int seededSessions = 6000;
// The most a session of the terminal can weigh: 8 tokens a minute, the largest working-mode
// multiplier (1.4), reasoning's weight of 3.
constexpr qint64 maxWeightedPerMinute = qint64(8 * 1.4) * 3;

struct Snapshot {
    QSet<QUuid> ids;
    qint64 total = 0;
};

} // namespace

class CrashSafetyTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void killedAndRestarted();

private:
    // Opens the store as the next start would and checks it; the snapshot of what it holds.
    Snapshot check();

    QTemporaryDir m_dir;
    std::unique_ptr<TrackerProcess> m_tracker;
    X11Windows m_windows;
};

void CrashSafetyTest::initTestCase() {
    const quint32 term = m_windows.openTerminal("xterm", "XTerm");
    QVERIFY(term);
    X11Windows::activate(term);
    X11Windows::moveMouse(40, 40);

    m_tracker = std::make_unique<TrackerProcess>(MINDMETER_EXECUTABLE, m_dir.path());
    auto db = SqliteDefaults::open(m_tracker->databasePath());
    QVERIFY(db);
    // The private X server sees no input after the first move: never count the user away.
    QVERIFY(db->setInteger(AppPreferences::idleTimeoutMinutes, 100000));
    const QDateTime midnight = QDateTime::currentDateTimeUtc().date().startOfDay(Qt::UTC);
    QList<ActivitySession> day;
    for (int i = 0; i < seededSessions; ++i) {
        const Timestamp start = Timestamp::fromDateTime(midnight.addSecs(i * 10));
        day.append({QUuid::createUuid(), QStringLiteral("com.apple.Terminal.XTerm"),
                    QStringLiteral("XTerm"), TokenType::reasoning, start, start.addSeconds(60), 8});
    }
    QVERIFY(
        db->setData(DayKeys::sessions(DayKeys::dayText(midnight)), SessionCodec::encodeDay(day)));
}

Snapshot CrashSafetyTest::check() {
    Snapshot snap;
    const QString path = m_tracker->databasePath();
    [&] {
        QCOMPARE(integrity(path), QString("ok"));
        QString error;
        auto db = SqliteDefaults::open(path, &error);
        QVERIFY2(db, qPrintable(error));
        QSet<QString> contents;
        for (const QString& key : db->keys()) {
            if (!key.startsWith("mindmeter.sessions."))
                continue;
            const auto day = SessionCodec::decodeDay(db->data(key).value_or(QByteArray()));
            QVERIFY2(day, qPrintable(key + " does not decode"));
            for (const ActivitySession& s : *day) {
                QVERIFY2(!snap.ids.contains(s.id), qPrintable("stored twice: " + s.id.toString()));
                snap.ids.insert(s.id);
                // A copy under a new id would have the same application, start and end.
                const QString content = QStringLiteral("%1 %2 %3")
                                            .arg(s.appBundleID)
                                            .arg(s.startTime.secondsSinceReference, 0, 'g', 17)
                                            .arg(s.endTime.secondsSinceReference, 0, 'g', 17);
                QVERIFY2(!contents.contains(content), qPrintable("stored twice: " + content));
                contents.insert(content);
                snap.total += s.weightedTokens();
            }
        }
    }();
    return snap;
}

void CrashSafetyTest::killedAndRestarted() {
    const int inotify = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    QVERIFY(inotify >= 0);
    QVERIFY(inotify_add_watch(inotify, QFile::encodeName(m_tracker->dataFolder()).constData(),
                              IN_MODIFY) >= 0);
    const auto drain = [&] {
        char buffer[4096];
        while (::read(inotify, buffer, sizeof buffer) > 0) {
        }
    };
    // Waits for the next write to the log; false after the time-out.
    const auto waitForLogWrite = [&](int timeoutMs) {
        QElapsedTimer t;
        t.start();
        char buffer[4096] __attribute__((aligned(__alignof__(inotify_event))));
        while (t.elapsed() < timeoutMs) {
            pollfd p{inotify, POLLIN, 0};
            if (::poll(&p, 1, 50) <= 0)
                continue;
            const ssize_t n = ::read(inotify, buffer, sizeof buffer);
            for (ssize_t at = 0; at < n;) {
                const auto* e = reinterpret_cast<const inotify_event*>(buffer + at);
                if (e->len && QByteArray(e->name).endsWith("-wal"))
                    return true;
                at += ssize_t(sizeof(inotify_event) + e->len);
            }
        }
        return false;
    };

    Snapshot before = check();
    QRandomGenerator random(20260530);
    for (int cycle = 0; cycle < cycles; ++cycle) {
        QElapsedTimer lived;
        m_tracker->start(tickMs);
        lived.start();
        QVERIFY(m_tracker->process().waitForStarted());
        if (cycle % 2 == 1) {
            // On a write: once tracking, at the first write to the log.
            QVERIFY2(m_tracker->waitUntilTracking(), m_tracker->said().constData());
            drain();
            QVERIFY2(waitForLogWrite(60000),
                     qPrintable(QStringLiteral("cycle %1: the tracker wrote nothing for 60 s: %2")
                                    .arg(cycle)
                                    .arg(QString::fromLocal8Bit(m_tracker->said()))));
        } else {
            // At a random moment of its first half second, start-up included.
            QThread::usleep(random.bounded(500000));
        }
        ::kill(pid_t(m_tracker->pid()), SIGKILL);
        QVERIFY(m_tracker->process().waitForFinished(10000));
        QCOMPARE(m_tracker->process().exitStatus(), QProcess::CrashExit);
        const qint64 ms = lived.elapsed();
        drain();

        const Snapshot after = check();
        if (QTest::currentTestFailed())
            return;
        // Nothing lost: every session stored before is still there.
        QVERIFY2(after.ids.contains(before.ids),
                 qPrintable(QStringLiteral("cycle %1 lost sessions").arg(cycle)));
        // Nothing invented: no more than the minutes the tracker can have counted.
        const qint64 minutes = ms / tickMs / 6 + 1;
        QVERIFY2(after.total - before.total <= minutes * maxWeightedPerMinute,
                 qPrintable(QStringLiteral("cycle %1: %2 more tokens in %3 ms")
                                .arg(cycle)
                                .arg(after.total - before.total)
                                .arg(ms)));
        before = after;
    }
    ::close(inotify);
}

QTEST_GUILESS_MAIN(CrashSafetyTest)
#include "tst_crashsafety.moc"

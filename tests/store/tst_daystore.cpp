#include "FakeClock.h"
#include "Sessions.h"

#include "model/SessionCodec.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

// A settings store whose reads can be made to fail, as a locked or damaged database would.
class FlakyDefaults final : public Defaults {
public:
    explicit FlakyDefaults(Defaults& inner)
        : m_inner(inner) {}
    QVariant value(const QString& key, bool* ok) const override {
        if (failReads) {
            if (ok)
                *ok = false;
            return {};
        }
        return m_inner.value(key, ok);
    }
    bool setValue(const QString& key, const QVariant& v) override {
        return m_inner.setValue(key, v);
    }
    bool remove(const QString& key) override { return m_inner.remove(key); }
    QStringList keys() const override { return m_inner.keys(); }
    bool failReads = false;

private:
    Defaults& m_inner;
};

} // namespace

class DayStoreTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void ledgerTotalsAndRecovery();
    void loadKeepsWhatBeganToday();
    void corruptDayIsSetAsideAndReplaced();
    void unreadableDayIsMergedNotOverwritten();
    void resetToday();

private:
    QTemporaryDir m_dir;
    std::unique_ptr<SqliteDefaults> m_db;
};

void DayStoreTest::init() {
    m_db = SqliteDefaults::open(m_dir.filePath(QUuid::createUuid().toString() + ".sqlite3"));
    QVERIFY(m_db);
}

void DayStoreTest::ledgerTotalsAndRecovery() {
    FakeClock clock(local(2026, 5, 30, 10));
    DayStore store(*m_db, clock);
    QSignalSpy threshold(&store, &DayStore::thresholdCheckRequested);
    QSignalSpy changes(&store, &DayStore::todayChanged);

    store.addSession(makeSession(TokenType::reasoning, 10, clock.now()));
    store.addSession(makeSession(TokenType::ai, 4, clock.now()));
    QCOMPARE(store.totalWeighted(), qint64(0)); // posted, not done in the call
    settle();
    QCOMPARE(store.grossTokens(), qint64(40));
    QCOMPARE(store.tokensByType(),
             (QMap<TokenType, qint64>{{TokenType::reasoning, 30}, {TokenType::ai, 10}}));
    QCOMPARE(threshold.count(), 2);
    QCOMPARE(threshold.last().at(0).toLongLong(), qint64(40));
    QCOMPARE(changes.count(), 2); // one for each recorded session

    // The day is stored whole under today's key, in the session JSON form.
    const auto stored = SessionCodec::decodeDay(*m_db->data("mindmeter.sessions.2026-05-30"));
    QVERIFY(stored);
    QCOMPARE(*stored, store.sessions());

    store.recoverTokens(100);
    settle();
    QCOMPARE(store.recoveredTokens(), qint64(40)); // capped by the gross
    QCOMPARE(store.totalWeighted(), qint64(0));
    QCOMPARE(threshold.count(), 2); // recovery does not check the threshold

    store.addSession(makeSession(TokenType::input, 5, clock.now())); // counts in full
    store.recoverTokens(-10); // a negative amount reduces recovery
    settle();
    QCOMPARE(store.recoveredTokens(), qint64(30));
    QCOMPARE(store.totalWeighted(), qint64(15));
    QCOMPARE(m_db->integer("mindmeter.recovery.2026-05-30"), qint64(30));
}

void DayStoreTest::loadKeepsWhatBeganToday() {
    FakeClock clock(local(2026, 5, 30, 0, 5));
    const ActivitySession yesterdays =
        makeSession(TokenType::reasoning, 100, local(2026, 5, 29, 22));
    m_db->setData("mindmeter.sessions.2026-05-29", SessionCodec::encodeDay({yesterdays}));
    const QList<ActivitySession> day = {
        // Older versions copied the day before into the new day just after midnight.
        yesterdays,
        // A stay that began before midnight and was recorded after it.
        makeSession(TokenType::input, 7, local(2026, 5, 29, 23, 50)),
        makeSession(TokenType::output, 10, local(2026, 5, 30, 0, 0)),
        makeSession(TokenType::output, 5, local(2026, 5, 30, 0, 2)),
    };
    m_db->setData("mindmeter.sessions.2026-05-30", SessionCodec::encodeDay(day));
    DayStore store(*m_db, clock);
    QCOMPARE(store.sessions(), day.mid(2));
    QCOMPARE(store.grossTokens(), qint64(30));
    QCOMPARE(store.tokensByType(), (QMap<TokenType, qint64>{{TokenType::output, 30}}));

    // The stay stored nowhere else stays stored with the day, uncounted; the copy goes.
    const ActivitySession next = makeSession(TokenType::input, 1, clock.now());
    store.addSession(next);
    settle();
    QCOMPARE(*SessionCodec::decodeDay(*m_db->data("mindmeter.sessions.2026-05-30")), day.mid(1)
                                                                                         << next);
    QCOMPARE(store.grossTokens(), qint64(31));
}

void DayStoreTest::corruptDayIsSetAsideAndReplaced() {
    FakeClock clock(local(2026, 5, 30, 10));
    const QByteArray corrupt = R"([{"id":"x","tokenType":"Reasoning"}])";
    m_db->setData("mindmeter.sessions.2026-05-30", corrupt);
    m_db->setInteger("mindmeter.recovery.2026-05-30", 7);
    QSignalSpy writes(m_db.get(), &Defaults::valueChanged);
    DayStore store(*m_db, clock);
    QVERIFY(store.sessions().isEmpty() && store.recoveredTokens() == 0);
    QCOMPARE(store.storedDay(), DayStore::StoredDay::Undecodable);
    QCOMPARE(writes.count(), 0); // reading never writes

    // The first write keeps the bytes aside, then replaces them.
    store.addSession(makeSession(TokenType::input, 3, clock.now()));
    settle();
    QCOMPARE(m_db->data("mindmeter.quarantine.sessions.2026-05-30"), corrupt);
    QCOMPARE(*SessionCodec::decodeDay(*m_db->data("mindmeter.sessions.2026-05-30")),
             store.sessions());
    QCOMPARE(store.storedDay(), DayStore::StoredDay::Readable);
}

void DayStoreTest::unreadableDayIsMergedNotOverwritten() {
    FakeClock clock(local(2026, 5, 30, 10));
    const ActivitySession earlier = makeSession(TokenType::reasoning, 10, local(2026, 5, 30, 9));
    m_db->setData("mindmeter.sessions.2026-05-30", SessionCodec::encodeDay({earlier}));

    FlakyDefaults flaky(*m_db);
    flaky.failReads = true;
    DayStore store(flaky, clock);
    QVERIFY(store.sessions().isEmpty());
    QCOMPARE(store.storedDay(), DayStore::StoredDay::Unreadable);

    // Still unreadable: the new session stays in memory and the stored day is untouched.
    store.addSession(makeSession(TokenType::input, 1, clock.now()));
    settle();
    QCOMPARE(SessionCodec::decodeDay(*m_db->data("mindmeter.sessions.2026-05-30"))->size(), 1);

    // Readable again: the stored day is taken in as the next session is recorded, and the
    // views, the threshold and the history hear of it once.
    flaky.failReads = false;
    store.waitForHistory();
    QSignalSpy changes(&store, &DayStore::todayChanged);
    QSignalSpy threshold(&store, &DayStore::thresholdCheckRequested);
    QSignalSpy history(&store, &DayStore::historyPublished);
    store.addSession(makeSession(TokenType::input, 2, clock.now()));
    settle();
    store.waitForHistory();
    QCOMPARE(changes.count(), 1);
    QCOMPARE(threshold.count(), 1);
    QCOMPARE(threshold.first().at(0).toLongLong(), qint64(33));
    QCOMPARE(history.count(), 1);
    QCOMPARE(store.sessions().size(), 3);
    QCOMPARE(store.sessions().first(), earlier);
    QCOMPARE(*SessionCodec::decodeDay(*m_db->data("mindmeter.sessions.2026-05-30")),
             store.sessions());
}

void DayStoreTest::resetToday() {
    FakeClock clock(local(2026, 5, 30, 10));
    DayStore store(*m_db, clock);
    store.addSession(makeSession(TokenType::reasoning, 10, clock.now()));
    store.recoverTokens(5);
    settle();
    const QDateTime resetDate = store.lastResetDate();
    store.resetToday();
    settle();
    QVERIFY(store.totalWeighted() == 0 && store.tokensByType().isEmpty());
    QCOMPARE(m_db->data("mindmeter.sessions.2026-05-30"), std::optional<QByteArray>("[]"));
    QVERIFY(!m_db->value("mindmeter.recovery.2026-05-30").isValid());
    QCOMPARE(store.lastResetDate(), resetDate);
    QVERIFY(store.midnightTimerRemaining() > 0); // the day still turns at midnight
}

QTEST_GUILESS_MAIN(DayStoreTest)
#include "tst_daystore.moc"

#include "FakeClock.h"
#include "FakeDesktop.h"
#include "Sessions.h"

#include "sensing/SessionContextEngine.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QSignalSpy>
#include <QTest>

using Mode = SessionContextEngine::Mode;

class SessionContextEngineTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void classification_data();
    void classification();
    void switchesWithinTheHour();
    void noFrontAppIsNotASwitch();
    void runningListIsCachedForThirtySeconds();
    void temperatureHandOff();

private:
    void tick() {
        QVERIFY(QMetaObject::invokeMethod(m_engine.get(), "tick"));
        settle();
    }

    std::unique_ptr<SqliteDefaults> m_db;
    std::unique_ptr<FakeClock> m_clock;
    std::unique_ptr<DayStore> m_store;
    FakeWorkspace m_workspace;
    FakeIdleSource m_idle;
    std::unique_ptr<SessionContextEngine> m_engine;
};

void SessionContextEngineTest::init() {
    m_db = SqliteDefaults::open(":memory:");
    m_clock = std::make_unique<FakeClock>(local(2026, 5, 30, 9));
    m_store = std::make_unique<DayStore>(*m_db, *m_clock);
    m_workspace.front.reset();
    m_workspace.running.clear();
    m_idle.seconds = 0;
    m_engine =
        std::make_unique<SessionContextEngine>(m_workspace, m_idle, *m_store, *m_db, *m_clock);
}

void SessionContextEngineTest::cleanup() {
    m_engine.reset();
    m_store.reset(); // before the database it reads
}

void SessionContextEngineTest::classification_data() {
    QTest::addColumn<QByteArray>("rules");
    QTest::addColumn<QString>("front");
    QTest::addColumn<QStringList>("running");
    QTest::addColumn<int>("switches");
    QTest::addColumn<Mode>("mode");
    const QStringList none;
    const QByteArray no = "[]";
    QTest::newRow("seven switches change nothing")
        << no << "com.apple.Safari" << none << 7 << Mode::browsing;
    QTest::newRow("eight: switching") << no << "claude" << none << 8 << Mode::switching;
    QTest::newRow("fifteen: fragmented") << no << "claude" << none << 15 << Mode::distracted;
    QTest::newRow("teams is a meeting")
        << no << "com.microsoft.teams2" << none << 0 << Mode::meeting;
    QTest::newRow("mail counts as writing")
        << no << "com.apple.mail.Thunderbird" << none << 0 << Mode::writing;
    QTest::newRow("open IDE, spreadsheet in front")
        << no << "com.microsoft.Excel" << QStringList{"com.apple.dt.Xcode"} << 0 << Mode::coding;
    QTest::newRow("chat beats an open IDE")
        << no << "com.discord" << QStringList{"com.microsoft.VSCode"} << 0 << Mode::communication;
    QTest::newRow("unknown, no IDE") << no << "org.example.tool" << none << 0 << Mode::idle;
    QTest::newRow("prefix is case-sensitive") << no << "COM.DISCORD" << none << 0 << Mode::idle;
    // The user's rules move applications between the lists.
    QTest::newRow("reassigned to AI")
        << QByteArray(R"([{"app": "org.example", "category": "AI Tool"}])") << "org.example.chat"
        << none << 0 << Mode::aiSession;
    QTest::newRow("teams only as chat")
        << QByteArray(R"([{"app": "com.microsoft.teams", "category": "Messaging"}])")
        << "com.microsoft.teams2" << none << 0 << Mode::communication;
    QTest::newRow("an editor of one's own is an IDE")
        << QByteArray(R"([{"app": "org.kde.kate", "category": "Code Editor"}])")
        << "org.example.tool" << QStringList{"org.kde.kate"} << 0 << Mode::coding;
    QTest::newRow("an IDE reassigned away no longer is one")
        << QByteArray(R"([{"app": "com.microsoft.VSCode", "category": "Reading"}])")
        << "com.microsoft.Excel" << QStringList{"com.microsoft.VSCode"} << 0 << Mode::idle;
    QTest::newRow("a type and a rate leave the lists as they are")
        << QByteArray(R"([{"app": "com.discord", "type": "reasoning", "rate": 20}])")
        << "com.discord" << none << 0 << Mode::communication;
}

void SessionContextEngineTest::classification() {
    QFETCH(QByteArray, rules);
    QFETCH(QString, front);
    QFETCH(QStringList, running);
    QFETCH(int, switches);
    QFETCH(Mode, mode);
    QCOMPARE(SessionContextEngine::classify(front, running, switches,
                                            CategoryRules(*CategoryRules::decode(rules))),
             mode);
}

void SessionContextEngineTest::switchesWithinTheHour() {
    QSignalSpy modeChanged(m_engine.get(), &SessionContextEngine::modeChanged);
    m_workspace.front = app("com.apple.Safari");
    tick();
    QCOMPARE(m_engine->mode(), Mode::browsing);
    QCOMPARE(modeChanged.count(), 1);
    tick();
    QCOMPARE(modeChanged.count(), 2); // written on every tick, changed or not

    // Eight changes, one per tick, ten seconds apart.
    const QDateTime firstSwitch = m_clock->now().addSecs(10);
    for (int i = 0; i < 8; ++i) {
        m_clock->advanceSeconds(10);
        m_workspace.front = app(i % 2 ? "com.apple.Safari" : "org.example.a");
        tick();
    }
    QCOMPARE(m_engine->switchesLastHour(), qint64(8));
    QCOMPARE(m_engine->mode(), Mode::switching);
    QCOMPARE(m_engine->multiplier(), 0.8); // what the monitor reads

    // An entry exactly an hour old is kept; a second later it is gone.
    m_clock->set(firstSwitch.addSecs(3600));
    tick();
    QCOMPARE(m_engine->switchesLastHour(), qint64(8));
    m_clock->advanceSeconds(1);
    tick();
    QCOMPARE(m_engine->switchesLastHour(), qint64(7));
    QCOMPARE(m_engine->mode(), Mode::browsing);
}

void SessionContextEngineTest::noFrontAppIsNotASwitch() {
    tick(); // nothing in front
    m_workspace.front = app("com.apple.Safari");
    tick(); // from nothing: not logged
    QCOMPARE(m_engine->switchesLastHour(), qint64(0));
    m_workspace.front.reset();
    tick(); // logged under Safari, the application left
    m_workspace.front = app("com.apple.Safari");
    tick(); // from nothing again: not logged
    QCOMPARE(m_engine->switchesLastHour(), qint64(1));
}

void SessionContextEngineTest::runningListIsCachedForThirtySeconds() {
    m_workspace.front = app("com.microsoft.Excel");
    tick();
    QCOMPARE(m_engine->mode(), Mode::idle);
    RunningApp background = app("com.apple.dt.Xcode");
    m_workspace.running = {background};
    m_clock->advanceSeconds(29);
    tick();
    QCOMPARE(m_engine->mode(), Mode::idle); // opened under 30 s ago: not yet seen
    m_clock->advanceSeconds(1);
    tick();
    QCOMPARE(m_engine->mode(), Mode::coding);

    // Only regular applications count.
    m_workspace.running[0].isRegular = false;
    m_clock->advanceSeconds(30);
    tick();
    QCOMPARE(m_engine->mode(), Mode::idle);
}

void SessionContextEngineTest::temperatureHandOff() {
    QSignalSpy checks(m_engine.get(), &SessionContextEngine::temperatureCheckRequested);
    m_store->addSessions({makeSession(TokenType::reasoning, 10, m_clock->now()),
                          makeSession(TokenType::output, 15, m_clock->now())});
    settle();
    tick();
    QCOMPARE(checks.last().at(0).toDouble(), 0.5);
    m_idle.seconds = 181; // idle by the time-out: never a high-temperature alert
    tick();
    QCOMPARE(checks.last().at(0).toDouble(), 0.0);
}

QTEST_GUILESS_MAIN(SessionContextEngineTest)
#include "tst_sessioncontextengine.moc"

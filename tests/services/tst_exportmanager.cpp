#include "FakeClock.h"
#include "Sessions.h"
#include "TimeZoneScope.h"

#include "model/SessionCodec.h"
#include "services/ExportManager.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QTemporaryDir>
#include <QTest>

namespace {

class FakeChooser final : public FileChooser {
public:
    std::optional<QString> chooseSaveLocation(const SaveRequest& request) override {
        requests.append(request);
        return answer;
    }
    std::optional<QString> answer;
    QList<SaveRequest> requests;
};

class FakeClipboard final : public Clipboard {
public:
    void setText(const QString& t) override { texts.append(t); }
    QStringList texts;
};

ActivitySession named(TokenType type, qint64 raw, const QDateTime& start, const QString& app) {
    ActivitySession s = makeSession(type, raw, start);
    s.appName = app;
    return s;
}

} // namespace

class ExportManagerTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void exportThroughTheChooser();
    void summaryWithoutSessions();

private:
    void storeDay(const QDate& day, const QList<ActivitySession>& sessions);
    // A store for 2026-11-15 16:00 with today's sessions recorded and its history published.
    std::unique_ptr<DayStore> openStore(const QList<ActivitySession>& today = {});

    TimeZoneScope m_zone{"UTC"};
    std::unique_ptr<SqliteDefaults> m_db;
    FakeClock m_clock{QDateTime()};
    FakeChooser m_chooser;
    FakeClipboard m_clipboard;
};

void ExportManagerTest::init() {
    m_db = SqliteDefaults::open(QStringLiteral(":memory:"));
    QVERIFY(m_db);
    m_clock.set(local(2026, 11, 15, 16));
    m_chooser = FakeChooser();
    m_clipboard = FakeClipboard();
}

void ExportManagerTest::storeDay(const QDate& day, const QList<ActivitySession>& sessions) {
    QVERIFY(m_db->setData("mindmeter.sessions." + day.toString(Qt::ISODate),
                          SessionCodec::encodeDay(sessions)));
}

std::unique_ptr<DayStore> ExportManagerTest::openStore(const QList<ActivitySession>& today) {
    auto store = std::make_unique<DayStore>(*m_db, m_clock, DayStore::Options{0});
    store->addSessions(today);
    settle();
    store->waitForHistory();
    return store;
}

void ExportManagerTest::exportThroughTheChooser() {
    // (How the file is written, whole or not at all, and the figures of each day: the command
    // line's export test and tst_month.)
    QTemporaryDir dir;
    std::unique_ptr<DayStore> store =
        openStore({named(TokenType::input, 3, local(2026, 11, 15, 0, 30), "Line\nBreak")});
    ExportManager manager(*store, *m_db, m_clock, m_chooser, m_clipboard);
    manager.exportCSV(); // cancelled: nothing is written
    QCOMPARE(m_chooser.requests.size(), 1);
    QCOMPARE(QStringList({m_chooser.requests[0].title, m_chooser.requests[0].suggestedName,
                          m_chooser.requests[0].suffix}),
             QStringList({"Export Token History", "mindmeter-2026-11-15.csv", "csv"}));
    QVERIFY(QDir(dir.path()).isEmpty());

    m_chooser.answer = dir.filePath("export.csv");
    manager.exportCSV();
    QFile written(*m_chooser.answer);
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll(), manager.formatter().csv().toUtf8());
    QVERIFY(
        manager.formatter().csv().endsWith("\n2026-11-15,3,0,0,0,3,3,1,12 AM,\"Line\nBreak\",0.0"));

    manager.copyMarkdownSummary();
    QCOMPARE(m_clipboard.texts, QStringList{manager.formatter().markdownSummary()});
}

void ExportManagerTest::summaryWithoutSessions() {
    // Today (no tokens) and six days of 100 make this week; the eighth row is last week.
    for (int back = 1; back <= 7; ++back)
        storeDay(QDate(2026, 11, 15).addDays(-back),
                 {named(TokenType::input, back == 7 ? 800 : 100,
                        local(2026, 11, 15, 9).addDays(-back), "A")});
    std::unique_ptr<DayStore> store = openStore();
    // An empty table, and the week-over-week line in place of the peak hour's.
    QCOMPARE(ExportFormatter(*store, *m_db, m_clock)
                 .markdownSummary(QLocale("en_US"))
                 .section("**Sessions:** ", 1),
             "0\n\n| Type | Tokens | Share |\n|------|--------|-------|\n\n**Week-over-week:** "
             "\u2193-25%  (600 this week vs 800 last week)");
}

QTEST_GUILESS_MAIN(ExportManagerTest)
#include "tst_exportmanager.moc"

#include "FakeClock.h"
#include "Sessions.h"
#include "TimeZoneScope.h"

#include "model/AppPreferences.h"
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
    void initTestCase();
    void init();
    void csvAndSummaryOfADay();
    void exportThroughTheChooser();
    void summaryWithoutSessions_data();
    void summaryWithoutSessions();

private:
    void storeDay(const QDate& day, const QList<ActivitySession>& sessions);
    // A store for 2026-11-15 16:00 with today's sessions recorded and its history published.
    std::unique_ptr<DayStore> openStore(const QList<ActivitySession>& today = {});

    std::unique_ptr<TimeZoneScope> m_zone;
    std::unique_ptr<SqliteDefaults> m_db;
    FakeClock m_clock{QDateTime()};
    FakeChooser m_chooser;
    FakeClipboard m_clipboard;
};

void ExportManagerTest::initTestCase() {
    m_zone = std::make_unique<TimeZoneScope>("UTC");
}

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

void ExportManagerTest::csvAndSummaryOfADay() {
    storeDay(QDate(2026, 11, 14), {named(TokenType::reasoning, 1800, local(2026, 11, 14, 9), "A")});
    storeDay(QDate(2026, 11, 13), {named(TokenType::input, 30000, local(2026, 11, 13, 8), "Mail")});
    storeDay(QDate(2026, 11, 12),
             {named(TokenType::input, 10, local(2026, 11, 12, 0, 30), "Line\nBreak")});
    const QString term = QStringLiteral("Term, \"x\"");
    std::unique_ptr<DayStore> store = openStore({
        named(TokenType::ai, 400, local(2026, 11, 15, 10, 5), "ChatGPT"),    // 1000
        named(TokenType::reasoning, 100, local(2026, 11, 15, 9, 10), term),  // 300
        named(TokenType::reasoning, 400, local(2026, 11, 15, 14), term),     // 1200
        named(TokenType::output, 50, local(2026, 11, 15, 14, 30), "Writer"), // 100
        named(TokenType::input, 7, local(2026, 11, 15, 15), "Mail"),         // 7
    });
    store->recoverTokens(7); // the total column is the history's net total
    settle();
    store->waitForHistory();
    // The history counted 11-14; its sessions are gone by the time of the export.
    m_db->remove("mindmeter.sessions.2026-11-14");

    const ExportFormatter formatter(*store, *m_db, m_clock);
    QCOMPARE(
        formatter.csv(),
        QStringLiteral("Date,Weighted Total,AI Collab,Reasoning,Output,Input,Raw Total,Sessions,"
                       "Peak Hour,Top App,Saturation %\n"
                       "2026-11-15,2600,1000,1500,100,7,957,5,2 PM,\"Term, \"\"x\"\"\",10.4\n"
                       "2026-11-14,5400,0,0,0,0,0,0,,,21.6\n"
                       "2026-11-13,30000,0,0,0,30000,30000,1,8 AM,Mail,100.0\n"
                       "2026-11-12,10,0,0,0,10,10,1,12 AM,\"Line\nBreak\",0.0"));

    // The summary's shares are of the net total 2600; the temperature of the gross mix is 59.6%.
    QCOMPARE(formatter.markdownSummary(QLocale("en_US")),
             QStringLiteral("## Mindmeter \u2014 Nov 15, 2026\n"
                            "\n"
                            "**Total:** 2.6k  \u00b7  **Saturation:** 10%  \u00b7  "
                            "**Temperature:** 60%  \u00b7  **Sessions:** 5\n"
                            "\n"
                            "| Type | Tokens | Share |\n"
                            "|------|--------|-------|\n"
                            "| AI Collab | 1.0k | 38% |\n"
                            "| Reasoning | 1.5k | 57% |\n"
                            "| Output | 100 | 3% |\n"
                            "| Input | 7 | 0% |\n"
                            "\n"
                            "**Peak hour:** 2 PM  \u00b7  **Top app:** Term, \"x\"  \u00b7  "
                            "**Last hour:** 7"));

    // Saturation follows the baseline setting.
    m_db->setInteger(AppPreferences::dailyTokenBaseline, 20);
    QVERIFY(formatter.csv().endsWith("12 AM,\"Line\nBreak\",50.0"));
}

void ExportManagerTest::exportThroughTheChooser() {
    QTemporaryDir dir;
    std::unique_ptr<DayStore> store =
        openStore({named(TokenType::input, 3, local(2026, 11, 15, 9), "App")});
    ExportManager manager(*store, *m_db, m_clock, m_chooser, m_clipboard);
    const QString expected = "Date,Weighted Total,AI Collab,Reasoning,Output,Input,Raw Total,"
                             "Sessions,Peak Hour,Top App,Saturation %\n"
                             "2026-11-15,3,0,0,0,3,3,1,9 AM,App,0.0";

    // Cancelled: nothing is written.
    manager.exportCSV();
    QCOMPARE(m_chooser.requests.size(), 1);
    QCOMPARE(m_chooser.requests[0].title, QStringLiteral("Export Token History"));
    QCOMPARE(m_chooser.requests[0].suggestedName, QStringLiteral("mindmeter-2026-11-15.csv"));
    QCOMPARE(m_chooser.requests[0].suffix, QStringLiteral("csv"));
    QVERIFY(QDir(dir.path()).isEmpty());

    // Confirmed: the file is replaced whole, as UTF-8, with no line feed at the end.
    const QString path = dir.filePath("export.csv");
    QFile old(path);
    QVERIFY(old.open(QIODevice::WriteOnly));
    old.write(QByteArray(100000, 'x'));
    old.close();
    m_chooser.answer = path;
    manager.exportCSV();
    QFile written(path);
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll(), expected.toUtf8());
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"export.csv"});

    // A folder that does not exist: silently nothing.
    m_chooser.answer = dir.filePath("missing/export.csv");
    manager.exportCSV();
    QVERIFY(!QFile::exists(*m_chooser.answer));
    QString error;
    QVERIFY(!ExportManager::writeAtomically(*m_chooser.answer, "x", &error));
    QVERIFY(!error.isEmpty());

    manager.copyMarkdownSummary();
    QCOMPARE(m_clipboard.texts.size(), 1);
    QCOMPARE(m_clipboard.texts[0], manager.formatter().markdownSummary());
}

void ExportManagerTest::summaryWithoutSessions_data() {
    QTest::addColumn<qint64>("lastWeek");
    QTest::addColumn<QString>("line");
    QTest::newRow("no change") << qint64(600)
                               << "**Week-over-week:** \u2191+0%  (600 this week vs 600 last week)";
    QTest::newRow("down a quarter")
        << qint64(800) << "**Week-over-week:** \u2193-25%  (600 this week vs 800 last week)";
    QTest::newRow("up") << qint64(400)
                        << "**Week-over-week:** \u2191+50%  (600 this week vs 400 last week)";
}

void ExportManagerTest::summaryWithoutSessions() {
    QFETCH(qint64, lastWeek);
    QFETCH(QString, line);
    // Today (no tokens) and six days of 100 make this week; the eighth row is last week.
    for (int back = 1; back <= 6; ++back)
        storeDay(QDate(2026, 11, 15).addDays(-back),
                 {named(TokenType::input, 100, local(2026, 11, 15, 9).addDays(-back), "A")});
    storeDay(QDate(2026, 11, 8), {named(TokenType::input, lastWeek, local(2026, 11, 8, 9), "A")});
    std::unique_ptr<DayStore> store = openStore();
    QCOMPARE(ExportFormatter(*store, *m_db, m_clock).markdownSummary(QLocale("en_US")),
             "## Mindmeter \u2014 Nov 15, 2026\n"
             "\n"
             "**Total:** 0  \u00b7  **Saturation:** 0%  \u00b7  **Temperature:** 0%  \u00b7  "
             "**Sessions:** 0\n"
             "\n"
             "| Type | Tokens | Share |\n"
             "|------|--------|-------|\n"
             "\n" +
                 line);
}

QTEST_GUILESS_MAIN(ExportManagerTest)
#include "tst_exportmanager.moc"

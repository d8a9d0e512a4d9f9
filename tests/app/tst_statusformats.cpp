#include "RunProcess.h"

#include "model/SessionCodec.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

// `mindmeter status --format ...` through the real executable over a day seeded with
// `defaults write`, as a status bar runs it.
class StatusFormatsTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void labelClassAndPercentage_data();
    void labelClassAndPercentage();
    void menuBarStyleShapesTheLabel();
    void tooltipAndOtherFormats();

private:
    ProcessResult run(const QStringList& args, const QByteArray& input = {});
    void setBaseline(qint64 tokens);
    // One session of this type and raw count that ended endedSecondsAgo seconds ago.
    void seedSession(const QString& type, qint64 raw, qint64 endedSecondsAgo);
    QJsonObject waybar();

    std::unique_ptr<QTemporaryDir> m_dir;
    // A zone in which it is now early afternoon, so "a few minutes ago" is always today.
    QString m_zone;
    QDateTime m_now;
    QList<ActivitySession> m_sessions;
};

void StatusFormatsTest::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_sessions.clear();
    const QDateTime utc = QDateTime::currentDateTimeUtc();
    const int offsetHours = 13 - utc.time().hour(); // local time 13:xx
    // POSIX zones count west as positive: "XXX-2" is two hours east of UTC.
    m_zone = QStringLiteral("XXX%1%2").arg(offsetHours > 0 ? "-" : "+").arg(qAbs(offsetHours));
    m_now = utc.addSecs(offsetHours * 3600);
}

ProcessResult StatusFormatsTest::run(const QStringList& args, const QByteArray& input) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_DATA_HOME", m_dir->path());
    env.insert("TZ", m_zone);
    env.insert("LC_ALL", "C.UTF-8");
    return runProcess(MINDMETER_EXECUTABLE, args, env, input);
}

void StatusFormatsTest::setBaseline(qint64 tokens) {
    QCOMPARE(
        run({"defaults", "write", "mindmeter.dailyTokenBaseline", "-int", QString::number(tokens)})
            .exitCode,
        0);
}

void StatusFormatsTest::seedSession(const QString& type, qint64 raw, qint64 endedSecondsAgo) {
    const QDateTime end = QDateTime::currentDateTimeUtc().addSecs(-endedSecondsAgo);
    m_sessions.append({QUuid::createUuid(), "com.apple.Terminal", "Terminal",
                       *TokenTypes::fromRawValue(type), Timestamp::fromDateTime(end.addSecs(-60)),
                       Timestamp::fromDateTime(end), raw});
    const QString key = "mindmeter.sessions." + m_now.date().toString(Qt::ISODate);
    QCOMPARE(run({"defaults", "write", key, "-data-file", "-"}, SessionCodec::encodeDay(m_sessions))
                 .exitCode,
             0);
}

QJsonObject StatusFormatsTest::waybar() {
    const ProcessResult r = run({"status", "--format", "waybar"});
    if (r.exitCode != 0 || r.out.count('\n') != 1 || !r.out.endsWith('\n'))
        return {};
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(r.out, &error);
    return error.error == QJsonParseError::NoError ? doc.object() : QJsonObject();
}

void StatusFormatsTest::labelClassAndPercentage_data() {
    QTest::addColumn<qint64>("baseline");
    QTest::addColumn<QString>("type");
    QTest::addColumn<qint64>("raw");
    QTest::addColumn<qint64>("endedSecondsAgo");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("colourClass");
    QTest::addColumn<int>("percentage");

    const auto row = [](const char* tag, qint64 baseline, const char* type, qint64 raw, qint64 ago,
                        const QString& label, const char* colour, int percentage) {
        QTest::newRow(tag) << baseline << type << raw << ago << label << colour << percentage;
    };
    // Input tokens weigh 1, so raw counts over a budget of 1000 give exact saturations.
    row("empty day", 0, "", 0, 0, " 0 \u25cc", "normal", 0);
    row("0.799 is normal, idle", 1000, "input", 799, 600, " 799 \u25cc", "normal", 80);
    row("exactly 0.8 is orange, reading", 1000, "input", 800, 20, " 800 \u00b6", "orange", 80);
    row("0.899 is orange", 1000, "input", 899, 20, " 899 \u00b6", "orange", 90);
    row("exactly 0.9 is red", 1000, "input", 900, 20, " 900 \u00b6", "red", 90);
    // 4100 reasoning tokens weigh 12,300.
    row("thousands, reasoning", 25000, "reasoning", 4100, 20, " 12.3k \u26a1\ufe0e", "normal", 49);
    row("below 1000 stays whole, writing", 25000, "output", 499, 20, " 998 \u2328", "normal", 4);
    row("1000 is 1.0k, with AI", 25000, "ai", 400, 20, " 1.0k \u2726", "normal", 4);
    row("over the budget is capped", 25000, "reasoning", 10000, 20, " 30.0k \u26a1\ufe0e", "red",
        100);
    row("three minutes ago is no longer in front", 25000, "reasoning", 100, 180, " 300 \u25cc",
        "normal", 1);
}

void StatusFormatsTest::labelClassAndPercentage() {
    QFETCH(qint64, baseline);
    QFETCH(QString, type);
    QFETCH(qint64, raw);
    QFETCH(qint64, endedSecondsAgo);
    QFETCH(QString, label);
    QFETCH(QString, colourClass);
    QFETCH(int, percentage);

    if (baseline > 0)
        setBaseline(baseline);
    if (!type.isEmpty())
        seedSession(type, raw, endedSecondsAgo);

    const ProcessResult plain = run({"status", "--format", "plain"});
    QCOMPARE(plain.exitCode, 0);
    QCOMPARE(QString::fromUtf8(plain.out), label + u'\n');

    const QJsonObject o = waybar();
    QVERIFY(!o.isEmpty());
    QCOMPARE(o.keys(), QStringList({"class", "percentage", "text", "tooltip"}));
    QCOMPARE(o["text"].toString(), label);
    QCOMPARE(o["class"].toString(), colourClass);
    QVERIFY(o["percentage"].isDouble());
    QCOMPARE(o["percentage"].toInt(-1), percentage);
}

void StatusFormatsTest::menuBarStyleShapesTheLabel() {
    setBaseline(1000);
    seedSession("reasoning", 300, 20); // 900 of 1000: red

    QCOMPARE(run({"defaults", "write", "mindmeter.menuBarStyle", "-string", "iconOnly"}).exitCode,
             0);
    QCOMPARE(run({"status", "--format", "plain"}).out, QByteArray("\n"));
    QJsonObject o = waybar();
    QCOMPARE(o["text"].toString(), QString());
    QCOMPARE(o["class"].toString(), QString("red")); // the colour does not depend on the style

    QCOMPARE(run({"defaults", "write", "mindmeter.menuBarStyle", "-string", "countOnly"}).exitCode,
             0);
    QCOMPARE(QString::fromUtf8(run({"status", "--format", "plain"}).out),
             QString(" 900 \u26a1\ufe0e\n"));
    o = waybar();
    QCOMPARE(o["class"].toString(), QString("red"));
}

void StatusFormatsTest::tooltipAndOtherFormats() {
    // 2001 reasoning and 1000 input weighted, both in the last hour: saturation 0.12 of
    // 25,000; two kinds of four, one twice the other, give a temperature of 46%.
    seedSession("input", 1000, 300);
    seedSession("reasoning", 2000 / 3 + 1, 30); // 667 × 3 = 2001
    const QJsonObject o = waybar();
    const QStringList lines = o["tooltip"].toString().split(u'\n');
    QCOMPARE(lines, QStringList({"Mindmeter: 3.0k of 25.0k tokens today", "Saturation 12%",
                                 "Temperature 46%", "Last hour 3.0k"}));
    QCOMPARE(o["percentage"].toInt(), 12);

    const ProcessResult json = run({"status", "--format", "json"});
    QCOMPARE(json.exitCode, 0);
    const QJsonObject full = QJsonDocument::fromJson(json.out).object();
    QCOMPARE(full["totalWeighted"].toInteger(), 3001);
    QCOMPARE(full["velocityLastHour"].toInteger(), 3001);
    QCOMPARE(QJsonDocument::fromJson(run({"status", "--json"}).out).object()["totalWeighted"],
             full["totalWeighted"]);

    const ProcessResult text = run({"status", "--format", "text"});
    QCOMPARE(text.exitCode, 0);
    QVERIFY2(text.out.startsWith("Today " + m_now.date().toString(Qt::ISODate).toUtf8() +
                                 ": 3.0k of 25.0k tokens (12%)\n"),
             text.out.constData());
    QCOMPARE(run({"status"}).out, text.out);
}

QTEST_GUILESS_MAIN(StatusFormatsTest)
#include "tst_statusformats.moc"

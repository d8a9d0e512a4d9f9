#include <QImage>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

// `mindmeter --snapshot DIR` as a user runs it: no display, every picture written.
class SnapshotTest : public QObject {
    Q_OBJECT
private slots:
    void writesEveryPicture();
    void reportsAnUnwritableFolder();
};

namespace {

int run(const QStringList& args, QByteArray* err = nullptr) {
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("DISPLAY");
    env.remove("QT_QPA_PLATFORM");
    p.setProcessEnvironment(env);
    p.start(MINDMETER_EXECUTABLE, args);
    p.waitForFinished(120000);
    if (err)
        *err = p.readAllStandardError();
    return p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

// A picture with something drawn in it: many distinct colours, not one flat fill.
int distinctColours(const QImage& image) {
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 2)
        for (int x = 0; x < image.width(); x += 2)
            colours.insert(image.pixel(x, y));
    return int(colours.size());
}

} // namespace

void SnapshotTest::writesEveryPicture() {
    QTemporaryDir dir;
    QByteArray err;
    QCOMPARE(run({"--snapshot", dir.filePath("shots")}, &err), 0);
    const QStringList cards = {"CurrentActivityCard", "TotalTokensCard", "TokenBreakdownCard",
                               "TemperatureCard",     "SaturationCard",  "SessionModeCard",
                               "VelocityChartCard",   "WeeklyChartCard", "DailyHistoryCard",
                               "TrendsCard",          "DailyGoalCard",   "ExportCard",
                               "AppVersionRow"};
    for (const char* theme : {"light", "dark"}) {
        for (const char* whole : {"popover", "onboarding"}) {
            const QImage image(dir.filePath(QStringLiteral("shots/%1-%2.png").arg(whole, theme)));
            QCOMPARE(image.size(), QSize(380, 460));
            QVERIFY2(distinctColours(image) > 40, whole);
        }
        const QImage full(dir.filePath(QStringLiteral("shots/dashboard-%1.png").arg(theme)));
        QCOMPARE(full.width(), 380);
        QVERIFY(full.height() > 1000); // every card, not only the first screen
        for (const QString& card : cards) {
            const QImage image(
                dir.filePath(QStringLiteral("shots/card-%1-%2.png").arg(card, theme)));
            QVERIFY2(!image.isNull(), qPrintable(card));
            QVERIFY2(image.width() > 150 && image.height() > 20, qPrintable(card));
            QVERIFY2(distinctColours(image) > 10, qPrintable(card));
        }
    }
    // Light and dark differ.
    QVERIFY(QImage(dir.filePath("shots/popover-light.png")) !=
            QImage(dir.filePath("shots/popover-dark.png")));
}

void SnapshotTest::reportsAnUnwritableFolder() {
    QTemporaryDir dir;
    QFile blocker(dir.filePath("file"));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    QByteArray err;
    QCOMPARE(run({"--snapshot", dir.filePath("file/shots")}, &err), 1);
    QVERIFY2(err.contains("mindmeter: cannot"), err.constData());
}

QTEST_GUILESS_MAIN(SnapshotTest)
#include "tst_snapshot.moc"

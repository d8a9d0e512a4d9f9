#include "SqliteIntegrity.h"

#include "store/SqliteDefaults.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QUuid>

#include <sqlite3.h>

#include <sys/stat.h>

// The test binary doubles as a writer process: with MINDMETER_TEST_WRITER set it writes to
// the store named there and exits, so the test can run two writers at once. (Writers killed
// mid-write are the crash test's part, with the real tracker.)
namespace {

QByteArray blobFor(int writer, int round, int size) {
    QByteArray b(size, char('a' + writer));
    const QByteArray header = QByteArray::number(round).rightJustified(10, '0');
    b.replace(0, header.size(), header);
    return b;
}

int writerMain() {
    const QStringList fields = qEnvironmentVariable("MINDMETER_TEST_WRITER").split(u'|');
    const QString path = fields[0];
    const int writer = fields[1].toInt();
    const int rounds = fields[2].toInt();
    const int blobSize = fields[3].toInt();
    auto store = SqliteDefaults::open(path);
    if (!store)
        return 3;
    for (int i = 0; i < rounds; ++i) {
        if (!store->setInteger(QStringLiteral("w%1.%2").arg(writer).arg(i), i))
            return 4;
        if (!store->setData(QStringLiteral("shared"), blobFor(writer, i, blobSize)))
            return 5;
    }
    return 0;
}

QProcess* startWriter(const QString& path, int writer, int rounds, int blobSize, QObject* parent) {
    auto* p = new QProcess(parent);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("MINDMETER_TEST_WRITER",
               QStringLiteral("%1|%2|%3|%4").arg(path).arg(writer).arg(rounds).arg(blobSize));
    p->setProcessEnvironment(env);
    p->start(QCoreApplication::applicationFilePath(), {});
    return p;
}

} // namespace

class SqliteDefaultsTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void createsPrivateFilesInWalMode();
    void valuesKeepTheirTypeAcrossReopen();
    void revisionsChangeOnEveryWrite();
    void signalsChanges();
    void keptValuesFollowEveryWrite_data();
    void keptValuesFollowEveryWrite();
    void reportsWhatCannotBeOpened();
    void twoProcessesWriteAtOnce();

private:
    QTemporaryDir m_dir;
    QString m_path;
};

void SqliteDefaultsTest::init() {
    QVERIFY(m_dir.isValid());
    m_path =
        m_dir.filePath(QUuid::createUuid().toString(QUuid::Id128) + "/mindmeter/mindmeter.sqlite3");
}

void SqliteDefaultsTest::createsPrivateFilesInWalMode() {
    const mode_t old = ::umask(0);
    auto store = SqliteDefaults::open(m_path);
    ::umask(old);
    QVERIFY(store);
    QVERIFY(store->setInteger("k", 1));
    struct stat st {};
    QCOMPARE(::stat(QFile::encodeName(m_path).constData(), &st), 0);
    QCOMPARE(st.st_mode & 0777, mode_t(0600));
    QCOMPARE(::stat(QFile::encodeName(QFileInfo(m_path).absolutePath()).constData(), &st), 0);
    QCOMPARE(st.st_mode & 0777, mode_t(0700));
    QVERIFY(QFile::exists(m_path + "-wal")); // WAL mode while open
    QCOMPARE(::stat(QFile::encodeName(m_path + "-wal").constData(), &st), 0);
    QCOMPARE(st.st_mode & 0077, mode_t(0));
}

void SqliteDefaultsTest::valuesKeepTheirTypeAcrossReopen() {
    const QByteArray binary("\0\x01\xff json", 9);
    {
        auto store = SqliteDefaults::open(m_path);
        QVERIFY(store);
        store->setInteger("i", std::numeric_limits<qint64>::min());
        store->setReal("d", 0.1);
        store->setBool("b", true);
        store->setString("s", QStringLiteral("ünï ✓"));
        store->setData("x", binary);
        store->setData("empty", QByteArray());
        QVERIFY(!store->setValue("bad", QVariant::fromValue(QPoint(1, 2)))); // not a stored type
        // SQLite would keep a NaN as NULL and give back 0.0: the write is refused instead.
        QVERIFY(!store->setReal("nan", qQNaN()));
    }
    auto store = SqliteDefaults::open(m_path);
    QVERIFY(store);
    QCOMPARE(store->value("i").typeId(), int(QMetaType::LongLong));
    QCOMPARE(store->value("i").toLongLong(), std::numeric_limits<qint64>::min());
    QCOMPARE(store->value("d").typeId(), int(QMetaType::Double));
    QCOMPARE(store->value("d").toDouble(), 0.1);
    QCOMPARE(store->value("s").toString(), QStringLiteral("ünï ✓"));
    QCOMPARE(store->value("x").toByteArray(), binary);
    QCOMPARE(store->value("empty").typeId(), int(QMetaType::QByteArray));
    QCOMPARE(store->keys(), QStringList({"b", "d", "empty", "i", "s", "x"}));
    bool ok = false;
    QVERIFY(!store->value("missing", &ok).isValid());
    QVERIFY(ok); // absent, not unreadable
    QVERIFY(store->remove("s"));
    QVERIFY(!store->value("s").isValid());
}

void SqliteDefaultsTest::revisionsChangeOnEveryWrite() {
    auto store = SqliteDefaults::open(m_path);
    QCOMPARE(store->revision("k"), quint64(0));
    store->setData("k", "same");
    const quint64 first = store->revision("k");
    QVERIFY(first != 0);
    QCOMPARE(store->revision("k"), first);
    store->setData("k", "same"); // a rewrite counts even with equal bytes
    QVERIFY(store->revision("k") != first);
    store->remove("k");
    QCOMPARE(store->revision("k"), quint64(0));
}

void SqliteDefaultsTest::signalsChanges() {
    auto store = SqliteDefaults::open(m_path);
    QSignalSpy spy(store.get(), &Defaults::valueChanged);
    store->setInteger("a", 1);
    store->remove("a");
    QCOMPARE(spy.count(), 2);
    QCOMPARE(spy.at(0).at(0).toString(), QString("a"));
}

void SqliteDefaultsTest::keptValuesFollowEveryWrite_data() {
    QTest::addColumn<bool>("secondConnection");
    QTest::addColumn<bool>("removal");
    QTest::addColumn<bool>("inEventLoop");
    for (const bool loop : {false, true})
        for (const bool second : {false, true})
            for (const bool removal : {false, true})
                QTest::addRow("%s %s%s", second ? "other's" : "own", removal ? "removal" : "write",
                              loop ? " in event loop" : "")
                    << second << removal << loop;
}

// A value read and kept is read again after a write: at once after this object's own, and
// after another connection's no later than the next turn of the event loop (at once outside).
void SqliteDefaultsTest::keptValuesFollowEveryWrite() {
    QFETCH(bool, secondConnection);
    QFETCH(bool, removal);
    QFETCH(bool, inEventLoop);
    auto store = SqliteDefaults::open(m_path);
    auto second = SqliteDefaults::open(m_path);
    store->setInteger("k", 1);
    SqliteDefaults& writer = secondConnection ? *second : *store;
    quint64 before = 0;
    QVariant seen;
    quint64 seenRevision = 0;
    const auto readThenWrite = [&] {
        QCOMPARE(store->value("k"), QVariant(qint64(1)));
        before = store->revision("k");
        QVERIFY(removal ? writer.remove("k") : writer.setInteger("k", 2));
    };
    const auto readAgain = [&] {
        seen = store->value("k");
        seenRevision = store->revision("k");
    };
    if (!inEventLoop) {
        readThenWrite();
        readAgain();
    } else {
        QEventLoop loop;
        QTimer::singleShot(0, &loop, [&] {
            readThenWrite();
            if (!secondConnection)
                readAgain();
            QTimer::singleShot(0, &loop, [&] {
                if (secondConnection)
                    readAgain();
                loop.quit();
            });
        });
        loop.exec();
    }
    QCOMPARE(seen, removal ? QVariant() : QVariant(qint64(2)));
    QVERIFY(seenRevision != before);
    QCOMPARE(seenRevision == 0, removal);
}

void SqliteDefaultsTest::reportsWhatCannotBeOpened() {
    // (A file that is not a database is refused and left as it was: tst_commandline's
    // damaged-store table, through every verb.) A file in the way of the folder:
    const QString blocked = m_dir.filePath("file-not-folder");
    QFile(blocked).open(QIODevice::WriteOnly);
    QString error;
    QVERIFY(!SqliteDefaults::open(blocked + "/mindmeter/db.sqlite3", &error));
    QVERIFY(!error.isEmpty());
}

void SqliteDefaultsTest::twoProcessesWriteAtOnce() {
    QVERIFY(SqliteDefaults::open(m_path)); // created up front, as the app would have
    const int rounds = 150;
    QProcess* a = startWriter(m_path, 0, rounds, 64 * 1024, this);
    QProcess* b = startWriter(m_path, 1, rounds, 64 * 1024, this);
    QVERIFY(a->waitForFinished(60000));
    QVERIFY(b->waitForFinished(60000));
    QCOMPARE(a->exitCode(), 0);
    QCOMPARE(b->exitCode(), 0);

    auto store = SqliteDefaults::open(m_path);
    for (int w = 0; w < 2; ++w)
        for (int i = 0; i < rounds; ++i)
            QCOMPARE(store->integer(QStringLiteral("w%1.%2").arg(w).arg(i)), qint64(i));
    const QByteArray shared = store->data("shared").value_or(QByteArray());
    QVERIFY(shared == blobFor(0, rounds - 1, 64 * 1024) ||
            shared == blobFor(1, rounds - 1, 64 * 1024));
    QCOMPARE(integrity(m_path), QString("ok"));
}

int main(int argc, char* argv[]) {
    if (qEnvironmentVariableIsSet("MINDMETER_TEST_WRITER"))
        return writerMain();
    QCoreApplication app(argc, argv);
    SqliteDefaultsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_sqlitedefaults.moc"

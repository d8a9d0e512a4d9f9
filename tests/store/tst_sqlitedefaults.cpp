#include "store/SqliteDefaults.h"

#include <QEventLoop>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QUuid>

#include <sys/stat.h>

class SqliteDefaultsTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void createsPrivateFilesInWalMode();
    void valuesKeepTheirTypeAcrossReopen();
    void keptValuesFollowEveryWrite_data();
    void keptValuesFollowEveryWrite();

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
    const auto mode = [](const QString& path) {
        struct stat st {};
        return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_mode & 0777 : 0;
    };
    // The folder, the file and its write-ahead log (WAL mode while open) are the user's only.
    QCOMPARE(QList<mode_t>(
                 {mode(QFileInfo(m_path).absolutePath()), mode(m_path), mode(m_path + "-wal")}),
             QList<mode_t>({0700, 0600, 0600}));
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
    }
    auto store = SqliteDefaults::open(m_path);
    QVERIFY(store);
    QCOMPARE(store->keys(), QStringList({"b", "d", "empty", "i", "s", "x"}));
    QVariantList values;
    QList<int> types;
    for (const QString& key : store->keys()) {
        values << store->value(key);
        types << values.last().typeId();
    }
    QCOMPARE(values, QVariantList({true, 0.1, QByteArray(""), std::numeric_limits<qint64>::min(),
                                   QStringLiteral("ünï ✓"), binary}));
    QCOMPARE(types, QList<int>({QMetaType::Bool, QMetaType::Double, QMetaType::QByteArray,
                                QMetaType::LongLong, QMetaType::QString, QMetaType::QByteArray}));
    bool ok = false;
    QVERIFY(!store->value("missing", &ok).isValid());
    QVERIFY(ok); // absent, not unreadable
    QVERIFY(store->remove("s"));
    QVERIFY(!store->value("s").isValid());
}

void SqliteDefaultsTest::keptValuesFollowEveryWrite_data() {
    QTest::addColumn<bool>("secondConnection");
    QTest::addColumn<bool>("removal");
    for (const bool second : {false, true})
        for (const bool removal : {false, true})
            QTest::addRow("%s %s", second ? "other's" : "own", removal ? "removal" : "write")
                << second << removal;
}

// A value read and kept while the event loop runs, with the file watched, is read again after
// a write: at once after this object's own, and after another connection's once the watcher
// has announced it. The change stamp stays put until then and moves with it.
void SqliteDefaultsTest::keptValuesFollowEveryWrite() {
    QFETCH(bool, secondConnection);
    QFETCH(bool, removal);
    auto store = SqliteDefaults::open(m_path);
    auto second = SqliteDefaults::open(m_path);
    store->setInteger("k", 1);
    store->watchForExternalChanges();
    SqliteDefaults& writer = secondConnection ? *second : *store;
    quint64 before = 0;
    QVariant seen;
    quint64 seenRevision = 0;
    quint64 stampBefore = 0, stampAfter = 0;
    QEventLoop loop;
    const auto readAgain = [&] {
        seen = store->value("k");
        seenRevision = store->revision("k");
        stampAfter = store->changeStamp();
        loop.quit();
    };
    QTimer::singleShot(0, &loop, [&] {
        QCOMPARE(store->value("k"), QVariant(qint64(1)));
        before = store->revision("k");
        stampBefore = store->changeStamp();
        QCOMPARE(store->changeStamp(), stampBefore);
        if (secondConnection)
            QObject::connect(store.get(), &Defaults::valueChanged, &loop, readAgain);
        QVERIFY(removal ? writer.remove("k") : writer.setInteger("k", 2));
        if (!secondConnection)
            readAgain();
    });
    QTimer::singleShot(10000, &loop, &QEventLoop::quit); // no announcement fails, not hangs
    loop.exec();
    QCOMPARE(seen, removal ? QVariant() : QVariant(qint64(2)));
    QVERIFY(seenRevision != before);
    QCOMPARE(seenRevision == 0, removal);
    QVERIFY(stampAfter != stampBefore);
}

QTEST_GUILESS_MAIN(SqliteDefaultsTest)
#include "tst_sqlitedefaults.moc"

#include "FakeClock.h"
#include "Sessions.h"

#include "platform/linux/InotifyFileChangeIndex.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Writes and closes a file through the raw name bytes, so any name can be used.
bool writeFile(const QByteArray& path, const QByteArray& content = "x\n") {
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    const bool ok = ::write(fd, content.constData(), size_t(content.size())) == content.size();
    return ::close(fd) == 0 && ok;
}

// Sets a file's modification time.
bool setModified(const QString& path, const QDateTime& time) {
    QFile f(path);
    return f.open(QIODevice::ReadWrite) && f.setFileTime(time, QFileDevice::FileModificationTime);
}

// Sets a folder's modification time.
bool setFolderModified(const QString& path, const QDateTime& time) {
    const qint64 ms = time.toMSecsSinceEpoch();
    const timespec times[2] = {{0, UTIME_OMIT}, {time_t(ms / 1000), long(ms % 1000) * 1000000}};
    return ::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0) == 0;
}

} // namespace

class InotifyFileChangeIndexTest : public QObject {
    Q_OBJECT
private slots:
    void init();

    void recordsWritesAndMovesInOnly();
    void followsFoldersAsTheyComeAndGo();
    void forgetsByAgeAndCount();
    void watchLimitDegradesGracefully();
    void strangeNames();
    void missingFolder();

private:
    QString path(const QString& relative) const { return m_root->filePath(relative); }
    QByteArray raw(const QString& relative) const { return QFile::encodeName(path(relative)); }
    std::unique_ptr<InotifyFileChangeIndex> makeIndex(InotifyFileChangeIndex::Options options = {});

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<FakeClock> m_clock;
    const QSet<QString> m_pruned = {QStringLiteral("node_modules"), QStringLiteral("build")};
};

void InotifyFileChangeIndexTest::init() {
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    m_clock = std::make_unique<FakeClock>(local(2026, 5, 30, 10));
}

std::unique_ptr<InotifyFileChangeIndex>
InotifyFileChangeIndexTest::makeIndex(InotifyFileChangeIndex::Options options) {
    return std::make_unique<InotifyFileChangeIndex>(m_root->path(), m_pruned, *m_clock, options);
}

void InotifyFileChangeIndexTest::recordsWritesAndMovesInOnly() {
    QVERIFY(QDir().mkpath(path("src")));
    QVERIFY(QDir().mkpath(path("app/node_modules/pkg")));
    QVERIFY(QDir().mkpath(path(".config/editor")));
    QVERIFY(QDir().mkpath(path("build/out")));
    QVERIFY(writeFile(raw("src/existing.py")));
    QTemporaryDir outside;
    QVERIFY(writeFile(QFile::encodeName(outside.filePath("moved.md"))));

    // Before the start only folder times tell: src changed 1 min ago, app 2, the rest long ago.
    const QDateTime now = m_clock->now();
    for (const QString& folder : {QString(), QStringLiteral("app"), QStringLiteral("src"),
                                  QStringLiteral(".config/editor"), QStringLiteral("build/out")})
        QVERIFY(setFolderModified(path(folder), now.addSecs(-7200)));
    QVERIFY(setFolderModified(path("app"), now.addSecs(-120)));
    QVERIFY(setFolderModified(path("src"), now.addSecs(-60)));
    QVERIFY(setFolderModified(path(".config/editor"), now.addSecs(-60))); // hidden: not walked

    auto index = makeIndex();
    QVERIFY(index->start());
    QCOMPARE(index->watchCount(), 3);             // the root, src and app
    QVERIFY(index->modifiedWithin(45).isEmpty()); // files present at start are not changes
    QCOMPARE(index->foldersChangedWithin(600), (QStringList{path("src"), path("app")}));
    QCOMPARE(index->foldersChangedWithin(90), QStringList{path("src")});

    // Not changes: reading a file, and anything under pruned or hidden folders.
    QFile read(path("src/existing.py"));
    QVERIFY(read.open(QIODevice::ReadOnly));
    read.readAll();
    read.close();
    QVERIFY(writeFile(raw("app/node_modules/pkg/index.js")));
    QVERIFY(writeFile(raw(".config/editor/settings.json")));
    QVERIFY(writeFile(raw("build/out/main.o")));
    // Changes: a save in place, a save through a temporary file, a file moved in.
    QVERIFY(writeFile(raw("src/saved.py")));
    QVERIFY(writeFile(raw("src/atomic.rs.tmp")));
    QVERIFY(QFile::rename(path("src/atomic.rs.tmp"), path("src/atomic.rs")));
    QVERIFY(QFile::rename(outside.filePath("moved.md"), path("moved.md")));
    QVERIFY(writeFile(raw(".hidden-file")));

    // Events arrive in order: once the last is in, the ones before it have been seen.
    QTRY_VERIFY(index->modifiedWithin(45).contains(path(".hidden-file")));
    QStringList changed = index->modifiedWithin(45);
    changed.sort();
    QStringList expected = {path(".hidden-file"), path("moved.md"), path("src/atomic.rs"),
                            path("src/atomic.rs.tmp"), path("src/saved.py")};
    expected.sort();
    QCOMPARE(changed, expected);

    // Saved again: still one entry for the path.
    QVERIFY(writeFile(raw("src/saved.py")));
    QVERIFY(writeFile(raw("sentinel.txt")));
    QTRY_VERIFY(index->modifiedWithin(45).contains(path("sentinel.txt")));
    QCOMPARE(index->modifiedWithin(45).count(path("src/saved.py")), 1);
}

void InotifyFileChangeIndexTest::followsFoldersAsTheyComeAndGo() {
    QVERIFY(QDir().mkpath(path("keep")));
    auto index = makeIndex();
    QVERIFY(index->start());
    QCOMPARE(index->watchCount(), 2);

    // New folders are watched as they appear, however fast they are made and filled.
    QVERIFY(QDir().mkpath(path("new/deep/er")));
    QVERIFY(QDir().mkpath(path("new/node_modules/x")));
    QVERIFY(writeFile(raw("new/deep/er/fast.c")));
    QTRY_COMPARE(index->watchCount(), 5);
    QTRY_VERIFY(index->modifiedWithin(45).contains(path("new/deep/er/fast.c")));
    QVERIFY(writeFile(raw("new/deep/later.h")));
    QTRY_VERIFY(index->modifiedWithin(45).contains(path("new/deep/later.h")));

    // A folder moved in: watched, and its recently written files count; old ones do not.
    QTemporaryDir outside;
    QVERIFY(QDir().mkpath(outside.filePath("proj/sub")));
    QVERIFY(writeFile(QFile::encodeName(outside.filePath("proj/recent.go"))));
    QVERIFY(writeFile(QFile::encodeName(outside.filePath("proj/sub/old.go"))));
    QVERIFY(setModified(outside.filePath("proj/sub/old.go"), m_clock->now().addDays(-3)));
    // The fake clock stands at a fixed time: make the recent file recent by it.
    QVERIFY(setModified(outside.filePath("proj/recent.go"), m_clock->now().addSecs(-5)));
    QVERIFY(QFile::rename(outside.filePath("proj"), path("proj")));
    QTRY_COMPARE(index->watchCount(), 7);
    QTRY_VERIFY(index->modifiedWithin(45).contains(path("proj/recent.go")));
    QVERIFY(!index->modifiedWithin(1000000).contains(path("proj/sub/old.go")));

    // Renamed within the tree: new writes carry the new name.
    QVERIFY(QFile::rename(path("proj"), path("project")));
    QVERIFY(writeFile(raw("project/sub/renamed.go")));
    QTRY_VERIFY(index->modifiedWithin(45).contains(path("project/sub/renamed.go")));
    QCOMPARE(index->watchCount(), 7);

    // Deleted or moved out: the watches go.
    QVERIFY(QDir(path("new")).removeRecursively());
    QTRY_COMPARE(index->watchCount(), 4);
    QVERIFY(QFile::rename(path("project"), outside.filePath("gone")));
    QTRY_COMPARE(index->watchCount(), 2);
    QVERIFY(writeFile(QFile::encodeName(outside.filePath("gone/after.go"))));
    QVERIFY(writeFile(raw("keep/sentinel.txt")));
    QTRY_VERIFY(index->modifiedWithin(45).contains(path("keep/sentinel.txt")));
    for (const QString& p : index->modifiedWithin(45))
        QVERIFY2(!p.endsWith("after.go"), qPrintable(p));
}

void InotifyFileChangeIndexTest::forgetsByAgeAndCount() {
    InotifyFileChangeIndex::Options options;
    options.maxEntries = 50;
    options.retentionSeconds = 120;
    auto index = makeIndex(options);
    QVERIFY(index->start());

    for (int i = 0; i < 200; ++i)
        QVERIFY(writeFile(raw(QStringLiteral("f%1.txt").arg(i))));
    QTRY_VERIFY(index->modifiedWithin(45).contains(path("f199.txt")));
    QCOMPARE(index->entryCount(), 50);
    const QStringList kept = index->modifiedWithin(45);
    QCOMPARE(kept.size(), 50);
    QVERIFY(kept.contains(path("f150.txt"))); // the newest are kept
    QVERIFY(!kept.contains(path("f149.txt")));

    m_clock->advanceSeconds(60);
    QVERIFY(index->modifiedWithin(45).isEmpty());
    QCOMPARE(index->modifiedWithin(90).size(), 50);

    m_clock->advanceSeconds(100); // beyond the retention: dropped at the next change
    QVERIFY(writeFile(raw("fresh.txt")));
    QTRY_COMPARE(index->entryCount(), 1);
    QCOMPARE(index->modifiedWithin(1000), QStringList{path("fresh.txt")});
}

void InotifyFileChangeIndexTest::watchLimitDegradesGracefully() {
    for (int i = 0; i < 10; ++i)
        QVERIFY(QDir().mkpath(path(QStringLiteral("f%1").arg(i))));
    InotifyFileChangeIndex::Options options;
    options.maxWatches = 4;
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral("followed in 4 folders only")));
    QTest::failOnWarning(QRegularExpression(QStringLiteral("folders only")));
    auto index = makeIndex(options);
    QVERIFY(index->start());
    QCOMPARE(index->watchCount(), 4);
    QVERIFY(index->watchLimitReached());

    // What is watched still works; new folders are not watched and not logged again.
    QVERIFY(QDir().mkpath(path("late/er")));
    QVERIFY(writeFile(raw("saved.py")));
    QTRY_VERIFY(index->modifiedWithin(45).contains(path("saved.py")));
    QCOMPARE(index->watchCount(), 4);
}

void InotifyFileChangeIndexTest::strangeNames() {
    auto index = makeIndex();
    QVERIFY(index->start());
    const QByteArray root = QFile::encodeName(m_root->path());
    const QByteArray newline = root + "/two\nlines.py";
    const QByteArray invalid = root + "/bad-\xff\xfe-utf8.md";
    const QByteArray badFolder = root + "/\xc3\x28-folder";
    const QByteArray longName = root + '/' + QByteArray(250, 'n') + ".txt";
    QVERIFY(writeFile(newline));
    QVERIFY(writeFile(invalid));
    QVERIFY(writeFile(longName));
    QVERIFY(::mkdir(badFolder.constData(), 0755) == 0);
    QVERIFY(writeFile(badFolder + "/inside.rs"));
    QVERIFY(writeFile(root + "/sentinel.txt"));
    QTRY_VERIFY(index->modifiedWithin(45).contains(path("sentinel.txt")));
    QTRY_COMPARE(index->modifiedWithin(45).size(), 5);

    const QStringList changed = index->modifiedWithin(45);
    QVERIFY(changed.contains(QFile::decodeName(newline))); // one path, newline and all
    QVERIFY(changed.contains(QFile::decodeName(longName)));
    int replaced = 0;
    for (const QString& p : changed)
        replaced += p.contains(QChar::ReplacementCharacter) ? 1 : 0;
    QCOMPARE(replaced, 2); // undecodable bytes are shown, not dropped
    QCOMPARE(index->watchCount(), 2);

    // Names Qt cannot round-trip are removed through their bytes.
    QCOMPARE(::unlink((badFolder + "/inside.rs").constData()), 0);
    QCOMPARE(::rmdir(badFolder.constData()), 0);
    QCOMPARE(::unlink(invalid.constData()), 0);
}

void InotifyFileChangeIndexTest::missingFolder() {
    InotifyFileChangeIndex index(path("does-not-exist"), m_pruned, *m_clock);
    QVERIFY(!index.start());
    QVERIFY(index.modifiedWithin(45).isEmpty());
    QCOMPARE(index.watchCount(), 0);
}

QTEST_GUILESS_MAIN(InotifyFileChangeIndexTest)
#include "tst_inotifyfilechangeindex.moc"

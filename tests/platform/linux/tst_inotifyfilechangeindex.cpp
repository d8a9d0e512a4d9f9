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

// Sets the modification time of a file or folder.
bool setModified(const QString& path, const QDateTime& time) {
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

private:
    QString path(const QString& relative) const { return m_root->filePath(relative); }
    QByteArray raw(const QString& relative) const { return QFile::encodeName(path(relative)); }
    std::unique_ptr<InotifyFileChangeIndex> start();
    // Writes `sentinel` last and waits for it: the events before it have been seen then.
    QStringList changedAfter(InotifyFileChangeIndex& index, const QString& sentinel);

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<FakeClock> m_clock;
    const QSet<QString> m_pruned = {QStringLiteral("node_modules"), QStringLiteral("build")};
};

void InotifyFileChangeIndexTest::init() {
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    m_clock = std::make_unique<FakeClock>(local(2026, 5, 30, 10));
}

std::unique_ptr<InotifyFileChangeIndex> InotifyFileChangeIndexTest::start() {
    auto index = std::make_unique<InotifyFileChangeIndex>(m_root->path(), m_pruned, *m_clock);
    [&] { QVERIFY(index->start()); }();
    return index;
}

QStringList InotifyFileChangeIndexTest::changedAfter(InotifyFileChangeIndex& index,
                                                     const QString& sentinel) {
    [&] {
        QVERIFY(writeFile(raw(sentinel)));
        QTRY_VERIFY(index.modifiedWithin(45).contains(path(sentinel)));
    }();
    QStringList changed = index.modifiedWithin(45);
    changed.removeOne(path(sentinel));
    changed.sort();
    return changed;
}

void InotifyFileChangeIndexTest::recordsWritesAndMovesInOnly() {
    QVERIFY(!InotifyFileChangeIndex(path("does-not-exist"), m_pruned, *m_clock).start());
    for (const char* folder : {"src", "app/node_modules/pkg", ".config/editor", "build/out"})
        QVERIFY(QDir().mkpath(path(folder)));
    QVERIFY(writeFile(raw("src/existing.py")));
    QTemporaryDir outside;
    QVERIFY(writeFile(QFile::encodeName(outside.filePath("moved.md"))));

    // Before the start only folder times tell: src changed 1 min ago, app 2, the rest long ago.
    const QDateTime now = m_clock->now();
    for (const char* folder : {"", "build/out", "app", "src", ".config/editor"})
        QVERIFY(setModified(path(folder), now.addSecs(-7200)));
    QVERIFY(setModified(path("app"), now.addSecs(-120)));
    QVERIFY(setModified(path("src"), now.addSecs(-60)));
    QVERIFY(setModified(path(".config/editor"), now.addSecs(-60))); // hidden: not walked

    auto index = start();
    QCOMPARE(index->watchCount(), 3);             // the root, src and app
    QVERIFY(index->modifiedWithin(45).isEmpty()); // files present at start are not changes
    QCOMPARE(index->foldersChangedWithin(600), (QStringList{path("src"), path("app")}));
    QCOMPARE(index->foldersChangedWithin(90), QStringList{path("src")});

    // Not changes: reading a file, and anything under pruned or hidden folders.
    QFile read(path("src/existing.py"));
    QVERIFY(read.open(QIODevice::ReadOnly) && !read.readAll().isEmpty());
    read.close();
    for (const char* file :
         {"app/node_modules/pkg/index.js", ".config/editor/settings.json", "build/out/main.o"})
        QVERIFY(writeFile(raw(file)));
    // Changes: a save in place, a save through a temporary file, a file moved in.
    QVERIFY(writeFile(raw("src/saved.py")));
    QVERIFY(writeFile(raw("src/atomic.rs.tmp")));
    QVERIFY(QFile::rename(path("src/atomic.rs.tmp"), path("src/atomic.rs")));
    QVERIFY(QFile::rename(outside.filePath("moved.md"), path("moved.md")));
    QCOMPARE(changedAfter(*index, ".hidden-file"),
             (QStringList{path("moved.md"), path("src/atomic.rs"), path("src/atomic.rs.tmp"),
                          path("src/saved.py")}));

    // Saved again: still one entry for the path.
    QVERIFY(writeFile(raw("src/saved.py")));
    QCOMPARE(changedAfter(*index, "sentinel.txt").count(path("src/saved.py")), 1);
}

void InotifyFileChangeIndexTest::followsFoldersAsTheyComeAndGo() {
    QVERIFY(QDir().mkpath(path("keep")));
    auto index = start();
    QCOMPARE(index->watchCount(), 2);

    // New folders are watched as they appear, however fast they are made and filled.
    QVERIFY(QDir().mkpath(path("new/deep/er")));
    QVERIFY(QDir().mkpath(path("new/node_modules/x")));
    QVERIFY(writeFile(raw("new/deep/er/fast.c")));
    QTRY_COMPARE(index->watchCount(), 5);
    QTRY_VERIFY(index->modifiedWithin(45).contains(path("new/deep/er/fast.c")));
    QVERIFY(changedAfter(*index, "new/deep/later.h").contains(path("new/deep/er/fast.c")));

    // A folder moved in: watched, and its recently written files count; old ones do not.
    QTemporaryDir outside;
    QVERIFY(QDir().mkpath(outside.filePath("proj/sub")));
    QVERIFY(writeFile(QFile::encodeName(outside.filePath("proj/recent.go"))));
    QVERIFY(writeFile(QFile::encodeName(outside.filePath("proj/sub/old.go"))));
    QVERIFY(setModified(outside.filePath("proj/sub/old.go"), m_clock->now().addDays(-3)));
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
    for (const QString& p : changedAfter(*index, "keep/sentinel.txt"))
        QVERIFY2(!p.endsWith("after.go"), qPrintable(p));
}

QTEST_GUILESS_MAIN(InotifyFileChangeIndexTest)
#include "tst_inotifyfilechangeindex.moc"

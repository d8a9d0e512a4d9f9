// Letting go of mapped pages, on real mappings of a real file: what may be dropped is dropped,
// what was written stays as written.

#include "platform/linux/ProcessMemory.h"

#include <QTemporaryFile>
#include <QTest>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr size_t pageSize = 4096;
constexpr size_t pages = 4;

// Whether the page at `address` is mapped in this process's page table now.
bool isPresent(const void* address) {
    const int fd = open("/proc/self/pagemap", O_RDONLY);
    quint64 entry = 0;
    const off_t at = off_t(reinterpret_cast<quintptr>(address) / pageSize * sizeof entry);
    const bool read = fd >= 0 && pread(fd, &entry, sizeof entry, at) == ssize_t(sizeof entry);
    if (fd >= 0)
        close(fd);
    return read && (entry >> 63) != 0;
}

} // namespace

class ProcessMemoryTest : public QObject {
    Q_OBJECT
private slots:
    void librariesGoOnRunning(); // first: with everything start-up mapped still resident
    void dropsOnlyUnwrittenReadOnlyPrivatePages_data();
    void dropsOnlyUnwrittenReadOnlyPrivatePages();
};

void ProcessMemoryTest::dropsOnlyUnwrittenReadOnlyPrivatePages_data() {
    QTest::addColumn<int>("sharing");
    QTest::addColumn<bool>("written");
    QTest::addColumn<int>("finalProtection");
    QTest::addColumn<bool>("dropped");
    QTest::newRow("private, read-only, never written") << MAP_PRIVATE << false << PROT_READ << true;
    QTest::newRow("private code, never written")
        << MAP_PRIVATE << false << (PROT_READ | PROT_EXEC) << true;
    // Relocated data: written while writable, then made read-only.
    QTest::newRow("private, written, then read-only") << MAP_PRIVATE << true << PROT_READ << false;
    QTest::newRow("private, writable") << MAP_PRIVATE << false << (PROT_READ | PROT_WRITE) << false;
    QTest::newRow("shared, read-only") << MAP_SHARED << false << PROT_READ << false;
}

void ProcessMemoryTest::dropsOnlyUnwrittenReadOnlyPrivatePages() {
    QFETCH(int, sharing);
    QFETCH(bool, written);
    QFETCH(int, finalProtection);
    QFETCH(bool, dropped);

    QTemporaryFile file;
    QVERIFY(file.open());
    const QByteArray original(int(pages * pageSize), 'a');
    QCOMPARE(file.write(original), qint64(original.size()));
    QVERIFY(file.flush());

    auto* map = static_cast<char*>(
        mmap(nullptr, pages * pageSize, PROT_READ | PROT_WRITE, sharing, int(file.handle()), 0));
    QVERIFY(map != MAP_FAILED);
    QByteArray expected = original;
    if (written) {
        for (size_t page = 0; page < pages; ++page)
            map[page * pageSize + 1] = expected[int(page * pageSize + 1)] = 'b';
    }
    QCOMPARE(mprotect(map, pages * pageSize, finalProtection), 0);
    QCOMPARE(QByteArray(map, int(pages * pageSize)), expected); // every page resident now
    QVERIFY(isPresent(map));

    QVERIFY(ProcessMemory::dropCleanFilePages() > 0); // the test's own libraries at least
    QCOMPARE(isPresent(map), !dropped);
    QCOMPARE(QByteArray(map, int(pages * pageSize)), expected);
    munmap(map, pages * pageSize);
}

void ProcessMemoryTest::librariesGoOnRunning() {
    const auto residentFileKb = [] {
        QFile status(QStringLiteral("/proc/self/status"));
        if (!status.open(QIODevice::ReadOnly))
            return qint64(-1);
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith("RssFile:"))
                return line.mid(8).trimmed().split(' ').value(0).toLongLong();
        }
        return qint64(-1);
    };
    const qint64 before = residentFileKb();
    const qint64 droppedKb = ProcessMemory::dropCleanFilePages();
    const qint64 after = residentFileKb();
    QVERIFY2(droppedKb > 1024, qPrintable(QString::number(droppedKb)));
    QVERIFY2(after < before / 2,
             qPrintable(QStringLiteral("%1 kB, then %2 kB").arg(before).arg(after)));

    // Code and read-only data of the libraries come back at their next use.
    QCOMPARE(QString::number(1234.5, 'f', 1) + QDate(2026, 3, 29).toString(Qt::ISODate),
             QStringLiteral("1234.52026-03-29"));
    ProcessMemory::handBack();
    QCOMPARE(QLocale(QLocale::English).toString(qint64(123456789)), QStringLiteral("123,456,789"));
}

QTEST_GUILESS_MAIN(ProcessMemoryTest)
#include "tst_processmemory.moc"

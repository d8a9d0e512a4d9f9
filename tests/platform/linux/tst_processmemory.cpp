// Letting go of mapped pages, on real mappings of a real file: what may be dropped is dropped,
// what was written stays as written, and the libraries go on running.

#include "platform/linux/ProcessMemory.h"

#include <QTemporaryFile>
#include <QTest>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

// Whether the page at `address` is in this process's page table now.
static bool isPresent(const void* address) {
    const int fd = open("/proc/self/pagemap", O_RDONLY);
    quint64 entry = 0;
    const off_t at = off_t(reinterpret_cast<quintptr>(address) / 4096 * sizeof entry);
    const bool read = pread(fd, &entry, sizeof entry, at) == ssize_t(sizeof entry);
    return close(fd) == 0 && read && (entry >> 63) != 0;
}

class ProcessMemoryTest : public QObject {
    Q_OBJECT
private slots:
    void dropsOnlyReadOnlyPagesTheFileHolds_data() {
        QTest::addColumn<int>("sharing");
        QTest::addColumn<bool>("written"); // while writable, as relocations are
        QTest::addColumn<int>("protection");
        QTest::addColumn<bool>("dropped");
        QTest::newRow("code") << MAP_PRIVATE << false << (PROT_READ | PROT_EXEC) << true;
        QTest::newRow("written, then read-only") << MAP_PRIVATE << true << PROT_READ << false;
        // Written pages of a shared mapping are the file's: they stay in the page cache.
        QTest::newRow("shared, written, then read-only") << MAP_SHARED << true << PROT_READ << true;
    }

    void dropsOnlyReadOnlyPagesTheFileHolds() {
        QFETCH(int, sharing);
        QFETCH(bool, written);
        QFETCH(int, protection);
        QFETCH(bool, dropped);
        const int size = 4 * 4096;
        QTemporaryFile file;
        QVERIFY(file.open() && file.write(QByteArray(size, 'a')) == size && file.flush());
        auto* map = static_cast<char*>(
            mmap(nullptr, size, PROT_READ | PROT_WRITE, sharing, int(file.handle()), 0));
        QVERIFY(map != MAP_FAILED);
        QByteArray expected(size, 'a');
        for (int at = 1; written && at < size; at += 4096)
            map[at] = expected[at] = 'b';
        QCOMPARE(mprotect(map, size, protection), 0);
        QCOMPARE(QByteArray(map, size), expected); // every page resident now

        QVERIFY(ProcessMemory::dropCleanFilePages() > 0); // the test's libraries at least
        QCOMPARE(isPresent(map), !dropped);
        QCOMPARE(QByteArray(map, size), expected);
        // The libraries' code and read-only data come back at their next use.
        QCOMPARE(QString::number(1234.5, 'f', 1), QStringLiteral("1234.5"));
        QCOMPARE(QLocale(QLocale::English).toString(qint64(123456789)),
                 QStringLiteral("123,456,789"));
        munmap(map, size);
    }
};

QTEST_GUILESS_MAIN(ProcessMemoryTest)
#include "tst_processmemory.moc"

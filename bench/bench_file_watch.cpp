// The file index over a generated home folder: start-up (the walk and the watches), its
// memory, and the CPU it spends on file saves.
//
//   build/bench/bench_file_watch [FOLDERS] [FILES_PER_FOLDER] [SAVES]
//
// Defaults: 20,000 folders of 10 files (200,000 files) and 10,000 saves. The index runs on a
// thread of its own, as in the application; saves are made by a child process, so the CPU
// measured is the index thread's alone.

#include "platform/Clock.h"
#include "platform/linux/InotifyFileChangeIndex.h"
#include "sensing/SpotlightMonitor.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

long statusKiB(const char* field) {
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : f.readAll().split('\n'))
        if (line.startsWith(field))
            return line.mid(qsizetype(qstrlen(field))).trimmed().split(' ').first().toLong();
    return -1;
}

// The kernel's slab memory, machine-wide (/proc/meminfo). Watch marks share their slab
// caches with other objects, so the change across start() is the closest measure of them;
// anything else the machine does meanwhile adds noise.
long slabKiB() {
    QFile f(QStringLiteral("/proc/meminfo"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : f.readAll().split('\n'))
        if (line.startsWith("Slab:"))
            return line.mid(5).trimmed().split(' ').first().toLong();
    return -1;
}

double cpuSeconds(clockid_t clock) {
    timespec ts{};
    clock_gettime(clock, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

QString folderPath(const QString& root, int i, int perTop) {
    const int top = i / (perTop + 1);
    const int sub = i % (perTop + 1);
    const QString t = QStringLiteral("%1/project%2").arg(root).arg(top);
    return sub == 0 ? t : QStringLiteral("%1/module%2").arg(t).arg(sub);
}

bool writeFile(const QByteArray& path) {
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    static const char line[] = "int value = 42; // a line of source\n";
    const bool ok = ::write(fd, line, sizeof line - 1) == ssize_t(sizeof line - 1);
    return ::close(fd) == 0 && ok;
}

// Saves `count` distinct existing files from a child process, then a sentinel file.
void saveInChild(const QString& root, int folders, int perTop, int filesPerFolder, int count,
                 int offset, const QByteArray& sentinel) {
    // The paths are made in the child, so the parent's memory holds the index alone.
    const pid_t pid = ::fork();
    if (pid == 0) {
        for (int i = 0; i < count; ++i) {
            const int n = offset + i;
            const int folder = int((qint64(n) * 7919) % folders); // spread over the tree
            const int file = (n / folders) % filesPerFolder;
            writeFile(QFile::encodeName(
                QStringLiteral("%1/file%2.ts").arg(folderPath(root, folder, perTop)).arg(file)));
        }
        writeFile(sentinel);
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
}

bool waitFor(const InotifyFileChangeIndex& index, const QString& path) {
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < 120000) {
        if (index.modifiedWithin(45).contains(path))
            return true;
        QThread::msleep(20);
    }
    return false;
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    const int folders = argc > 1 ? std::atoi(argv[1]) : 20000;
    const int filesPerFolder = argc > 2 ? std::atoi(argv[2]) : 10;
    const int saves = argc > 3 ? std::atoi(argv[3]) : 10000;
    const int perTop = 199; // 100 projects of 199 modules each make 20,000 folders

    QTemporaryDir home;
    QElapsedTimer t;
    t.start();
    for (int i = 0; i < folders; ++i) {
        const QString dir = folderPath(home.path(), i, perTop);
        QDir().mkpath(dir);
        for (int f = 0; f < filesPerFolder; ++f)
            writeFile(QFile::encodeName(QStringLiteral("%1/file%2.ts").arg(dir).arg(f)));
    }
    std::printf("tree: %d folders, %d files, made in %.1f s\n", folders, folders * filesPerFolder,
                double(t.elapsed()) / 1000.0);

    QThread thread;
    thread.start();
    auto* watcher = new InotifyFileChangeIndex(home.path(), SpotlightMonitor::skipParts());
    InotifyFileChangeIndex& index = *watcher;
    index.moveToThread(&thread);
    clockid_t indexCpu{};
    QMetaObject::invokeMethod(
        &index, [&] { pthread_getcpuclockid(pthread_self(), &indexCpu); },
        Qt::BlockingQueuedConnection);

    const long rssBefore = statusKiB("VmRSS:");
    const long slabBefore = slabKiB();
    t.restart();
    const double cpuBefore = cpuSeconds(indexCpu);
    bool started = false;
    QMetaObject::invokeMethod(
        &index, [&] { started = index.start(); }, Qt::BlockingQueuedConnection);
    const double startMs = double(t.nsecsElapsed()) / 1e6;
    const double startCpuMs = (cpuSeconds(indexCpu) - cpuBefore) * 1000.0;
    const long rssAfterStart = statusKiB("VmRSS:");
    const long slabAfter = slabKiB();
    std::printf("start: %s, %.0f ms wall, %.0f ms CPU, %d watches\n", started ? "ok" : "FAILED",
                startMs, startCpuMs, index.watchCount());
    std::printf("memory of the watches: process RSS +%ld KiB", rssAfterStart - rssBefore);
    if (slabBefore >= 0)
        std::printf(", kernel slab %+ld KiB", slabAfter - slabBefore);
    std::printf("\n");

    // Saves of distinct files spread over the tree, made by another process.
    const QString sentinel = home.filePath(QStringLiteral("sentinel.txt"));
    const double cpuSavesBefore = cpuSeconds(indexCpu);
    t.restart();
    saveInChild(home.path(), folders, perTop, filesPerFolder, saves, 0,
                QFile::encodeName(sentinel));
    if (!waitFor(index, sentinel)) {
        std::printf("saves were not all seen\n");
        return 1;
    }
    const double savesCpuMs = (cpuSeconds(indexCpu) - cpuSavesBefore) * 1000.0;
    std::printf("%d saves: index thread %.1f ms CPU (%.2f us per save), all seen after %.0f ms\n",
                saves, savesCpuMs, savesCpuMs * 1000.0 / saves, double(t.elapsed()));
    std::printf("entries remembered: %d, process RSS %ld KiB\n", index.entryCount(),
                statusKiB("VmRSS:"));

    // The repository monitor's question, with the index full.
    QList<double> query;
    for (int i = 0; i < 20; ++i) {
        QElapsedTimer q;
        q.start();
        const QStringList recent = index.modifiedWithin(45);
        query.append(double(q.nsecsElapsed()) / 1e6);
        if (recent.isEmpty())
            return 1;
    }
    std::sort(query.begin(), query.end());
    std::printf("modifiedWithin(45) over %d entries: median %.2f ms\n", index.entryCount(),
                query[query.size() / 2]);

    // Ten times as many saves again: what the index remembers stays capped.
    const QString sentinel2 = home.filePath(QStringLiteral("sentinel2.txt"));
    saveInChild(home.path(), folders, perTop, filesPerFolder, saves * 10, saves,
                QFile::encodeName(sentinel2));
    if (!waitFor(index, sentinel2))
        return 1;
    std::printf("after %d more saves: entries %d, process RSS %ld KiB (peak %ld KiB)\n", saves * 10,
                index.entryCount(), statusKiB("VmRSS:"), statusKiB("VmHWM:"));

    QMetaObject::invokeMethod(
        watcher, [watcher] { delete watcher; }, Qt::BlockingQueuedConnection);
    thread.quit();
    thread.wait();
    return 0;
}

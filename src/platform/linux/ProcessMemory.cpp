#include "ProcessMemory.h"

#include <QFile>

#include <functional>
#include <vector>

#include <malloc.h>
#include <sys/mman.h>

namespace {

struct Mapping {
    quintptr start = 0;
    quintptr end = 0;
    QByteArray perms;
    QByteArray path; // empty for anonymous memory; "[heap]" and the like start with '['
    qint64 rssKb = 0;
    qint64 anonymousKb = 0;

    bool isFile() const { return path.startsWith('/'); }
    bool isReadOnly() const { return perms.size() == 4 && perms.at(1) == '-'; }
    void advise(int advice) const { madvise(reinterpret_cast<void*>(start), end - start, advice); }
};

// A mapping's first line: "start-end perms offset dev inode [path]"; the path may hold spaces.
bool parseHeader(const QByteArray& line, Mapping* mapping) {
    const qsizetype dash = line.indexOf('-');
    const qsizetype space = line.indexOf(' ');
    if (dash <= 0 || space <= dash)
        return false;
    bool okStart = false, okEnd = false;
    mapping->start = line.left(dash).toULongLong(&okStart, 16);
    mapping->end = line.mid(dash + 1, space - dash - 1).toULongLong(&okEnd, 16);
    if (!okStart || !okEnd || mapping->end <= mapping->start)
        return false;
    mapping->perms = line.mid(space + 1, 4);
    qsizetype at = space;
    for (int field = 0; field < 4 && at >= 0; ++field) // perms, offset, dev, inode
        at = line.indexOf(' ', at + 1);
    mapping->path = at < 0 ? QByteArray() : line.mid(at).trimmed();
    mapping->rssKb = mapping->anonymousKb = 0;
    return true;
}

qint64 kibibytes(const QByteArray& line) {
    return line.mid(line.indexOf(':') + 1).trimmed().split(' ').value(0).toLongLong();
}

// Calls `each` for every mapping of this process; from smaps (slower: the kernel walks the
// page tables) when the sizes are wanted.
void forEachMapping(bool withSizes, const std::function<void(const Mapping&)>& each) {
    QFile file(withSizes ? QStringLiteral("/proc/self/smaps") : QStringLiteral("/proc/self/maps"));
    if (!file.open(QIODevice::ReadOnly))
        return;
    // Read whole before acting, so the listing is not read while it changes.
    const QList<QByteArray> lines = file.readAll().split('\n');
    Mapping mapping;
    bool open = false;
    for (const QByteArray& line : lines) {
        Mapping next;
        if (parseHeader(line, &next)) {
            if (open)
                each(mapping);
            mapping = next;
            open = true;
        } else if (line.startsWith("Rss:")) {
            mapping.rssKb = kibibytes(line);
        } else if (line.startsWith("Anonymous:")) {
            mapping.anonymousKb = kibibytes(line);
        }
    }
    if (open)
        each(mapping);
}

} // namespace

QSet<QByteArray> ProcessMemory::mappedFiles() {
    QSet<QByteArray> paths;
    forEachMapping(false, [&paths](const Mapping& m) {
        if (m.isFile())
            paths.insert(m.path);
    });
    return paths;
}

void ProcessMemory::pageOutFilesExcept(const QSet<QByteArray>& kept) {
    forEachMapping(false, [&kept](const Mapping& m) {
        if (m.isFile() && m.isReadOnly() && !kept.contains(m.path))
            m.advise(MADV_PAGEOUT);
    });
}

qint64 ProcessMemory::dropCleanFilePages() {
    // Listed first and dropped after, with nothing but system calls in between: code run after
    // a library's pages are dropped maps them again, and each fault maps a run of pages
    // around the one asked for.
    struct Range {
        void* start;
        size_t length;
    };
    std::vector<Range> ranges;
    qint64 droppedKb = 0;
    forEachMapping(true, [&](const Mapping& m) {
        if (m.isFile() && m.isReadOnly() && m.anonymousKb == 0 && m.rssKb > 0) {
            ranges.push_back({reinterpret_cast<void*>(m.start), m.end - m.start});
            droppedKb += m.rssKb;
        }
    });
    for (const Range& range : ranges)
        madvise(range.start, range.length, MADV_DONTNEED);
    return droppedKb;
}

void ProcessMemory::handBack() {
    malloc_trim(0);
    dropCleanFilePages();
}

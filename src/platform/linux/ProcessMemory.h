#pragma once

#include <QByteArray>
#include <QSet>

// This process's memory as Linux shows it in /proc/self, and handing parts of it back.
namespace ProcessMemory {

// The files mapped into this process now, by path.
QSet<QByteArray> mappedFiles();

// Asks the kernel to drop this process's resident pages of the read-only file mappings whose
// files are not in `kept`, where no other process maps them: the pages leave the page cache
// too, so the memory of libraries used for a while is freed. They are read in again if used.
void pageOutFilesExcept(const QSet<QByteArray>& kept);

// Unmaps the resident pages of read-only file mappings that hold no page of their own: the
// code and read-only data of the libraries, font caches. The pages stay in the page cache and
// are mapped again, without reading the disk, at their next use. Private mappings written
// since they were mapped (relocated data, a debugger's breakpoints) are left as they are:
// dropping their pages would lose what was written. Returns the kibibytes unmapped.
qint64 dropCleanFilePages();

// Freed heap back to the system, then dropCleanFilePages(): for the quiet moments of a process
// that runs all day, after which it keeps mapped only what it goes on using.
void handBack();

} // namespace ProcessMemory

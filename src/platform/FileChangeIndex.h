#pragma once

#include <QStringList>

#include <optional>

// Which files in the user's home folder had their content written recently: saved in
// place, or moved into place as editors do when they save through a temporary file.
//
// Answered from any thread; the repository monitor asks from its own worker.
class FileChangeIndex {
public:
    virtual ~FileChangeIndex() = default;

    // Absolute paths of files written within the last `seconds` seconds, each once, in
    // no particular order.
    virtual QStringList modifiedWithin(int seconds) const = 0;

    // Folders whose entries changed within the last `seconds` seconds (a file made, moved in
    // as editors save through a temporary file, or removed), newest first, including what
    // happened before the index started as far as the folders' modification times tell. A
    // file rewritten in place leaves its folder's time alone. Empty when not known.
    virtual QStringList foldersChangedWithin(int seconds) const {
        Q_UNUSED(seconds);
        return {};
    }

    // How many changes were recorded since the index started, when it counts them: while
    // the count stays the same, modifiedWithin() learns of no new file.
    virtual std::optional<quint64> changeCount() const { return std::nullopt; }
};

#pragma once

#include <QString>

#include <functional>
#include <optional>

// The answer last read from a file, kept while the file is unchanged (same path, size,
// modification time and inode), so a file polled every few seconds is read only when it
// changed. A browser's session file is either replaced whole (a new inode) or appended to (a
// new size), so these four tell every change.
class FileAnswerCache {
public:
    using Answer = std::optional<QString>;

    // The cached answer when the file at `path` is unchanged; otherwise `read(path)`, kept.
    // A file that cannot be examined gives no answer.
    Answer answer(const QString& path, const std::function<Answer(const QString&)>& read);

private:
    struct Stamp {
        QString path;
        qint64 size = -1;
        qint64 modifiedNs = 0;
        quint64 inode = 0;
        bool operator==(const Stamp&) const = default;
    };

    Stamp m_stamp;
    Answer m_answer;
};

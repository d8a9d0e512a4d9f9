#include "FileAnswerCache.h"

#include <QFile>

#include <sys/stat.h>

FileAnswerCache::Answer FileAnswerCache::answer(const QString& path,
                                                const std::function<Answer(const QString&)>& read) {
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return std::nullopt;
    const Stamp stamp{path, qint64(st.st_size),
                      qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec,
                      quint64(st.st_ino)};
    if (stamp == m_stamp)
        return m_answer;
    m_answer = read(path);
    m_stamp = stamp;
    return m_answer;
}

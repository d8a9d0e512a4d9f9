#include "MozLz4.h"

#include <lz4.h>

#include <QtEndian>

namespace {

constexpr char magic[8] = {'m', 'o', 'z', 'L', 'z', '4', '0', '\0'};
constexpr qsizetype headerSize = sizeof magic + 4;

} // namespace

std::optional<QByteArray> MozLz4::decompress(const QByteArray& file, qsizetype maxContentSize) {
    if (file.size() < headerSize || !file.startsWith(QByteArray::fromRawData(magic, sizeof magic)))
        return std::nullopt;
    const quint32 size = qFromLittleEndian<quint32>(file.constData() + sizeof magic);
    if (qint64(size) > qint64(maxContentSize) || size > quint32(LZ4_MAX_INPUT_SIZE) ||
        file.size() - headerSize > qsizetype(LZ4_MAX_INPUT_SIZE))
        return std::nullopt;
    QByteArray content(qsizetype(size), Qt::Uninitialized);
    const int written = LZ4_decompress_safe(file.constData() + headerSize, content.data(),
                                            int(file.size() - headerSize), int(size));
    // A truncated or damaged block fails, or yields less than the header promised.
    if (written < 0 || quint32(written) != size)
        return std::nullopt;
    return content;
}

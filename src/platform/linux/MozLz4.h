#pragma once

#include <QByteArray>

#include <optional>

// Firefox's compressed file format ("mozLz4"): the 8-byte magic "mozLz40\0", the content's
// size as a 4-byte little-endian number, then one LZ4 block.
class MozLz4 {
public:
    MozLz4() = delete;

    // The content, or none when `file` is not a whole, well-formed mozLz4 file or its
    // content would exceed `maxContentSize` bytes.
    static std::optional<QByteArray> decompress(const QByteArray& file, qsizetype maxContentSize);
};

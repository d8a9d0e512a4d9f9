// Firefox's session file is written by another program and may be caught half-written. The input
// is read as a mozLz4 file, as the JSON inside one, and packed into a well-formed mozLz4 file by
// liblz4, which must unpack to the same bytes and give the same answer.

#include "platform/linux/FirefoxSession.h"
#include "platform/linux/MozLz4.h"

#include <lz4.h>

#include <cstdlib>

namespace {

constexpr qsizetype maxContent = 1 << 20;

QByteArray pack(const QByteArray& content) {
    QByteArray block(LZ4_compressBound(int(content.size())), Qt::Uninitialized);
    block.truncate(LZ4_compress_default(content.constData(), block.data(), int(content.size()),
                                        int(block.size())));
    QByteArray file("mozLz40\0", 8);
    for (int i = 0; i < 4; ++i)
        file.append(char((quint32(content.size()) >> (8 * i)) & 0xff));
    return file + block;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));

    if (const auto content = MozLz4::decompress(input, maxContent)) {
        if (content->size() > maxContent)
            std::abort();
        (void)FirefoxSession::selectedTabURL(*content);
    }

    const std::optional<QString> direct = FirefoxSession::selectedTabURL(input);
    if (direct && direct->isEmpty())
        std::abort();

    if (input.size() <= maxContent) {
        const auto unpacked = MozLz4::decompress(pack(input), maxContent);
        if (!unpacked || *unpacked != input)
            std::abort();
        if (FirefoxSession::selectedTabURL(*unpacked) != direct)
            std::abort();
    }
    return 0;
}

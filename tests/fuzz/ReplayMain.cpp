// The normal build's driver for the fuzz targets: runs the target over every committed input
// (the seeds and the inputs that once found a fault), so the test suite replays them under
// the normal and the sanitizer build without libFuzzer.

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize)
        LLVMFuzzerInitialize(&argc, &argv);
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        const QString path = QString::fromLocal8Bit(argv[i]);
        QStringList files;
        if (QFileInfo(path).isDir()) {
            for (const QString& name : QDir(path).entryList(QDir::Files, QDir::Name))
                files << path + u'/' + name;
        } else {
            files << path;
        }
        // A folder that is missing or empty is a mistake in the test, not a pass.
        if (files.isEmpty() || !QFileInfo::exists(files.first())) {
            std::fprintf(stderr, "no inputs in %s\n", argv[i]);
            return 1;
        }
        for (const QString& file : std::as_const(files)) {
            QFile f(file);
            if (!f.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "cannot read %s\n", qPrintable(file));
                return 1;
            }
            const QByteArray bytes = f.readAll();
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.constData()),
                                   size_t(bytes.size()));
            ++inputs;
        }
    }
    std::printf("%d inputs replayed\n", inputs);
    return inputs > 0 ? 0 : 1;
}

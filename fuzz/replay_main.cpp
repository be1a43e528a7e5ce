// Runs a fuzz target over files, without libFuzzer: the seeds and the inputs
// that once broke it, as a test of every ordinary build.

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const QString path = QString::fromLocal8Bit(argv[i]);
        QStringList files;
        if (QFileInfo(path).isDir()) {
            const QDir folder(path);
            for (const QString &name : folder.entryList(QDir::Files, QDir::Name))
                files << folder.filePath(name);
        } else {
            files << path;
        }
        for (const QString &file : std::as_const(files)) {
            QFile input(file);
            if (!input.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "cannot read %s\n", qPrintable(file));
                return 1;
            }
            const QByteArray bytes = input.readAll();
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.constData()),
                                   size_t(bytes.size()));
            ++replayed;
        }
    }
    std::printf("replayed %d inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}

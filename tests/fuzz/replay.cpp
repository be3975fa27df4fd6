// Runs a fuzz target over files, without the fuzzer: each argument is an
// input file or a folder of them. The normal test suite runs every target
// over its seed corpus and the inputs of crashes found so far.

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    int runs = 0;
    for (int i = 1; i < argc; ++i) {
        const QString arg = QString::fromLocal8Bit(argv[i]);
        if (!QFileInfo::exists(arg)) {
            // A target without crash inputs yet has no regressions folder.
            std::fprintf(stderr, "no %s: skipped\n", qPrintable(arg));
            continue;
        }
        QStringList files;
        if (QFileInfo(arg).isDir()) {
            QDirIterator it(arg, QDir::Files, QDirIterator::Subdirectories);
            while (it.hasNext())
                files << it.next();
            files.sort();
        } else {
            files << arg;
        }
        for (const QString &path : files) {
            QFile f(path);
            if (!f.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
                return 2;
            }
            const QByteArray bytes = f.readAll();
            std::fprintf(stderr, "run %s\n", qPrintable(QDir(arg).relativeFilePath(path)));
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.constData()), size_t(bytes.size()));
            ++runs;
        }
    }
    std::printf("%d inputs ran without a failure\n", runs);
    return runs > 0 ? 0 : 1;
}

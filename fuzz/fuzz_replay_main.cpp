// Without libFuzzer: runs every file given (or every file of the directories given)
// through the target once, as the test suite does with the kept seeds.
#include "fuzz_check.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

int main(int argc, char** argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    int runs = 0;
    for (int i = 1; i < argc; ++i) {
        const QString path = QString::fromLocal8Bit(argv[i]);
        QStringList files{path};
        if (QFileInfo(path).isDir()) {
            files.clear();
            for (QDirIterator it(path, QDir::Files); it.hasNext();)
                files << it.next();
        }
        for (const QString& name : files) {
            QFile file(name);
            if (!file.open(QIODevice::ReadOnly))
                return 2;
            const QByteArray input = file.readAll();
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.constData()), size_t(input.size()));
            ++runs;
        }
    }
    std::printf("%d inputs replayed\n", runs);
    return runs > 0 ? 0 : 1;
}

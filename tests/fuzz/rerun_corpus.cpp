#include "fuzz/fuzzer.h"

#include <QDir>

// Replaces libFuzzer: tries the files of the given directory.
int main(int argumentCount, char **arguments)
{
    const QDir corpus(argumentCount > 1 ? arguments[1] : "");
    const QStringList names = corpus.entryList(QDir::Files);
    if (names.isEmpty()) {
        qFatal("no corpus");
    }
    for (const QString &name : names) {
        QFile file(corpus.filePath(name));
        if (!file.open(QIODevice::ReadOnly)) {
            qFatal("%s cannot be read", qPrintable(name));
        }
        qInfo("%s", qPrintable(name));
        fuzz(file.readAll());
    }
}

#include "guard/own_memory.h"
#include "guard/bubblewrap.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <csignal>

namespace ownMemory
{
const char *const place = "/.migration-guard";

namespace
{
/// A root directory in memory with everything of the real one in it: a new directory can be made
/// there, which the real one could not have without a change on the disk.
QStringList rootDirectory()
{
    QStringList arguments = {"--tmpfs", "/"};
    const QFileInfoList entries =
        QDir("/").entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries) {
        const QString path = entry.filePath();
        if (entry.isSymLink()) {
            // Also a broken link; QFileInfo would resolve a relative one.
            arguments += {"--symlink", QFile::symLinkTarget(path), path};
        } else if (path != place) {
            arguments += {"--dev-bind", path, path};
        }
    }
    // Bubblewrap itself, started again inside, asks for it.
    arguments += {"--dir", "/tmp"};
    return arguments;
}
} // namespace

std::optional<int> runInside(qint64 size, const QStringList &arguments)
{
    QStringList command = rootDirectory();
    command += {"--perms", "0700", "--size", QString::number(size), "--tmpfs", place};
    command << "--" << QCoreApplication::applicationFilePath();
    command += arguments;

    Bubblewrap sandbox;
    if (!sandbox.startSandbox(command)) {
        return std::nullopt;
    }
    sandbox.waitForFinished(-1);
    const Bubblewrap::End end = sandbox.end();
    if (!end.programStarted) {
        return std::nullopt;
    }
    const int killedBySignal = 128;
    return end.exitCode.value_or(killedBySignal + SIGKILL);
}
} // namespace ownMemory

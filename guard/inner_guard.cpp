#include "guard/inner_guard.h"
#include "guard/bubblewrap.h"
#include "guard/output_relay.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace innerGuard
{
const char *const memory = "/.migration-guard";

namespace
{
const int endedBySignal = 128;

/// A root directory in memory with everything of the real one in it: a new directory can be made
/// there, which the real one could not have without a change on the disk.
QStringList rootInMemory(qint64 size)
{
    QStringList arguments = {"--tmpfs", "/"};
    const QFileInfoList entries =
        QDir("/").entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries) {
        const QString path = entry.filePath();
        if (entry.isSymLink()) {
            // Also a broken link; QFileInfo would resolve a relative one.
            arguments += {"--symlink", QFile::symLinkTarget(path), path};
        } else if (path != memory) {
            arguments += {"--dev-bind", path, path};
        }
    }
    // Bubblewrap itself, started again inside, asks for it.
    arguments += {"--dir", "/tmp"};
    arguments += {"--perms", "0700", "--size", QString::number(size), "--tmpfs", memory};
    return arguments;
}

/// Processes of its own. Bubblewrap, started again inside, looks for its child in /proc.
const QStringList ownProcesses = {"--unshare-pid", "--as-pid-1", "--proc", "/proc"};

Bubblewrap::End runOnce(const QStringList &arguments)
{
    // Nothing is ever written there; the inner guard is told when this process has ended.
    int lifeline[2];
    OutputRelay relay;
    if (!relay.open() || pipe2(lifeline, O_CLOEXEC) != 0) {
        return {};
    }
    Descriptor lifelineRead(lifeline[0]);
    const Descriptor lifelineWrite(lifeline[1]);

    ChildProcess::Options options;
    options.input = lifelineRead.get();
    options.output = relay.childOutput();
    options.errors = relay.childErrors();
    Bubblewrap sandbox;
    const bool started = sandbox.start(arguments, options);
    lifelineRead.close();
    relay.closeChildEnds();
    while (started && !sandbox.hasEnded()) {
        relay.passOnUntil(sandbox.endDescriptor());
    }
    const Bubblewrap::End end = sandbox.end();
    relay.passOnRest();
    return end;
}

void endNow(int signal)
{
    _exit(endedBySignal + signal);
}
} // namespace

std::optional<int> run(std::optional<qint64> memorySize, const QStringList &arguments)
{
    const QStringList root =
        memorySize ? rootInMemory(*memorySize) : QStringList{"--dev-bind", "/", "/"};
    const QStringList command =
        QStringList{"--", QCoreApplication::applicationFilePath()} + arguments;
    // An ordinary user cannot mount /proc where parts of it are hidden, as in a container.
    for (const QStringList &processes : {ownProcesses, QStringList()}) {
        const Bubblewrap::End end = runOnce(root + processes + command);
        if (end.programStarted || end.killed) {
            return end.exitCode.value_or(endedBySignal + SIGKILL);
        }
    }
    return std::nullopt;
}

bool endWithOuterGuard()
{
    // To the first process of a PID namespace come only the signals that it handles.
    for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGIO}) {
        if (std::signal(signal, endNow) == SIG_IGN && signal != SIGIO) {
            std::signal(signal, SIG_IGN);
        }
    }
    fcntl(STDIN_FILENO, F_SETOWN, getpid());
    fcntl(STDIN_FILENO, F_SETFL, O_ASYNC);
    pollfd lifeline = {STDIN_FILENO, 0, 0};
    return poll(&lifeline, 1, 0) == 0;
}
} // namespace innerGuard

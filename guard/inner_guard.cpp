#include "guard/inner_guard.h"
#include "guard/bubblewrap.h"
#include "guard/output_relay.h"
#include "guard/root_directory.h"

#include <QCoreApplication>

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

/// The root directory with everything of the real one in it, and a file system in memory.
QStringList rootWithMemory(qint64 size)
{
    QStringList arguments = rootDirectory::inMemory("/", "--dev-bind", memory);
    // A second bubblewrap, started inside, needs it.
    arguments += {"--dir", "/tmp"};
    arguments += {"--perms", "0700", "--size", QString::number(size), "--tmpfs", memory};
    return arguments;
}

/// A PID namespace of its own. A second bubblewrap, started inside, looks for its child in /proc.
const QStringList ownProcesses = {"--unshare-pid", "--as-pid-1", "--proc", "/proc"};

Bubblewrap::End runOnce(const QStringList &arguments)
{
    // Nothing is ever written to it. The inner guard gets a signal when this process ends.
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

std::optional<int> runIn(const QStringList &root, const QStringList &arguments)
{
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

void endNow(int signal)
{
    _exit(endedBySignal + signal);
}
} // namespace

std::optional<int> run(std::optional<qint64> memorySize, const QStringList &arguments)
{
    return runIn(
        memorySize ? rootWithMemory(*memorySize) : QStringList{"--dev-bind", "/", "/"}, arguments);
}

std::optional<int> runReadOnly(const Place &place, const QStringList &arguments)
{
    QStringList root = rootDirectory::inMemory("/", "--ro-bind", memory);
    // A second bubblewrap, started inside, writes in /proc.
    root += {"--dir", "/tmp", "--dev-bind", "/dev", "/dev", "--dev-bind", "/proc", "/proc"};
    // It has no devices: it is memory with files of any user.
    root += {"--ro-bind-try", "/dev/shm", "/dev/shm"};
    if (place.memorySize) {
        const QString size = QString::number(*place.memorySize);
        root += {"--perms", "0700", "--size", size, "--tmpfs", memory};
    } else {
        root += {"--bind", place.directory, memory};
    }
    return runIn(root + place.binds, arguments);
}

bool endWithOuterGuard()
{
    // The first process of a PID namespace receives only the signals that it handles.
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

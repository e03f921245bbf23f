#include "guard/bubblewrap.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace
{
const char *const bubblewrapPlaces[] = {"/usr/bin/bwrap", "/bin/bwrap", "/usr/local/bin/bwrap"};

QByteArray contentOf(const Descriptor &pipe)
{
    QByteArray content;
    char piece[1024];
    for (;;) {
        const ssize_t size = read(pipe.get(), piece, sizeof piece);
        if (size > 0) {
            content.append(piece, static_cast<int>(size));
        } else if (size == 0 || errno != EINTR) {
            return content;
        }
    }
}
} // namespace

QString bubblewrapPath()
{
    for (const char *place : bubblewrapPlaces) {
        if (QFileInfo(place).isExecutable()) {
            return place;
        }
    }
    return QString();
}

bool Bubblewrap::startSandbox(const QStringList &arguments)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    m_statusRead = Descriptor(ends[0]);
    m_statusWrite = Descriptor(ends[1]);
    const QStringList own = {
        "--die-with-parent", "--json-status-fd", QString::number(m_statusWrite.get())};
    setProcessChannelMode(QProcess::ForwardedChannels);
    setStandardInputFile(QProcess::nullDevice());
    start(bubblewrapPath(), own + arguments);
    const bool started = waitForStarted(-1);
    m_statusWrite.close();
    return started;
}

void Bubblewrap::setupChildProcess()
{
    // The one descriptor that bubblewrap is to have; it keeps it from the program.
    fcntl(m_statusWrite.get(), F_SETFD, 0);
}

Bubblewrap::End Bubblewrap::end()
{
    bool programKnown = false;
    End end;
    for (const QByteArray &line : contentOf(m_statusRead).split('\n')) {
        const QJsonObject status = QJsonDocument::fromJson(line).object();
        programKnown = programKnown || status.contains("child-pid");
        if (status.contains("exit-code")) {
            end.exitCode = status.value("exit-code").toInt();
        }
    }
    // Bubblewrap names the child before it has prepared the sandbox. Where it ends by itself without
    // the child's exit code, the preparation has failed.
    end.killed = exitStatus() == QProcess::CrashExit;
    const bool failedItself = !end.killed && !end.exitCode;
    end.programStarted = programKnown && !failedItself;
    return end;
}

void closeInheritedDescriptorsOnStart()
{
    const std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir("/proc/self/fd"), closedir);
    while (const dirent *entry = directory ? readdir(directory.get()) : nullptr) {
        const int descriptor = std::atoi(entry->d_name);
        if (descriptor > STDERR_FILENO) {
            fcntl(descriptor, F_SETFD, FD_CLOEXEC);
        }
    }
}

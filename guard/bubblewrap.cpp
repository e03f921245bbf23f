#include "guard/bubblewrap.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace
{
const char *const bubblewrapPlaces[] = {"/usr/bin/bwrap", "/bin/bwrap", "/usr/local/bin/bwrap"};

QByteArray contentOf(const Descriptor &descriptor)
{
    QFile file;
    const bool opened =
        descriptor.isOpen() && file.open(descriptor.get(), QIODevice::ReadOnly) && file.seek(0);
    return opened ? file.readAll() : QByteArray();
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

bool Bubblewrap::start(const QStringList &arguments, ChildProcess::Options options)
{
    // Not a pipe: if this process ended, bubblewrap could not write to it, and would end while its
    // child waits for it.
    m_status = Descriptor(memfd_create("bubblewrap-status", MFD_CLOEXEC));
    options.passed = m_status.get();
    // Bubblewrap's child waits for bubblewrap before it prepares the sandbox. If bubblewrap is
    // killed at that moment, the child waits forever. It then becomes a child of this process,
    // which ends it.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    return m_status.isOpen() &&
           m_process.start(
               bubblewrapPath(),
               QStringList{"--json-status-fd", QString::number(options.passed)} + arguments,
               options);
}

Bubblewrap::End Bubblewrap::end()
{
    m_process.endAllChildren();
    bool programKnown = false;
    End end;
    for (const QByteArray &line : contentOf(m_status).split('\n')) {
        const QJsonObject status = QJsonDocument::fromJson(line).object();
        programKnown = programKnown || status.contains("child-pid");
        if (status.contains("exit-code")) {
            end.exitCode = status.value("exit-code").toInt();
        }
    }
    // Bubblewrap reports the child before it has prepared the sandbox. If bubblewrap ends by itself
    // without reporting the child's exit code, the preparation has failed.
    end.killed = m_process.wasKilled();
    const bool failedItself = !end.killed && !end.exitCode;
    end.programStarted = programKnown && !failedItself;
    return end;
}

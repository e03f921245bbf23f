#include "guard/directory_lock.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

DirectoryLock::~DirectoryLock()
{
    if (m_descriptor >= 0) {
        close(m_descriptor);
    }
}

DirectoryLock::Result DirectoryLock::take(const QString &directory, WaitBudget &budget)
{
    m_descriptor =
        open(QFile::encodeName(directory).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_descriptor < 0) {
        return Result::Impossible;
    }
    while (flock(m_descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return Result::Impossible;
        }
        if (!budget.waitAMoment()) {
            return Result::HeldByAnother;
        }
    }
    return Result::Taken;
}

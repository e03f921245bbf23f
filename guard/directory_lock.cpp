#include "guard/directory_lock.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

DirectoryLock::Result DirectoryLock::take(const QString &directory, WaitBudget &budget)
{
    m_directory = Descriptor(
        open(QFile::encodeName(directory).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_directory.isOpen()) {
        return Result::Impossible;
    }
    while (flock(m_directory.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return Result::Impossible;
        }
        if (!budget.waitAMoment()) {
            return Result::HeldByAnother;
        }
    }
    return Result::Taken;
}

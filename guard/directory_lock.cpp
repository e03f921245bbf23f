#include "guard/directory_lock.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

namespace
{
/// @return whether an error says nothing about the directory: the next try may succeed
bool isPassing(int error)
{
    return error == EIO || error == ENOMEM || error == EMFILE || error == ENFILE || error == ENOLCK;
}

DirectoryLock::Result resultOf(int error)
{
    return isPassing(error) ? DirectoryLock::Result::Failed : DirectoryLock::Result::Impossible;
}
} // namespace

DirectoryLock::Result DirectoryLock::take(const QString &directory, WaitBudget &budget)
{
    m_directory = Descriptor(
        open(QFile::encodeName(directory).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_directory.isOpen()) {
        return resultOf(errno);
    }
    while (flock(m_directory.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return resultOf(errno);
        }
        if (!budget.waitAMoment()) {
            return Result::HeldByAnother;
        }
    }
    return Result::Taken;
}

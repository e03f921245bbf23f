#include "guard/read_lock.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>

namespace
{
/// Bytes of a file that SQLite locks.
struct LockBytes {
    off_t start;
    off_t count;
};
// In the database file.
constexpr LockBytes pendingByte = {0x40000000, 1};
constexpr LockBytes reservedByte = {0x40000001, 1};
constexpr LockBytes sharedBytes = {0x40000002, 510};
// In the index of a write-ahead log: one for each read mark.
constexpr LockBytes readerBytes = {123, 5};

struct flock description(short type, const LockBytes &bytes)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = bytes.start;
    lock.l_len = bytes.count;
    return lock;
}

/// @return 0 or the error number of the system
int setLock(const Descriptor &file, short type, const LockBytes &bytes)
{
    struct flock lock = description(type, bytes);
    return fcntl(file.get(), F_OFD_SETLK, &lock) == 0 ? 0 : errno;
}

bool isHeldByAnother(int error)
{
    return error == EAGAIN || error == EACCES;
}

Descriptor openFile(const QString &path)
{
    return Descriptor(
        open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

/// Locks as SQLite does: a writer that waits for the last readers keeps new ones away with the
/// first byte.
int lockDatabase(const Descriptor &file)
{
    if (const int error = setLock(file, F_RDLCK, pendingByte)) {
        return error;
    }
    const int error = setLock(file, F_RDLCK, sharedBytes);
    setLock(file, F_UNLCK, pendingByte);
    return error;
}
} // namespace

ReadLock::Result ReadLock::take(const QString &database, WaitBudget &budget)
{
    for (;;) {
        Descriptor file = openFile(database);
        Descriptor index = openFile(database + "-shm");
        int error = file.isOpen() ? lockDatabase(file) : EBADF;
        if (error == 0 && index.isOpen()) {
            error = setLock(index, F_RDLCK, readerBytes);
        }
        if (error == 0) {
            m_database = std::move(file);
            m_index = std::move(index);
            return Result::Taken;
        }
        if (!isHeldByAnother(error)) {
            return Result::Impossible;
        }
        // No lock is held while this waits: the writer may be waiting too.
        file.close();
        index.close();
        if (!budget.waitAMoment()) {
            return Result::HeldByAnother;
        }
    }
}

bool ReadLock::hasWriter() const
{
    struct flock lock = description(F_RDLCK, reservedByte);
    return fcntl(m_database.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

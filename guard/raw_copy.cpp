#include "guard/raw_copy.h"
#include "guard/durable_file.h"
#include "guard/limits.h"
#include "guard/read_lock.h"

#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <cerrno>
#include <ctime>
#include <sys/stat.h>

namespace
{
using Failure = std::optional<DatabaseFailure>;

const char *const journalSuffix = "-journal";
const char *const writeAheadLogSuffix = "-wal";
const char *const indexSuffix = "-shm";

constexpr qint64 nanosecondsPerSecond = 1000 * 1000 * 1000;

/// Shows whether a file was written to, without reading it.
struct Stamp {
    bool isThere = false;
    dev_t device = 0;
    ino_t number = 0;
    qint64 size = 0;
    qint64 time = 0; ///< of the last change, in nanoseconds

    bool isSameFile(const Stamp &other) const
    {
        return isThere == other.isThere && device == other.device && number == other.number;
    }
    bool operator==(const Stamp &other) const
    {
        return isSameFile(other) && size == other.size && time == other.time;
    }
};

Stamp stampOf(const QString &path)
{
    struct stat status;
    if (stat(QFile::encodeName(path).constData(), &status) != 0) {
        return {};
    }
    return {
        true,
        status.st_dev,
        status.st_ino,
        status.st_size,
        status.st_mtim.tv_sec * nanosecondsPerSecond + status.st_mtim.tv_nsec};
}

/// The files of a database.
struct Stamps {
    Stamp database;
    Stamp journal;
    Stamp writeAheadLog;
    Stamp index;

    explicit Stamps(const QString &path)
        : database(stampOf(path)), journal(stampOf(path + journalSuffix)),
          writeAheadLog(stampOf(path + writeAheadLogSuffix)), index(stampOf(path + indexSuffix))
    {
    }
};

/// The clock of time stamps has ticks; two writes within one tick have the same time stamp.
bool isOlderThanATick(const Stamp &stamp)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    const qint64 time = now.tv_sec * nanosecondsPerSecond + now.tv_nsec;
    // The file system of most USB sticks counts in steps of two seconds.
    const bool hasCoarseClock = stamp.time % nanosecondsPerSecond == 0;
    const qint64 tick = hasCoarseClock ? 2 * nanosecondsPerSecond : 1;
    // The file may come from a device whose clock was ahead.
    return !stamp.isThere || stamp.time > time || stamp.time + tick <= time;
}

/// Waits until the time stamp would show a change that the lock does not prevent.
void waitForATick(const QString &database, const ReadLock &lock)
{
    const auto canBeTold = [&] {
        const Stamps stamps(database);
        return (lock.isHeld() ||
                (isOlderThanATick(stamps.database) && isOlderThanATick(stamps.journal))) &&
               (lock.holdsWriteAheadLog() || isOlderThanATick(stamps.writeAheadLog));
    };
    const int longestWait = 3000;
    for (int waited = 0; waited < longestWait && !canBeTold();
         waited += limits::lockRetryInterval) {
        QThread::msleep(limits::lockRetryInterval);
    }
}

/// @return true when SQLite would roll the journal back; a used journal that is kept begins with
/// zeros
bool beginsLikeAJournal(const QString &path)
{
    QFile file(path);
    char first = 0;
    return file.open(QIODevice::ReadOnly) && file.getChar(&first) && first != 0;
}

/// Removes the files that an earlier attempt has copied.
void removeCopy(const QString &path)
{
    if (!QFileInfo(path).isSymLink()) {
        QFile::remove(path);
    }
}

/// @return 0 or the error number of the system; what is missing or not a file is not copied,
/// without an error
int copyFile(const QString &from, const QString &to)
{
    removeCopy(to);
    if (!QFileInfo(from).isFile()) {
        return 0;
    }
    const int error = durable::copy(from, to, durable::Ownership(), false);
    if (error != 0) {
        removeCopy(to);
    }
    return error == ENOENT ? 0 : error;
}

enum class Attempt { Done, Changed, Failed };

/// Copies once.
/// @param[out] failure set with Failed
Attempt copyOnce(const QString &database, const QString &copy, WaitBudget &budget, Failure &failure)
{
    ReadLock lock;
    if (lock.take(database, budget) == ReadLock::Result::HeldByAnother) {
        failure = DatabaseFailure{DatabaseFailure::Kind::Locked, "a program is writing to it"};
        return Attempt::Failed;
    }
    waitForATick(database, lock);
    const Stamps before(database);
    // Under the lock no process can roll back a hot journal, so it stays as it is. A writer's
    // journal is not needed: the database still holds its pages.
    const bool isHot = beginsLikeAJournal(database + journalSuffix);
    const bool needsJournal = !lock.isHeld() || (isHot && !lock.hasWriter());
    // The database first: then it does not matter whether text that is added to the write-ahead log
    // meanwhile is in the copy.
    QStringList suffixes = {"", writeAheadLogSuffix};
    if (needsJournal) {
        suffixes << journalSuffix;
    } else {
        removeCopy(copy + journalSuffix);
    }
    for (const QString &suffix : suffixes) {
        if (const int error = copyFile(database + suffix, copy + suffix)) {
            failure = systemFailure(error, "copy");
            return Attempt::Failed;
        }
    }
    const Stamps after(database);
    const bool hasOnlyGrown = lock.holdsWriteAheadLog() &&
                              after.writeAheadLog.isSameFile(before.writeAheadLog) &&
                              after.writeAheadLog.size >= before.writeAheadLog.size;
    const bool isAsItWas = after.database == before.database &&
                           after.index.isSameFile(before.index) &&
                           (hasOnlyGrown || after.writeAheadLog == before.writeAheadLog) &&
                           (!needsJournal || after.journal == before.journal);
    return isAsItWas ? Attempt::Done : Attempt::Changed;
}
} // namespace

Failure copyRaw(const QString &database, const QString &copy, WaitBudget &budget)
{
    for (int attempt = 0; attempt < limits::mostRawCopies; ++attempt) {
        Failure failure;
        switch (copyOnce(database, copy, budget, failure)) {
        case Attempt::Done:
            return std::nullopt;
        case Attempt::Failed:
            return failure;
        case Attempt::Changed:
            QThread::msleep(limits::lockRetryInterval);
            break;
        }
    }
    return DatabaseFailure{DatabaseFailure::Kind::Written, "a program keeps writing to it"};
}

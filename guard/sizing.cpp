#include "guard/sizing.h"
#include "guard/database_file.h"
#include "guard/limits.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>

namespace sizing
{
namespace
{
/// The bytes that runs were measured to add to the staged files.
qint64 measuredGrowth(const Database &database)
{
    const qint64 percent = database.hasWriteAheadLog
                               ? limits::measuredGrowthPercentWithWriteAheadLog
                               : limits::measuredGrowthPercent;
    return limits::measuredGrowthBase + database.bytes * percent / 100;
}
} // namespace

Database measure(const QString &path)
{
    Database database;
    database.fileBytes = QFileInfo(path).size();
    database.bytes = database.fileBytes + QFileInfo(path + "-wal").size();
    database.hasWriteAheadLog = DatabaseFile(path).hasWriteAheadLog();
    return database;
}

qint64 stagingRoom(const Database &database, bool mends)
{
    const int copies = mends ? limits::stagedCopiesWithMending : limits::stagedCopies;
    return copies * database.bytes + roomForProgram(database);
}

qint64 roomForProgram(const Database &database)
{
    return limits::growthFactor * measuredGrowth(database) + limits::logRoom;
}

qint64 reserve(const Database &database)
{
    // The verdict comes after the program and may need a copy of the database of before.
    static_assert(limits::reserveFactor * limits::measuredGrowthPercent >= 100);
    return limits::reserveFactor * measuredGrowth(database);
}

qint64 roomForCommit(const Database &database, qint64 resultBytes)
{
    const qint64 growth = std::max<qint64>(resultBytes - database.fileBytes, 0);
    // A journal takes the old pages, a write-ahead log the new ones.
    const qint64 pages = database.hasWriteAheadLog ? resultBytes : database.fileBytes;
    const qint64 headers = pages * limits::journalHeaderPercent / 100;
    return growth + pages + headers + limits::roomBesideCommit;
}

qint64 roomForDirectRun(const Database &database, const std::optional<qint64> &measured)
{
    const qint64 most = measured ? limits::directRunFactor * *measured : measuredGrowth(database);
    return most + limits::directRunReserve;
}

qint64 freeRoom(const QString &path)
{
    struct statvfs status;
    if (statvfs(QFile::encodeName(path).constData(), &status) != 0) {
        return 0;
    }
    return static_cast<qint64>(status.f_bavail) * static_cast<qint64>(status.f_frsize);
}

bool shareRoom(const QString &path, const QString &other)
{
    struct stat first;
    struct stat second;
    return stat(QFile::encodeName(path).constData(), &first) != 0 ||
           stat(QFile::encodeName(other).constData(), &second) != 0 ||
           first.st_dev == second.st_dev;
}

bool isInMemory(const QString &path)
{
    struct statfs status;
    if (statfs(QFile::encodeName(path).constData(), &status) != 0) {
        return false;
    }
    // On a 32-bit processor the field is signed, and one of the numbers is too large for it.
    const auto type = static_cast<quint32>(status.f_type);
    return type == TMPFS_MAGIC || type == RAMFS_MAGIC;
}
} // namespace sizing

#include "guard/sizing.h"
#include "guard/limits.h"

#include <QFile>
#include <QFileInfo>

#include <linux/magic.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>

namespace sizing
{
namespace
{
/// What a run adds to the staged files, as it was measured.
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
    QFile file(path);
    const int writeVersionPlace = 18;
    const char writeAheadLog = 2;
    Database database;
    database.bytes = file.size() + QFileInfo(path + "-wal").size();
    database.hasWriteAheadLog = file.open(QIODevice::ReadOnly) && file.seek(writeVersionPlace) &&
                                file.read(1) == QByteArray(1, writeAheadLog);
    return database;
}

qint64 stagingRoom(const Database &database)
{
    return limits::stagedCopies * database.bytes + roomForProgram(database);
}

qint64 roomForProgram(const Database &database)
{
    return limits::growthFactor * measuredGrowth(database) + limits::logRoom;
}

qint64 reserve(const Database &database)
{
    return limits::reserveFactor * measuredGrowth(database);
}

qint64 commitRoom(const Database &database, bool withKept)
{
    const qint64 result =
        database.bytes * (100 + limits::measuredGrowthPercent) / 100 + limits::measuredGrowthBase;
    // A journal takes the old pages, a write-ahead log the new ones.
    const qint64 journal = database.hasWriteAheadLog ? result : database.bytes;
    const qint64 kept = withKept ? database.bytes : 0;
    return journal + result - database.bytes + kept + limits::logRoom;
}

qint64 freeRoom(const QString &path)
{
    struct statvfs status;
    if (statvfs(QFile::encodeName(path).constData(), &status) != 0) {
        return 0;
    }
    return static_cast<qint64>(status.f_bavail) * static_cast<qint64>(status.f_frsize);
}

bool isInMemory(const QString &path)
{
    struct statfs status;
    if (statfs(QFile::encodeName(path).constData(), &status) != 0) {
        return false;
    }
    // On a 32-bit processor the field has a sign, and one of the numbers is too large for it.
    const auto type = static_cast<quint32>(status.f_type);
    return type == TMPFS_MAGIC || type == RAMFS_MAGIC;
}
} // namespace sizing

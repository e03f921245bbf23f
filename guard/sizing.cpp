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
qint64 measuredGrowth(qint64 database)
{
    return limits::measuredGrowthBase + database * limits::measuredGrowthPercent / 100;
}
} // namespace

qint64 stagingRoom(qint64 database)
{
    return limits::stagedCopies * database + roomForProgram(database);
}

qint64 roomForProgram(qint64 database)
{
    return limits::growthFactor * measuredGrowth(database) + limits::logRoom + limits::reserve;
}

qint64 commitRoom(qint64 database, bool withKept)
{
    // The journal or write-ahead log holds the whole database once more.
    const qint64 journal = database;
    const qint64 kept = withKept ? database : 0;
    return journal + measuredGrowth(database) + kept + limits::logRoom;
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
    return status.f_type == TMPFS_MAGIC || status.f_type == RAMFS_MAGIC;
}

qint64 databaseSize(const QString &database)
{
    return QFileInfo(database).size() + QFileInfo(database + "-wal").size();
}
} // namespace sizing

#include "guard/database_failure.h"

#include <cerrno>
#include <cstring>
#include <sqlite3.h>

namespace
{
using Kind = DatabaseFailure::Kind;

Kind kindOfResult(int result)
{
    switch (result) {
    case SQLITE_READONLY_DBMOVED:
        return Kind::Replaced;
    case SQLITE_IOERR_SHMSIZE: // the index of a write-ahead log: every reader needs room for it
        return Kind::NoRoom;
    default:
        break;
    }
    const int primaryCode = result & 0xff;
    switch (primaryCode) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
        return Kind::Locked;
    case SQLITE_FULL:
        return Kind::NoRoom;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_CANTOPEN:
        return Kind::NotWritable;
    case SQLITE_NOMEM:
    case SQLITE_IOERR:
        return Kind::Failed;
    default:
        return Kind::Damaged;
    }
}

Kind kindOfError(int error)
{
    switch (error) {
    case ENOSPC:
    case EDQUOT:
        return Kind::NoRoom;
    case EROFS:
    case EACCES:
    case EPERM:
    case EISDIR: // something that is not a file has the name
    case EEXIST:
        return Kind::NotWritable;
    case ENOENT:
    case ENOTDIR:
        return Kind::Replaced;
    default:
        return Kind::Failed;
    }
}
} // namespace

DatabaseFailure sqliteFailure(int result, const QString &text)
{
    return {kindOfResult(result), text};
}

DatabaseFailure systemFailure(int error, const QString &what)
{
    return {kindOfError(error), what + ": " + systemText(error)};
}

QString systemText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

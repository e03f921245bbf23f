#pragma once

#include <QString>

#include <optional>

/// How much room a run needs, and how much there is. All sizes are bytes.
namespace sizing
{
/// A database as far as room is concerned.
struct Database {
    qint64 fileBytes = 0; ///< of its file
    qint64 bytes = 0;     ///< with its write-ahead log
    bool hasWriteAheadLog = false;
};

/// Looks at a database that this process has no connection to: closing its file would end SQLite's
/// locks.
Database measure(const QString &path);

/// @return what staging has to offer before anything is copied: the copies and several times what a
/// run was measured to add
/// @param mends whether there may be a mended copy as well
qint64 stagingRoom(const Database &database, bool mends = false);

/// @return what has to be free in staging when the copies are made and the program is to start
qint64 roomForProgram(const Database &database);

/// @return what has to stay free in staging while the program runs
qint64 reserve(const Database &database);

/// @param resultBytes size of the new content
/// @return the most that a commit takes in the directory of the database: its journal or write-ahead
/// log, and what the database grows by
qint64 roomForCommit(const Database &database, qint64 resultBytes);

/// @param measured the most that this program was seen to take for this database, if it was seen
/// @return what has to be free before the program works on the real database
qint64 roomForDirectRun(const Database &database, const std::optional<qint64> &measured);

/// @return free bytes for this user on the file system of a path, 0 when that cannot be told
qint64 freeRoom(const QString &path);

/// @return true when what one path takes is gone for the other one, also when that cannot be told
bool shareRoom(const QString &path, const QString &other);

/// @return true when the files of this directory are in memory; a directory that is meant to be may
/// be one on flash early in the boot
bool isInMemory(const QString &path);
} // namespace sizing

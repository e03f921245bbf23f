#pragma once

#include <QString>

#include <optional>

/// The room that a run needs, and the room that there is. All sizes are bytes.
namespace sizing
{
/// The sizes of a database.
struct Database {
    qint64 fileBytes = 0; ///< of its file
    qint64 bytes = 0;     ///< of its file and its write-ahead log
    bool hasWriteAheadLog = false;
};

/// Looks at a database. This process must have no connection to it: closing its file would drop
/// SQLite's locks.
Database measure(const QString &path);

/// @return the room that staging has to have before anything is copied: for the copies, and several
/// times the measured growth of a run
/// @param mends whether there may be a mended copy as well
qint64 stagingRoom(const Database &database, bool mends = false);

/// @return the room that has to be free in staging after the copies are made, before the program
/// starts
qint64 roomForProgram(const Database &database);

/// @return the room that has to stay free in staging while the program runs
qint64 reserve(const Database &database);

/// @param resultBytes size of the new content
/// @return the most room that a commit takes in the directory of the database: for its journal or
/// write-ahead log, and for the growth of the database
qint64 roomForCommit(const Database &database, qint64 resultBytes);

/// @param measured the most that this program was measured to take for this database, if it was
/// measured
/// @return the room that has to be free before the program works on the real database
qint64 roomForDirectRun(const Database &database, const std::optional<qint64> &measured);

/// @return free bytes for this user on the file system of a path, 0 when that cannot be found out
qint64 freeRoom(const QString &path);

/// @return true when both paths take their room from the same file system; also when that cannot be
/// found out
bool shareRoom(const QString &path, const QString &other);

/// @return true when the files of this directory are in memory. Early in the boot, a directory that
/// is meant to be in memory may still be on flash
bool isInMemory(const QString &path);
} // namespace sizing

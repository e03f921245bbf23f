#pragma once

#include <QString>

/// How much room a run needs, and how much there is. All sizes are bytes.
namespace sizing
{
/// @param database size of the database with its write-ahead log
/// @return what staging has to offer before anything is copied: the copies and several times what a
/// run was measured to add
qint64 stagingRoom(qint64 database);

/// @return what has to be free in staging when the copies are made and the program is to start
qint64 roomForProgram(qint64 database);

/// @param withKept whether the database of before is kept
/// @return what the commit can take on the real database's file system
qint64 commitRoom(qint64 database, bool withKept);

/// @return free bytes for this user on the file system of a path, 0 when that cannot be told
qint64 freeRoom(const QString &path);

/// @return true when the files of this directory are in memory; a directory that is meant to be may
/// be one on flash early in the boot
bool isInMemory(const QString &path);

/// @return the size of a database with its write-ahead log
qint64 databaseSize(const QString &database);
} // namespace sizing

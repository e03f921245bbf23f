#pragma once

#include "guard/database_failure.h"
#include "guard/wait_budget.h"

#include <QString>

#include <optional>

/// Copies a database as it is: its file, and its journal or write-ahead log, as one set. SQLite then
/// recovers the copy as it would recover the database itself. The database keeps every byte and every
/// time, also where nothing can be written beside it; this process opens no connection to it.
///
/// What others write meanwhile is held off by SQLite's read locks, where the file system has them.
/// What may still change is told by size, time and number of the files, before and after; then all is
/// copied again, five times.
///
/// @param database path of a file, resolved
/// @param copy path of the copy; a link or a directory that has one of its files' names stays
/// @param budget for a writer who holds a lock
/// @return nothing when the copy is there, or why it is not: Locked, Written after five times, NoRoom,
/// NotWritable (this user may not read it), Failed
std::optional<DatabaseFailure> copyRaw(
    const QString &database, const QString &copy, WaitBudget &budget);

#pragma once

#include "guard/database_failure.h"
#include "guard/wait_budget.h"

#include <QString>

#include <optional>

/// Copies a database as it is: its file, and its journal or write-ahead log, as one set. SQLite
/// then recovers the copy as it would recover the database itself. No byte and no time stamp of the
/// database changes, and its directory may be read-only; this process opens no connection to it.
///
/// If the file system has locks, SQLite's read locks keep other processes from writing meanwhile.
/// Changes that the locks do not prevent are found by comparing size, time and number of the files
/// before and after; then everything is copied again, up to five times.
///
/// @param database path of a file, resolved
/// @param copy path of the copy; a link or a directory with the name of one of its files is left
/// alone
/// @param budget time to wait for a writer that holds a lock
/// @return nothing when the copy was made, or why not: Locked, Written (changed five times),
/// NoRoom, NotWritable (this user may not read it), Failed
std::optional<DatabaseFailure> copyRaw(
    const QString &database, const QString &copy, WaitBudget &budget);

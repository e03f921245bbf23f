#pragma once

#include "guard/device_paths.h"
#include "guard/real_database.h"
#include "guard/run_note.h"
#include "guard/sizing.h"

#include <QByteArray>
#include <QString>

/// An accepted result.
struct AcceptedResult {
    QString original; ///< the copy of the database as it was, at rest
    QString database; ///< the database after the program, at rest
    QByteArray log;   ///< what the program has logged
    bool keep;        ///< whether to keep the database of before
    RunNote note;     ///< the run's note, with the files to delete in the pool
};

/// How the commit ended.
struct CommitEnd {
    /// After NotFlushed the database has changed. After Unknown it may have changed; the next run
    /// finds out. After any other failure nothing has changed.
    RealDatabase::Failure failure;
    bool kept = false;         ///< the database of before is kept
    bool poolIsSettled = true; ///< false: the next run tries again to delete files in the pool
};

/// @param before the database that will be replaced
/// @return true when the disk has room for the commit, the log and the kept database
bool hasRoomToCommit(
    const DevicePaths &device, const sizing::Database &before, const AcceptedResult &result);

/// Brings a result into the real database. docs/guard.md explains the order of the flushes.
/// @param database the database that was copied
CommitEnd commitResult(
    RealDatabase &database, const DevicePaths &device, const AcceptedResult &result);

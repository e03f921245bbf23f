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
    QString database; ///< what the program has made of it, at rest
    QByteArray log;   ///< what the program has logged
    bool keep;        ///< whether the database of before is to be kept
    RunNote note;     ///< of the run, with the files that are to be deleted in the pool
};

/// What has come of it.
struct CommitEnd {
    /// After NotFlushed the database has changed; after Unknown it may have, and the next run finds
    /// out; after any other failure nothing has.
    RealDatabase::Failure failure;
    bool kept = false;         ///< the database of before is kept
    bool poolIsSettled = true; ///< false: the next run tries again to delete files in the pool
};

/// @param before the database that is going to be replaced
/// @return true when the disk has room for the commit, the log and what is kept
bool hasRoomToCommit(
    const DevicePaths &device, const sizing::Database &before, const AcceptedResult &result);

/// Brings a result into the real database. docs/guard.md explains the order of the flushes.
/// @param database the one that was copied
CommitEnd commitResult(
    RealDatabase &database, const DevicePaths &device, const AcceptedResult &result);

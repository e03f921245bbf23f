#pragma once

#include "guard/run_note.h"
#include "guard/device_paths.h"
#include "guard/real_database.h"

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

/// Deletes in the pool what a run was to delete after its commit, if it was cut in between.
/// @param note what that run has left
/// @param schemaCookie the database's, which tells whether the commit has happened
/// @return false when a file is still there, because of an error
bool finishCutCommit(const DevicePaths &device, const RunNote &note, qint64 schemaCookie);

/// Brings a result into the real database. docs/guard.md explains the order of the flushes.
/// @param database the one that was copied
CommitEnd commitResult(
    RealDatabase &database, const DevicePaths &device, const AcceptedResult &result);

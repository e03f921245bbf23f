#pragma once

#include "guard/device_paths.h"
#include "guard/run_note.h"

#include <QString>

#include <optional>

/// Deletes in the pool what a run was to delete after its commit, if it was cut in between.
/// @param note what that run has left, nothing when it has left none
/// @param schemaCookie the database's, which tells whether the commit has happened
/// @return false when a file is still there, because of an error
bool settlePool(const DevicePaths &device, const std::optional<RunNote> &note, qint64 schemaCookie);

/// Gives the kept databases that a run which was cut has left their names, or removes them.
/// @param current the database as it is now, at rest; empty when it cannot be read and never will be
/// @return true when something was renamed or removed: the directory is to be flushed
bool settleKeptDatabases(const DevicePaths &device, const QString &current);

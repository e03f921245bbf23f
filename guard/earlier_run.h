#pragma once

#include "guard/device_paths.h"
#include "guard/run_note.h"

#include <QString>

#include <optional>

/// Deletes the files of the pool that a run should have deleted after its commit, if it was cut
/// between the two.
/// @param note the note that the run left, nothing without one
/// @param schemaCookie the database's counter of schema changes, which shows whether the commit has
/// happened
/// @return false when a file is still there, because of an error
bool settlePool(const DevicePaths &device, const std::optional<RunNote> &note, qint64 schemaCookie);

/// Settles the kept databases that a cut run has left: gives them their names, or removes them.
/// @param current the database as it is now, at rest; empty when it cannot be read and never will be
/// @return true when something was renamed or removed: the directory has to be flushed
bool settleKeptDatabases(const DevicePaths &device, const QString &current);

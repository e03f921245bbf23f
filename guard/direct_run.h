#pragma once

#include "guard/device_paths.h"
#include "guard/last_migration.h"
#include "guard/migration.h"

/// Runs the program on the real database, as without a guard, and records how it ended.
/// @param lastMigration shows a cut run until this one is recorded there; null when it has no place
/// @param record already has the reason, and the version before if it is known
void runUnguarded(
    const DevicePaths &device, const MigrationOptions &options, LastMigration *lastMigration,
    RunRecord *record);

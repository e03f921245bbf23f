#pragma once

#include "guard/device_paths.h"
#include "guard/migration.h"

/// Runs the program on the real database, as without a guard, and records how it ended.
/// @param record already has the reason, and the version before if it is known
void runUnguarded(const DevicePaths &device, const MigrationOptions &options, RunRecord *record);

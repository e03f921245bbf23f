#pragma once

#include "guard/device_paths.h"
#include "guard/migration.h"

/// Runs the program on the real database, as without a guard, and records how it ended.
/// @param record has the reason already, and the version before where that is known
void runUnguarded(const DevicePaths &device, const MigrationOptions &options, RunRecord *record);

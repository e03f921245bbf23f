#pragma once

#include "guard/device_paths.h"
#include "guard/last_migration.h"
#include "guard/wait_budget.h"

/// What the caller asks of a restoration.
struct RestorationOptions {
    bool dryRun = false; ///< only tell what would happen
    int waitSeconds = 0; ///< for locks of others, in all
};

/// Brings the kept database of before back; where the database is that one already, what was replaced
/// by it. Prints on standard output what that changes.
/// @return how it ended; where the database has changed, or may have, that is recorded beside it
RunRecord restore(const DevicePaths &device, const RestorationOptions &options);

/// Brings the kept database of before back if a program knows its version, and keeps the one that it
/// replaces in its place. The caller has the guard's lock, and records how it ended.
/// @param newest the newest version that the program knows
/// @param budget for the locks of others
RunRecord fallBack(const DevicePaths &device, int newest, WaitBudget &budget);

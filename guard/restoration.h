#pragma once

#include "guard/device_paths.h"
#include "guard/last_migration.h"
#include "guard/wait_budget.h"

/// The caller's options for a restoration.
struct RestorationOptions {
    bool dryRun = false; ///< only print what would happen
    int waitSeconds = 0; ///< to wait for locks of others, in all
};

/// Brings the kept database of before back. If the database equals it already, brings back the
/// database that it had replaced. Prints what that changes on standard output.
/// @return how it ended; if the database has changed or may have, this is also recorded beside it
RunRecord restore(const DevicePaths &device, const RestorationOptions &options);

/// Brings the kept database of before back if the program knows its version, and keeps the replaced
/// database in its place. The caller holds the guard's lock, and records how it ended.
/// @param newest the newest version that the program knows
/// @param budget time to wait for the locks of others
RunRecord fallBack(const DevicePaths &device, int newest, WaitBudget &budget);

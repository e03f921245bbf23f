#pragma once

#include "guard/device_paths.h"
#include "guard/last_migration.h"

/// What the caller asks of a restoration.
struct RestorationOptions {
    bool dryRun = false; ///< only tell what would happen
    int waitSeconds = 0; ///< for locks of others, in all
};

/// Brings the kept database of before back; where the database is that one already, what was replaced
/// by it. Prints on standard output what that changes.
/// @return how it ended; where the database has changed, or may have, that is recorded beside it
RunRecord restore(const DevicePaths &device, const RestorationOptions &options);

#pragma once

#include "guard/device_paths.h"
#include "guard/last_migration.h"

/// What the caller asks of a restoration.
struct RestorationOptions {
    bool dryRun = false; ///< only tell what would happen
    int waitSeconds = 0; ///< for locks of others, in all
};

/// Brings the kept database of before back; directly after that, what it has replaced. Prints on
/// standard output which rows go and come back.
/// @return how it ended; it is recorded beside the database and durable
RunRecord restore(const DevicePaths &device, const RestorationOptions &options);

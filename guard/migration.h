#pragma once

#include "guard/device_paths.h"
#include "guard/run_record.h"

#include <QByteArrayList>
#include <QString>

#include <functional>

struct StagedResult;

/// What the caller asks of a run.
struct MigrationOptions {
    int target = 0;
    bool strict = false;          ///< nothing rather than something to look at
    bool fallBack = false;        ///< bring the kept database back where the one there is too new
    bool keepDatabase = true;     ///< keep the database of before
    bool mend = false;            ///< put right in the copy what cut runs have left
    QByteArrayList acceptedCodes; ///< findings with these codes do not count
    int waitSeconds = 0;          ///< for locks of others, in all
    bool noNamespaces = false; ///< bubblewrap was tried, and could not make a place for a program
    QString memoryStaging;     ///< an empty directory in memory that is this run's own, or empty
    QString stagingParent;     ///< a directory that the caller named for staging, or empty

    /// Called with a result that was judged, as long as it is staged.
    std::function<void(const StagedResult &)> seeResult;
};

/// Migrates the device's database in one transaction, or not at all.
/// @return how it ended; it is recorded beside the database and durable
RunRecord migrate(const DevicePaths &device, const MigrationOptions &options);

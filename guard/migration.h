#pragma once

#include "guard/device_paths.h"
#include "guard/run_record.h"

#include <QByteArrayList>
#include <QString>

#include <functional>

struct StagedResult;

/// The caller's options for a run.
struct MigrationOptions {
    int target = 0;
    bool strict = false;          ///< change nothing if the result would need a look
    bool fallBack = false;        ///< if the database is too new, bring the kept one back
    bool keepDatabase = true;     ///< keep the database of before
    bool mend = false;            ///< repair in the copy what cut runs have left
    QByteArrayList acceptedCodes; ///< findings with these codes do not count
    int waitSeconds = 0;          ///< to wait for locks of others, in all
    bool noNamespaces = false;    ///< bubblewrap was tried and could not make a sandbox
    QString memoryStaging;        ///< an empty directory in memory that is this run's own, or empty
    QString stagingParent;        ///< a directory that the caller named for staging, or empty

    /// Called with a judged result while it is still staged.
    std::function<void(const StagedResult &)> seeResult;
};

/// Migrates the device's database in one transaction, or not at all.
/// @return how it ended; it is recorded beside the database and durable
RunRecord migrate(const DevicePaths &device, const MigrationOptions &options);

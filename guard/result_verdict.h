#pragma once

#include "guard/migration.h"
#include "guard/verdict/verdict.h"

/// What the program has made of the staged database.
struct StagedResult {
    QString before;           ///< the copy of the database as it was, at rest
    QString after;            ///< what the program has made of it, at rest
    QString scratchDirectory; ///< for the verdict's own copy
    QByteArray log;           ///< what the program has logged
    qint64 mostTaken = 0;     ///< bytes that the program was seen to take in staging
};

/// Judges the result of a run on this device.
/// @param record the versions before and after
/// @param differences of the two databases
Verdict judgeResult(
    const DevicePaths &device, const MigrationOptions &options, const RunRecord &record,
    const StagedResult &result, const DatabaseDifferences &differences);

/// Judges a run of the program on the real database, of which there is nothing to compare.
/// @param reason why it was not guarded
Verdict judgeDirectRun(
    const MigrationOptions &options, const RunRecord &record, const QString &reason);

#pragma once

#include "guard/mending.h"
#include "guard/migration.h"
#include "guard/verdict/verdict.h"

#include <QSet>

#include <optional>

/// What the program has made of the staged database.
struct StagedResult {
    QString before;            ///< the copy of the database that the program was given, at rest
    QString after;             ///< what the program has made of it, at rest
    QString scratchDirectory;  ///< for the verdict's own copy
    QByteArray log;            ///< what the program has logged
    QVector<Mending> mendings; ///< of the copy, before the program was given it
    qint64 mostTaken = 0;      ///< bytes that the program was seen to take in staging
};

/// Judges the result of a run on this device.
/// @param record the versions before and after
/// @param differences of the two databases
Verdict judgeResult(
    const DevicePaths &device, const MigrationOptions &options, const RunRecord &record,
    const StagedResult &result, const DatabaseDifferences &differences);

/// What is known of a run of the program on the real database.
struct DirectResult {
    QString reason; ///< why it was not guarded
    QByteArray log; ///< what the program has logged

    /// That there were before, folded; nothing when nobody could read them.
    std::optional<QSet<QByteArray>> tablesBefore;
};

/// @return the names of all tables, folded; nothing when they cannot be read
std::optional<QSet<QByteArray>> tableNames(const SqliteConnection &connection);

/// Judges a run of the program on the real database, of which there is nothing to compare: whether it
/// has reached the target, and what its log says of the steps.
Verdict judgeDirectRun(
    const DevicePaths &device, const MigrationOptions &options, const RunRecord &record,
    const DirectResult &result);

#pragma once

#include "guard/mending.h"
#include "guard/migration.h"
#include "guard/verdict/verdict.h"

#include <QSet>

#include <optional>

/// The staged database before and after the program.
struct StagedResult {
    QString before;            ///< the copy of the database that the program was given, at rest
    QString after;             ///< the database after the program, at rest
    QString scratchDirectory;  ///< for the verdict's own copy
    QByteArray log;            ///< what the program has logged
    QVector<Mending> mendings; ///< of the copy, before the program was given it
    qint64 mostTaken = 0;      ///< the most bytes that the program was measured to take in staging
};

/// Judges the result of a run on this device.
/// @param record has the versions before and after
/// @param differences between the two databases
Verdict judgeResult(
    const DevicePaths &device, const MigrationOptions &options, const RunRecord &record,
    const StagedResult &result, const DatabaseDifferences &differences);

/// What is known about a run of the program on the real database.
struct DirectResult {
    QString reason; ///< why the run was not guarded
    QByteArray log; ///< what the program has logged

    /// The tables before the run, folded; nothing when they could not be read.
    std::optional<QSet<QByteArray>> tablesBefore;
};

/// @return the names of all tables, folded; nothing when they cannot be read
std::optional<QSet<QByteArray>> tableNames(const SqliteConnection &connection);

/// Judges a run of the program on the real database. There is no copy to compare with, so it judges
/// whether the target was reached, and what the log says about the steps.
Verdict judgeDirectRun(
    const DevicePaths &device, const MigrationOptions &options, const RunRecord &record,
    const DirectResult &result);

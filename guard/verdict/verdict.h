#pragma once

#include "guard/comparison.h"
#include "guard/verdict/finding.h"
#include "guard/verdict/table_judgement.h"
#include "guard/verdict/version_table.h"

#include <QStringList>

#include <limits>
#include <optional>

/// A run to judge.
struct RunToJudge {
    QString before;          ///< path of the database before, at rest
    QString after;           ///< path of the database after, at rest
    std::optional<int> from; ///< recorded versions, nothing when the database records none
    std::optional<int> to;
    int target = 0;
    QByteArray log;               ///< the text that the run has logged
    QByteArray platform;          ///< the first line of the device's platform file
    QVector<QByteArray> scripts;  ///< the texts of the reference-data scripts
    QByteArrayList acceptedCodes; ///< findings with these codes do not count
    QString scratchDirectory;     ///< has room for a copy of the database of before
};

/// The judgement on a run.
struct Verdict {
    std::optional<int> from;
    std::optional<int> to;
    int target = 0;
    QVector<Finding> findings;    ///< those that count first
    QVector<TableNumbers> tables; ///< those that differ and could be read
    QVector<int> unknownVersions; ///< versions of the run that the table of versions does not know
    bool lackedRoom = false;      ///< not judged: the scratch directory had no room for the copy

    /// Makes findings on lost data name the kept database of before.
    void noteKept();

    /// @return how many findings a person has to look at
    int counting() const;

    /// @return a sentence for every finding that counts
    QStringList lines() const;

    /// @return a sentence on the unknown versions, empty when there is none
    QString unknownLine() const;

    /// docs/findings.md describes the format.
    /// @param withRows whether the object may have keys, names and values of rows
    /// @param mostEntries the limit for each list; the object says how many entries are left out
    QJsonObject toJson(bool withRows, int mostEntries = std::numeric_limits<int>::max()) const;
};

/// Judges a run: compares the databases of before and after, and reads the log.
///
/// Only reads, except for a copy in the scratch directory. No trigger, view, computed column or
/// default of the databases is evaluated; the only expressions are those of the table of versions.
///
/// Time: bounded by the sizes of both files. Memory: both schemas, one row of each file, 32 MiB of
/// rows that findings are about, and 2 MB for sorting; rows beyond 64 MiB are not read.
///
/// @param differences between the two databases, from compareDatabases()
Verdict judge(
    const RunToJudge &run, const DatabaseDifferences &differences, const VersionTable &versions);

#pragma once

#include "guard/database_failure.h"
#include "guard/measurements.h"
#include "guard/recorded_version.h"
#include "guard/verdict/verdict.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

/// The exit status of a command; scripts rely on the numbers.
enum class Status {
    Success = 0,        ///< the target is reached, nothing to look at
    WrongCall = 2,      ///< nothing was started
    NothingChanged = 3, ///< with the reason `commit-unknown` this is not known
    LookAtIt = 4        ///< changed, and needs a look
};

/// How one run ended.
struct RunRecord {
    QString command = "run";   ///< or "restore"
    RecordedVersion from;      ///< the version before
    RecordedVersion to;        ///< the version after
    std::optional<int> target; ///< nothing for a restore
    bool guarded = true;       ///< false: the program ran on the real database
    QString staging;           ///< "memory" or "disk", empty when nothing was staged
    QString reason;            ///< a code: why direct, why nothing changed, what to look at
    QString detail;            ///< SQLite's or the system's words for it
    bool endIsKnown = true;    ///< false: `to`, `changed` and `kept` have no meaning
    bool changed = false;
    bool kept = false; ///< the database of before was kept
    Status status = Status::Success;
    std::optional<Verdict> verdict;   ///< on the result, or why the program was not started
    bool followsCutDirectRun = false; ///< an earlier direct run was cut, and no run has told it yet
    std::optional<int> newestKnown;   ///< the newest version that the program knows
    Measurements measured;

    /// The run has left the database as it was.
    void endUnchanged(const QString &why, const QString &words = QString());

    /// Sets status and reason for a failure of the database.
    /// @param step the reason to use for a failure that has none of its own (the disk, the memory,
    /// damage, a missing right), such as "commit-failed"
    void endWith(const DatabaseFailure &failure, const QString &step);

    /// @return docs/last-migration.schema.json describes it
    QJsonObject toJson() const;

    /// Sets status and reason from the verdict.
    /// @param atLeast the status of a run with findings that count
    void judgedBy(const Verdict &judged, Status atLeast);

    /// @return one line for the terminal, then a sentence for every finding that counts, and one on
    /// versions whose losses are not known
    QStringList lines() const;
};

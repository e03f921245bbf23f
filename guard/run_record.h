#pragma once

#include "guard/database_failure.h"
#include "guard/measurements.h"
#include "guard/recorded_version.h"
#include "guard/verdict/verdict.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

/// What a command ended with; scripts rely on the numbers.
enum class Status {
    Success = 0,        ///< the target is reached, nothing to look at
    WrongCall = 2,      ///< nothing was started
    NothingChanged = 3, ///< but with the reason `commit-unknown` nobody can tell
    LookAtIt = 4        ///< changed, but look at it
};

/// How one run ended.
struct RunRecord {
    QString command = "run";   ///< or "restore"
    RecordedVersion from;      ///< before
    RecordedVersion to;        ///< after
    std::optional<int> target; ///< nothing for a restore
    bool guarded = true;       ///< false: the program ran on the real database
    QString staging;           ///< "memory" or "disk", empty when nothing was staged
    QString reason;            ///< a code: why direct, why nothing changed, what to look at
    QString detail;            ///< SQLite's or the system's words for it
    bool endIsKnown = true;    ///< false: `to`, `changed` and `kept` say nothing
    bool changed = false;
    bool kept = false; ///< the database of before was kept
    Status status = Status::Success;
    std::optional<Verdict> verdict; ///< of a result that was judged, or why nothing was started
    std::optional<int> newestKnown; ///< the newest version that the program knows
    Measurements measured;

    /// The run has left the database as it was.
    void endUnchanged(const QString &why, const QString &words = QString());

    /// The run ends with what the database has answered: status and reason for every failure.
    /// @param step the reason for a failure that has none of its own (the disk, the memory, damage, a
    /// missing right), such as "commit-failed"
    void endWith(const DatabaseFailure &failure, const QString &step);

    /// @return docs/last-migration.schema.json describes it
    QJsonObject toJson() const;

    /// Sets status and reason by the verdict.
    /// @param atLeast the status of a run with findings that count
    void judgedBy(const Verdict &judged, Status atLeast);

    /// @return the one line for the terminal, then a sentence for every finding that counts
    QStringList lines() const;
};

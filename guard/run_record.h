#pragma once

#include "guard/database_failure.h"
#include "guard/recorded_version.h"

#include <QJsonObject>
#include <QString>

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

    /// The run has left the database as it was.
    void endUnchanged(const QString &why, const QString &words = QString());

    /// The run ends with what the database has answered: status and reason for every failure.
    /// @param step the reason for a failure that has none of its own (the disk, the memory, damage, a
    /// missing right), such as "commit-failed"
    void endWith(const DatabaseFailure &failure, const QString &step);

    QJsonObject toJson() const;

    /// @return the one line for the terminal
    QString line() const;
};

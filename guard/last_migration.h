#pragma once

#include <QJsonObject>
#include <QString>

#include <optional>

/// What a command ended with; scripts rely on the numbers.
enum class Status {
    Success = 0,   ///< the target is reached, nothing to look at
    WrongCall = 2, ///< nothing was started
    NothingChanged = 3,
    LookAtIt = 4 ///< changed, but look at it
};

/// How one run ended.
struct RunRecord {
    QString command = "run"; ///< or "restore"
    std::optional<int> from; ///< recorded versions, nothing when the database records none
    std::optional<int> to;
    std::optional<int> target; ///< nothing for a restore
    bool guarded = true;       ///< false: the program ran on the real database
    QString staging;           ///< "memory" or "disk", empty when nothing was staged
    QString reason;            ///< a code: why direct, why nothing changed, what to look at
    QString detail;            ///< SQLite's or the system's words for it
    bool changed = false;
    bool kept = false; ///< the database of before was kept
    Status status = Status::Success;

    QJsonObject toJson() const;

    /// @return the one line for the terminal
    QString line() const;
};

/// lastMigration.json: the last run, and the last one that changed the version or ended with 3 or 4.
/// No time of day: the clock of a device may be unset.
class LastMigration
{
public:
    /// Reads the file; one that cannot be read is an empty one.
    explicit LastMigration(const QString &path);

    QJsonObject lastRun() const { return m_content.value("lastRun").toObject(); }
    QJsonObject lastChange() const { return m_content.value("lastChange").toObject(); }

    /// @return false when the last run that changed the database left it for somebody to look at
    bool databaseInOrder() const { return m_content.value("databaseInOrder").toBool(true); }

    /// Notes a run. One that repeats the last one writes nothing.
    /// @param flushDirectory whether the directory is flushed in any case, for other files' sake
    /// @return false when the file could not be written
    bool record(const RunRecord &run, bool flushDirectory);

private:
    QString m_path;
    QJsonObject m_content;
};

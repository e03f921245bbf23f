#pragma once

#include "guard/run_record.h"

#include <QJsonObject>
#include <QString>

/// lastMigration.json: the last run, the last one that changed the version or ended with 3 or 4, and
/// the last changes of version. It is a contract: docs/last-migration.schema.json.
/// No time of day: the clock of a device may be unset.
class LastMigration
{
public:
    /// Reads the file; one that cannot be read is an empty one.
    explicit LastMigration(const QString &path);

    QJsonObject lastRun() const { return m_content.value("lastRun").toObject(); }
    QJsonObject lastChange() const { return m_content.value("lastChange").toObject(); }

    /// @return false when somebody should look at the database: a run has changed it and not ended
    /// well, and no walk that ended well or restore has come since. An ordinary boot says nothing
    /// about that
    bool databaseInOrder() const { return m_content.value("databaseInOrder").toBool(true); }

    /// @return all that the file says
    QJsonObject content() const { return m_content; }

    /// Notes a run. One that repeats the last one writes nothing, whatever was measured.
    /// @param flushDirectory whether the directory is flushed in any case, for other files' sake
    /// @return false when the file could not be written
    bool record(const RunRecord &run, bool flushDirectory);

private:
    QString m_path;
    QJsonObject m_content;
};

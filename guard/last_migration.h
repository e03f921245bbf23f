#pragma once

#include "guard/run_record.h"

#include <QJsonObject>
#include <QString>

/// lastMigration.json: the last run, the last run that changed the version or ended with 3 or 4,
/// and the last changes of version. Its format is a contract: docs/last-migration.schema.json. It
/// has no time of day: the clock of a device may be unset.
class LastMigration
{
public:
    /// Reads the file; one that cannot be read counts as empty.
    explicit LastMigration(const QString &path);

    QJsonObject lastRun() const { return m_content.value("lastRun").toObject(); }
    QJsonObject lastChange() const { return m_content.value("lastChange").toObject(); }

    /// @return false when the database needs a look: a run changed it and did not end well, and
    /// since then no walk has ended well and nothing was restored. An ordinary boot does not change
    /// this
    bool databaseInOrder() const { return m_content.value("databaseInOrder").toBool(true); }

    /// @return everything in the file
    QJsonObject content() const { return m_content; }

    /// Records a run. A run that repeats the last one writes nothing, whatever was measured.
    /// @param flushDirectory whether to flush the directory in any case, because of other files in
    /// it
    /// @return false when the file could not be written
    bool record(const RunRecord &run, bool flushDirectory);

private:
    QString m_path;
    QJsonObject m_content;
};

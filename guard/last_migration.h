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

    /// @return true when a direct run was cut, and since then no run has reported it and no database
    /// was restored
    bool directRunWasCut() const;

    /// @return everything in the file
    QJsonObject content() const { return m_content; }

    /// Records a direct run as one that was cut, before its program starts. If the run ends, record()
    /// replaces this. If it cannot be written, the program runs all the same, as it would without
    /// the guard.
    /// @param run what is known before the program starts
    void announceDirectRun(RunRecord run);

    /// Records a run. A run that repeats the last one writes nothing, whatever was measured, unless
    /// it was announced.
    /// @param flushDirectory whether to flush the directory in any case, because of other files in
    /// it
    /// @return false when the file could not be written
    bool record(const RunRecord &run, bool flushDirectory);

private:
    int write(const QJsonObject &content) const;

    QString m_path;
    QJsonObject m_content;
    bool m_isAnnounced = false; ///< the file has the record of a direct run that was cut
};

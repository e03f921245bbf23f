#pragma once

#include "guard/device_paths.h"
#include "guard/last_migration.h"

#include <QStringList>

/// The report of `migration-guard status`: the recorded version, the newest version that the
/// program knows, the kept database of before, the last run and the last change.
class StatusReport
{
public:
    /// Looks at the device and changes nothing.
    explicit StatusReport(const DevicePaths &device);

    /// @return for a person
    QStringList lines() const;

    /// @return for a script: a JSON object; docs/guard.md describes it
    QString json() const;

    /// @return the exit status of the last run; without one, that of a run that changed nothing
    int lastStatus() const;

private:
    /// A version, if it could be read.
    struct Version {
        std::optional<qint64> number;
        QString text; ///< the version, with a remark if there is one
    };
    static Version versionAtRest(const QString &database, const QString &remark);
    static Version versionOfDatabase(const DevicePaths &device);

    QString m_keptPath;
    Version m_database;
    std::optional<Version> m_kept; ///< nothing without a kept database
    std::optional<int> m_newest;
    LastMigration m_lastMigration;
};

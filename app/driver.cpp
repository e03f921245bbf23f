#include "app/database_migrator.h"

void DatabaseMigrator::runMigration()
{
    checkDatabaseIntegrity();
    const bool upToDate = !m_targetTakenFromAlternate && !m_migrationNeeded &&
                          m_storedMirelVersion == m_softwareVersion;
    if (!upToDate) {
        m_alternateVersion = m_currentVersion;
        if (m_currentVersion < m_targetVersion) {
            migrateForward();
        }
        if (m_targetVersion < m_currentVersion) {
            migrateBackward();
        }
        updateDatabaseVersion();
    }
    runSqlScript(applicationDirPath() + "/refMachines.sql");
    runSqlScript(applicationDirPath() + "/refProducts.sql");
    renameDuplicateFiles();
    renameDuplicateNames();
}

// Both walks follow the registries, not the current version: a step that fails stops nothing, and
// version numbers without a step cost nothing.

void DatabaseMigrator::migrateForward()
{
    auto step = m_forwardSteps.upperBound(m_currentVersion);
    while (step != m_forwardSteps.end() && step.key() <= m_targetVersion) {
        (this->*step.value())();
        ++step;
    }
}

void DatabaseMigrator::migrateBackward()
{
    auto step = m_backwardSteps.upperBound(m_currentVersion);
    while (step != m_backwardSteps.begin() && (--step).key() > m_targetVersion) {
        (this->*step.value())();
    }
}

void DatabaseMigrator::updateDatabaseVersion()
{
    if (m_targetTakenFromAlternate) {
        // Without a recorded software version the next run migrates again.
        m_softwareVersion.clear();
    }
    const QString version = QString::number(m_currentVersion);
    logMessage(QString("\n*****Updating version in DB to: %1 with software version: %2")
                   .arg(version, m_softwareVersion));
    executeOrLogText(
        QString(
            "UPDATE tableVersion SET version = %1, MirelVersion = '%2' WHERE tableName = 'mainSqlDb'")
            .arg(version, m_softwareVersion));
    executeOrLogText(QString("UPDATE tableVersion SET version = %1 WHERE tableName = 'altSqlDb'")
                         .arg(m_alternateVersion));
}

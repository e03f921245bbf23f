#include "app/database_migrator.h"
#include "schema/limited_walk.h"
#include "schema/statements.h"

// ---- Version 13: acceptance of the end-user agreement. ------------------------------------------

void DatabaseMigrator::updateToVersion13()
{
    const bool succeeded = allSucceeded({
        dropTable("SoftwareUpdateTable"),
        addColumn("userProfiles", "acceptedEULA", "BOOLEAN DEFAULT 0"),
    });
    closeForwardStep(
        succeeded,
        13,
        "Migration to version 13 was successful.",
        "Migration to version 13 FAILED!");
}

void DatabaseMigrator::revertFromVersion13()
{
    // Kept on purpose: drops two tables that the forward step never touches, and does not re-create
    // the one that it dropped.
    const bool succeeded = allSucceeded({
        dropTable("SoftwareVersion"),
        dropTable("SoftwareUpdates"),
        dropColumnSaveParameters("userProfiles", "acceptedEULA"),
    });
    if (succeeded) {
        m_currentVersion = 12;
    }
}

bool DatabaseMigrator::getUpdate13Applied() const
{
    return getTableInfo("userProfiles").columnNames.contains("acceptedEULA");
}

// ---- Version 14: GPS filter level in the preferred solutions. -----------------------------------

void DatabaseMigrator::updateToVersion14()
{
    const bool succeeded = addColumn("preferredGpsSolutions", "filterLevel", "INTEGER DEFAULT 1");
    closeForwardStep(
        succeeded,
        14,
        "Migration to version 14 was successful.",
        "Migration to version 14 FAILED!");
}

void DatabaseMigrator::revertFromVersion14()
{
    if (dropColumnSaveParameters("preferredGpsSolutions", "filterLevel")) {
        m_currentVersion = 13;
    }
}

bool DatabaseMigrator::getUpdate14Applied() const
{
    // Without the table there is nothing to repair.
    const TableInfo solutions = getTableInfo("preferredGpsSolutions");
    return solutions.createText.isEmpty() || solutions.columnNames.contains("filterLevel");
}

// ---- Version 15: ECU offsets of section groups. -------------------------------------------------

void DatabaseMigrator::updateToVersion15()
{
    const bool succeeded =
        addColumn("MC_EquipmentSectionGroup", "useEcuOffsets", "BOOLEAN DEFAULT 1");
    closeForwardStep(
        succeeded,
        15,
        "Migration to version 15 was successful.",
        "Migration to version 15 FAILED!");
}

void DatabaseMigrator::revertFromVersion15()
{
    if (dropColumnSaveParameters("MC_EquipmentSectionGroup", "useEcuOffsets")) {
        m_currentVersion = 14;
    }
}

bool DatabaseMigrator::getUpdate15Applied() const
{
    // Kept on purpose: unlike version 14, a missing table counts as a missing change.
    return getTableInfo("MC_EquipmentSectionGroup").columnNames.contains("useEcuOffsets");
}

// ---- Version 16: full locale codes for the language of the user profiles. -----------------------

void DatabaseMigrator::updateToVersion16()
{
    // Kept on purpose: SQLite reads a name in double quotes as a text if there is no such column.
    const bool succeeded = allSucceeded({
        executeQuietly(R"(UPDATE UserProfiles SET language = "en-US" WHERE language = "en")"),
        executeQuietly(R"(UPDATE UserProfiles SET language = "es-ES" WHERE language = "es")"),
        executeQuietly(R"(UPDATE UserProfiles SET language = "fr-FR" WHERE language = "fr")"),
        executeQuietly(R"(UPDATE UserProfiles SET language = "de-DE" WHERE language = "de")"),
        executeQuietly(R"(UPDATE UserProfiles SET language = "ru-RU" WHERE language = "ru")"),
        executeQuietly(R"(UPDATE UserProfiles SET language = "pt-BR" WHERE language = "pt")"),
        // Kept on purpose: fails when the table is already gone.
        executeQuietly("DROP TABLE languages"),
    });
    closeForwardStep(
        succeeded,
        16,
        "Migration to version 16 was successful.",
        "Migration to version 16 FAILED!");
}

void DatabaseMigrator::revertFromVersion16()
{
    executeQuietly(R"(UPDATE UserProfiles SET language = "en" WHERE language = "en-US")");
    executeQuietly(R"(UPDATE UserProfiles SET language = "es" WHERE language = "es-ES")");
    executeQuietly(R"(UPDATE UserProfiles SET language = "fr" WHERE language = "fr-FR")");
    // Kept on purpose: the forward step never writes this one.
    executeQuietly(R"(UPDATE UserProfiles SET language = "fr" WHERE language = "fr-CA")");
    executeQuietly(R"(UPDATE UserProfiles SET language = "de" WHERE language = "de-DE")");
    executeQuietly(R"(UPDATE UserProfiles SET language = "ru" WHERE language = "ru-RU")");
    executeQuietly(R"(UPDATE UserProfiles SET language = "pt" WHERE language = "pt-BR")");
    // Kept on purpose: the table of languages is not re-created.
    m_currentVersion = 15;
}

bool DatabaseMigrator::getUpdate16Applied() const
{
    return !tableExists("languages");
}

// ---- Version 17: the internal GPS receiver's settings become those of supported receivers. ------

void DatabaseMigrator::updateToVersion17()
{
    // Kept on purpose: the column is added even if the rename failed, and its type has square
    // brackets.
    const bool succeeded = allSucceeded({
        executeQuietly(
            "ALTER TABLE internalGpsReceiverSettings RENAME TO supportedHarloReceiverSettings"),
        addColumn("supportedHarloReceiverSettings", "firmwareVersion", "VARCHAR[40]"),
    });
    closeForwardStep(
        succeeded,
        17,
        "Migration to version 17 was successful.",
        "Migration to version 17 FAILED!");
}

void DatabaseMigrator::revertFromVersion17()
{
    // Kept on purpose: counts as done whatever fails.
    dropColumnSaveParameters("supportedHarloReceiverSettings", "firmwareVersion");
    executeQuietly(
        "ALTER TABLE supportedHarloReceiverSettings RENAME TO internalGpsReceiverSettings");
    m_currentVersion = 16;
}

bool DatabaseMigrator::getUpdate17Applied() const
{
    // Kept on purpose: looks only for the old table, in exactly this letter case.
    return !tableExists("internalGpsReceiverSettings");
}

// ---- Version 18: guidance type of job profiles. -------------------------------------------------

void DatabaseMigrator::updateToVersion18()
{
    const bool succeeded = addColumn("JP_JobProfile", "guidanceType", "INTEGER DEFAULT 2");
    closeForwardStep(
        succeeded,
        18,
        "Migration to version 18 was successful.",
        "Migration to version 18 FAILED!");
}

void DatabaseMigrator::revertFromVersion18()
{
    if (dropColumnSaveParameters("JP_JobProfile", "guidanceType")) {
        m_currentVersion = 17;
    }
}

bool DatabaseMigrator::getUpdate18Applied() const
{
    return getTableInfo("JP_JobProfile").columnNames.contains("guidanceType");
}

// ---- Version 19: the on-screen switchbox per machine configuration. -----------------------------

void DatabaseMigrator::updateToVersion19()
{
    if (!executeQuietly(
            "CREATE TABLE IF NOT EXISTS onScreenSwitchboxToMachineMapping("
            "machineConfigId INTEGER PRIMARY KEY, boomStringRepresentation TEXT, "
            "FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)")) {
        logMessage("Migration to version 19 FAILED!");
        return;
    }
    LimitedWalk machineConfigs;
    // Kept on purpose: a missing table is no failure, there is nothing to map.
    if (machineConfigs.exec("SELECT DISTINCT machineConfigId FROM onScreenSwitchboxConfig")) {
        bool machineConfigsMapped = true;
        while (machineConfigs.next()) {
            const QString machineConfigId = QString::number(machineConfigs.value(0).toLongLong());
            machineConfigsMapped &=
                executeQuietly(QString("INSERT OR REPLACE INTO onScreenSwitchboxToMachineMapping "
                                       "(machineConfigId,boomStringRepresentation) "
                                       "VALUES('%1', 'Invalid Configuration')")
                                   .arg(machineConfigId));
        }
        const bool machineConfigsRead = machineConfigs.readToTheEnd();
        machineConfigs.finish();
        if (!machineConfigsMapped || !machineConfigsRead) {
            logMessage("Migration to version 19 FAILED!");
            return;
        }
    }
    // Kept on purpose: tables that cannot be dropped are no failure.
    dropTable("onScreenSwitchboxConfig");
    dropTable("onScreenSwitchboxSwitchLabels");
    logMessage("Migration to version 19 was successful.");
    m_currentVersion = 19;
}

void DatabaseMigrator::revertFromVersion19()
{
    // Kept on purpose: the tables of version 12 are not re-created.
    dropTable("onScreenSwitchboxConfig");
    dropTable("onScreenSwitchboxSwitchLabels");
    dropTable("onScreenSwitchboxToMachineMapping");
    m_currentVersion = 18;
}

bool DatabaseMigrator::getUpdate19Applied() const
{
    const bool mappingExists = tableExists("onScreenSwitchboxToMachineMapping");
    if (!tableExists("onScreenSwitchboxSwitchLabels")) {
        return mappingExists;
    }
    // Kept on purpose: labels with a switch state are not those that version 12 made.
    return mappingExists &&
           getTableInfo("onScreenSwitchboxSwitchLabels").columnNames.contains("switchState");
}

// ---- Version 20: backing-up warning and audio volume in the user profiles. ----------------------

void DatabaseMigrator::updateToVersion20()
{
    // Kept on purpose: columns that are already there are set again.
    const bool succeeded = allSucceeded({
        addColumnIfNotExists("userProfiles", "audibleBackingUpWarningEnabled", "BOOLEAN"),
        addColumnIfNotExists("userProfiles", "audioVolumePercent", "REAL"),
        setColumnValue("userProfiles", "audibleBackingUpWarningEnabled", "1"),
        setColumnValue("userProfiles", "audioVolumePercent", "0.75"),
    });
    closeForwardStep(
        succeeded,
        20,
        "Migration to version 20 was successful.",
        "Migration to version 20 FAILED!");
}

void DatabaseMigrator::revertFromVersion20()
{
    if (dropColumnSaveParameters("userProfiles", "audibleBackingUpWarningEnabled") &&
        dropColumnSaveParameters("userProfiles", "audioVolumePercent")) {
        m_currentVersion = 19;
    }
}

bool DatabaseMigrator::getUpdate20Applied() const
{
    const QStringList columns = getTableInfo("userProfiles").columnNames;
    return columns.contains("audibleBackingUpWarningEnabled") &&
           columns.contains("audioVolumePercent");
}

#include "app/database_migrator.h"
#include "schema/statements.h"

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
    // Kept on purpose, shipped devices rely on it: drops two tables that the forward step never
    // touches, and does not re-create the one that it dropped.
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

void DatabaseMigrator::updateToVersion14()
{
    closeForwardStep(
        addColumn("preferredGpsSolutions", "filterLevel", "INTEGER DEFAULT 1"),
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

void DatabaseMigrator::updateToVersion15()
{
    closeForwardStep(
        addColumn("MC_EquipmentSectionGroup", "useEcuOffsets", "BOOLEAN DEFAULT 1"),
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
    // Kept on purpose, shipped devices rely on it: unlike version 14, a missing table counts as a
    // missing change.
    return getTableInfo("MC_EquipmentSectionGroup").columnNames.contains("useEcuOffsets");
}

void DatabaseMigrator::updateToVersion16()
{
    // Kept on purpose, shipped devices rely on it: SQLite takes a text in double quotes that names
    // no column as a text.
    const bool succeeded = allSucceeded({
        execute(R"(UPDATE UserProfiles SET language = "en-US" WHERE language = "en")"),
        execute(R"(UPDATE UserProfiles SET language = "es-ES" WHERE language = "es")"),
        execute(R"(UPDATE UserProfiles SET language = "fr-FR" WHERE language = "fr")"),
        execute(R"(UPDATE UserProfiles SET language = "de-DE" WHERE language = "de")"),
        execute(R"(UPDATE UserProfiles SET language = "ru-RU" WHERE language = "ru")"),
        execute(R"(UPDATE UserProfiles SET language = "pt-BR" WHERE language = "pt")"),
        // Kept on purpose, shipped devices rely on it: fails where the table has gone already.
        execute("DROP TABLE languages"),
    });
    closeForwardStep(
        succeeded,
        16,
        "Migration to version 16 was successful.",
        "Migration to version 16 FAILED!");
}

void DatabaseMigrator::revertFromVersion16()
{
    execute(R"(UPDATE UserProfiles SET language = "en" WHERE language = "en-US")");
    execute(R"(UPDATE UserProfiles SET language = "es" WHERE language = "es-ES")");
    execute(R"(UPDATE UserProfiles SET language = "fr" WHERE language = "fr-FR")");
    // Kept on purpose, shipped devices rely on it: the forward step never writes this one.
    execute(R"(UPDATE UserProfiles SET language = "fr" WHERE language = "fr-CA")");
    execute(R"(UPDATE UserProfiles SET language = "de" WHERE language = "de-DE")");
    execute(R"(UPDATE UserProfiles SET language = "ru" WHERE language = "ru-RU")");
    execute(R"(UPDATE UserProfiles SET language = "pt" WHERE language = "pt-BR")");
    // Kept on purpose, shipped devices rely on it: the table of languages is not re-created.
    m_currentVersion = 15;
}

bool DatabaseMigrator::getUpdate16Applied() const
{
    return !tableExists("languages");
}

void DatabaseMigrator::updateToVersion17()
{
    // Kept on purpose, shipped devices rely on it: the column is added also where the rename failed,
    // and its type has square brackets.
    const bool succeeded = allSucceeded({
        execute("ALTER TABLE internalGpsReceiverSettings RENAME TO supportedHarloReceiverSettings"),
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
    // Kept on purpose, shipped devices rely on it: counts as done whatever fails.
    dropColumnSaveParameters("supportedHarloReceiverSettings", "firmwareVersion");
    execute("ALTER TABLE supportedHarloReceiverSettings RENAME TO internalGpsReceiverSettings");
    m_currentVersion = 16;
}

bool DatabaseMigrator::getUpdate17Applied() const
{
    // Kept on purpose, shipped devices rely on it: only the old table is looked for, in this case.
    return !tableExists("internalGpsReceiverSettings");
}

void DatabaseMigrator::updateToVersion18()
{
    closeForwardStep(
        addColumn("JP_JobProfile", "guidanceType", "INTEGER DEFAULT 2"),
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

void DatabaseMigrator::updateToVersion19()
{
    if (!execute(
            "CREATE TABLE IF NOT EXISTS onScreenSwitchboxToMachineMapping("
            "machineConfigId INTEGER PRIMARY KEY, boomStringRepresentation TEXT, "
            "FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)")) {
        logMessage("Migration to version 19 FAILED!");
        return;
    }
    LimitedWalk machineConfigs;
    // Kept on purpose, shipped devices rely on it: without that table there is nothing to map.
    if (machineConfigs.exec("SELECT DISTINCT machineConfigId FROM onScreenSwitchboxConfig")) {
        bool machineConfigsMapped = true;
        while (machineConfigs.next()) {
            const QString machineConfigId = QString::number(machineConfigs.value(0).toLongLong());
            machineConfigsMapped &=
                execute(QString("INSERT OR REPLACE INTO onScreenSwitchboxToMachineMapping "
                                "(machineConfigId,boomStringRepresentation) "
                                "VALUES('%1', 'Invalid Configuration')")
                            .arg(machineConfigId));
        }
        machineConfigsMapped &= readToTheEnd(machineConfigs);
        machineConfigs.finish();
        if (!machineConfigsMapped) {
            logMessage("Migration to version 19 FAILED!");
            return;
        }
    }
    // Kept on purpose, shipped devices rely on it: tables that cannot be dropped are no failure.
    dropTable("onScreenSwitchboxConfig");
    dropTable("onScreenSwitchboxSwitchLabels");
    logMessage("Migration to version 19 was successful.");
    m_currentVersion = 19;
}

void DatabaseMigrator::revertFromVersion19()
{
    // Kept on purpose, shipped devices rely on it: the tables of version 12 are not re-created.
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
    // Kept on purpose, shipped devices rely on it: labels with a switch state are not those that
    // version 12 made.
    return mappingExists &&
           getTableInfo("onScreenSwitchboxSwitchLabels").columnNames.contains("switchState");
}

void DatabaseMigrator::updateToVersion20()
{
    // Kept on purpose, shipped devices rely on it: columns that are already there are set again.
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

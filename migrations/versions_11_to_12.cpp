#include "app/database_migrator.h"
#include "schema/limited_walk.h"
#include "schema/statements.h"

// ---- Version 11: start and end of file transfers, and the date formats of the user profiles. ----

void DatabaseMigrator::updateToVersion11()
{
    const bool columnsAdded = allSucceeded({
        addColumn("OutgoingFiles", "startDate", "TEXT"),
        addColumn("OutgoingFiles", "endDate", "TEXT"),
        addColumn("IncomingFiles", "startDate", "TEXT"),
        addColumn("IncomingFiles", "endDate", "TEXT"),
        addColumn("FileTransferHistory", "startDate", "TEXT"),
        addColumn("FileTransferHistory", "endDate", "TEXT"),
    });
    executeQuietly(
        "UPDATE userProfiles set dateFormat = 'M/d/yyyy' where dateFormat = 'm/dd/yyyy'");
    executeQuietly(
        "UPDATE userProfiles set dateFormat = 'd/M/yyyy' where dateFormat = 'dd/m/yyyy'");
    closeForwardStep(
        columnsAdded,
        11,
        "Migration to version 11 was successful.",
        "Migration to version 11 FAILED!");
}

void DatabaseMigrator::revertFromVersion11()
{
    // Kept on purpose: counts as done whatever fails.
    dropColumnSaveParameters("OutgoingFiles", "startDate");
    dropColumnSaveParameters("OutgoingFiles", "endDate");
    dropColumnSaveParameters("IncomingFiles", "startDate");
    dropColumnSaveParameters("IncomingFiles", "endDate");
    dropColumnSaveParameters("FileTransferHistory", "startDate");
    dropColumnSaveParameters("FileTransferHistory", "endDate");
    // Kept on purpose: these are not the formats of the forward step.
    executeQuietly(
        "UPDATE userProfiles set dateFormat = 'm/d/yyyy' where dateFormat = 'M/dd/yyyy'");
    executeQuietly(
        "UPDATE userProfiles set dateFormat = 'd/m/yyyy' where dateFormat = 'dd/M/yyyy'");
    m_currentVersion = 10;
}

bool DatabaseMigrator::getUpdate11Applied() const
{
    if (!tableExists("OutgoingFiles")) {
        return true;
    }
    const QStringList columns = getTableInfo("OutgoingFiles").columnNames;
    return columns.contains("startDate") && columns.contains("endDate");
}

// ---- Version 12: section types and names, and the on-screen switchbox. --------------------------

namespace
{
bool moveSwitchesToSwitchboxConfig(DatabaseMigrator &migrator)
{
    if (!migrator.executeOrLogDatabaseText(
            "CREATE TABLE IF NOT EXISTS onScreenSwitchboxConfig (machineConfigId INTEGER, "
            "sectionId INTEGER, switchId INTEGER, PRIMARY KEY (machineConfigId, sectionId), "
            "FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)",
            "The CREATE TABLE query in updateToVersion12() failed!  The query error was: ")) {
        return false;
    }
    LimitedWalk switches;
    if (!switches.exec("SELECT * FROM switchToSectionBridge")) {
        migrator.logMessage(
            "SELECT * FROM switchToSectionBridge query in updateToVersion12() failed!  The query error was: " +
            switches.databaseText());
        return false;
    }
    while (switches.next()) {
        const QString machineConfigId = QString::number(switches.value(0).toLongLong());
        const QString sectionId = QString::number(switches.value(1).toLongLong());
        const QString switchId = QString::number(switches.value(2).toLongLong());
        if (!migrator.executeOrLogDatabaseText(
                QString("INSERT OR REPLACE INTO onScreenSwitchboxConfig VALUES(%1, %2, %3)")
                    .arg(machineConfigId, sectionId, switchId),
                "Database migration failed in updateToVersion12() while copying data from old table: switchToSectionBridge to new table: onScreenSwitchboxConfig...  The error was: ")) {
            return false;
        }
    }
    if (!switches.readToTheEnd()) {
        migrator.logMessage(
            "SELECT * FROM switchToSectionBridge query in updateToVersion12() failed!  The query error was: " +
            switches.databaseText());
        return false;
    }
    switches.finish();
    migrator.logMessage(
        "Switch to section mapping data copied successfully while migrating database to version 12!");
    // Kept on purpose: a table that cannot be dropped is no failure.
    migrator.dropTable("switchToSectionBridge");
    return true;
}

bool labelSwitchboxSwitches(DatabaseMigrator &migrator)
{
    if (!migrator.executeOrLogDatabaseText(
            "CREATE TABLE IF NOT EXISTS onScreenSwitchboxSwitchLabels (machineConfigId INTEGER, "
            "switchId INTEGER, switchLabel varchar(3), PRIMARY KEY (machineConfigId, switchId), "
            "FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)",
            "The CREATE TABLE IF NOT EXISTS onScreenSwitchboxSwitchLabels query in updateToVersion12() failed!  The query error was: ")) {
        return false;
    }
    LimitedWalk sections;
    if (!sections.exec("SELECT * FROM onScreenSwitchboxConfig")) {
        migrator.logMessage(
            "The SELECT * FROM onScreenSwitchboxConfig query in updateToVersion12() failed!  The query error was: " +
            sections.databaseText());
        return false;
    }
    bool switchesLabelled = true;
    while (sections.next()) {
        const QString machineConfigId = QString::number(sections.value(0).toLongLong());
        const qint64 switchId = sections.value(2).toLongLong();
        // Unsigned: the largest number has a successor too.
        const auto switchNumber = static_cast<qint64>(static_cast<quint64>(switchId) + 1);
        // Several sections share a switch and write the same label row. Kept on purpose: a row that
        // fails does not stop the others, unlike above.
        switchesLabelled &= migrator.executeOrLogDatabaseText(
            QString("INSERT OR REPLACE INTO onScreenSwitchboxSwitchLabels VALUES(%1, %2, '%3')")
                .arg(machineConfigId, QString::number(switchId), QString("S%1").arg(switchNumber)),
            "The INSERT OR REPLACE INTO onScreenSwitchboxSwitchLabels query in updateToVersion12() failed!  The query error was: ");
    }
    return switchesLabelled && sections.readToTheEnd();
}
} // namespace

void DatabaseMigrator::updateToVersion12()
{
    const bool succeeded = allSucceeded({
        addColumn("MC_EquipmentSection", "parentEquipmentSectionId", "INTEGER DEFAULT 0"),
        addColumn("MC_EquipmentSection", "sectionType", "INTEGER DEFAULT 0"),
        addColumn("MC_EquipmentSection", "fullName", "TEXT"),
        addColumn("MC_EquipmentSectionGroup", "hashForIsoBoom", "TEXT"),
        moveSwitchesToSwitchboxConfig(*this),
        labelSwitchboxSwitches(*this),
        dropTable("onScreenSwitchboxSettings"),
    });
    closeForwardStep(
        succeeded,
        12,
        "Migration to version 12 was successful.",
        "Migration to version 12 FAILED!");
}

void DatabaseMigrator::revertFromVersion12()
{
    // Kept on purpose: counts as done whatever fails.
    dropColumnSaveParameters("MC_EquipmentSection", "fullName");
    dropColumnSaveParameters("MC_EquipmentSection", "sectionType");
    dropColumnSaveParameters("MC_EquipmentSection", "parentEquipmentSectionId");
    dropColumnSaveParameters("MC_EquipmentSectionGroup", "hashForIsoBoom");
    dropTable("onScreenSwitchboxConfig");
    dropTable("onScreenSwitchboxSwitchLabels");
    // Kept on purpose: drops two tables that the forward step never touches, and re-creates none of
    // those that it dropped.
    dropTable("WeatherStationConfig");
    dropTable("JP_DispatcherFilters");
    m_currentVersion = 11;
}

bool DatabaseMigrator::getUpdate12Applied() const
{
    return getTableInfo("MC_EquipmentSection").columnNames.contains("parentEquipmentSectionId");
}

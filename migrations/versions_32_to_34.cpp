#include "app/database_migrator.h"
#include "schema/statements.h"
#include "schema/table_recreation.h"

namespace
{
/// Begins the default password of the device's own access point; digits of the barcode follow.
constexpr const char *accessPointPasswordPrefix = "tk";

QString insertWorkOrderMap(const QSqlQuery &row)
{
    // Kept on purpose, shipped devices rely on it: NULL becomes an empty text or 0.
    return QString("INSERT OR REPLACE INTO workOrderRxMaps "
                   "VALUES(%1, '%2', '%3', '%4', '%5', '%6', '%7', '%8', %9)")
        .arg(
            QString::number(row.value(0).toLongLong()),
            row.value(1).toString(),
            row.value(2).toString(),
            row.value(3).toString(),
            row.value(4).toString(),
            row.value(5).toString(),
            row.value(6).toString(),
            row.value(7).toString(),
            QString::number(row.value(8).toLongLong()));
}
} // namespace

void DatabaseMigrator::updateToVersion32()
{
    TableRecreation maps;
    maps.table = "workOrderRxMaps";
    maps.tableAside = "workOrderRxMaps_old";
    maps.rename = "ALTER TABLE workOrderRxMaps RENAME TO workOrderRxMaps_old";
    maps.renameFailure =
        "The ALTER TABLE RENAME query in updateToVersion32() failed!  The query error was: ";
    maps.create =
        "CREATE TABLE IF NOT EXISTS workOrderRxMaps (id INTEGER PRIMARY KEY AUTOINCREMENT, "
        "rxUuid TEXT NOT NULL, woUuid TEXT NOT NULL, absolutePath TEXT NOT NULL, rateColumn TEXT, "
        "pid TEXT, mapName TEXT, units TEXT, uniqueProdId INTEGER, "
        "FOREIGN KEY(woUuid) REFERENCES files(uuid) ON UPDATE CASCADE ON DELETE CASCADE )";
    maps.createFailure =
        "The CREATE TABLE IF NOT EXISTS query in updateToVersion32() failed!  The query error was: ";
    maps.select = "SELECT * FROM workOrderRxMaps_old";
    maps.selectFailure =
        "SELECT * FROM workOrderRxMaps_old query in updateToVersion32() failed!  The query error was: ";
    maps.insert = insertWorkOrderMap;
    maps.renameBack = "ALTER TABLE workOrderRxMaps_old RENAME TO workOrderRxMaps";
    maps.insertFailure = "Database migration failed in updateToVersion32()!  The error was: ";

    // Kept on purpose, shipped devices rely on it: a missing table is created here, while the way
    // back fails without it; the preferences change in any case.
    const bool mapsRecreated =
        tableExists("workOrderRxMaps") ? recreateWorkOrderMaps(maps) : execute(maps.create);
    const bool columnAdded =
        addColumnIfNotExists("SM_Preferences", "enableCloudJobs", "INTEGER", "0");
    closeForwardStep(
        mapsRecreated && columnAdded,
        32,
        "Migration to version 32 was successful.",
        "Migration to version 32 failed");
}

void DatabaseMigrator::revertFromVersion32()
{
    TableRecreation maps;
    maps.table = "workOrderRxMaps";
    maps.tableAside = "workOrderRxMaps_old";
    maps.rename = "ALTER TABLE workOrderRxMaps RENAME TO workOrderRxMaps_old";
    maps.renameFailure =
        "The ALTER TABLE RENAME query in revertFromVersion32() failed!  The query error was: ";
    maps.create =
        "CREATE TABLE IF NOT EXISTS workOrderRxMaps (id INTEGER PRIMARY KEY AUTOINCREMENT, "
        "rxUuid TEXT NOT NULL, woUuid TEXT NOT NULL, absolutePath TEXT NOT NULL, rateColumn TEXT, "
        "pid TEXT, mapName TEXT, units TEXT, uniqueProdId INTEGER, "
        "FOREIGN KEY(woUuid) REFERENCES files(uuid) ON DELETE CASCADE )";
    maps.createFailure =
        "The CREATE TABLE IF NOT EXISTS query in revertFromVersion32() failed!  The query error was: ";
    maps.select = "SELECT * FROM workOrderRxMaps_old";
    maps.selectFailure =
        "SELECT * FROM workOrderRxMaps_old query in revertFromVersion32() failed!  The query error was: ";
    maps.insert = insertWorkOrderMap;
    maps.renameBack = "ALTER TABLE workOrderRxMaps_old RENAME TO workOrderRxMaps";
    maps.insertFailure = "Database migration failed in revertFromVersion32()!  The error was: ";

    const bool succeeded = allSucceeded({
        recreateWorkOrderMaps(maps),
        dropColumnSaveParameters("SM_Preferences", "enableCloudJobs"),
    });
    if (succeeded) {
        m_currentVersion = 31;
    }
}

bool DatabaseMigrator::recreateWorkOrderMaps(const TableRecreation &maps)
{
    const auto failure = recreateTable(maps);
    if (failure) {
        logMessage(failure->line + failure->errorText);
    }
    return !failure;
}

bool DatabaseMigrator::getUpdate32Applied() const
{
    return getTableInfo("workOrderRxMaps").createText.contains("ON UPDATE CASCADE") &&
           columnExists("SM_Preferences", "enableCloudJobs");
}

void DatabaseMigrator::updateToVersion33()
{
    // Only the first registration row counts; what is no number there reads as 0.
    QString serialNumber;
    QString barcodeTail;
    QSqlQuery registration = forwardOnlyQuery();
    if (registration.exec("SELECT serialNumber, barcode FROM registrationInfo") &&
        registration.next()) {
        serialNumber = QString::number(registration.value(0).toInt());
        barcodeTail = QString::number(registration.value(1).toInt()).right(6);
    }
    registration.finish();

    const QString networkName = "TK-" + serialNumber;
    const QString password = accessPointPasswordPrefix + barcodeTail;
    closeForwardStep(
        // Kept on purpose, shipped devices rely on it: this is the column that the probe of version
        // 30 looks for, so from here on every run applies versions 30 and 33 again.
        dropColumnSaveParameters("systemControl", "wirelessEnabled") &&
            addColumnIfNotExists("systemControl", "networkingMode", "INTEGER", "0") &&
            addColumnIfNotExists("systemControl", "apSsid", "TEXT", "'" + networkName + "'") &&
            addColumnIfNotExists("systemControl", "apPassword", "TEXT", "'" + password + "'"),
        33,
        "Migration to version 33 was successful.",
        "Migration to version 33 failed");
}

void DatabaseMigrator::revertFromVersion33()
{
    if (dropColumnSaveParameters("systemControl", "apSsid") &&
        dropColumnSaveParameters("systemControl", "apPassword") &&
        dropColumnSaveParameters("systemControl", "networkingMode") &&
        // Kept on purpose, shipped devices rely on it: NOT NULL, unlike the column of version 30.
        addColumn("systemControl", "wirelessEnabled", "BOOLEAN", "0")) {
        m_currentVersion = 32;
    }
}

bool DatabaseMigrator::getUpdate33Applied() const
{
    return !columnExists("systemControl", "wirelessEnabled") &&
           columnExists("systemControl", "networkingMode") &&
           columnExists("systemControl", "apSsid") && columnExists("systemControl", "apPassword");
}

void DatabaseMigrator::updateToVersion34()
{
    closeForwardStep(
        addColumnIfNotExists("workOrderRxMaps", "woConvRate", "REAL") &&
            addColumnIfNotExists("workOrderRxMaps", "userConvRate", "REAL"),
        34,
        "Migration to version 34 was successful.",
        "Migration to version 34 failed");
}

void DatabaseMigrator::revertFromVersion34()
{
    if (dropColumnSaveParameters("workOrderRxMaps", "woConvRate") &&
        dropColumnSaveParameters("workOrderRxMaps", "userConvRate")) {
        m_currentVersion = 33;
    }
}

bool DatabaseMigrator::getUpdate34Applied() const
{
    return columnExists("workOrderRxMaps", "woConvRate") &&
           columnExists("workOrderRxMaps", "userConvRate");
}

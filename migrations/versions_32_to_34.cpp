#include "app/database_migrator.h"
#include "schema/statements.h"
#include "schema/table_recreation.h"

// ---- Version 32: work order maps follow their file, and cloud jobs. -----------------------------

namespace
{
QString insertWorkOrderMap(const QSqlQuery &row)
{
    // Kept on purpose: NULL becomes an empty text or 0.
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

/// @param create makes the table of the version to go to
/// @param operation the step's name, as its log lines have it
TableRecreation workOrderMaps(const QString &create, const QString &operation)
{
    TableRecreation maps;
    maps.table = "workOrderRxMaps";
    maps.tableAside = "workOrderRxMaps_old";
    maps.rename = "ALTER TABLE workOrderRxMaps RENAME TO workOrderRxMaps_old";
    maps.renameFailure =
        QString("The ALTER TABLE RENAME query in %1() failed!  The query error was: ")
            .arg(operation);
    maps.create = create;
    maps.createFailure =
        QString("The CREATE TABLE IF NOT EXISTS query in %1() failed!  The query error was: ")
            .arg(operation);
    maps.select = "SELECT * FROM workOrderRxMaps_old";
    maps.selectFailure =
        QString("SELECT * FROM workOrderRxMaps_old query in %1() failed!  The query error was: ")
            .arg(operation);
    maps.insert = insertWorkOrderMap;
    maps.renameBack = "ALTER TABLE workOrderRxMaps_old RENAME TO workOrderRxMaps";
    maps.insertFailure =
        QString("Database migration failed in %1()!  The error was: ").arg(operation);
    return maps;
}

bool recreateWorkOrderMaps(DatabaseMigrator &migrator, const TableRecreation &maps)
{
    const auto failure = recreateTable(migrator, maps);
    if (failure) {
        migrator.logMessage(failure->line + failure->errorText);
    }
    return !failure;
}
} // namespace

void DatabaseMigrator::updateToVersion32()
{
    const TableRecreation maps = workOrderMaps(
        "CREATE TABLE IF NOT EXISTS workOrderRxMaps (id INTEGER PRIMARY KEY AUTOINCREMENT, "
        "rxUuid TEXT NOT NULL, woUuid TEXT NOT NULL, absolutePath TEXT NOT NULL, rateColumn TEXT, "
        "pid TEXT, mapName TEXT, units TEXT, uniqueProdId INTEGER, "
        "FOREIGN KEY(woUuid) REFERENCES files(uuid) ON UPDATE CASCADE ON DELETE CASCADE )",
        "updateToVersion32");
    // Kept on purpose: a missing table is created here, but makes the way back fail. The preferences
    // change in any case.
    const bool succeeded = allSucceeded({
        tableExists("workOrderRxMaps") ? recreateWorkOrderMaps(*this, maps)
                                       : executeQuietly(maps.create),
        addColumnIfNotExists("SM_Preferences", "enableCloudJobs", "INTEGER", "0"),
    });
    closeForwardStep(
        succeeded, 32, "Migration to version 32 was successful.", "Migration to version 32 failed");
}

void DatabaseMigrator::revertFromVersion32()
{
    const TableRecreation maps = workOrderMaps(
        "CREATE TABLE IF NOT EXISTS workOrderRxMaps (id INTEGER PRIMARY KEY AUTOINCREMENT, "
        "rxUuid TEXT NOT NULL, woUuid TEXT NOT NULL, absolutePath TEXT NOT NULL, rateColumn TEXT, "
        "pid TEXT, mapName TEXT, units TEXT, uniqueProdId INTEGER, "
        "FOREIGN KEY(woUuid) REFERENCES files(uuid) ON DELETE CASCADE )",
        "revertFromVersion32");
    const bool succeeded = allSucceeded({
        recreateWorkOrderMaps(*this, maps),
        dropColumnSaveParameters("SM_Preferences", "enableCloudJobs"),
    });
    if (succeeded) {
        m_currentVersion = 31;
    }
}

bool DatabaseMigrator::getUpdate32Applied() const
{
    return getTableInfo("workOrderRxMaps").createText.contains("ON UPDATE CASCADE") &&
           columnExists("SM_Preferences", "enableCloudJobs");
}

// ---- Version 33: networking mode and the device's own access point. -----------------------------

namespace
{
/// The start of the default password of the device's own access point; barcode digits follow.
constexpr const char *accessPointPasswordPrefix = "tk";
} // namespace

void DatabaseMigrator::updateToVersion33()
{
    // Only the first registration row counts; a value that is no number reads as 0.
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
    // Kept on purpose: the probe of version 30 looks for the column that goes here. From now on
    // every run applies versions 30 and 33 again.
    const bool succeeded =
        dropColumnSaveParameters("systemControl", "wirelessEnabled") &&
        addColumnIfNotExists("systemControl", "networkingMode", "INTEGER", "0") &&
        addColumnIfNotExists("systemControl", "apSsid", "TEXT", "'" + networkName + "'") &&
        addColumnIfNotExists("systemControl", "apPassword", "TEXT", "'" + password + "'");
    closeForwardStep(
        succeeded, 33, "Migration to version 33 was successful.", "Migration to version 33 failed");
}

void DatabaseMigrator::revertFromVersion33()
{
    if (dropColumnSaveParameters("systemControl", "apSsid") &&
        dropColumnSaveParameters("systemControl", "apPassword") &&
        dropColumnSaveParameters("systemControl", "networkingMode") &&
        // Kept on purpose: NOT NULL, unlike the column of version 30.
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

// ---- Version 34: conversion rates of work order maps. -------------------------------------------

void DatabaseMigrator::updateToVersion34()
{
    const bool succeeded = addColumnIfNotExists("workOrderRxMaps", "woConvRate", "REAL") &&
                           addColumnIfNotExists("workOrderRxMaps", "userConvRate", "REAL");
    closeForwardStep(
        succeeded, 34, "Migration to version 34 was successful.", "Migration to version 34 failed");
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

#pragma once

#include "support/scratch_device.h"

// What tests of single migration steps share.

/// Starts the migrator at a version and takes the log of its start. The versions' table is dropped
/// then, so that the device's dump holds what the step works on and nothing else.
inline DatabaseMigrator &startAt(ScratchDevice &device, int version)
{
    device.recordVersion(version);
    DatabaseMigrator &migrator = device.start();
    device.sql("DROP TABLE tableVersion");
    device.takeLog();
    return migrator;
}

/// @return the lines that the log has gained since it was last taken
inline QStringList takeLogLines(ScratchDevice &device)
{
    QStringList lines = device.takeLog().split("\n");
    const QString unfinished = lines.takeLast();
    return unfinished.isEmpty() ? lines : lines << unfinished + " (without an end)";
}

// The two lines of a failure in the schema toolkit.

inline QStringList notAdded(const QString &column, const QString &table, const QString &error)
{
    return {
        "DatabaseMigrator::addColumnIfNotExists - Failed to add column named " + column + " to " +
            table,
        "DatabaseMigrator::addColumnIfNotExists - " + error + " Unable to execute statement"};
}

inline QStringList notSet(const QString &column, const QString &value, const QString &error)
{
    return {
        "DatabaseMigrator::setColumnValue - Failed to set column named " + column + " to " + value,
        "DatabaseMigrator::setColumnValue - " + error};
}

inline QStringList columnStays(const QString &column, const QString &table, const QString &error)
{
    return {
        "DatabaseMigrator::dropColumnSaveParameters - Failed to drop column named " + column +
            " to " + table,
        "DatabaseMigrator::dropColumnSaveParameters - " + error + " Unable to execute statement"};
}

inline QStringList tableStays(const QString &table, const QString &error)
{
    return {
        "DatabaseMigrator::dropTable - Failed to drop table named " + table,
        "DatabaseMigrator::dropTable - " + error};
}

#pragma once

#include "support/scratch_device.h"

#include <QSqlDatabase>
#include <QtTest>

#include <sqlite3.h>

/// One run of a migration step: what it finds and what it leaves.
struct StepRun {
    QByteArray before; ///< statements that make the tables
    QStringList log;   ///< the lines that the step adds
    int version;       ///< the current version that it leaves
    QStringList after; ///< the schema, then every table's name with its rows
    int refusedAction = 0;
    QByteArray refusedObject = QByteArray();
};
Q_DECLARE_METATYPE(StepRun)

using Step = void (DatabaseMigrator::*)();
using Probe = bool (DatabaseMigrator::*)() const;
Q_DECLARE_METATYPE(Step)
Q_DECLARE_METATYPE(Probe)

/// A version that no step of the catalogue sets.
const int versionUnmoved = 99;

// What the schema toolkit logs when it fails.

inline QStringList notAdded(const QString &column, const QString &table, const QString &error)
{
    return {
        "DatabaseMigrator::addColumn - Failed to add column named " + column + " to " + table,
        "DatabaseMigrator::addColumn - " + error};
}

inline QStringList addedBefore(const QString &column, const QString &table)
{
    return notAdded(
        column, table, "duplicate column name: " + column + " Unable to execute statement");
}

inline QStringList addedToNothing(const QString &column, const QString &table)
{
    return notAdded(column, table, "no such table: " + table + " Unable to execute statement");
}

inline QStringList columnStays(const QString &column, const QString &table, const QString &error)
{
    return {
        "DatabaseMigrator::dropColumnSaveParameters - Failed to drop column named " + column +
            " to " + table,
        "DatabaseMigrator::dropColumnSaveParameters - " + error};
}

/// The error of a rebuild when there is no table.
const QString noTable = "near \"PRIMARY\": syntax error Unable to execute statement";
/// The error of a rebuild that takes the first column of the primary key away.
const QString noKey = "near \")\": syntax error Unable to execute statement";

inline QStringList tableStays(const QString &table, const QString &error)
{
    return {
        "DatabaseMigrator::dropTable - Failed to drop table named " + table,
        "DatabaseMigrator::dropTable - " + error};
}

/// Starts the migrator at a version that no step sets, on a database without the table that
/// records it, so that dumps show only what steps touch.
inline DatabaseMigrator &startUnmoved(ScratchDevice &device)
{
    device.recordVersion(versionUnmoved);
    DatabaseMigrator &migrator = device.start();
    device.sql("DROP TABLE tableVersion");
    device.takeLog();
    return migrator;
}

/// Starts the migrator at a version that no step sets, with its connection closed.
inline DatabaseMigrator &startClosed(ScratchDevice &device)
{
    DatabaseMigrator &migrator = startUnmoved(device);
    QSqlDatabase::database().close();
    return migrator;
}

/// @return the lines that the log has gained since it was last taken
inline QStringList newLines(ScratchDevice &device)
{
    QStringList lines = device.takeLog().split("\n");
    if (lines.last().isEmpty()) {
        lines.removeLast();
    }
    return lines;
}

/// Checks a step against the test's row, a "run".
inline void checkStep(ScratchDevice &device, Step step)
{
    QFETCH(StepRun, run);
    device.sql(run.before);
    DatabaseMigrator &migrator = startUnmoved(device);
    if (run.refusedAction != 0) {
        device.refuse(run.refusedAction, run.refusedObject);
    }

    (migrator.*step)();

    COMPARE_LINES(newLines(device), run.log);
    QCOMPARE(migrator.currentVersion(), run.version);
    COMPARE_LINES(device.dump(), run.after);
}

/// Checks a probe against the test's row, its answer and that it only looks.
inline void checkProbe(ScratchDevice &device)
{
    QFETCH(Probe, probe);
    QFETCH(QByteArray, tables);
    QFETCH(bool, applied);
    device.sql(tables);
    const DatabaseMigrator &migrator = startUnmoved(device);
    const QStringList before = device.dump();

    QCOMPARE((migrator.*probe)(), applied);

    COMPARE_LINES(newLines(device), QStringList());
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    COMPARE_LINES(device.dump(), before);
}

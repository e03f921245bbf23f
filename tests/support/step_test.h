#pragma once

#include "support/scratch_device.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>

// What tests of single migration steps share.

using Step = void (DatabaseMigrator::*)();
using Probe = bool (DatabaseMigrator::*)() const;
Q_DECLARE_METATYPE(Step)
Q_DECLARE_METATYPE(Probe)

/// What SQLite refuses during a step, see ScratchDevice::refuse.
struct Refusal {
    int action;
    QByteArray object;
    QByteArray part = QByteArray();
};

/// One run of a step: what it finds and what it leaves.
struct StepRun {
    QByteArray before; ///< statements that make the tables
    QStringList log;   ///< the lines that the step adds
    int version;       ///< the current version that it leaves
    QStringList after; ///< what the test reads of the database, mostly its dump
    QList<Refusal> refusals = {};
};
Q_DECLARE_METATYPE(StepRun)

/// A version that no step of the catalogue sets.
const int versionUnmoved = 99;

/// Starts the migrator at a version and takes the log of its start. The versions' table is dropped
/// then, so that the device's dump holds what the step works on and nothing else; what the step
/// writes need not outlive a power cut.
inline DatabaseMigrator &startAt(ScratchDevice &device, int version)
{
    device.recordVersion(version);
    DatabaseMigrator &migrator = device.start();
    QSqlQuery("PRAGMA synchronous = OFF");
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

/// @return the CREATE text and the rows of every one of the tables that is there
inline QStringList contents(ScratchDevice &device, const QList<QByteArray> &tables)
{
    QStringList lines;
    for (const QByteArray &table : tables) {
        const QString createText = device.createText(table);
        if (!createText.isEmpty()) {
            lines << createText << device.rows("SELECT * FROM " + table);
        }
    }
    return lines;
}

inline QStringList dump(ScratchDevice &device)
{
    return device.dump();
}

/// Checks a step against the test's row, a "run".
inline void checkStep(
    ScratchDevice &device, Step step, QStringList (*read)(ScratchDevice &device) = dump)
{
    QFETCH(StepRun, run);
    device.sql(run.before);
    DatabaseMigrator &migrator = startAt(device, versionUnmoved);
    for (const Refusal &refusal : run.refusals) {
        device.refuse(refusal.action, refusal.object, refusal.part);
    }

    (migrator.*step)();

    COMPARE_LINES(takeLogLines(device), run.log);
    QCOMPARE(migrator.currentVersion(), run.version);
    COMPARE_LINES(read(device), run.after);
}

/// Checks what a step of the test's row does on a connection that is not open.
inline void checkStepOnAClosedConnection(ScratchDevice &device)
{
    QFETCH(Step, step);
    QFETCH(int, version);
    QFETCH(QStringList, log);
    DatabaseMigrator &migrator = startAt(device, versionUnmoved);
    QSqlDatabase::database().close();

    (migrator.*step)();

    COMPARE_LINES(takeLogLines(device), log);
    QCOMPARE(migrator.currentVersion(), version);
}

/// Checks a probe against the test's row: what is there "before", and whether it is "applied".
inline void checkProbe(ScratchDevice &device, Probe probe)
{
    QFETCH(QByteArray, before);
    device.sql(before);
    const DatabaseMigrator &migrator = startAt(device, versionUnmoved);
    const QStringList dumpBefore = device.dump();

    QTEST((migrator.*probe)(), "applied");

    COMPARE_LINES(takeLogLines(device), QStringList());
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    COMPARE_LINES(device.dump(), dumpBefore);
}

/// The declaration of a column that cannot be read in some rows: a walk over the rows breaks off
/// there.
/// @param declaration the column's name and its type; its values are those of "stored"
inline QByteArray unreadableColumn(const QByteArray &declaration, const QByteArray &condition)
{
    return "stored, " + declaration + " AS (CASE WHEN " + condition +
           " THEN abs(-9223372036854775807 - (" + condition + ")) ELSE stored END)";
}

/// @return statements that put an unreadable column in the place of one, in the CREATE text alone:
/// the rows stay
inline QByteArray makeUnreadable(
    const QByteArray &table, const QByteArray &declaration, const QByteArray &condition)
{
    return ";PRAGMA writable_schema = ON;UPDATE sqlite_master SET sql = replace(sql, '" +
           declaration + "', '" + unreadableColumn(declaration, condition) + "') WHERE name = '" +
           table + "';";
}

// What SQLite answers: where a column cannot be read; to a rebuild without a column of the key, and of a table that is not there;
// where a trigger refuses; where an earlier rebuild has left its copy; without the table.

inline const QString unreadable = "integer overflow";
inline const QString keyRefused = "near \")\": syntax error Unable to execute statement";
inline const QString rebuildRefused = "near \"PRIMARY\": syntax error Unable to execute statement";
inline const QString rowRefused = "refused Unable to fetch row";

inline QString copyInTheWay(const QString &table)
{
    return "table " + table + "_temp already exists Unable to execute statement";
}

inline QString noSuchTable(const QString &table)
{
    return "no such table: " + table + " Unable to execute statement";
}

// The two lines of a failure in the schema toolkit.

/// Of addColumn; those of addColumnIfNotExists are `notAdded`.
inline QStringList newColumnNotAdded(
    const QString &column, const QString &table, const QString &error)
{
    return {
        "DatabaseMigrator::addColumn - Failed to add column named " + column + " to " + table,
        "DatabaseMigrator::addColumn - " + error};
}

inline QStringList addedBefore(const QString &column, const QString &table)
{
    return newColumnNotAdded(
        column, table, "duplicate column name: " + column + " Unable to execute statement");
}

inline QStringList addedToNothing(const QString &column, const QString &table)
{
    return newColumnNotAdded(column, table, noSuchTable(table));
}

inline QStringList notAdded(const QString &column, const QString &table, const QString &error)
{
    return {
        "DatabaseMigrator::addColumnIfNotExists - Failed to add column named " + column + " to " +
            table,
        "DatabaseMigrator::addColumnIfNotExists - " + error};
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
        "DatabaseMigrator::dropColumnSaveParameters - " + error};
}

inline QStringList tableStays(const QString &table, const QString &error)
{
    return {
        "DatabaseMigrator::dropTable - Failed to drop table named " + table,
        "DatabaseMigrator::dropTable - " + error};
}

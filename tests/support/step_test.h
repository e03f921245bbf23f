#pragma once

#include "support/device_test.h"

#include <functional>

// The parts that tests of single migration steps share.

using M = DatabaseMigrator;
using Step = void (DatabaseMigrator::*)();
using Probe = bool (DatabaseMigrator::*)() const;
Q_DECLARE_METATYPE(Step)
Q_DECLARE_METATYPE(Probe)

/// An action that SQLite refuses during a step, see ScratchDevice::refuse.
struct Refusal {
    int action;
    QByteArray object;
    QByteArray part = QByteArray();
};

enum class Connection { Open, Closed };

/// One run of a step: the state before it, and the state after it.
struct StepRun {
    QByteArray before; ///< statements that make the tables
    QStringList log;   ///< the lines that the step adds
    int version;       ///< the current version that it leaves
    QStringList after; ///< the part of the database that the test reads, mostly its dump
    QList<Refusal> refusals = {};
    Connection connection = Connection::Open;
};
Q_DECLARE_METATYPE(StepRun)

/// A version that no step of the catalogue sets.
const int versionUnmoved = 99;

/// A test program of migration steps.
class StepTest : public DeviceTest
{
protected:
    /// Starts the migrator at a version and discards its first log lines. Drops the table of
    /// versions, so the device's dump holds only the tables that the step works on. The step's
    /// writes need not survive a power cut.
    DatabaseMigrator &startAt(int version);

    /// Checks a step against the test's row, a "run".
    /// @param read returns the content that must equal the run's "after"
    void checkStep(
        Step step, const std::function<QStringList()> &read,
        const QList<QByteArray> &untouched = {});
    /// @param tables the tables that the run's "after" shows, see ScratchDevice::contents; without
    /// any it is the dump of all
    /// @param untouched tables that the step leaves as they are
    void checkStep(
        Step step, const QList<QByteArray> &tables = {}, const QList<QByteArray> &untouched = {});
    /// Checks the "step" of the test's row.
    void checkStep();

    /// Runs the "step" of the test's row twice: the second run leaves the row's "version", adds
    /// its "log" and changes nothing.
    void checkSecondRun(DatabaseMigrator &migrator);
    /// The same with the tables that the row makes "before".
    void checkSecondRun();

    /// Checks a probe against the test's row: the tables "before", and whether it is "applied".
    void checkProbe(Probe probe);
    /// Checks the "probe" of the test's row.
    void checkProbe();
};

/// Adds a row for a run on a connection that is not open: every statement fails there, without a
/// text for its error.
inline void addRowOfClosedConnection(const QStringList &log, int version = versionUnmoved)
{
    QTest::newRow("the database is not open")
        << StepRun{"", log, version, {}, {}, Connection::Closed};
}

/// @return a table's name and its rows, as a dump lists them
inline QStringList rowsOf(const QString &table, const QStringList &rows = {})
{
    return QStringList(table) + rows;
}

/// @return a trigger that refuses an event, such as "UPDATE ON t" or "INSERT ON t WHEN NEW.id = 1"
inline QByteArray refusal(const QByteArray &event)
{
    return "CREATE TRIGGER refusal BEFORE " + event + " BEGIN SELECT RAISE(ABORT, 'refused'); END";
}

/// @return a view that has a table's name
inline QByteArray viewInPlaceOf(const QByteArray &table)
{
    return "CREATE VIEW " + table + " AS SELECT 1 AS id";
}

/// The declaration of a column that cannot be read in some rows: reading a table stops there.
/// @param declaration the column's name and its type; its values are those of "stored"
inline QByteArray unreadableColumn(const QByteArray &declaration, const QByteArray &condition)
{
    return "stored, " + declaration + " AS (CASE WHEN " + condition +
           " THEN abs(-9223372036854775807 - (" + condition + ")) ELSE stored END)";
}

/// @return statements that replace a column by an unreadable one, in the CREATE text alone: the
/// rows stay
inline QByteArray makeUnreadable(
    const QByteArray &table, const QByteArray &declaration, const QByteArray &condition)
{
    return ";PRAGMA writable_schema = ON;UPDATE sqlite_master SET sql = replace(sql, '" +
           declaration + "', '" + unreadableColumn(declaration, condition) + "') WHERE name = '" +
           table + "';";
}

// SQLite's errors, as the schema toolkit logs them.

/// A column that is unreadable was read.
inline const QString unreadable = "integer overflow";
/// A rebuild dropped a column of the primary key.
inline const QString keyRefused = "near \")\": syntax error Unable to execute statement";
/// There was no table to rebuild.
inline const QString rebuildRefused = "near \"PRIMARY\": syntax error Unable to execute statement";
/// A trigger refused.
inline const QString rowRefused = "refused Unable to fetch row";
/// The test refused, see ScratchDevice::refuse.
inline const QString notAuthorized = "not authorized Unable to execute statement";

/// An earlier rebuild left its copy.
inline QString copyInTheWay(const QString &table)
{
    return "table " + table + "_temp already exists Unable to execute statement";
}

inline QString noSuchTable(const QString &table)
{
    return "no such table: " + table + " Unable to execute statement";
}

/// The connection is not open: the error has no text, whichever table it is about.
inline QString noText(const QString &)
{
    return QString();
}

inline QString noSuchColumn(const QString &column)
{
    return "no such column: " + column + " Unable to execute statement";
}

inline QString duplicateColumn(const QString &column)
{
    return "duplicate column name: " + column + " Unable to execute statement";
}

// The two lines of a failure in the schema toolkit.

/// The lines of addColumn; those of addColumnIfNotExists are `notAdded`.
inline QStringList newColumnNotAdded(
    const QString &column, const QString &table, const QString &error)
{
    return {
        "DatabaseMigrator::addColumn - Failed to add column named " + column + " to " + table,
        "DatabaseMigrator::addColumn - " + error};
}

inline QStringList addedBefore(const QString &column, const QString &table)
{
    return newColumnNotAdded(column, table, duplicateColumn(column));
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

inline QStringList duplicateNotAdded(const QString &column, const QString &table)
{
    return notAdded(column, table, duplicateColumn(column));
}

inline QStringList notAddedToNothing(const QString &column, const QString &table)
{
    return notAdded(column, table, noSuchTable(table));
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

inline QStringList viewStays(const QString &view)
{
    return tableStays(
        view, "use DROP VIEW to delete view " + view + " Unable to execute statement");
}

/// The name of a table and the name of a column.
using Columns = QVector<QPair<QByteArray, QByteArray>>;

/// @return the lines of one of the functions above for every column
template <typename Lines, typename... Error>
QStringList forEach(const Columns &columns, Lines lines, const Error &...error)
{
    QStringList log;
    for (const auto &[table, column] : columns) {
        log << lines(column, table, error...);
    }
    return log;
}

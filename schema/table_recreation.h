#pragma once

#include <QSqlQuery>
#include <QString>

#include <optional>

class DatabaseMigrator;

/// The statements and log lines of a step that renames a table, creates it again and copies every row
/// from the renamed one, in the order in which they are used.
struct TableRecreation {
    QString table;      ///< the table to create again
    QString tableAside; ///< its name while the rows are copied
    QString rename;     ///< gives the table that name
    QString renameFailure;
    QString create;
    QString createFailure;
    QString select; ///< reads the rows of the renamed table
    QString selectFailure;
    QString (*insert)(const QSqlQuery &row); ///< makes the INSERT statement for one row read
    QString renameBack; ///< gives the table its name back after a failed insert
    QString insertFailure;
};

/// The failure that ended a re-creation early: the line of the statement that failed, and the
/// database's error text, which follows it on the same line.
struct RecreationFailure {
    QString line;
    QString errorText;
};

/// Renames a table, creates it again and copies every row.
/// @param migrator logs the tables that cannot be dropped
/// @return the failure, nothing when every row was copied
std::optional<RecreationFailure> recreateTable(
    DatabaseMigrator &migrator, const TableRecreation &recreation);

#pragma once

#include <QSqlQuery>
#include <QString>

/// The statements and log lines of a step that moves a table aside, creates it anew and copies
/// every row, in the order in which they are used.
struct TableRecreation {
    QString table;      ///< the table to create anew
    QString tableAside; ///< its name while the rows are copied
    QString rename;     ///< moves the table aside
    QString renameFailure;
    QString create;
    QString createFailure;
    QString select; ///< reads the rows of the table aside
    QString selectFailure;
    QString (*insert)(const QSqlQuery &row); ///< makes the INSERT statement for one row read
    QString renameBack;                      ///< moves the table back after a failed insert
    QString insertFailure;
};

/// What ended a re-creation early: the line of the statement that failed and the database's error
/// text, which belongs directly behind it.
struct RecreationFailure {
    QString line;
    QString errorText;
};

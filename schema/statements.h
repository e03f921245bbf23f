#pragma once

#include <QMap>
#include <QSqlQuery>
#include <QString>
#include <QVariant>

#include <initializer_list>

// Statements on the default connection that log nothing.

/// Runs one statement.
/// @return false when the statement failed
bool executeQuietly(const QString &sql);

/// A query that only moves forward: any other kind keeps every row that it has read in memory.
QSqlQuery forwardOnlyQuery();

/// Runs a statement with values.
/// @param values are bound to the statement's placeholders, by their names
/// @return false when the statement failed
bool executeWith(QSqlQuery &query, const QString &sql, const QMap<QString, QVariant> &values);

/// @return false when reading stopped on an error rather than at the last row; rows may be missing
bool readToTheEnd(const QSqlQuery &rows);

/// @param values are bound to the statement's placeholders, by their names
/// @return the number of rows before the end, or before the first one that cannot be read
qint64 countRows(const QString &select, const QMap<QString, QVariant> &values = {});

/// @return column 0 of the first row; an invalid value, which reads as 0 and as an empty text, when
/// the query fails or has no row
QVariant firstValue(const QString &sql);

/// All of these run, and all must succeed: a braced list evaluates every element, left to right.
/// @return true when every result is true
bool allSucceeded(std::initializer_list<bool> results);

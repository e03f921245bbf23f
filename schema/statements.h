#pragma once

#include <QSqlQuery>
#include <QString>
#include <QVariant>

#include <initializer_list>

/// Runs one statement whose error text nobody needs, on the default connection.
/// @return true when the statement ran
bool execute(const QString &sql);

/// A query on the default connection that only walks forward: any other kind keeps every row that
/// it has passed in memory.
QSqlQuery forwardOnlyQuery();

/// @return false when a walk over rows has broken off because the next one could not be read, as it
/// is when the disk or the memory fails: then there may be more rows than have come
bool readToTheEnd(const QSqlQuery &rows);

/// A walk that changes its table might never end: in a damaged table a change can lead it back to
/// rows that it has passed, and a trigger can add a row for every one that is changed.
/// @return how many rows it may meet, twice as many as there are
qint64 rowLimit(const QString &table);

/// @return column 0 of the first row that a query yields; an invalid value, which reads as 0 and
/// as an empty text, when the query fails or yields no row
QVariant firstValue(const QString &sql);

/// All of these run, and all must succeed: a braced list evaluates every element, left to right.
/// @return true when every result is true
bool allSucceeded(std::initializer_list<bool> results);

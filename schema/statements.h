#pragma once

#include <QMap>
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

/// @param values what is bound to the statement's placeholders, by their names
/// @return how many rows a statement yields before its end, or before one that cannot be read
qint64 countRows(const QString &select, const QMap<QString, QVariant> &values = {});

/// A query that only walks forward, over rows that are read while tables are changed. Such a walk
/// might never end: in a damaged database a change can lead it back to rows that it has passed, and
/// a trigger can add a row for every one that is changed. So one that has become long is ended when
/// it meets twice as many rows more as there are.
class LimitedWalk : public QSqlQuery
{
public:
    /// So many rows are met before they are counted, which takes a statement more.
    static constexpr qint64 uncountedRows = 1000;

    LimitedWalk();
    bool next();
    /// @return false when the walk has broken off or was ended
    friend bool readToTheEnd(const LimitedWalk &rows);

private:
    qint64 m_rowsMet = 0;
    qint64 m_limit = uncountedRows;
};

/// @return column 0 of the first row that a query yields; an invalid value, which reads as 0 and
/// as an empty text, when the query fails or yields no row
QVariant firstValue(const QString &sql);

/// All of these run, and all must succeed: a braced list evaluates every element, left to right.
/// @return true when every result is true
bool allSucceeded(std::initializer_list<bool> results);

#pragma once

#include <QMap>
#include <QSqlQuery>
#include <QString>
#include <QVariant>

/// Reads the rows of a query while tables are changed, and ends where that would not. In a damaged
/// database a change can lead the reading back to rows that were read before, and a trigger can add a
/// row for each one that is changed. After 1,000 rows the table is counted; the walk stops after
/// twenty times that many more. A table of a sound database that grows less is read to its end.
class LimitedWalk
{
public:
    /// So many rows are read before they are counted, which takes one more statement.
    static constexpr qint64 uncountedRows = 1000;
    /// So many times the rows that were counted may follow.
    static constexpr qint64 growth = 20;

    /// Starts the walk on the default connection.
    /// @param values are bound to the statement's placeholders, by their names
    /// @return false when the statement failed
    bool exec(const QString &select, const QMap<QString, QVariant> &values = {});

    /// @return false after the last row, and after one at which the walk stopped
    bool next();

    /// @return the value of a column, counted from 0, of the row read last
    QVariant value(int column) const { return m_rows.value(column); }

    /// @return false when reading stopped on an error, or at the limit, rather than at the last row;
    /// rows may be missing
    bool readToTheEnd() const;

    /// @return the database's own text of the error that stopped the walk, empty at the limit
    QString databaseText() const;

    /// Ends the statement: a table that is being read can be neither dropped nor renamed.
    void finish() { m_rows.finish(); }

private:
    QSqlQuery m_rows;
    QString m_select;
    QMap<QString, QVariant> m_values;
    qint64 m_rowsRead = 0;
    qint64 m_limit = uncountedRows;
};

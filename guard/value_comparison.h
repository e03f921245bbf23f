#pragma once

#include "guard/sqlite_connection.h"

#include <QByteArray>
#include <QString>

/// Compares the values of rows as SQLite reads them, because equal values can be stored
/// differently: a row that is older than an added column does not hold the column's default.
class ValueComparison
{
public:
    /// The files are opened when the first table is compared.
    ValueComparison(const QString &before, const QString &after)
        : m_beforePath(before), m_afterPath(after)
    {
    }

    /// Compares the rows one by one in the order in which they are stored. Computed columns that
    /// are not stored are left out: nothing in the schema is evaluated.
    ///
    /// Memory: one row of each file, whole. So the largest value costs twice its size: 87 MiB were
    /// measured for a value of 40 MiB.
    /// @param table a table of both databases
    /// @return true when the tables have as many rows and columns, and every value has the same
    /// storage class and the same bytes; false also when a table cannot be read
    bool haveEqualRows(const QByteArray &table);

    /// @return the first failure of the disk or the memory, empty when there was none
    const QString &readError() const { return m_readError; }

private:
    bool open(SqliteConnection &connection, const QString &path);
    void noteFailure(const SqliteConnection &connection);

    QString m_beforePath;
    QString m_afterPath;
    SqliteConnection m_before;
    SqliteConnection m_after;
    QString m_readError;
};

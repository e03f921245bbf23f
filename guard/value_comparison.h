#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

struct sqlite3;

/// Compares the values of rows as SQLite reads them. The same values can be stored in two ways: a
/// row older than a column that was added does not hold the column's default.
class ValueComparison
{
public:
    /// The files are opened when the first table is compared.
    ValueComparison(const QString &before, const QString &after);

    /// Compares the rows one by one in the order in which they are stored. Computed columns that
    /// are not stored are left out, so that nothing in the schema is evaluated.
    /// @param table a table of both databases
    /// @return true when the tables have as many rows and columns, and every value has the same
    /// storage class and the same bytes; false also when a table cannot be read
    bool haveEqualRows(const QByteArray &table);

    /// @return the first failure of the disk or the memory, empty when there was none
    const QString &readError() const { return m_readError; }

private:
    using Connection = std::unique_ptr<sqlite3, int (*)(sqlite3 *)>;

    bool open(Connection &connection, const QString &path);
    void noteFailure(sqlite3 *connection);

    QString m_beforePath;
    QString m_afterPath;
    Connection m_before;
    Connection m_after;
    QString m_readError;
};

#pragma once

#include "guard/sqlite_connection.h"
#include "guard/verdict/computed_columns.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QHash>
#include <QString>

#include <memory>
#include <optional>

/// Limits the work for a verdict, because reading a hostile database may never end.
class WorkBudget
{
public:
    explicit WorkBudget(qint64 instructions) : m_left(instructions) {}

    /// SQLite asks each time it has executed this many instructions.
    static constexpr int stride = 1000;

    /// @return false when the work has to end
    bool spend()
    {
        m_left -= stride;
        return m_left > 0;
    }
    bool isSpent() const { return m_left <= 0; }

private:
    qint64 m_left;
};

/// The columns and key of a table.
struct TableShape {
    QByteArrayList columns; ///< names of the stored columns; changed only with addColumn()
    QByteArrayList key;     ///< the columns of the primary key
    QByteArray rowid;       ///< a name that reads the row id, empty when there is none

    /// @return the place of the column, in any letter case; -1 when there is none
    int indexOf(const QByteArray &column) const;

    /// Adds a stored column after the others.
    void addColumn(const QByteArray &column);

private:
    QHash<QByteArray, int> m_places; ///< by folded name
};

/// A database at rest, opened for reading. Nothing from its schema runs: no trigger, no view, no
/// computed column, no default. SQLite does not trust its schema, and the work is limited.
class JudgedDatabase
{
public:
    /// @param budget has to outlive this object
    JudgedDatabase(const QString &path, WorkBudget &budget);

    const SqliteConnection &connection() const { return m_connection; }

    /// @return nothing when the table cannot be read
    std::optional<TableShape> shape(const QByteArray &table) const;

    /// @return whether SQLite understands a statement, without running it
    bool canPrepare(const QByteArray &sql) const;

    bool isUtf16() const { return m_isUtf16; }

    const ComputedColumns &computed() const { return *m_computed; }

private:
    SqliteConnection m_connection;
    std::unique_ptr<ComputedColumns> m_computed;
    bool m_isUtf16 = false;
};

/// Restricts the verdict's statements on a database: a missing name in double quotes is an error,
/// not a text, and SQLite refuses rows that are larger than those that the guard reads.
void boundStatements(sqlite3 *connection);

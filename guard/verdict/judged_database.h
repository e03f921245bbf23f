#pragma once

#include "guard/sqlite_connection.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QPair>
#include <QSet>
#include <QString>

#include <memory>
#include <optional>

/// How much work may be done for a verdict: a database may be made to take for ever.
class WorkBudget
{
public:
    explicit WorkBudget(qint64 instructions) : m_left(instructions) {}

    /// SQLite asks it every so many of its instructions.
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

/// What a table looks like to a reader of its rows.
struct TableShape {
    QByteArrayList columns; ///< those that are stored, by their names
    QByteArrayList key;     ///< the columns of the primary key
    QByteArray rowid;       ///< a name by which the row id can be read, empty without one

    /// @return where the column is, letter case aside; -1 without it
    int indexOf(const QByteArray &column) const;
};

/// A database at rest, opened for reading. Nothing of its schema runs: no trigger, no view, no
/// computed column; it cannot lead SQLite astray, nor take more than a bounded time.
class JudgedDatabase
{
public:
    /// @param budget has to live as long as this object
    JudgedDatabase(const QString &path, WorkBudget &budget);

    const SqliteConnection &connection() const { return m_connection; }

    /// @return nothing when the table cannot be read
    std::optional<TableShape> shape(const QByteArray &table) const;

    /// @return whether SQLite understands a statement, without running it
    bool canPrepare(const QByteArray &sql) const;

    bool isUtf16() const { return m_isUtf16; }

private:
    static int authorize(
        void *database, int action, const char *first, const char *second, const char *,
        const char *);
    void findComputedColumns();

    SqliteConnection m_connection;
    QSet<QPair<QByteArray, QByteArray>> m_computedColumns;
    bool m_isUtf16 = false;
};

/// Bounds what a statement of the verdict's can do in a database: a name that is missing is no text, and
/// no row may be larger than what the guard reads.
void boundStatements(sqlite3 *connection);

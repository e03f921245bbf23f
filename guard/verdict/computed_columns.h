#pragma once

#include "guard/sqlite_connection.h"

#include <QByteArrayList>
#include <QPair>
#include <QSet>

/// The values of a database that SQLite would compute from expressions in it: computed columns, and
/// defaults. A hostile expression takes any time and memory, and SQLite cannot interrupt a function.
/// So nothing in a verdict computes one. The names are folded.
class ComputedColumns
{
public:
    /// Finds the columns, and lets SQLite refuse statements that would compute one.
    /// @param connection may not prepare statements when this object is gone
    explicit ComputedColumns(const SqliteConnection &connection);
    Q_DISABLE_COPY(ComputedColumns)

    /// @return the tables with columns that are computed when they are read
    const QSet<QByteArray> &tables() const { return m_tables; }

    /// @return those of them where such a column is in a foreign key or an index
    const QSet<QByteArray> &keyTables() const { return m_keyTables; }

private:
    static int authorize(
        void *columns, int action, const char *first, const char *second, const char *,
        const char *);
    void findColumns(const SqliteConnection &connection);
    void findKeyTables(const SqliteConnection &connection);

    QSet<QPair<QByteArray, QByteArray>> m_columns; ///< computed when they are read
    QSet<QByteArray> m_tables;
    QSet<QByteArray> m_keyTables;
    QSet<QByteArray> m_computedByUpdate; ///< tables in which an update may compute a value
};

/// SQLite asks for no permission when a check of a database reads columns. So the tables in which
/// the check would compute one are left out.
/// @param check the name of the pragma, such as "quick_check"
/// @param forAll the argument of the pragma when no table is left out
/// @param leftOut folded names
/// @return the statements that check everything else
QByteArrayList statementsOfCheck(
    const SqliteConnection &connection, const QByteArray &check, const QByteArray &forAll,
    const QSet<QByteArray> &leftOut);

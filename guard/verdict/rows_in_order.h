#pragma once

#include "guard/verdict/judged_database.h"

/// Reads a table's rows in the order of their keys.
class RowsInOrder
{
public:
    /// @param key expressions over a row, in the order of the key
    /// @param others expressions that are read besides
    /// @param tieBreaker orders the rows of equal keys, the greatest first; empty for none
    RowsInOrder(
        const JudgedDatabase &database, const QByteArray &table, const QByteArrayList &key,
        const QByteArrayList &others, const QByteArray &tieBreaker);

    /// Goes to the next row.
    /// @return false after the last one, or when reading failed
    bool next();

    bool hasRow() const { return m_hasRow; }

    /// @return whether reading has ended with the last row
    bool isComplete() const { return m_statement.result() == SQLITE_DONE && !m_isOutOfOrder; }

    /// @return a negative number, 0 or a positive one as this row's key is less than the other's,
    /// equal or greater, in the order in which SQLite sorts
    int compareKey(const RowsInOrder &other) const;

    /// @return the column of the statement in which an expression besides the key is
    int place(int other) const { return m_keySize + other; }

    sqlite3_stmt *row() const { return m_statement.handle(); }

    /// @return the values of the key as SQL literals
    QByteArray keyText() const;

private:
    SqliteStatement m_statement;
    int m_keySize;
    bool m_isUtf16;
    bool m_hasRow = false;
    bool m_isOutOfOrder = false; ///< a damaged table's rows do not rise
    std::optional<qint64> m_lastNumber;
};

/// @return whether two values have the same storage class and the same bytes
bool isSameValue(
    sqlite3_stmt *left, int leftColumn, sqlite3_stmt *right, int rightColumn, bool isUtf16);

/// @return a value as an SQL literal; a long one is cut, with "..." after it
QByteArray valueText(sqlite3_stmt *row, int column);

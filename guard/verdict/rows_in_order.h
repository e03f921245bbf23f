#pragma once

#include "guard/verdict/judged_database.h"

/// Reads a table's rows in the order of their keys.
class RowsInOrder
{
public:
    /// @param key expressions over a row that make its key, in order
    /// @param others further expressions to read
    /// @param tieBreaker orders rows with equal keys, the greatest first; empty for none
    RowsInOrder(
        const JudgedDatabase &database, const QByteArray &table, const QByteArrayList &key,
        const QByteArrayList &others, const QByteArray &tieBreaker);

    /// Goes to the next row.
    /// @return false after the last one, or when reading failed
    bool next();

    bool hasRow() const { return m_hasRow; }

    /// @return whether reading ended at the last row, without an error
    bool isComplete() const { return m_statement.result() == SQLITE_DONE && !m_isOutOfOrder; }

    /// @return a negative number, 0 or a positive one: this row's key is less than the other's,
    /// equal or greater, in SQLite's order
    int compareKey(const RowsInOrder &other) const;

    /// @return the statement's column for one of the other expressions
    int place(int other) const { return m_keySize + other; }

    sqlite3_stmt *row() const { return m_statement.handle(); }

    /// @return the values of the key as SQL literals
    QByteArray keyText() const;

private:
    SqliteStatement m_statement;
    int m_keySize;
    bool m_isUtf16;
    bool m_hasRow = false;
    bool m_isOutOfOrder = false; ///< row ids do not rise: the table is damaged
    std::optional<qint64> m_lastNumber;
};

/// @return whether two values have the same storage class and the same bytes
bool isSameValue(
    sqlite3_stmt *left, int leftColumn, sqlite3_stmt *right, int rightColumn, bool isUtf16);

/// @return a value as an SQL literal; a long one is cut, with "..." after it
QByteArray valueText(sqlite3_stmt *row, int column);

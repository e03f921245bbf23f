#pragma once

#include "guard/verdict/table_case.h"

/// Evaluates an expression of the table of versions for one row.
class RowQuestion
{
public:
    RowQuestion(const TableCase &table, const QByteArray &expression);

    /// @param row a row of before; its columns from firstKey on are the row id or the key
    /// @return whether there is an answer
    bool ask(sqlite3_stmt *row, int firstKey);

    sqlite3_stmt *answer() const { return m_statement.handle(); }

private:
    SqliteStatement m_statement;
};

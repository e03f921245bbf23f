#include "guard/verdict/row_question.h"

namespace
{
QByteArray questionText(const TableCase &table, const QByteArray &expression)
{
    QByteArrayList conditions;
    if (!table.shape.rowid.isEmpty()) {
        conditions << table.shape.rowid + " = ?";
    } else {
        for (const QByteArray &column : table.shape.key) {
            conditions << quotedName(column) + " IS ? COLLATE BINARY";
        }
    }
    return "SELECT (" + expression + ") FROM " + quotedName(table.name) + " WHERE " +
           conditions.join(" AND ");
}
} // namespace

RowQuestion::RowQuestion(const TableCase &table, const QByteArray &expression)
    : m_statement(table.before.connection(), questionText(table, expression))
{
}

bool RowQuestion::ask(sqlite3_stmt *row, int firstKey)
{
    sqlite3_stmt *statement = m_statement.handle();
    sqlite3_reset(statement);
    for (int parameter = 1; parameter <= sqlite3_bind_parameter_count(statement); ++parameter) {
        sqlite3_bind_value(
            statement, parameter, sqlite3_column_value(row, firstKey + parameter - 1));
    }
    return statement != nullptr && sqlite3_step(statement) == SQLITE_ROW;
}

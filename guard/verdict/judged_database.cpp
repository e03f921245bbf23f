#include "guard/verdict/judged_database.h"

#include "guard/verdict/version_table.h"

namespace
{
/// A row with more bytes is not read: its table counts as one that cannot be read.
constexpr int largestRow = 64 * 1024 * 1024;

// pragma_table_xinfo's mark of a computed column that is not stored.
constexpr int computedColumn = 2;
} // namespace

void boundStatements(sqlite3 *connection)
{
    sqlite3_db_config(connection, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    sqlite3_limit(connection, SQLITE_LIMIT_LENGTH, largestRow);
}

int TableShape::indexOf(const QByteArray &column) const
{
    return m_places.value(folded(column), -1);
}

void TableShape::addColumn(const QByteArray &column)
{
    m_places.insert(folded(column), columns.size());
    columns << column;
}

JudgedDatabase::JudgedDatabase(const QString &path, WorkBudget &budget)
{
    m_connection.openAtRest(path);
    sqlite3 *handle = m_connection.handle();
    boundStatements(handle);
    sqlite3_progress_handler(
        handle,
        WorkBudget::stride,
        [](void *left) { return static_cast<WorkBudget *>(left)->spend() ? 0 : 1; },
        &budget);
    SqliteStatement encoding(m_connection, "PRAGMA encoding");
    m_isUtf16 = encoding.step() && encoding.text(0) != "UTF-8";
    m_computed = std::make_unique<ComputedColumns>(m_connection);
}

std::optional<TableShape> JudgedDatabase::shape(const QByteArray &table) const
{
    SqliteStatement columns(
        m_connection, "SELECT name, pk, hidden FROM pragma_table_xinfo(?) ORDER BY pk, cid");
    sqlite3_bind_text(columns.handle(), 1, table.constData(), table.size(), SQLITE_STATIC);
    TableShape shape;
    while (columns.step()) {
        if (sqlite3_column_int(columns.handle(), 2) == computedColumn) {
            continue;
        }
        shape.addColumn(columns.text(0));
        if (sqlite3_column_int(columns.handle(), 1) > 0) {
            shape.key << columns.text(0);
        }
    }
    if (columns.result() != SQLITE_DONE || shape.columns.isEmpty()) {
        return std::nullopt;
    }
    const QByteArray from = " FROM " + quotedName(table) + " NOT INDEXED";
    for (const char *name : {"rowid", "_rowid_", "oid"}) {
        if (shape.indexOf(name) < 0 && canPrepare("SELECT " + QByteArray(name) + from)) {
            shape.rowid = name;
            break;
        }
    }
    if (!canPrepare("SELECT 1" + from)) {
        return std::nullopt;
    }
    return shape;
}

bool JudgedDatabase::canPrepare(const QByteArray &sql) const
{
    return SqliteStatement(m_connection, sql).result() == SQLITE_OK;
}

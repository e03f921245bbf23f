#include "guard/value_comparison.h"

#include <QByteArrayList>

#include <cstring>

namespace
{
/// @return the query for the stored columns of every row
QByteArray queryForRows(const SqliteConnection &connection, const QByteArray &table)
{
    // 2 marks a computed column that is not stored.
    SqliteStatement columns(
        connection,
        "SELECT name FROM pragma_table_xinfo(" + quotedText(table) + ") WHERE hidden <> 2");
    QByteArrayList names;
    while (columns.step()) {
        names << quotedName(columns.text(0));
    }
    // NOT INDEXED: a damaged index could have other values than the table.
    return "SELECT " + names.join(',') + " FROM " + quotedName(table) + " NOT INDEXED";
}

bool isUtf16(const SqliteConnection &connection)
{
    SqliteStatement encoding(connection, "PRAGMA encoding");
    return encoding.step() && encoding.text(0) != "UTF-8";
}

/// @return the bytes of a text or a BLOB, as they are stored
QByteArray storedBytes(sqlite3_stmt *row, int column, bool isUtf16)
{
    // The function for the other encoding would convert the text, which changes its bytes.
    const int size =
        isUtf16 ? sqlite3_column_bytes16(row, column) : sqlite3_column_bytes(row, column);
    return QByteArray::fromRawData(
        static_cast<const char *>(sqlite3_column_blob(row, column)), size);
}

/// Compared as bits, 0.0 differs from -0.0.
quint64 bitsOf(double number)
{
    quint64 bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

bool haveEqualValue(sqlite3_stmt *before, sqlite3_stmt *after, int column, bool isUtf16)
{
    const int type = sqlite3_column_type(before, column);
    if (type != sqlite3_column_type(after, column)) {
        return false;
    }
    if (type == SQLITE_INTEGER) {
        return sqlite3_column_int64(before, column) == sqlite3_column_int64(after, column);
    }
    if (type == SQLITE_FLOAT) {
        return bitsOf(sqlite3_column_double(before, column)) ==
               bitsOf(sqlite3_column_double(after, column));
    }
    return type == SQLITE_NULL ||
           storedBytes(before, column, isUtf16) == storedBytes(after, column, isUtf16);
}

bool haveEqualValues(sqlite3_stmt *before, sqlite3_stmt *after, bool isUtf16)
{
    for (int column = 0; column < sqlite3_column_count(before); ++column) {
        if (!haveEqualValue(before, after, column, isUtf16)) {
            return false;
        }
    }
    return true;
}
} // namespace

bool ValueComparison::haveEqualRows(const QByteArray &table)
{
    if (!open(m_before, m_beforePath) || !open(m_after, m_afterPath)) {
        return false;
    }
    SqliteStatement before(m_before, queryForRows(m_before, table));
    SqliteStatement after(m_after, queryForRows(m_after, table));
    if (before.result() != SQLITE_OK || after.result() != SQLITE_OK ||
        sqlite3_column_count(before.handle()) != sqlite3_column_count(after.handle())) {
        noteFailure(m_before);
        noteFailure(m_after);
        return false;
    }
    const bool areUtf16 = isUtf16(m_before);
    bool isRow = true;
    while (isRow) {
        isRow = before.step();
        if (after.step() != isRow ||
            (isRow && !haveEqualValues(before.handle(), after.handle(), areUtf16))) {
            break;
        }
    }
    noteFailure(m_before);
    noteFailure(m_after);
    return before.result() == SQLITE_DONE && after.result() == SQLITE_DONE;
}

bool ValueComparison::open(SqliteConnection &connection, const QString &path)
{
    if (connection.handle() != nullptr) {
        return true;
    }
    const int result = connection.openAtRest(path);
    noteFailure(connection);
    return result == SQLITE_OK;
}

void ValueComparison::noteFailure(const SqliteConnection &connection)
{
    const int code = sqlite3_errcode(connection.handle());
    const bool isFailure = code == SQLITE_NOMEM || code == SQLITE_IOERR || code == SQLITE_CANTOPEN;
    if (isFailure && m_readError.isEmpty()) {
        m_readError = connection.errorText();
    }
}

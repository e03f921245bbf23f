#include "guard/value_comparison.h"

#include <QFileInfo>
#include <QUrl>

#include <sqlite3.h>

#include <cstring>

namespace
{
using Statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt *)>;

Statement prepare(sqlite3 *connection, const QByteArray &sql)
{
    sqlite3_stmt *statement = nullptr;
    sqlite3_prepare_v2(connection, sql.constData(), sql.size(), &statement, nullptr);
    return {statement, sqlite3_finalize};
}

QByteArray quoted(QByteArray name)
{
    return '"' + name.replace("\"", "\"\"") + '"';
}

/// @return a statement that reads the stored columns of every row, or nothing
Statement prepareRows(sqlite3 *connection, const QByteArray &table)
{
    // A computed column that is not stored has 2.
    const Statement columns =
        prepare(connection, "SELECT name FROM pragma_table_xinfo(?) WHERE hidden <> 2");
    sqlite3_bind_text(columns.get(), 1, table.constData(), table.size(), SQLITE_STATIC);
    QByteArrayList names;
    while (sqlite3_step(columns.get()) == SQLITE_ROW) {
        names << quoted(reinterpret_cast<const char *>(sqlite3_column_text(columns.get(), 0)));
    }
    // An index could have other values than the table.
    return prepare(
        connection, "SELECT " + names.join(',') + " FROM " + quoted(table) + " NOT INDEXED");
}

bool isUtf16(sqlite3 *connection)
{
    const Statement encoding = prepare(connection, "PRAGMA encoding");
    return sqlite3_step(encoding.get()) == SQLITE_ROW &&
           std::strcmp(
               reinterpret_cast<const char *>(sqlite3_column_text(encoding.get(), 0)), "UTF-8") !=
               0;
}

/// @return the bytes of a text or a BLOB, as they are stored
QByteArray storedBytes(sqlite3_stmt *row, int column, bool isUtf16)
{
    // The function for the other encoding would convert the text.
    const int size =
        isUtf16 ? sqlite3_column_bytes16(row, column) : sqlite3_column_bytes(row, column);
    return QByteArray::fromRawData(
        static_cast<const char *>(sqlite3_column_blob(row, column)), size);
}

/// As bits, 0.0 is not -0.0.
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

ValueComparison::ValueComparison(const QString &before, const QString &after)
    : m_beforePath(before), m_afterPath(after), m_before(nullptr, sqlite3_close),
      m_after(nullptr, sqlite3_close)
{
}

bool ValueComparison::haveEqualRows(const QByteArray &table)
{
    if (!open(m_before, m_beforePath) || !open(m_after, m_afterPath)) {
        return false;
    }
    const Statement before = prepareRows(m_before.get(), table);
    const Statement after = prepareRows(m_after.get(), table);
    if (!before || !after ||
        sqlite3_column_count(before.get()) != sqlite3_column_count(after.get())) {
        noteFailure(m_before.get());
        noteFailure(m_after.get());
        return false;
    }
    const bool areUtf16 = isUtf16(m_before.get());
    int beforeResult = SQLITE_ROW;
    int afterResult = SQLITE_ROW;
    while (beforeResult == SQLITE_ROW && afterResult == SQLITE_ROW) {
        beforeResult = sqlite3_step(before.get());
        afterResult = sqlite3_step(after.get());
        if (beforeResult == SQLITE_ROW && afterResult == SQLITE_ROW &&
            !haveEqualValues(before.get(), after.get(), areUtf16)) {
            return false;
        }
    }
    noteFailure(m_before.get());
    noteFailure(m_after.get());
    return beforeResult == SQLITE_DONE && afterResult == SQLITE_DONE;
}

bool ValueComparison::open(Connection &connection, const QString &path)
{
    if (connection) {
        return true;
    }
    // Immutable: SQLite leaves no file beside the database, also in write-ahead mode.
    const QByteArray address =
        QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toEncoded() + "?immutable=1";
    sqlite3 *handle = nullptr;
    const int result = sqlite3_open_v2(
        address.constData(), &handle, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
    connection.reset(handle);
    noteFailure(handle);
    if (result != SQLITE_OK) {
        return false;
    }
    // Nothing of the schema may run, nor may it lead SQLite astray.
    sqlite3_db_config(handle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    return true;
}

void ValueComparison::noteFailure(sqlite3 *connection)
{
    const int code = sqlite3_errcode(connection);
    const bool isFailure = code == SQLITE_NOMEM || code == SQLITE_IOERR || code == SQLITE_CANTOPEN;
    if (isFailure && m_readError.isEmpty()) {
        m_readError = QString::fromUtf8(sqlite3_errmsg(connection));
    }
}

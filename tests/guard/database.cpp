#include "guard/database.h"

#include <QtGlobal>

#include <cstring>

bool Value::operator==(const Value &other) const
{
    return storageClass == other.storageClass && integer == other.integer &&
           std::memcmp(&real, &other.real, sizeof real) == 0 && bytes == other.bytes;
}

Value integerValue(qint64 integer)
{
    Value value;
    value.storageClass = SQLITE_INTEGER;
    value.integer = integer;
    return value;
}

Value realValue(double real)
{
    Value value;
    value.storageClass = SQLITE_FLOAT;
    value.real = real;
    return value;
}

Value textValue(const QByteArray &text)
{
    Value value;
    value.storageClass = SQLITE_TEXT;
    value.bytes = text;
    return value;
}

Value blobValue(const QByteArray &blob)
{
    Value value;
    value.storageClass = SQLITE_BLOB;
    value.bytes = blob;
    return value;
}

namespace
{
int compareLengths(void *, int size, const void *, int otherSize, const void *)
{
    return size - otherSize;
}

void bind(sqlite3_stmt *statement, int parameter, const Value &value)
{
    const char *bytes = value.bytes.constData();
    const int size = value.bytes.size();
    switch (value.storageClass) {
    case SQLITE_INTEGER:
        sqlite3_bind_int64(statement, parameter, value.integer);
        break;
    case SQLITE_FLOAT:
        sqlite3_bind_double(statement, parameter, value.real);
        break;
    case SQLITE_TEXT:
        sqlite3_bind_text(statement, parameter, bytes, size, SQLITE_TRANSIENT);
        break;
    case SQLITE_BLOB:
        sqlite3_bind_blob(statement, parameter, bytes, size, SQLITE_TRANSIENT);
        break;
    default:
        sqlite3_bind_null(statement, parameter);
    }
}

Value valueAt(sqlite3_stmt *statement, int column)
{
    Value value;
    value.storageClass = sqlite3_column_type(statement, column);
    if (value.storageClass == SQLITE_INTEGER) {
        value.integer = sqlite3_column_int64(statement, column);
    } else if (value.storageClass == SQLITE_FLOAT) {
        value.real = sqlite3_column_double(statement, column);
    } else if (value.storageClass != SQLITE_NULL) {
        // In UTF-8, whatever the database's encoding is.
        const void *bytes = value.storageClass == SQLITE_TEXT
                                ? sqlite3_column_text(statement, column)
                                : sqlite3_column_blob(statement, column);
        value.bytes =
            QByteArray(static_cast<const char *>(bytes), sqlite3_column_bytes(statement, column));
    }
    return value;
}
} // namespace

Database::Database(const QString &path)
{
    if (sqlite3_open(path.toUtf8().constData(), &m_handle) != SQLITE_OK) {
        qFatal("%s cannot be opened", qPrintable(path));
    }
    sqlite3_create_collation(m_handle, "unknown", SQLITE_UTF8, nullptr, compareLengths);
    // The database need not survive a power cut. A damaged one may refuse this.
    sqlite3_exec(m_handle, "PRAGMA synchronous=OFF", nullptr, nullptr, nullptr);
}

Database::~Database()
{
    sqlite3_close(m_handle);
}

void Database::execute(const QByteArray &statements)
{
    char *error = nullptr;
    if (sqlite3_exec(m_handle, statements.constData(), nullptr, nullptr, &error) != SQLITE_OK) {
        qFatal("%s: %s", error, statements.left(300).constData());
    }
}

QVector<Row> Database::rows(const QByteArray &statement, const Row &bound)
{
    QVector<Row> rows;
    if (read(statement, bound, rows) != SQLITE_OK) {
        qFatal("%s: %s", sqlite3_errmsg(m_handle), statement.left(300).constData());
    }
    return rows;
}

QVector<Row> Database::rowsOrError(const QByteArray &statement)
{
    QVector<Row> rows;
    const int code = read(statement, {}, rows);
    if (code != SQLITE_OK) {
        rows << Row{integerValue(code)};
    }
    return rows;
}

int Database::read(const QByteArray &statement, const Row &bound, QVector<Row> &rows)
{
    sqlite3_stmt *prepared = nullptr;
    const int code =
        sqlite3_prepare_v2(m_handle, statement.constData(), statement.size(), &prepared, nullptr);
    if (code != SQLITE_OK) {
        return code;
    }
    for (int index = 0; index < bound.size(); ++index) {
        bind(prepared, index + 1, bound[index]);
    }
    while (sqlite3_step(prepared) == SQLITE_ROW) {
        Row row;
        for (int column = 0; column < sqlite3_column_count(prepared); ++column) {
            row << valueAt(prepared, column);
        }
        rows << row;
    }
    return sqlite3_finalize(prepared);
}

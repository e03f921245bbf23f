#include "guard/sqlite_connection.h"

#include <QFile>
#include <QUrl>

int SqliteConnection::open(const QString &path, int flags)
{
    close();
    return sqlite3_open_v2(QFile::encodeName(path).constData(), &m_handle, flags, nullptr);
}

int SqliteConnection::openAtRest(const QString &path)
{
    const int result = open(addressAtRest(path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
    if (result == SQLITE_OK) {
        distrustSchema();
        sqlite3_db_config(m_handle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    }
    return result;
}

void SqliteConnection::distrustSchema()
{
    sqlite3_db_config(m_handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(m_handle, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(m_handle, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
}

void SqliteConnection::close()
{
    sqlite3_close(m_handle);
    m_handle = nullptr;
}

int SqliteConnection::setPragma(const char *sql)
{
    sqlite3_db_config(m_handle, SQLITE_DBCONFIG_WRITABLE_SCHEMA, 1, nullptr);
    const int result = run(sql);
    sqlite3_db_config(m_handle, SQLITE_DBCONFIG_WRITABLE_SCHEMA, 0, nullptr);
    return result;
}

std::optional<qint64> SqliteConnection::number(const char *sql)
{
    SqliteStatement query(*this, sql);
    if (!query.step() || sqlite3_column_type(query.handle(), 0) == SQLITE_NULL) {
        return std::nullopt;
    }
    return sqlite3_column_int64(query.handle(), 0);
}

QString addressAtRest(const QString &path)
{
    return "file:" + QString::fromLatin1(QUrl::toPercentEncoding(path, "/")) + "?immutable=1";
}

QByteArray quotedName(QByteArray name)
{
    return '"' + name.replace("\"", "\"\"") + '"';
}

QByteArray quotedText(QByteArray text)
{
    return '\'' + text.replace("'", "''") + '\'';
}

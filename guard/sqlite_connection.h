#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <sqlite3.h>

/// A connection to a database file.
class SqliteConnection
{
public:
    SqliteConnection() = default;
    ~SqliteConnection() { close(); }
    Q_DISABLE_COPY(SqliteConnection)

    /// @param flags SQLITE_OPEN_...
    /// @return an SQLite result code
    int open(const QString &path, int flags);

    /// Opens a database at rest for reading. SQLite makes no file beside it, not even with a
    /// write-ahead log, and runs nothing from the schema.
    /// @return an SQLite result code
    int openAtRest(const QString &path);
    void close();

    /// SQLite then runs nothing from the schema, and does not trust it.
    void distrustSchema();

    sqlite3 *handle() const { return m_handle; }
    QString errorText() const { return QString::fromUtf8(sqlite3_errmsg(m_handle)); }

    /// Runs statements whose rows are not needed.
    /// @return an SQLite result code
    int run(const char *sql) { return sqlite3_exec(m_handle, sql, nullptr, nullptr, nullptr); }

    /// Sets a pragma even if SQLite cannot understand the schema, which it reads first.
    int setPragma(const char *sql);

    /// @return the first number that a query returns, nothing when it fails or has no row
    std::optional<qint64> number(const char *sql);

private:
    sqlite3 *m_handle = nullptr;
};

/// A prepared statement.
class SqliteStatement
{
public:
    SqliteStatement(const SqliteConnection &connection, const QByteArray &sql)
    {
        m_result = sqlite3_prepare_v2(
            connection.handle(), sql.constData(), sql.size(), &m_handle, nullptr);
    }
    ~SqliteStatement() { sqlite3_finalize(m_handle); }
    Q_DISABLE_COPY(SqliteStatement)

    /// @return true when there is a row, false at the end or on an error
    bool step()
    {
        if (m_result == SQLITE_OK || m_result == SQLITE_ROW) {
            m_result = sqlite3_step(m_handle);
        }
        return m_result == SQLITE_ROW;
    }
    int result() const { return m_result; }
    sqlite3_stmt *handle() const { return m_handle; }

    /// @return a value as UTF-8 text, whatever the encoding of the database; null for NULL
    QByteArray text(int column) const
    {
        const unsigned char *bytes = sqlite3_column_text(m_handle, column);
        const int size = sqlite3_column_bytes(m_handle, column);
        return bytes ? QByteArray(reinterpret_cast<const char *>(bytes), size) : QByteArray();
    }

private:
    sqlite3_stmt *m_handle = nullptr;
    int m_result = SQLITE_ERROR;
};

/// @return the address under which SQLite treats a database as one at rest, as in openAtRest()
QString addressAtRest(const QString &path);

/// @return a name, quoted for SQL
QByteArray quotedName(QByteArray name);

/// @return a text, quoted for SQL
QByteArray quotedText(QByteArray text);

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

    /// Opens a database at rest for reading. SQLite makes no file beside it, also in write-ahead mode,
    /// and nothing that the schema holds is run.
    /// @return an SQLite result code
    int openAtRest(const QString &path);
    void close();

    /// Nothing that the schema holds is run, nor may it lead SQLite astray.
    void distrustSchema();

    sqlite3 *handle() const { return m_handle; }
    QString errorText() const { return QString::fromUtf8(sqlite3_errmsg(m_handle)); }

    /// Runs statements that return nothing of interest.
    /// @return an SQLite result code
    int run(const char *sql) { return sqlite3_exec(m_handle, sql, nullptr, nullptr, nullptr); }

    /// Sets a pragma also where the schema cannot be understood, which SQLite reads first.
    int setPragma(const char *sql);

    /// @return the number that a query returns first, nothing when it fails or has no row
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

    /// @return true with a row, false at the end or on an error
    bool step()
    {
        if (m_result == SQLITE_OK || m_result == SQLITE_ROW) {
            m_result = sqlite3_step(m_handle);
        }
        return m_result == SQLITE_ROW;
    }
    int result() const { return m_result; }
    sqlite3_stmt *handle() const { return m_handle; }

    /// @return a value as a text in UTF-8, whatever the encoding of the database, null for NULL
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

/// @return the address under which SQLite takes a database for one at rest, as for openAtRest()
QString addressAtRest(const QString &path);

/// @return a name as SQL takes it
QByteArray quotedName(QByteArray name);

/// @return a text as SQL takes it
QByteArray quotedText(QByteArray text);

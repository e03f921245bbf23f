#pragma once

#include "guard/database_failure.h"
#include "guard/sqlite_connection.h"
#include "guard/wait_budget.h"

#include <QString>

#include <functional>
#include <optional>
#include <sys/types.h>

/// The database of the device. Only this class reads and changes it. Everything goes through
/// SQLite, because closing any other descriptor of the file would drop SQLite's locks.
class RealDatabase
{
public:
    /// @param path resolved
    RealDatabase(const QString &path, WaitBudget &budget);
    ~RealDatabase();
    Q_DISABLE_COPY(RealDatabase)

    using Failure = std::optional<DatabaseFailure>;

    /// Opens it for reading and writing, and begins to read it. So a hot journal is rolled back and
    /// the index of a write-ahead log is made now, and nothing is written beside it while it is
    /// copied.
    Failure open();

    /// Copies it as it is, damage included. Call it once, after open(). The content that is
    /// committed later has to be made from this copy.
    /// @param path a file that is not there yet
    /// @return NoRoom only when there is no room for the copy
    Failure copyTo(const QString &path);

    /// Opens an empty or damaged file that SQLite cannot read as a database. replaceContent() then
    /// treats it as an empty database, with the same locks and journal.
    Failure openDamaged();

    /// Copies the bytes of the file, whatever they are. Call it under the lock of replaceContent():
    /// then no process writes to the file, and SQLite has recovered what it could.
    /// @param path a file that is not there yet
    Failure copyBytesTo(const QString &path);

    /// Replaces the content in one transaction, under SQLite's own journal. The file stays the same
    /// one, so processes that have it open find the new content. The content is durable when this
    /// returns.
    /// @param source a database at rest
    /// @param underLock called when no other process can write any more and the database is still
    /// the one that was copied; a failure that it returns ends the change
    /// @return the failure; unless it is NotFlushed or Unknown, the work of underLock may be undone
    Failure replaceContent(const QString &source, const std::function<Failure()> &underLock);

    /// @return true when the database has a write-ahead log; known after the copy
    bool hasWriteAheadLog() const { return m_hasWriteAheadLog; }

    /// @return SQLite's counter of schema changes, which a commit changes; known when it is open
    qint64 schemaCookie() const { return m_schemaCookie; }

    /// Reads the current value of that counter.
    /// @return nothing when the database cannot be read
    std::optional<qint64> readSchemaCookie()
    {
        return m_connection.number("PRAGMA schema_version");
    }

    /// @return the connection, for queries that change nothing
    const SqliteConnection &connection() const { return m_connection; }

private:
    struct Identity {
        dev_t device;
        ino_t inode;
        bool operator==(const Identity &other) const
        {
            return device == other.device && inode == other.inode;
        }
    };

    Failure connect();
    Failure copyContentTo(const QString &path);
    Failure backUpTo(const QString &path);
    bool bytesAreContent();
    sqlite3_file *databaseFile() const;
    DatabaseFailure failure(int result) const;
    DatabaseFailure readingFailure() const;
    bool mayWriteBeside() const;
    DatabaseFailure commitFailure(int error, const QString &text);
    std::optional<Identity> identity() const;
    unsigned dataVersion() const;
    static int waitForLock(void *database, int);

    QString m_path;
    WaitBudget &m_budget;
    SqliteConnection m_connection;
    std::optional<Identity> m_copiedIdentity;
    unsigned m_copiedVersion = 0;
    qint64 m_schemaCookie = 0;
    bool m_hasWriteAheadLog = false;
};

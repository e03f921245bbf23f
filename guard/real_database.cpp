#include "guard/real_database.h"
#include "guard/database_file.h"
#include "guard/limits.h"

#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>

namespace
{
const char *const mainDatabase = "main";

/// One use of SQLite's backup interface.
class Backup
{
public:
    Backup(const SqliteConnection &to, const SqliteConnection &from)
        : m_to(to),
          m_backup(sqlite3_backup_init(to.handle(), mainDatabase, from.handle(), mainDatabase))
    {
    }
    ~Backup() { sqlite3_backup_finish(m_backup); }
    Q_DISABLE_COPY(Backup)

    /// @param pages 0 only to lock, -1 for all
    int step(int pages)
    {
        return m_backup ? sqlite3_backup_step(m_backup, pages) : sqlite3_errcode(m_to.handle());
    }

    /// Ends the backup; after an error the destination is rolled back.
    int finish()
    {
        const int result = sqlite3_backup_finish(m_backup);
        m_backup = nullptr;
        return result;
    }

private:
    const SqliteConnection &m_to;
    sqlite3_backup *m_backup;
};

/// @return SQLite's words for a result code: the connection's text if it belongs to this code; a
/// later call may have replaced it
QString textOf(const SqliteConnection &connection, int result)
{
    const int primaryCode = 0xff;
    const bool isItsOwn = connection.handle() && (sqlite3_errcode(connection.handle()) &
                                                  primaryCode) == (result & primaryCode);
    return isItsOwn ? connection.errorText() : QString::fromUtf8(sqlite3_errstr(result));
}

DatabaseFailure failureOf(const SqliteConnection &connection, int result)
{
    return sqliteFailure(result, textOf(connection, result));
}
} // namespace

RealDatabase::RealDatabase(const QString &path, WaitBudget &budget) : m_path(path), m_budget(budget)
{
}

RealDatabase::~RealDatabase() = default;

int RealDatabase::waitForLock(void *database, int)
{
    return static_cast<RealDatabase *>(database)->m_budget.waitAMoment() ? 1 : 0;
}

RealDatabase::Failure RealDatabase::open()
{
    if (Failure ended = connect()) {
        return ended;
    }
    m_copiedIdentity = identity();
    const int result = m_connection.run("BEGIN");
    if (result != SQLITE_OK) {
        return failure(result);
    }
    const std::optional<qint64> schemaCookie = readSchemaCookie();
    if (!schemaCookie) {
        return readingFailure();
    }
    m_schemaCookie = *schemaCookie;
    return std::nullopt;
}

DatabaseFailure RealDatabase::readingFailure() const
{
    DatabaseFailure failed = failure(sqlite3_extended_errcode(m_connection.handle()));
    // When SQLite cannot create a file, it does not say whether a right is missing or the disk
    // fails.
    if (failed.kind == DatabaseFailure::Kind::NotWritable && mayWriteBeside()) {
        failed.kind = DatabaseFailure::Kind::Failed;
    }
    return failed;
}

/// @return false when this user may not write SQLite's files, or something other than a file has
/// the name of one
bool RealDatabase::mayWriteBeside() const
{
    bool may = QFileInfo(QFileInfo(m_path).absolutePath()).isWritable();
    for (const char *suffix : {"-journal", "-wal", "-shm"}) {
        const QFileInfo file(m_path + suffix);
        const bool isThere = file.exists() || file.isSymLink();
        may = may && (!isThere || (file.isFile() && file.isWritable()));
    }
    return may;
}

RealDatabase::Failure RealDatabase::connect()
{
    const int result = m_connection.open(m_path, SQLITE_OPEN_READWRITE);
    if (result != SQLITE_OK) {
        return failure(result);
    }
    sqlite3_busy_handler(m_connection.handle(), waitForLock, this);
    // Closing a database that has a write-ahead log would write to it.
    sqlite3_db_config(m_connection.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    if (sqlite3_db_readonly(m_connection.handle(), mainDatabase) != 0) {
        return DatabaseFailure{DatabaseFailure::Kind::NotWritable, "the database is read-only"};
    }
    return std::nullopt;
}

RealDatabase::Failure RealDatabase::copyTo(const QString &path)
{
    if (Failure ended = copyContentTo(path)) {
        return ended;
    }
    m_copiedVersion = dataVersion();
    const int ended = m_connection.run("COMMIT");
    if (ended != SQLITE_OK) {
        return failure(ended);
    }
    int moved = 0;
    sqlite3_file_control(m_connection.handle(), mainDatabase, SQLITE_FCNTL_HAS_MOVED, &moved);
    if (moved != 0 || !m_copiedIdentity || !(identity() == m_copiedIdentity)) {
        return DatabaseFailure{DatabaseFailure::Kind::Replaced, "the database was replaced"};
    }
    const DatabaseFile file(path);
    if (!file.readError().isEmpty()) {
        return DatabaseFailure{DatabaseFailure::Kind::Failed, "the copy: " + file.readError()};
    }
    if (file.pageCount() == 0) {
        return DatabaseFailure{DatabaseFailure::Kind::Damaged, "there is nothing in it"};
    }
    m_hasWriteAheadLog = file.hasWriteAheadLog();
    return std::nullopt;
}

/// The lock of a reader keeps all writers out of the file. To copy its bytes in large pieces takes
/// half as long as page by page.
RealDatabase::Failure RealDatabase::copyContentTo(const QString &path)
{
    return bytesAreContent() ? copyBytesTo(path) : backUpTo(path);
}

/// @return true when the bytes of the file are the database, false also when SQLite does not say
bool RealDatabase::bytesAreContent()
{
    // SQLite reads a write-ahead log wherever there is one, whatever the header says.
    SqliteStatement mode(m_connection, "PRAGMA journal_mode");
    if (!mode.step() || mode.text(0) == "wal") {
        return false;
    }
    // A damaged journal that was rolled back can leave a file that is far too long.
    const std::optional<qint64> pages = m_connection.number("PRAGMA page_count");
    const std::optional<qint64> pageSize = m_connection.number("PRAGMA page_size");
    sqlite3_file *file = databaseFile();
    sqlite3_int64 size = 0;
    return pages && pageSize && file->pMethods->xFileSize(file, &size) == SQLITE_OK &&
           size == *pages * *pageSize;
}

RealDatabase::Failure RealDatabase::backUpTo(const QString &path)
{
    SqliteConnection copy;
    int result = copy.open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    if (result == SQLITE_OK) {
        // The copy need not survive a power cut.
        result = copy.run("PRAGMA synchronous = OFF; PRAGMA journal_mode = OFF");
    }
    if (result != SQLITE_OK) {
        return failureOf(copy, result);
    }
    Backup backup(copy, m_connection);
    result = backup.step(-1);
    const int finished = backup.finish();
    const int error = result != SQLITE_DONE ? result : finished;
    return error == SQLITE_OK ? std::nullopt : Failure(failureOf(copy, error));
}

RealDatabase::Failure RealDatabase::openDamaged()
{
    if (Failure ended = connect()) {
        return ended;
    }
    m_copiedIdentity = identity();
    m_schemaCookie = readSchemaCookie().value_or(-1);
    // SQLite then ignores the header and treats the database as one without a page.
    sqlite3_db_config(m_connection.handle(), SQLITE_DBCONFIG_RESET_DATABASE, 1, nullptr);
    if (!readSchemaCookie()) {
        return failure(sqlite3_extended_errcode(m_connection.handle()));
    }
    m_copiedVersion = dataVersion();
    return std::nullopt;
}

RealDatabase::Failure RealDatabase::copyBytesTo(const QString &path)
{
    sqlite3_file *file = databaseFile();
    sqlite3_int64 size = 0;
    int result = file->pMethods->xFileSize(file, &size);
    Descriptor copy(
        ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    int error = copy.isOpen() ? 0 : errno;
    QByteArray piece(limits::copiedPiece, Qt::Uninitialized);
    for (sqlite3_int64 done = 0; result == SQLITE_OK && error == 0 && done < size;) {
        const int bytes = static_cast<int>(qMin<sqlite3_int64>(piece.size(), size - done));
        result = file->pMethods->xRead(file, piece.data(), bytes, done);
        error = result == SQLITE_OK ? copy.writeAll(piece.constData(), bytes) : 0;
        done += bytes;
    }
    if (result != SQLITE_OK) {
        return sqliteFailure(result, QString::fromUtf8(sqlite3_errstr(result)));
    }
    if (copy.close() != 0 && error == 0) {
        error = errno;
    }
    return error == 0 ? std::nullopt : Failure(systemFailure(error, "the copy"));
}

/// @return SQLite's own descriptor, because closing another one would drop SQLite's locks
sqlite3_file *RealDatabase::databaseFile() const
{
    sqlite3_file *file = nullptr;
    sqlite3_file_control(m_connection.handle(), mainDatabase, SQLITE_FCNTL_FILE_POINTER, &file);
    return file;
}

RealDatabase::Failure RealDatabase::replaceContent(
    const QString &source, const std::function<Failure()> &underLock)
{
    // If the source has no page, the step that only takes the lock already copies everything, and
    // the real database would be empty.
    if (QFileInfo(source).size() == 0) {
        return DatabaseFailure{DatabaseFailure::Kind::Damaged, "the new database is empty"};
    }
    SqliteConnection content;
    int result = content.open(source, SQLITE_OPEN_READWRITE);
    if (result != SQLITE_OK) {
        return failureOf(content, result);
    }
    const QByteArray cache =
        "PRAGMA cache_size = -" + QByteArray::number(limits::commitCache / limits::kibibyte);
    // Below EXTRA, SQLite does not flush the removal of the journal, which is the commit.
    for (const char *setting : {"PRAGMA synchronous = EXTRA", cache.constData()}) {
        result = m_connection.setPragma(setting);
        if (result != SQLITE_OK) {
            return failure(result);
        }
    }
    // Every page is read once, so caching pages would only take memory.
    content.setPragma("PRAGMA cache_size = 10");

    Backup backup(m_connection, content);
    result = backup.step(0);
    if (result != SQLITE_OK && result != SQLITE_DONE) {
        backup.finish();
        return failure(result);
    }
    if (dataVersion() != m_copiedVersion) {
        return DatabaseFailure{DatabaseFailure::Kind::Written, "another program has written"};
    }
    if (!(identity() == m_copiedIdentity)) {
        return DatabaseFailure{DatabaseFailure::Kind::Replaced, "the database was replaced"};
    }
    if (Failure ended = underLock()) {
        return ended;
    }
    result = backup.step(-1);
    const int finished = backup.finish();
    const int error = result != SQLITE_DONE ? result : finished;
    if (error != SQLITE_OK) {
        return commitFailure(error, textOf(m_connection, error));
    }
    sqlite3_db_config(m_connection.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
    return std::nullopt;
}

DatabaseFailure RealDatabase::commitFailure(int error, const QString &text)
{
    // A commit can fail at its last flush, after the journal is gone. A new connection sees what
    // the next process will see, and rolls back if necessary.
    using Kind = DatabaseFailure::Kind;
    m_connection.close();
    SqliteConnection reader;
    reader.open(m_path, SQLITE_OPEN_READWRITE);
    const std::optional<qint64> schemaCookie = reader.number("PRAGMA schema_version");
    if (!schemaCookie) {
        const int readerError = sqlite3_extended_errcode(reader.handle());
        const bool isAsItWas =
            m_schemaCookie < 0 && sqliteFailure(readerError, text).kind == Kind::Damaged;
        return isAsItWas ? sqliteFailure(error, text) : DatabaseFailure{Kind::Unknown, text};
    }
    return *schemaCookie == m_schemaCookie ? sqliteFailure(error, text)
                                           : DatabaseFailure{Kind::NotFlushed, text};
}

std::optional<RealDatabase::Identity> RealDatabase::identity() const
{
    struct stat status;
    if (stat(QFile::encodeName(m_path).constData(), &status) != 0) {
        return std::nullopt;
    }
    return Identity{status.st_dev, status.st_ino};
}

unsigned RealDatabase::dataVersion() const
{
    unsigned version = 0;
    sqlite3_file_control(m_connection.handle(), mainDatabase, SQLITE_FCNTL_DATA_VERSION, &version);
    return version;
}

DatabaseFailure RealDatabase::failure(int result) const
{
    return failureOf(m_connection, result);
}

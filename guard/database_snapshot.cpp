#include "guard/database_snapshot.h"
#include "guard/database_failure.h"
#include "guard/durable_file.h"
#include "guard/limits.h"
#include "guard/regular_file.h"
#include "guard/sqlite_connection.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <fcntl.h>

namespace
{
const char *const journal = "-journal";
const char *const parts[] = {"", journal, "-wal"};

QString copyError(int error)
{
    return error == ENOSPC ? "no room for a copy in " + QDir::tempPath() : systemText(error);
}

/// @return the next bytes of a file, fewer only at its end; nothing on an error
std::optional<QByteArray> readPiece(const Descriptor &file)
{
    QByteArray piece(limits::copiedPiece, Qt::Uninitialized);
    int size = 0;
    while (size < piece.size()) {
        const ssize_t bytes = read(file.get(), piece.data() + size, size_t(piece.size() - size));
        if (bytes < 0 && errno != EINTR) {
            return std::nullopt;
        }
        if (bytes == 0) {
            break;
        }
        size += bytes > 0 ? int(bytes) : 0;
    }
    piece.truncate(size);
    return piece;
}

/// @return 0 or the error number of the system; a file that does not exist is not copied, without
/// an error
int copyFile(const QString &from, const QString &to)
{
    QFile::remove(to);
    const int error = durable::copy(from, to, durable::Ownership(), false);
    return error == ENOENT ? 0 : error;
}

bool isSame(const QString &path, const QString &copyPath)
{
    const Descriptor file = openRegularFile(path);
    const Descriptor copy = openRegularFile(copyPath);
    if (!file.isOpen() || !copy.isOpen()) {
        return file.isOpen() == copy.isOpen();
    }
    for (;;) {
        const std::optional<QByteArray> piece = readPiece(file);
        if (!piece || piece != readPiece(copy)) {
            return false;
        }
        if (piece->isEmpty()) {
            return true;
        }
    }
}

/// @return true when another process is about to write to a database, or writes
bool isBeingWritten(const QString &database)
{
    // SQLite's lock bytes: pending, reserved, and those of the readers. A write lock on any of them
    // belongs to a writer. This only asks and takes no lock. Closing the file drops this process's
    // locks on it, but there are none.
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0x40000000;
    lock.l_len = 2 + 510;
    const Descriptor file = openRegularFile(database);
    return file.isOpen() && fcntl(file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

/// @return true when SQLite would roll the journal back; a used journal that is kept begins with
/// zeros
bool isHot(const QString &path)
{
    QFile file(path);
    char first = 0;
    return file.open(QIODevice::ReadOnly) && file.getChar(&first) && first != 0;
}
} // namespace

DatabaseSnapshot::DatabaseSnapshot(const QString &database)
{
    if (!m_directory.isValid()) {
        m_error = "no copy in " + QDir::tempPath() + ": " + m_directory.errorString();
        return;
    }
    const bool isWritten = isBeingWritten(database);
    bool isStable = false;
    for (int copies = 0; !isStable && copies < limits::mostSnapshots; ++copies) {
        if (copies > 0) {
            QThread::msleep(limits::lockRetryInterval);
        }
        if (!copyAll(database)) {
            return;
        }
        // If the file was written to while it was copied, it differs from the copy.
        isStable = true;
        for (const char *part : parts) {
            isStable = isStable && isSame(database + part, path() + part);
        }
    }
    if (!isStable) {
        m_error = "another program keeps writing to it";
        return;
    }
    if (isWritten || isBeingWritten(database)) {
        m_remark = "locked by another program";
    } else if (isHot(path() + journal)) {
        m_remark = "a journal is left; the next run rolls it back";
    }
    recover();
}

bool DatabaseSnapshot::copyAll(const QString &database)
{
    for (const char *part : parts) {
        if (const int error = copyFile(database + part, path() + part)) {
            m_error = copyError(error);
            return false;
        }
    }
    return true;
}

void DatabaseSnapshot::recover()
{
    SqliteConnection connection;
    if (connection.open(path(), SQLITE_OPEN_READWRITE) != SQLITE_OK ||
        !connection.number("PRAGMA schema_version")) {
        m_error = connection.errorText();
        return;
    }
    connection.close();
    if (QFileInfo(path()).size() == 0) {
        m_error = "there is nothing in it";
    }
    // The journal was rolled back, or its writer has used it: the rest is not part of the database.
    QFile::remove(path() + journal);
}

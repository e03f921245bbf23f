#include "guard/durable_file.h"
#include "guard/descriptor.h"
#include "guard/limits.h"
#include "guard/regular_file.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace durable
{
namespace
{
int flushes = 0;

/// Creates a file that no other user can open before it has its owner and mode.
Descriptor create(const QString &path, const Ownership &ownership)
{
    const QByteArray name = QFile::encodeName(path);
    unlink(name.constData());
    Descriptor file(
        open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.isOpen()) {
        return file;
    }
    // If the group cannot be set, the file's present group must not get the right to read it.
    const bool owned = fchown(file.get(), ownership.owner, ownership.group) == 0;
    const mode_t groupRights = 0070;
    // A file system without modes refuses this; then only this user has the file.
    fchmod(file.get(), owned ? ownership.mode : ownership.mode & ~groupRights);
    return file;
}

/// Completes a new file, or removes it if it is not whole.
int finish(Descriptor &file, const QString &path, int error, bool flush)
{
    if (error == 0 && flush) {
        error = durable::flush(file.get());
    }
    if (file.close() != 0 && error == 0) {
        error = errno;
    }
    if (error != 0) {
        unlink(QFile::encodeName(path).constData());
    }
    return error;
}
} // namespace

Ownership ownershipOf(const QString &path)
{
    struct stat status;
    if (stat(QFile::encodeName(path).constData(), &status) != 0) {
        return {};
    }
    return {status.st_uid, status.st_gid, status.st_mode & 0777};
}

QString unfinishedName(const QString &path)
{
    return path + ".new";
}

int replace(const QString &path, const QByteArray &content, const Ownership &ownership, bool flush)
{
    const QString unfinished = unfinishedName(path);
    Descriptor file = create(unfinished, ownership);
    if (!file.isOpen()) {
        return errno;
    }
    const int written = file.writeAll(content.constData(), content.size());
    int error = finish(file, unfinished, written, flush);
    if (error == 0) {
        error = rename(unfinished, path);
    }
    if (error != 0) {
        // If it cannot be removed, the next write replaces it.
        unlink(QFile::encodeName(unfinished).constData());
    }
    return error;
}

int copy(const QString &from, const QString &to, const Ownership &ownership, bool flush)
{
    const Descriptor source = openRegularFile(from);
    if (!source.isOpen()) {
        return errno;
    }
    Descriptor file = create(to, ownership);
    if (!file.isOpen()) {
        return errno;
    }
    QByteArray piece(limits::copiedPiece, '\0');
    int error = 0;
    while (error == 0) {
        const ssize_t size = ::read(source.get(), piece.data(), size_t(piece.size()));
        if (size == 0) {
            break;
        }
        if (size > 0) {
            error = file.writeAll(piece.constData(), size);
        } else if (errno != EINTR) {
            error = errno;
        }
    }
    return finish(file, to, error, flush);
}

int rename(const QString &from, const QString &to)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray place = QFile::encodeName(to);
    return ::rename(source.constData(), place.constData()) == 0 ? 0 : errno;
}

int flushDirectory(const QString &directory)
{
    const Descriptor opened(
        open(QFile::encodeName(directory).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return opened.isOpen() ? flush(opened.get()) : errno;
}

int flush(int descriptor)
{
    ++flushes;
    return fsync(descriptor) == 0 ? 0 : errno;
}

int flushesAskedFor()
{
    return flushes;
}
} // namespace durable

#include "guard/staging.h"
#include "guard/descriptor.h"
#include "guard/device_paths.h"
#include "guard/durable_file.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

namespace
{
/// Other users may write in the parent directory: their links and directories are left alone.
bool isOwn(const QString &directory)
{
    struct stat status;
    return lstat(QFile::encodeName(directory).constData(), &status) == 0 &&
           S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}
} // namespace

Staging::~Staging()
{
    remove(m_directory);
}

bool Staging::prepare()
{
    remove(m_directory);
    // If staging is the root of a mounted file system, the directory exists already.
    if (mkdir(QFile::encodeName(m_directory).constData(), 0700) != 0 && !isOwn(m_directory)) {
        return false;
    }
    const QStringList directories = {databases(), databases() + "/temporary", pool(), temporary()};
    for (const QString &directory : directories) {
        if (mkdir(QFile::encodeName(directory).constData(), 0700) != 0) {
            return false;
        }
    }
    return true;
}

QString Staging::database() const
{
    return databases() + "/" + databaseName;
}

QString Staging::log() const
{
    return databases() + "/" + logName;
}

void Staging::remove(const QString &directory)
{
    if (isOwn(directory)) {
        QDir(directory).removeRecursively();
    }
}

namespace stagedPool
{
namespace
{
/// The entries that a step can delete: files and links to files. Names are bytes, whatever the
/// locale.
QByteArrayList filesOf(const QString &pool)
{
    QByteArrayList names;
    if (pool.isEmpty()) {
        return names;
    }
    const std::unique_ptr<DIR, int (*)(DIR *)> directory(
        opendir(QFile::encodeName(pool).constData()), closedir);
    while (const dirent *entry = directory ? readdir(directory.get()) : nullptr) {
        struct stat status;
        if (fstatat(dirfd(directory.get()), entry->d_name, &status, 0) == 0 &&
            S_ISREG(status.st_mode)) {
            names << entry->d_name;
        }
    }
    return names;
}

QByteArray inDirectory(const QString &directory, const QByteArray &name)
{
    return QFile::encodeName(directory) + '/' + name;
}
} // namespace

std::optional<QByteArrayList> fill(const QString &pool, const QString &staged)
{
    const QByteArrayList names = filesOf(pool);
    for (const QByteArray &name : names) {
        const Descriptor file(
            open(inDirectory(staged, name).constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        if (!file.isOpen()) {
            return std::nullopt;
        }
    }
    return names;
}

QByteArrayList deletedFiles(const QByteArrayList &names, const QString &staged)
{
    const QByteArrayList left = filesOf(staged);
    QByteArrayList deleted;
    for (const QByteArray &name : names) {
        if (!left.contains(name)) {
            deleted << name;
        }
    }
    return deleted;
}

bool deleteFiles(const QString &pool, const QByteArrayList &names)
{
    bool allGone = true;
    bool deleted = false;
    for (const QByteArray &name : names) {
        // The note of an earlier run may contain any text.
        if (name.contains('/')) {
            continue;
        }
        const int error = unlink(inDirectory(pool, name).constData()) == 0 ? 0 : errno;
        deleted = deleted || error == 0;
        allGone = allGone && (error == 0 || error == ENOENT);
    }
    if (deleted) {
        durable::flushDirectory(pool);
    }
    return allGone;
}
} // namespace stagedPool

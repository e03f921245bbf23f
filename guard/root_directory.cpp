#include "guard/root_directory.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <climits>
#include <unistd.h>

namespace rootDirectory
{
namespace
{
/// The kernel's own limit.
constexpr int mostLinks = 40;
} // namespace

QString linkText(const QString &path)
{
    char text[PATH_MAX];
    const ssize_t size = readlink(QFile::encodeName(path).constData(), text, sizeof text);
    return size < 0 ? QString() : QFile::decodeName(QByteArray(text, static_cast<int>(size)));
}

QString outside(const QString &base, const QString &path)
{
    return base == "/" ? path : base + path;
}

QString resolve(const QString &base, const QString &path)
{
    QStringList left = path.split('/', Qt::SkipEmptyParts);
    QStringList resolved;
    for (int links = 0; !left.isEmpty();) {
        const QString name = left.takeFirst();
        if (name == "..") {
            // The root directory is its own parent.
            if (!resolved.isEmpty()) {
                resolved.removeLast();
            }
            continue;
        }
        if (name == ".") {
            continue;
        }
        const QString next = '/' + (resolved + QStringList{name}).join('/');
        const QString link = linkText(outside(base, next));
        if (link.isEmpty()) {
            resolved << name;
            continue;
        }
        if (++links > mostLinks) {
            // The kernel would follow what is left from the running system's root.
            return QString();
        }
        if (link.startsWith('/')) {
            resolved.clear();
        }
        left = link.split('/', Qt::SkipEmptyParts) + left;
    }
    return '/' + resolved.join('/');
}

QStringList inMemory(const QString &base, const QString &bind, const QString &leftOut)
{
    QStringList arguments = {"--tmpfs", "/"};
    const QFileInfoList entries = QDir(base).entryInfoList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries) {
        const QString inside = '/' + entry.fileName();
        if (inside == leftOut) {
            continue;
        }
        if (entry.isSymLink()) {
            arguments += {"--symlink", linkText(entry.filePath()), inside};
        } else {
            arguments += {bind, entry.filePath(), inside};
        }
    }
    return arguments;
}
} // namespace rootDirectory

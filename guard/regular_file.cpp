#include "guard/regular_file.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>

Descriptor openRegularFile(const QString &path)
{
    Descriptor file(
        open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status = {};
    if (file.isOpen() && (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))) {
        file.close();
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    return file;
}

std::optional<QByteArray> readSmallFile(const QString &path, qint64 largest)
{
    const Descriptor descriptor = openRegularFile(path);
    QFile file;
    if (!descriptor.isOpen() || !file.open(descriptor.get(), QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    const QByteArray content = file.read(largest + 1);
    const bool isWhole = file.error() == QFileDevice::NoError && content.size() <= largest;
    return isWhole ? std::optional<QByteArray>(content) : std::nullopt;
}

QString firstLineOfSmallFile(const QString &path, qint64 largest)
{
    const QByteArray text = readSmallFile(path, largest).value_or(QByteArray());
    // A last line may have no end: its length is -1 then, and all of it is taken.
    return QString::fromUtf8(text.mid(0, text.indexOf('\n'))).remove('\r');
}

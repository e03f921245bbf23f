#include "guard/device_log.h"
#include "guard/durable_file.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{
/// @return whether a run without the log would hide a failure: the disk or the memory has failed, or
/// room or descriptors are missing. Other errors mean that the log is no file to write to.
bool isFailure(int error)
{
    switch (error) {
    case EIO:
    case ENOSPC:
    case EDQUOT:
    case ENOMEM:
    case EMFILE:
    case ENFILE:
        return true;
    default:
        return false;
    }
}
} // namespace

DeviceLog::DeviceLog(const QString &path) : m_path(path) {}

int DeviceLog::append(const QByteArray &text, bool flush)
{
    const QByteArray name = QFile::encodeName(m_path);
    const int flags = O_WRONLY | O_APPEND | O_CLOEXEC | O_NONBLOCK;
    m_file = Descriptor(open(name.constData(), flags));
    m_isNew = !m_file.isOpen() && errno == ENOENT;
    if (m_isNew) {
        m_file = Descriptor(open(name.constData(), flags | O_CREAT, 0666));
    }
    if (!m_file.isOpen()) {
        return isFailure(errno) ? errno : 0;
    }
    struct stat status;
    if (fstat(m_file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        m_file.close();
        return 0;
    }
    m_length = status.st_size;
    int error = m_file.writeAll(text.constData(), text.size());
    if (error == 0 && flush) {
        error = durable::flush(m_file.get());
    }
    if (error != 0) {
        cutBack();
    }
    return error;
}

QString DeviceLog::newIn() const
{
    // The name may be a link, and the file in another directory.
    const bool made = m_isNew && m_file.isOpen();
    return made ? QFileInfo(QFileInfo(m_path).canonicalFilePath()).absolutePath() : QString();
}

void DeviceLog::cutBack()
{
    if (!m_file.isOpen()) {
        return;
    }
    if (m_isNew) {
        unlink(QFile::encodeName(QFileInfo(m_path).canonicalFilePath()).constData());
        m_file.close();
    } else if (ftruncate(m_file.get(), m_length) == 0) {
        m_file.close();
    }
}

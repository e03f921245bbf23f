#include "guard/log_follower.h"
#include "guard/messages.h"
#include "guard/run_log.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

namespace
{
/// @return not open when there is no file yet, or something other than a file, whose reading might
/// never end
Descriptor openFile(const QString &path)
{
    Descriptor file(open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status;
    const bool isFile = file.isOpen() && fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? std::move(file) : Descriptor();
}
} // namespace

LogFollower::LogFollower(const QString &path) : m_path(path) {}

void LogFollower::skipToEnd()
{
    m_file = openFile(m_path);
    if (m_file.isOpen()) {
        lseek(m_file.get(), 0, SEEK_END);
    }
}

void LogFollower::readOn()
{
    if (!m_file.isOpen()) {
        m_file = openFile(m_path);
    }
    char piece[8192];
    ssize_t size = 0;
    while (m_file.isOpen() && (size = read(m_file.get(), piece, sizeof piece)) > 0) {
        m_text.append(piece, static_cast<int>(size));
    }
    lookAtLines();
}

void LogFollower::lookAtLines()
{
    int end = 0;
    while ((end = m_text.indexOf('\n', m_lookedAt)) >= 0) {
        const QByteArray line = m_text.mid(m_lookedAt, end - m_lookedAt);
        m_lookedAt = end + 1;
        m_lackOfRoom = m_lackOfRoom || runLog::tellsOfLackOfRoom(line);
        if (runLog::closesAStep(line)) {
            tell(line);
        }
    }
}

#include "guard/log_follower.h"
#include "guard/messages.h"
#include "guard/run_log.h"

#include <QFile>

#include <fcntl.h>

LogFollower::LogFollower(const QString &path) : m_path(path) {}

void LogFollower::skipToEnd()
{
    m_file = Descriptor(open(QFile::encodeName(m_path).constData(), O_RDONLY | O_CLOEXEC));
    if (m_file.isOpen()) {
        lseek(m_file.get(), 0, SEEK_END);
    }
}

void LogFollower::readOn()
{
    if (!m_file.isOpen()) {
        m_file = Descriptor(open(QFile::encodeName(m_path).constData(), O_RDONLY | O_CLOEXEC));
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

#include "guard/database_file.h"
#include "guard/regular_file.h"

#include <QtEndian>

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace
{
// SQLite refuses smaller pages.
constexpr int smallestUsableSize = 480;

// SQLite refuses databases whose format is newer than these.
constexpr int newestReadVersion = 2;
constexpr int newestSchemaFormat = 4;

constexpr int readVersionOffset = 19;
constexpr int changeCounterOffset = 24;
constexpr int pageCountOffset = 28;
constexpr int pageCountWrittenAtOffset = 92; ///< the change counter of that moment

int reservedBytes(const QByteArray &header)
{
    return static_cast<quint8>(header[20]);
}

/// SQLite reads only the last byte of this number.
int schemaFormat(const QByteArray &header)
{
    return static_cast<quint8>(header[47]);
}

/// @return the page size in a header, 0 when SQLite does not accept the header
int acceptedPageSize(const QByteArray &header)
{
    const int stated = qFromBigEndian<quint16>(header.constData() + 16);
    const int size = stated == 1 ? 65536 : stated;
    const bool isPowerOfTwo = (size & (size - 1)) == 0;
    // The NUL that ends the literal is the last byte of the magic. The three bytes after the
    // reserved ones are the payload fractions, which always have these values.
    const bool isAccepted = std::memcmp(header.constData(), "SQLite format 3", 16) == 0 &&
                            std::memcmp(header.constData() + 21, "\x40\x20\x20", 3) == 0 &&
                            static_cast<quint8>(header[readVersionOffset]) <= newestReadVersion &&
                            schemaFormat(header) <= newestSchemaFormat && isPowerOfTwo &&
                            size - reservedBytes(header) >= smallestUsableSize;
    return isAccepted ? size : 0;
}
} // namespace

DatabaseFile::DatabaseFile(const QString &path)
    : m_descriptor(openRegularFile(path)), m_header(headerSize, '\0')
{
    struct stat status = {};
    if (!m_descriptor.isOpen() || fstat(m_descriptor.get(), &status) != 0) {
        m_readError = QString::fromLocal8Bit(std::strerror(errno));
        return;
    }
    readHeader(status.st_size);
}

void DatabaseFile::readHeader(qint64 fileSize)
{
    if (!read(1, m_header.data(), headerSize)) {
        return;
    }
    const int pageSize = acceptedPageSize(m_header);
    if (pageSize != 0) {
        m_pageSize = pageSize;
    }
    const auto pagesOfFile = static_cast<quint32>((fileSize + m_pageSize - 1) / m_pageSize);
    m_pageCount = pagesOfFile;
    // SQLite before 3.7 did not keep the number of pages up to date.
    const bool isCountCurrent =
        headerNumber(changeCounterOffset) == headerNumber(pageCountWrittenAtOffset);
    if (pageSize != 0 && isCountCurrent && headerNumber(pageCountOffset) != 0) {
        m_pageCount = headerNumber(pageCountOffset);
    }
    m_isDatabase = fileSize == 0 || (pageSize != 0 && m_pageCount <= pagesOfFile);
}

quint32 DatabaseFile::headerNumber(int offset) const
{
    return qFromBigEndian<quint32>(m_header.constData() + offset);
}

bool DatabaseFile::hasWriteAheadLog() const
{
    const char writeAheadLog = 2;
    return m_header[readVersionOffset] == writeAheadLog;
}

int DatabaseFile::usableSize() const
{
    return m_isDatabase ? m_pageSize - reservedBytes(m_header) : m_pageSize;
}

bool DatabaseFile::read(quint32 number, char *pages, int size) const
{
    const qint64 begin = (qint64(number) - 1) * m_pageSize;
    qint64 done = 0;
    while (done < size) {
        const ssize_t bytes =
            pread(m_descriptor.get(), pages + done, static_cast<size_t>(size - done), begin + done);
        if (bytes < 0 && errno == EINTR) {
            continue;
        }
        if (bytes < 0) {
            m_readError = QString::fromLocal8Bit(std::strerror(errno));
            return false;
        }
        if (bytes == 0) {
            std::memset(pages + done, 0, static_cast<size_t>(size - done));
            break;
        }
        done += bytes;
    }
    return true;
}

#pragma once

#include "guard/descriptor.h"

#include <QByteArray>
#include <QString>

/// A database file at rest, read page by page without SQLite. If the file ends within a page, the
/// rest of that page is zeros.
class DatabaseFile
{
public:
    static constexpr int headerSize = 100; ///< bytes at the start of page 1

    /// Opens the file, whatever is in it; readError() says whether that failed.
    explicit DatabaseFile(const QString &path);
    Q_DISABLE_COPY(DatabaseFile)

    /// @return the first failure to open or read, empty when there was none
    const QString &readError() const { return m_readError; }

    /// @return whether SQLite accepts the header and the file is long enough for it; also true for an
    /// empty file, which SQLite treats as a database without tables
    bool isDatabase() const { return m_isDatabase; }

    /// @return the first bytes of the file, zeros where it is shorter
    const QByteArray &header() const { return m_header; }

    /// @param offset where a big-endian number of four bytes begins in the header
    quint32 headerNumber(int offset) const;

    /// @return whether SQLite keeps changes of this database in a write-ahead log
    bool hasWriteAheadLog() const;

    /// @return the number of pages that SQLite uses: the header's, or the file's when the header's
    /// is out of date
    quint32 pageCount() const { return m_pageCount; }

    /// @return bytes of a page; 4096 when the file is no database
    int pageSize() const { return m_pageSize; }

    /// @return how many bytes of a page b-trees use
    int usableSize() const;

    /// Reads pages that follow each other.
    /// @param number the first page, from 1
    /// @param[out] pages receives size bytes: whole pages, or the beginning of one
    /// @return false when the disk failed
    bool read(quint32 number, char *pages, int size) const;

private:
    void readHeader(qint64 fileSize);

    Descriptor m_descriptor;
    mutable QString m_readError;
    QByteArray m_header;
    bool m_isDatabase = false;
    int m_pageSize = 4096;
    quint32 m_pageCount = 0;
};

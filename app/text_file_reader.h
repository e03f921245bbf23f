#pragma once

#include <QFile>
#include <QString>
#include <QTextStream>

/// Reads a text file of the device line by line. A byte order mark tells the encoding; without one
/// it is UTF-8, whatever locale the device boots with.
class TextFileReader
{
public:
    /// @param path absolute path of the file
    explicit TextFileReader(const QString &path) : m_file(path) {}

    /// @return false when the file cannot be opened for reading
    bool open()
    {
        if (!m_file.open(QIODevice::ReadOnly | QIODevice::Text)) {
            return false;
        }
        m_stream.setDevice(&m_file);
        m_stream.setCodec("UTF-8");
        return true;
    }

    /// Reads the next line without its end of line.
    /// @param longestPiece a line of more characters comes in several pieces; 0 for whole lines
    /// @return false at the end of the file
    bool readLine(QString *line, qint64 longestPiece = 0)
    {
        return m_stream.readLineInto(line, longestPiece);
    }

    /// @return the first line of the opened file, empty when there is none
    QString readFirstLine()
    {
        QString line;
        readLine(&line);
        return line;
    }

private:
    QFile m_file;
    QTextStream m_stream;
};

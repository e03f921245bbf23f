#pragma once

#include "guard/descriptor.h"

#include <QByteArray>
#include <QString>

/// The log beside the real database. The program does without a log that cannot be opened, and so
/// does this class: all operations succeed then.
class DeviceLog
{
public:
    explicit DeviceLog(const QString &path);

    /// Appends the text of an accepted run. An append that stops half-way is cut back.
    /// @param flush whether the text is durable afterwards
    /// @return 0 or the error number of the system
    int append(const QByteArray &text, bool flush);

    /// @return the directory that has to be flushed since the append has made the file, empty for none
    QString newIn() const;

    /// Takes the appended text back, after a commit that failed.
    void cutBack();

private:
    QString m_path;
    Descriptor m_file;
    off_t m_length = 0;
    bool m_isNew = false;
};

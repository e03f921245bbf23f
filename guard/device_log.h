#pragma once

#include "guard/descriptor.h"

#include <QByteArray>
#include <QString>

/// The log beside the real database. If it is no file that can be written to, the program goes on
/// without it, and so does this class: all operations then succeed.
class DeviceLog
{
public:
    explicit DeviceLog(const QString &path);

    /// Appends the text of an accepted run. An append that stops half-way is cut back.
    /// @param flush whether the text is durable afterwards
    /// @return 0 or the error number of the system
    int append(const QByteArray &text, bool flush);

    /// @return the directory to flush because the append created the file, empty for none
    QString newIn() const;

    /// Removes the appended text after a commit that failed.
    void cutBack();

private:
    QString m_path;
    Descriptor m_file;
    off_t m_length = 0;
    bool m_isNew = false;
};

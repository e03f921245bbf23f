#pragma once

#include "guard/descriptor.h"

#include <QByteArray>
#include <QString>

/// Reads a log while the program writes it, and prints the closing line of every step on the
/// terminal.
class LogFollower
{
public:
    /// @param path a log that may not be there yet
    explicit LogFollower(const QString &path);

    /// Skips the text that is already in the log.
    void skipToEnd();

    /// Reads the text that was added since the last call.
    void readOn();

    /// @return all text that was read
    const QByteArray &text() const { return m_text; }

    /// @return true when a line reported lack of room
    bool toldOfLackOfRoom() const { return m_lackOfRoom; }

private:
    void lookAtLines();

    QString m_path;
    Descriptor m_file;
    QByteArray m_text;
    int m_lookedAt = 0;
    bool m_lackOfRoom = false;
};

#pragma once

#include "guard/descriptor.h"

#include <QByteArray>
#include <QString>

/// Reads a log while the program writes it, and tells the terminal of every step that ends.
class LogFollower
{
public:
    /// @param path a log that may not be there yet
    explicit LogFollower(const QString &path);

    /// Passes over what the log already holds.
    void skipToEnd();

    /// Reads what has come since the last call.
    void readOn();

    /// @return all that was read
    const QByteArray &text() const { return m_text; }

    /// @return true when a line told of lack of room
    bool toldOfLackOfRoom() const { return m_lackOfRoom; }

private:
    void lookAtLines();

    QString m_path;
    Descriptor m_file;
    QByteArray m_text;
    int m_lookedAt = 0;
    bool m_lackOfRoom = false;
};

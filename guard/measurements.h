#pragma once

#include <QElapsedTimer>
#include <QJsonObject>
#include <QString>

/// Times, bytes and flushes of a run. They differ from run to run, and say nothing about how the
/// run ended.
class Measurements
{
public:
    /// Begins to measure the first part of a run.
    void begin() { m_timer.start(); }

    /// Ends a part of the run, and begins the next one.
    /// @param part such as "copy"
    void endPart(const QString &part)
    {
        m_milliseconds.insert(part, static_cast<double>(m_timer.restart()));
    }

    /// @param what such as "before"
    void noteBytes(const QString &what, qint64 bytes)
    {
        m_bytes.insert(what, static_cast<double>(bytes));
    }

    /// @return the measurements, and how many flushes the guard itself has asked for so far
    QJsonObject toJson() const;

private:
    QElapsedTimer m_timer;
    QJsonObject m_milliseconds;
    QJsonObject m_bytes;
};

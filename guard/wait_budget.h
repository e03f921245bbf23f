#pragma once

#include "guard/limits.h"

#include <QThread>

/// The time that a run may spend waiting for locks of others, all waits together.
class WaitBudget
{
public:
    /// @param seconds 0 not to wait
    explicit WaitBudget(int seconds) : m_milliseconds(seconds * qint64(1000)) {}

    /// Waits a moment.
    /// @return false when the time is used up
    bool waitAMoment()
    {
        if (m_milliseconds <= 0) {
            return false;
        }
        QThread::msleep(limits::lockRetryInterval);
        m_milliseconds -= limits::lockRetryInterval;
        return true;
    }

private:
    qint64 m_milliseconds;
};

#pragma once

#include <QByteArray>
#include <QFile>

#include <malloc.h>

/// Measures the peak of the additional memory that this process needs from now on.
class PeakMemory
{
public:
    PeakMemory()
    {
        malloc_trim(0);
        QFile marks("/proc/self/clear_refs");
        if (!marks.open(QIODevice::WriteOnly) || marks.write("5") != 1) {
            qFatal("the peak of the memory cannot be reset");
        }
        marks.close();
        m_start = peak();
    }

    /// @return in bytes; 0 under the address sanitizer, which keeps what was freed
    qint64 growth() const
    {
#ifdef __SANITIZE_ADDRESS__
        return 0;
#else
        return peak() - m_start;
#endif
    }

private:
    static qint64 peak()
    {
        QFile status("/proc/self/status");
        if (!status.open(QIODevice::ReadOnly)) {
            return 0;
        }
        const QList<QByteArray> lines = status.readAll().split('\n');
        for (const QByteArray &line : lines) {
            if (line.startsWith("VmHWM:")) {
                return line.simplified().split(' ').value(1).toLongLong() * 1024;
            }
        }
        return 0;
    }

    qint64 m_start = 0;
};

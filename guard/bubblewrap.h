#pragma once

#include "guard/descriptor.h"

#include <QProcess>

#include <optional>

/// @return the path of bubblewrap, empty where it is not installed
QString bubblewrapPath();

/// Starts a program inside bubblewrap and tells its end from bubblewrap's own. What runs dies with
/// this process. Has to be used from the main thread: the kernel ties the child to its thread.
class Bubblewrap : public QProcess
{
public:
    /// @param arguments bubblewrap's, then the program and its own
    /// @return false when bubblewrap could not be started
    bool startSandbox(const QStringList &arguments);

    /// What is known when the process has ended.
    struct End {
        bool programStarted = false; ///< false: bubblewrap failed before the program ran
        bool killed = false;         ///< bubblewrap was ended by a signal
        std::optional<int> exitCode; ///< nothing: bubblewrap was ended before the program was
    };
    End end();

protected:
    void setupChildProcess() override;

private:
    Descriptor m_statusRead;
    Descriptor m_statusWrite;
};

/// Keeps what was open when this process was started from the programs that it starts.
void closeInheritedDescriptorsOnStart();

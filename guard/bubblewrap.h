#pragma once

#include "guard/child_process.h"
#include "guard/descriptor.h"

#include <optional>

/// @return the path of bubblewrap, empty where it is not installed
QString bubblewrapPath();

/// Starts a program inside bubblewrap and tells its end from bubblewrap's own. Has to be used from the
/// main thread.
class Bubblewrap
{
public:
    /// @param arguments bubblewrap's, then the program and its own
    /// @param options what bubblewrap and the program have as their standard files
    /// @return false when bubblewrap could not be started
    bool start(const QStringList &arguments, ChildProcess::Options options = {});

    /// Can be read when it may have ended.
    int endDescriptor() const { return m_process.endDescriptor(); }
    bool hasEnded() { return m_process.hasEnded(); }

    /// @param milliseconds how long to wait
    /// @return whether it has ended
    bool waitForEnd(int milliseconds) { return m_process.waitForEnd(milliseconds); }

    /// How it has ended.
    struct End {
        bool programStarted = false; ///< false: bubblewrap failed before the program ran
        bool killed = false;         ///< bubblewrap was ended by a signal
        std::optional<int> exitCode; ///< nothing: bubblewrap was ended before the program was
    };

    /// Ends what still runs.
    End end();

private:
    ChildProcess m_process;
    Descriptor m_status;
};

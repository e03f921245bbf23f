#pragma once

#include "guard/child_process.h"
#include "guard/descriptor.h"

#include <optional>

/// @return the path of bubblewrap, empty where it is not installed
QString bubblewrapPath();

/// Starts a program inside bubblewrap, and can tell whether the program or bubblewrap itself ended.
/// Use it from the main thread only.
class Bubblewrap
{
public:
    /// @param arguments bubblewrap's, then the program and its own
    /// @param options the standard files of bubblewrap and the program
    /// @return false when bubblewrap could not be started
    bool start(const QStringList &arguments, ChildProcess::Options options = {});

    /// Becomes readable when bubblewrap may have ended.
    int endDescriptor() const { return m_process.endDescriptor(); }
    bool hasEnded() { return m_process.hasEnded(); }

    /// @param milliseconds how long to wait
    /// @return whether it has ended
    bool waitForEnd(int milliseconds) { return m_process.waitForEnd(milliseconds); }

    /// How it has ended.
    struct End {
        bool programStarted = false; ///< false: bubblewrap failed before the program ran
        bool killed = false;         ///< bubblewrap was ended by a signal
        std::optional<int> exitCode; ///< nothing: bubblewrap ended before the program did
    };

    /// Ends whatever still runs.
    End end();

private:
    ChildProcess m_process;
    Descriptor m_status;
};

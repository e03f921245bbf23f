#pragma once

#include "guard/descriptor.h"

#include <QString>
#include <QStringList>

#include <csignal>
#include <sys/wait.h>

/// Keeps what was open when this process was started from the programs that it starts, and puts
/// something into the place of standard files that are not open, where the database might be opened.
void prepareDescriptors();

/// Starts a program and waits for its end.
///
/// QProcess cannot be used for this: the process that it forks waits for its parent before it
/// executes the program. If the parent is killed in that moment, it waits for ever, with all that the
/// parent had open: the guard's lock and its caller's output.
///
/// Has to be used from the main thread: the kernel ties the end of a child to the thread that has
/// started it.
class ChildProcess
{
public:
    struct Options {
        /// Whether the kernel kills the child when this process has ended, however it has.
        bool diesWithParent = false;
        /// What the child has as its standard files.
        int input = -1; ///< -1 for an empty one
        int output = STDOUT_FILENO;
        int errors = STDERR_FILENO;
        /// One more descriptor for it, -1 for none. All others are closed in it.
        int passed = -1;
    };

    ChildProcess();
    ~ChildProcess(); ///< kills it if it still runs
    Q_DISABLE_COPY(ChildProcess)

    /// @param program path
    /// @return false when it cannot be executed
    bool start(const QString &program, const QStringList &arguments, const Options &options);

    /// Can be read when a child may have ended.
    int endDescriptor() const { return m_ends.get(); }

    /// @return true when it has ended, or was not started
    bool hasEnded();

    /// Waits until it has ended, or for this time.
    /// @param milliseconds -1 for no limit
    /// @return whether it has ended
    bool waitForEnd(int milliseconds);

    /// Kills it and waits until it has ended.
    void kill();

    /// Ends every child of this process, also those that it has become the parent of meanwhile. They
    /// have a moment to end by themselves, then they are killed.
    void endAllChildren();

    /// @return true when a signal has ended it
    bool wasKilled() const { return WIFSIGNALED(m_status); }

    /// @return its exit status, when no signal has ended it
    int exitCode() const { return WEXITSTATUS(m_status); }

private:
    [[noreturn]] void execute(
        char *const *command, const Options &options, pid_t parent,
        const Descriptor &failure) const;
    void forgetEnds() const;
    bool waitForAnyEnd(int milliseconds) const;

    pid_t m_process = -1; ///< -1: it does not run
    int m_status = 0;     ///< what the system says when it has ended
    sigset_t m_signalsBefore;
    Descriptor m_ends;
};

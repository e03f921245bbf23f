#pragma once

#include "guard/descriptor.h"

#include <QString>
#include <QStringList>

#include <csignal>
#include <sys/wait.h>

/// Makes sure that programs which this process starts do not inherit the files that it was started
/// with. Also opens standard files that are closed: the database could get their numbers.
void prepareDescriptors();

/// Starts a program and waits for its end.
///
/// QProcess cannot be used for this: the process that it forks waits for its parent before it
/// executes the program. If the parent is killed at that moment, the forked process waits forever
/// and keeps open what the parent had open: the guard's lock and the caller's output.
///
/// Use it from the main thread only: the kernel ties the end of a child to the thread that started
/// it.
class ChildProcess
{
public:
    struct Options {
        /// Whether the kernel kills the child when this process ends, for whatever reason.
        bool diesWithParent = false;
        /// The child's standard files.
        int input = -1; ///< -1 for an empty one
        int output = STDOUT_FILENO;
        int errors = STDERR_FILENO;
        /// One more descriptor for the child, -1 for none. All others are closed in the child.
        int passed = -1;
    };

    ChildProcess();
    ~ChildProcess(); ///< kills the child if it still runs
    Q_DISABLE_COPY(ChildProcess)

    /// @param program path
    /// @return false when it cannot be executed
    bool start(const QString &program, const QStringList &arguments, const Options &options);

    /// Becomes readable when a child may have ended.
    int endDescriptor() const { return m_ends.get(); }

    /// @return true when it has ended, or was not started
    bool hasEnded();

    /// Waits until the child has ended, at most for this time.
    /// @param milliseconds -1 for no limit
    /// @return whether it has ended
    bool waitForEnd(int milliseconds);

    /// Kills the child and waits until it has ended.
    void kill();

    /// Ends every child of this process, including orphans that it has adopted. They have a moment
    /// to end by themselves, then they are killed.
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
    int m_status = 0;     ///< what the system reports when it has ended
    sigset_t m_signalsBefore;
    Descriptor m_ends;
};

#pragma once

#include "guard/descriptor.h"
#include "guard/wait_budget.h"

#include <QString>

/// Lets one guard at a time work on a directory. The lock ends with the process. A child loses it
/// when it executes its program; ChildProcess makes sure that the child does not wait before that.
class DirectoryLock
{
public:
    enum class Result { Taken, HeldByAnother, Impossible, Failed };

    /// Takes the lock, waiting for another guard as long as the budget lasts.
    /// @param directory resolved path
    /// @return Impossible when this user may not open the directory or its file system has no locks;
    /// Failed when the disk failed or the system lacks memory or descriptors
    Result take(const QString &directory, WaitBudget &budget);

private:
    Descriptor m_directory;
};

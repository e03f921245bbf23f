#pragma once

#include "guard/wait_budget.h"

#include <QString>

/// Lets one guard at a time work on a directory. No child inherits the lock, and it ends with the
/// process.
class DirectoryLock
{
public:
    DirectoryLock() = default;
    ~DirectoryLock();
    Q_DISABLE_COPY(DirectoryLock)

    enum class Result { Taken, HeldByAnother, Impossible };

    /// Takes the lock, waiting for another guard as long as the budget lasts.
    /// @param directory resolved path
    /// @return Impossible when the directory cannot be opened or its file system has no locks
    Result take(const QString &directory, WaitBudget &budget);

private:
    int m_descriptor = -1;
};

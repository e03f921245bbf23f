#pragma once

#include "guard/descriptor.h"
#include "guard/wait_budget.h"

#include <QString>

/// SQLite's read locks on a database that others may write to, without a connection to it: nothing is
/// written, no file is made. While they are held no page of the database file changes: with a journal
/// nobody can commit, with a write-ahead log nobody can bring its pages into the file, nor begin it
/// from its start.
///
/// They are locks of an open file description (F_OFD_SETLK). SQLite's own kind belongs to a process,
/// which loses them when it closes any descriptor of the file, and this one copies the file.
class ReadLock
{
public:
    enum class Result {
        Taken,
        HeldByAnother, ///< somebody writes, and did so until the budget was used up
        Impossible     ///< the file system has no locks, or the file cannot be read
    };

    /// @param database path, resolved
    Result take(const QString &database, WaitBudget &budget);

    /// @return true while no page of the database file can change
    bool isHeld() const { return m_database.isOpen(); }

    /// @return true when the lock holds back the write-ahead log as well: it can only grow
    bool holdsWriteAheadLog() const { return m_index.isOpen(); }

    /// @return true when somebody is about to write: a journal is then his, and there is nothing in it
    /// that has to be rolled back
    bool hasWriter() const;

private:
    Descriptor m_database;
    Descriptor m_index; ///< of the write-ahead log
};

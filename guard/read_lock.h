#pragma once

#include "guard/descriptor.h"
#include "guard/wait_budget.h"

#include <QString>

/// SQLite's read locks on a database that others may write to, without a connection to it: nothing
/// is written, and no file is made. While they are held, no page of the database file changes. With
/// a journal, no writer can commit. With a write-ahead log, no process can copy its pages into the
/// file or start the log over.
///
/// They are locks of an open file description (F_OFD_SETLK). SQLite's own locks belong to a
/// process, which loses them when it closes any descriptor of the file; this process closes one
/// when it copies the file.
class ReadLock
{
public:
    enum class Result {
        Taken,
        HeldByAnother, ///< another process was writing until the budget was used up
        Impossible     ///< the file system has no locks, or the file cannot be read
    };

    /// @param database path, resolved
    Result take(const QString &database, WaitBudget &budget);

    /// @return true while no page of the database file can change
    bool isHeld() const { return m_database.isOpen(); }

    /// @return true when the locks cover the write-ahead log too: it can only grow
    bool holdsWriteAheadLog() const { return m_index.isOpen(); }

    /// @return true when another process is about to write: a journal then belongs to it and must
    /// not be rolled back
    bool hasWriter() const;

private:
    Descriptor m_database;
    Descriptor m_index; ///< the index of the write-ahead log
};

#pragma once

#include <QByteArrayList>
#include <QString>

#include <optional>

/// What a run notes beside the database while it is under way. A note that is still there at the
/// next start tells how far that run came.
struct RunNote {
    bool stagedOnDisk = false;
    int runsInARow = 1; ///< that did not end well, this one included

    /// It failed in a way that staging may be the reason of, or died while the device kept running.
    /// A run that a power cut has ended is none of these.
    bool failed = false;

    /// Before a commit: the files to delete in the pool after it, and SQLite's counter of schema
    /// changes before it, which tells whether the commit has happened.
    QByteArrayList poolFiles;
    qint64 schemaCookie = -1;

    /// @return the note of a run that did not end well, nothing when there is none
    static std::optional<RunNote> read(const QString &path);

    /// Writes it in place of another one. At every moment one of the two is there.
    /// @param flush whether its content is flushed; its name is the caller's business
    /// @return 0 or the error number of the system
    int write(const QString &path, bool flush) const;
};

#pragma once

#include <QByteArrayList>
#include <QString>

#include <optional>

/// The note that a run keeps beside the database while it is under way. If it is still there at the
/// next start, it shows how far that run got.
struct RunNote {
    bool stagedOnDisk = false;
    int runsInARow = 1; ///< runs in a row that did not end well, this one included

    /// The run failed, perhaps because of staging, or died while the device kept running. False for
    /// a run that a power cut has ended.
    bool failed = false;

    /// Before a commit: the files to delete in the pool after it, and SQLite's counter of schema
    /// changes before it, which tells whether the commit has happened.
    QByteArrayList poolFiles;
    qint64 schemaCookie = -1;

    /// @return the note of a run that did not end well, nothing when there is none
    static std::optional<RunNote> read(const QString &path);

    /// Writes it in place of another note. At every moment one of the two is there.
    /// @param flush whether to flush its content; the caller flushes the directory
    /// @return 0 or the error number of the system
    int write(const QString &path, bool flush) const;
};

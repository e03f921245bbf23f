#pragma once

#include "guard/durable_file.h"

#include <QString>

/// A database that is kept beside the real one when a commit replaces the real one. It is whole
/// before the commit and gets its name after it: a power cut at any moment leaves the earlier kept
/// database or the new one. Failures are reported on the terminal.
class KeptDatabase
{
public:
    /// @param path the file in which it is kept, such as before-migration.sqlite
    explicit KeptDatabase(const QString &path) : m_path(path) {}

    /// Before the commit: writes the database that will be replaced, and flushes it.
    /// @param from a database at rest
    /// @return false when it cannot be kept; then nothing of it is left
    bool prepare(const QString &from, const durable::Ownership &ownership);

    /// After the commit: gives the kept database its name. The caller flushes the directory.
    /// @return false when that failed: the next run tries again, unless something other than a file
    /// has that name
    bool accept();

    /// Removes it when there is no commit.
    void discard();

    /// Settles what a cut run has left.
    /// @param current the database as it is now, at rest; empty when it cannot be read and never
    /// will be: the prepared one then gets its name
    /// @return true when something was renamed or removed
    bool settle(const QString &current);

    /// @return true from prepare() until accept() or discard(), also after a run that was cut
    /// between them
    bool isPrepared() const;

    /// @return the file that would be the kept one after settle()
    QString afterSettling(const QString &current) const;

private:
    QString prepared() const { return m_path + ".new"; }
    QString unfinished() const { return m_path + ".tmp"; }
    void tellThatItIsNotKept(const QString &why) const;

    QString m_path;
};

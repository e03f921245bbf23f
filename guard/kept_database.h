#pragma once

#include "guard/durable_file.h"

#include <QString>

/// A database that is kept beside the real one when a commit replaces that. It is whole before the
/// commit and gets its name after it: whenever the power goes, the one of before stays or the new
/// one is there. What goes wrong is told on the terminal.
class KeptDatabase
{
public:
    /// @param path where it is kept, such as before-migration.sqlite
    explicit KeptDatabase(const QString &path) : m_path(path) {}

    /// Before the commit: writes the database that is going to be replaced, and flushes it.
    /// @param from a database at rest
    /// @return false when it cannot be kept; nothing is left of it then
    bool prepare(const QString &from, const durable::Ownership &ownership);

    /// After the commit: gives it its name. The caller flushes the directory.
    /// @return false when it did not get it: the next run tries again, unless something that is no
    /// file has that name
    bool accept();

    /// When there is no commit.
    void discard();

    /// Settles what a run that was cut has left.
    /// @param current the database as it is now, at rest; empty when it cannot be read and never will
    /// be: what is prepared gets its name then
    /// @return true when something was renamed or removed
    bool settle(const QString &current);

    /// @return true from prepare() to accept() or discard(), also when a run was cut in between
    bool isPrepared() const;

    /// @return the file that would be the kept one once that is settled
    QString afterSettling(const QString &current) const;

private:
    QString prepared() const { return m_path + ".new"; }
    QString unfinished() const { return m_path + ".tmp"; }
    void tellThatItIsNotKept(const QString &why) const;

    QString m_path;
};

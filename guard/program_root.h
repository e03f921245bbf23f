#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

/// The root file system that the program sees in a rehearsal: a root directory, read-only, in which
/// some files and directories are replaced or added.
class ProgramRoot
{
public:
    /// @param base path of a root directory, "/" for this system's
    explicit ProgramRoot(const QString &base);

    enum class Access { ReadOnly, Writable };

    /// Puts a file or a directory at a path of the root.
    /// @param inside absolute path in the root, without a link in it; nothing need be there
    void place(const QString &inside, const QString &source, Access access = Access::ReadOnly);

    /// @return bubblewrap's options for it
    QStringList arguments() const;

private:
    struct Place {
        QString inside;
        QString source;
        QString option;
    };
    bool leadsToPlace(const QString &path) const;
    QStringList remade(const QString &directory) const;

    QString m_base;
    QVector<Place> m_places;
};

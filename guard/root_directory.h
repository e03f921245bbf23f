#pragma once

#include <QString>
#include <QStringList>

/// Root directories: this system's, or another system's at some path.
namespace rootDirectory
{
/// @return the text of a link, as it is; empty for anything else
QString linkText(const QString &path);

/// Resolves links as a system with this root directory would.
/// @param base path of the root directory, "/" for this system's
/// @param path absolute, inside the root; parts that do not exist stay as they are
/// @return absolute, inside the root, without a link in it; empty if the system would not follow so
/// many links
QString resolve(const QString &base, const QString &path);

/// @return the path by which this process reaches a path inside a root directory
QString outside(const QString &base, const QString &path);

/// @param bind bubblewrap's option for everything that is not a link, such as "--ro-bind"
/// @param leftOut an entry to leave out
/// @return bubblewrap's options for a root in memory that has everything of another one in it: a
/// new directory can be made in it without a change on the disk
QStringList inMemory(const QString &base, const QString &bind, const QString &leftOut);
} // namespace rootDirectory

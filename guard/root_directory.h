#pragma once

#include <QString>
#include <QStringList>

/// Root directories: this system's, or that of another one at some path.
namespace rootDirectory
{
/// @return what a link says, as it is; empty for anything else
QString linkText(const QString &path);

/// Resolves links as the system would whose root directory this is.
/// @param base path of the root directory, "/" for this system's
/// @param path absolute, inside; what is missing of it stays as it is
/// @return absolute, inside, without a link in it; empty where the system would not follow so many links
QString resolve(const QString &base, const QString &path);

/// @return where a path inside a root directory is for this process
QString outside(const QString &base, const QString &path);

/// @param bind bubblewrap's option for everything that is no link, such as "--ro-bind"
/// @param leftOut an entry that does not come along
/// @return bubblewrap's options for a root in memory with everything of another one in it: a new
/// directory can be made there, which the other one could not have without a change on the disk
QStringList inMemory(const QString &base, const QString &bind, const QString &leftOut);
} // namespace rootDirectory

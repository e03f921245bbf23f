#pragma once

#include <QString>
#include <QStringList>

#include <optional>

/// A file system in memory that belongs to this run alone: nobody else can fill it, and nothing of
/// it is left when the guard dies. Bubblewrap makes it, and the guard starts itself again in it.
namespace ownMemory
{
/// Where the started guard finds it.
extern const char *const place;

/// Runs this program again with a file system of its own at `place`.
/// @param size of the file system, in bytes
/// @param arguments for the program
/// @return the exit status of that run, nothing when it could not be started
std::optional<int> runInside(qint64 size, const QStringList &arguments);
} // namespace ownMemory

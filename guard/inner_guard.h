#pragma once

#include <QString>
#include <QStringList>

#include <optional>

/// The guard starts itself again inside bubblewrap, in a place of its own. There it is the first
/// process of a PID namespace: whenever it ends, the kernel ends all processes that it has started.
/// Its file system in memory belongs to this run alone: no other process can fill it, and it
/// disappears with the run.
namespace innerGuard
{
/// Where the inner guard finds the file system in memory.
extern const char *const memory;

/// Runs this program again in such a place.
/// @param memorySize bytes of the file system in memory; nothing for none
/// @param arguments the program's
/// @return the exit status of that run, nothing when it could not be started
std::optional<int> run(std::optional<qint64> memorySize, const QStringList &arguments);

/// A place where the system cannot be changed, not even the access time of a file.
struct Place {
    std::optional<qint64> memorySize; ///< bytes in memory; nothing: the place is on the disk
    QString directory;                ///< used if there is no file system in memory
    QStringList binds;                ///< bubblewrap's options for what else may be written
};

/// Runs this program again in such a place.
/// @return the exit status of that run, nothing when it could not be started
std::optional<int> runReadOnly(const Place &place, const QStringList &arguments);

/// Makes the inner guard end when the outer one ends.
/// @return false when the outer one has ended already
bool endWithOuterGuard();
} // namespace innerGuard

#pragma once

#include <QString>
#include <QStringList>

#include <optional>

/// The guard starts itself again inside bubblewrap, in a place of its own. It is the first process of
/// a PID namespace there: when it ends, the kernel ends all that it has started, at whatever moment.
/// A file system in memory belongs to this run alone: nobody else can fill it, and nothing of it is
/// left.
namespace innerGuard
{
/// Where the inner guard finds the file system in memory.
extern const char *const memory;

/// Runs this program again in such a place.
/// @param memorySize of the file system in memory, in bytes; nothing for none
/// @param arguments for the program
/// @return the exit status of that run, nothing when it could not be started
std::optional<int> run(std::optional<qint64> memorySize, const QStringList &arguments);

/// A place where nothing of the system can be written, not even the time at which a file was read.
struct Place {
    std::optional<qint64> memorySize; ///< of the file system in memory; nothing: it is on the disk
    QString directory;                ///< takes its place then
    QStringList binds;                ///< bubblewrap's options for what may be written besides
};

/// Runs this program again in such a place.
/// @return the exit status of that run, nothing when it could not be started
std::optional<int> runReadOnly(const Place &place, const QStringList &arguments);

/// Lets the inner guard end when the outer one has ended.
/// @return false when it has ended already
bool endWithOuterGuard();
} // namespace innerGuard

#pragma once

#include <QByteArray>
#include <QString>

#include <unistd.h>

/// Files that survive a power cut. Operations that return a number return 0 or the error number of the
/// system.
namespace durable
{
/// Owner and mode that a new file gets.
struct Ownership {
    unsigned owner = geteuid();
    unsigned group = getegid();
    unsigned mode = 0600;
};

/// @return the ownership of a file; if it cannot be read, one that lets only this user read and
/// write
Ownership ownershipOf(const QString &path);

/// Writes a file in place of another. At every moment the old or the new file has the name; a
/// failure leaves the old one.
/// @param flush whether the content is flushed before it gets the name
int replace(const QString &path, const QByteArray &content, const Ownership &ownership, bool flush);

/// @return the name that a file has until it is whole; a cut run can leave a file of that name
QString unfinishedName(const QString &path);

/// Copies a file in place of another.
/// @param flush whether the copy is flushed
int copy(const QString &from, const QString &to, const Ownership &ownership, bool flush);

/// Renames a file over another one.
int rename(const QString &from, const QString &to);

/// Flushes an open file.
int flush(int descriptor);

/// @return how often this process has asked for a flush; SQLite's own flushes are not counted
int flushesAskedFor();

/// Makes what was created, renamed or removed in a directory durable.
int flushDirectory(const QString &directory);
} // namespace durable

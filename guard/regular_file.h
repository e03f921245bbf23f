#pragma once

#include "guard/descriptor.h"

#include <QByteArray>
#include <QString>

#include <optional>

/// Opens a file for reading. Anything may be at the path: a pipe or a device, which could make a
/// reader wait forever, is not opened.
/// @return a closed descriptor, with errno, when there is no readable regular file
Descriptor openRegularFile(const QString &path);

/// Reads a short file that another program may have written.
/// @param largest bytes; a longer file is not read
/// @return nothing when it is not a regular file, cannot be read or is too long
std::optional<QByteArray> readSmallFile(const QString &path, qint64 largest);

/// Reads the first line of a small file as the program does: without carriage returns and a byte order
/// mark.
/// @param largest a longer file holds something else, in bytes
/// @return empty where there is none
QString firstLineOfSmallFile(const QString &path, qint64 largest);

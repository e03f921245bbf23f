#pragma once

#include "guard/descriptor.h"

#include <QByteArray>
#include <QString>

#include <optional>

/// Opens a file for reading. In its place there may be anything: a pipe or a device, which would make
/// a reader wait for ever, is not opened.
/// @return a closed descriptor, with errno, when there is no regular file that can be read
Descriptor openRegularFile(const QString &path);

/// Reads a file of a few lines that somebody else may have written.
/// @param largest bytes; a longer file is something else
/// @return nothing when it is no regular file, cannot be read or is too long
std::optional<QByteArray> readSmallFile(const QString &path, qint64 largest);

/// Reads the first line of a small file as the program does: without carriage returns and a byte order
/// mark.
/// @param largest a longer file holds something else, in bytes
/// @return empty where there is none
QString firstLineOfSmallFile(const QString &path, qint64 largest);

#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

/// Reads a target version. Only ASCII digits with white space around them count, value 1 to 999999:
/// the program takes anything else for 0 and reverts every step.
/// @return the version, nothing when the text holds none
std::optional<int> parseTarget(const QByteArray &text);

/// Reads the target from an image's schemaversion.txt.
/// @return the version, nothing when the file cannot be read or holds none
std::optional<int> readTarget(const QString &path);

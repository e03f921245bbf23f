#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

/// Reads a target version: ASCII digits with optional white space around them, value 1 to 999999.
/// Nothing else is accepted, because the program takes any other text for 0 and reverts every step.
/// @return the version, nothing when the text holds none
std::optional<int> parseTarget(const QByteArray &text);

/// Reads the target from an image's schemaversion.txt.
/// @return the version, nothing when the file cannot be read or holds none
std::optional<int> readTarget(const QString &path);

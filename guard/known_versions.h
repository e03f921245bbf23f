#pragma once

#include <QString>

#include <optional>

/// @param path the file that is installed beside the program
/// @return the newest schema version that the program knows, nothing when the file does not say
std::optional<int> newestKnownVersion(const QString &path);

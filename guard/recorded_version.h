#pragma once

#include "guard/sqlite_connection.h"

#include <QString>

#include <optional>

/// The schema version that a database records, if it is known.
struct RecordedVersion {
    bool isKnown = false;         ///< false: it was not read, or reading failed
    std::optional<qint64> number; ///< nothing when the database records none

    bool is(qint64 version) const { return number && *number == version; }
    bool operator==(const RecordedVersion &other) const
    {
        return isKnown == other.isKnown && number == other.number;
    }
    bool operator!=(const RecordedVersion &other) const { return !(*this == other); }
};

/// Reads the version. A database that is damaged, or has no table for the version, records none.
/// @return unknown when the disk, the memory or the lock of another process prevented it
RecordedVersion recordedVersion(const SqliteConnection &connection);

/// @return the number, "no version" or "unknown"
QString versionText(const RecordedVersion &version);

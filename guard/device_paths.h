#pragma once

#include <QString>

/// Where things are on the device, links resolved.
struct DevicePaths {
    /// @param application the application directory, as the caller names it
    explicit DevicePaths(const QString &application);

    QString program;       ///< the migrator, empty when there is none that can be started
    QString knownVersions; ///< what the installed program knows, beside it
    QString databases;     ///< the directory of the database, empty when there is none
    QString database;      ///< the database's file, empty when there is none or nothing in it
    QString databaseEntry; ///< where the program looks for it, whatever is there
    bool databaseLinkIsBroken = false; ///< that is a link to nothing or in a circle
    QString platform;                  ///< its first line names the device's platform
    QString pool; ///< the directory whose files a step deletes, empty when there is none

    // Beside the database's entry, in `databases`:
    QString log;           ///< what the program appends to
    QString lastMigration; ///< how the last runs ended
    QString kept;          ///< the database of before
    QString replaced;      ///< what a restore has replaced
    QString note;          ///< of the run that is under way, or did not end
    QString staging;       ///< the staged files when memory cannot hold them
    QString copy;          ///< the copy of the database that a restore works with
    QString replacedLog;   ///< the write-ahead log of a database that could not be read
};

/// The names of the staged files are the program's own.
extern const char *const databaseName;
extern const char *const logName;

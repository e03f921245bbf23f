#pragma once

#include <QString>
#include <QStringList>

/// What the program sees: on a device the device itself, in a rehearsal a root of its own.
struct ProgramView {
    QStringList root = {"--dev-bind", "/", "/"}; ///< as options for bubblewrap
    bool isDevice = true;                        ///< there is no other root
    QString program;                             ///< where these are for the program
    QString databases;
    QString pool; ///< empty when there is none
};

/// Where things are on the device, links resolved.
struct DevicePaths {
    DevicePaths() = default; ///< nothing is there

    /// @param application the application directory, as the caller names it
    explicit DevicePaths(const QString &application);

    /// Sets the paths of the database, and of what is beside it.
    /// @param directory resolved, empty when there is none
    void placeDatabases(const QString &directory);

    QString program;       ///< the migrator, empty when there is none that can be started
    QString knownVersions; ///< what the installed program knows, beside it
    QString databases;     ///< the directory of the database, empty when there is none
    QString database;      ///< the database's file, empty when there is none or nothing in it
    QString databaseEntry; ///< where the program looks for it, whatever is there
    bool databaseLinkIsBroken = false; ///< that is a link to nothing or in a circle
    QString references;                ///< the directory of the reference-data scripts
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

    ProgramView view; ///< what of this the program sees where
};

/// Names and places that are the program's own.
extern const char *const programName;
extern const char *const databaseName;
extern const char *const logName;
extern const char *const poolPath;
extern const char *const platformPath;

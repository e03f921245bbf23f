#pragma once

#include <QString>
#include <QStringList>

/// The file system that the program sees: on a device the device's own, in a rehearsal a root made
/// for it.
struct ProgramView {
    QStringList root = {"--dev-bind", "/", "/"}; ///< as options for bubblewrap
    bool isDevice = true;                        ///< false: it sees another root
    QString program; ///< this and the next ones are paths as the program sees them
    QString databases;
    QString pool; ///< empty when there is none
};

/// Where things are on the device, links resolved.
struct DevicePaths {
    DevicePaths() = default; ///< nothing is there

    /// @param application the application directory, as the caller names it
    explicit DevicePaths(const QString &application);

    /// Sets the paths of the database and of the files beside it.
    /// @param directory resolved, empty when there is none
    void placeDatabases(const QString &directory);

    QString program;       ///< the migrator, empty when there is none that can be started
    QString knownVersions; ///< the table of the program's versions, beside it
    QString databases;     ///< the directory of the database, empty when there is none
    QString database;      ///< the database's file, empty when there is none or it is empty
    QString databaseEntry; ///< where the program looks for it, whatever is there
    bool databaseLinkIsBroken = false; ///< the entry is a link to nothing, or a cycle of links
    QString references;                ///< the directory of the reference-data scripts
    QString platform;                  ///< its first line names the device's platform
    QString pool; ///< the directory whose files a step deletes, empty when there is none

    // Beside the database's entry, in `databases`:
    QString log;           ///< what the program appends to
    QString lastMigration; ///< how the last runs ended
    QString kept;          ///< the database of before
    QString replaced;      ///< what a restore has replaced
    QString note;          ///< the note of the run that is under way or did not end
    QString staging;       ///< the staged files, when memory cannot hold them
    QString copy;          ///< the copy of the database that a restore works with
    QString replacedLog;   ///< the write-ahead log of a database that could not be read

    ProgramView view; ///< where the program sees these
};

/// Names and places that are the program's own.
extern const char *const programName;
extern const char *const databaseName;
extern const char *const logName;
extern const char *const poolPath;
extern const char *const platformPath;

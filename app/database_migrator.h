#pragma once

#include "schema/table_info.h"

#include <QCoreApplication>
#include <QFile>
#include <QMap>
#include <QSqlDatabase>
#include <QString>
#include <QTextStream>

/// The whole migrator: brings the device's database from its schema version to a target version, one
/// step at a time, and repairs it. It reports only into its log file.
class DatabaseMigrator : public QCoreApplication
{
public:
    /// Opens the log and the database, reads the versions that the database records, chooses the
    /// target version and writes the opening line. Files that cannot be opened or read are left out.
    /// @param argumentCount,arguments the command line; the first argument after the program's name
    /// is the target version, without it the target is the version before the last migration
    DatabaseMigrator(int &argumentCount, char **arguments);

    /// Closes the database, then the log.
    ~DatabaseMigrator() override;

    // ---- The run ------------------------------------------------------------------------------

    /// @return the first line of the device's software version file, empty without such a file
    QString readSoftwareVersion() const;

    /// The whole run after construction: checks and repairs the database, migrates where needed,
    /// then does the maintenance.
    void runMigration();

    /// Removes rows that break foreign keys, logs whether the database is sound, removes product
    /// configurations that nothing refers to, and applies again every step up to the current
    /// version whose change is missing. No failure stops it.
    void checkDatabaseIntegrity();

    /// Calls the forward steps above the current version, up to the target version.
    void migrateForward();

    /// Calls the backward steps from the current version down to the one above the target version.
    void migrateBackward();

    /// Records the version reached, the software version and the version before this migration.
    void updateDatabaseVersion();

    /// @return the schema version that the database is at, as the last successful step left it
    int currentVersion() const { return m_currentVersion; }

    // ---- The log ------------------------------------------------------------------------------

    /// Writes one line to the log and flushes it; without an open log the line is lost.
    void logMessage(const QString &text);

    /// Runs a statement; on failure logs the error's text, Qt's and the database's.
    void executeOrLogText(const QString &sql);

    /// Runs a statement; on failure logs one line, the failure's words followed by the database's
    /// own text.
    /// @return false when the statement failed
    bool executeOrLogDatabaseText(const QString &sql, const QString &failure = QString());

    /// Runs a statement; on failure logs two lines, with the error's text for the second's %1.
    /// @return false when the statement failed
    bool executeOrLogTwoLines(
        const QString &sql, const QString &failureLine, const QString &errorLine);

    // ---- Maintenance --------------------------------------------------------------------------

    /// Copies the part number of the registration file into the database where the two differ.
    /// Every failure is silent.
    void syncPartNumber();

    /// Reads the part number from a registration file and keeps the field computer's id.
    /// @param path absolute path of the file
    /// @return the part number with its suffix; empty when the file cannot be parsed or is no
    /// registration file
    QString readRegistrationPartNumber(const QString &path);

    /// Executes the statements of a script; each that fails is one line in the log.
    /// @param path absolute path of the file; nothing is done or logged if it cannot be opened
    void runSqlScript(const QString &path);

    /// Gives every file but the first of those that share type, grower, farm, field and name a
    /// name of its own: the name with "_" and a number from 2.
    void renameDuplicateFiles();

    /// Does the same for growers, for the farms of a grower and for the fields of a farm.
    void renameDuplicateNames();

    // ---- The schema toolkit -------------------------------------------------------------------
    // Names, types, values and conditions go into the statements as they are: a caller quotes its
    // text values. An operation that fails to change something logs two lines, its own and the
    // database's, and returns false.

    /// @return true when there is a table of exactly this name
    bool tableExists(const QString &table) const;

    /// @return true when the table can be read and has the column, in any letter case
    bool columnExists(const QString &table, const QString &column) const;

    /// @return the table's structure, empty when there is no such table
    TableInfo getTableInfo(const QString &table) const;

    /// Adds a column, nullable without a default value and NOT NULL with one.
    /// @param type the type text, which may carry constraints of its own
    /// @return false on failure, also because the column is already there
    bool addColumn(
        const QString &table, const QString &column, const QString &type,
        const QString &defaultValue = QString());

    /// Adds a column, always nullable, unless one of exactly this name is there.
    /// @param type the type text, which may carry constraints of its own
    /// @return false on failure, also because of a column that differs only in letter case
    bool addColumnIfNotExists(
        const QString &table, const QString &column, const QString &type,
        const QString &defaultValue = QString());

    /// Sets a column in every row that meets the condition, in every row without one.
    /// @param value an SQL expression
    /// @param condition an SQL condition without the word WHERE
    /// @return false when the statement failed; it may change no row and succeed
    bool setColumnValue(
        const QString &table, const QString &column, const QString &value,
        const QString &condition = QString());

    /// @return false when the table could not be dropped; true also when there is no such table
    bool dropTable(const QString &table);

    /// Rebuilds a table without one column, matched in any letter case. Names, types, NOT NULL,
    /// defaults, the primary key and the FOREIGN KEY clauses that do not name the column are kept,
    /// everything else goes. A failure leaves what was done before it; nothing is undone.
    /// @return false when a statement failed, as it does for a table without a primary key, or when
    /// the table's structure could be read only in part; nothing is changed then
    bool dropColumnSaveParameters(const QString &table, const QString &column);

    // ---- The catalogue ------------------------------------------------------------------------
    // A forward operation sets the current version to N when it has done its work, a backward one
    // to N-1; a probe only looks whether version N's change is there. Each step decides what counts
    // as done and which failures stop it. A step that has shipped is never edited for another
    // step's sake.

    // Version 2: product settings per machine configuration.
    void updateToVersion2();
    void revertFromVersion2();
    bool getUpdate2Applied() const;

    // Version 3: the switch of the Ombrix master settings.
    void updateToVersion3();
    void revertFromVersion3();
    bool getUpdate3Applied() const;

    // Version 4: whether the language was selected.
    void updateToVersion4();
    void revertFromVersion4();
    bool getUpdate4Applied() const;

    // Version 5: fences of equipment sections.
    void updateToVersion5();
    void revertFromVersion5();
    bool getUpdate5Applied() const;

    // Version 6: ISO node names of section groups.
    void updateToVersion6();
    void revertFromVersion6();
    bool getUpdate6Applied() const;

    // Version 7: files move under the program directory, file transfers are forgotten.
    void updateToVersion7();
    void revertFromVersion7();
    bool getUpdate7Applied() const;

    // Version 8: decimal marks in the user profiles.
    void updateToVersion8();
    void revertFromVersion8();
    bool getUpdate8Applied() const;

    // Version 9: machine systems without a last used configuration go.
    void updateToVersion9();
    void revertFromVersion9();
    bool getUpdate9Applied() const;

    // Version 10: boom capacities without machine and section group.
    void updateToVersion10();
    void revertFromVersion10();
    bool getUpdate10Applied() const;

    // Version 11: start and end of file transfers, and the date formats of the user profiles.
    void updateToVersion11();
    void revertFromVersion11();
    bool getUpdate11Applied() const;

    // Version 12: section types and names, and the on-screen switchbox.
    void updateToVersion12();
    void revertFromVersion12();
    bool getUpdate12Applied() const;

    // Version 13: acceptance of the end-user agreement.
    void updateToVersion13();
    void revertFromVersion13();
    bool getUpdate13Applied() const;

    // Version 14: GPS filter level in the preferred solutions.
    void updateToVersion14();
    void revertFromVersion14();
    bool getUpdate14Applied() const;

    // Version 15: ECU offsets of section groups.
    void updateToVersion15();
    void revertFromVersion15();
    bool getUpdate15Applied() const;

    // Version 16: full locale codes for the language of the user profiles.
    void updateToVersion16();
    void revertFromVersion16();
    bool getUpdate16Applied() const;

    // Version 17: the internal GPS receiver's settings become those of supported receivers.
    void updateToVersion17();
    void revertFromVersion17();
    bool getUpdate17Applied() const;

    // Version 18: guidance type of job profiles.
    void updateToVersion18();
    void revertFromVersion18();
    bool getUpdate18Applied() const;

    // Version 19: the on-screen switchbox per machine configuration.
    void updateToVersion19();
    void revertFromVersion19();
    bool getUpdate19Applied() const;

    // Version 20: backing-up warning and audio volume in the user profiles.
    void updateToVersion20();
    void revertFromVersion20();
    bool getUpdate20Applied() const;

    // Version 21: a list of GPS receivers in place of the preferred solution.
    void updateToVersion21();
    void revertFromVersion21();
    bool getUpdate21Applied() const;

    // Version 22: ISO identifiers and names of growers, farms and fields.
    void updateToVersion22();
    void revertFromVersion22();
    bool getUpdate22Applied() const;

    // Version 23: mix set-up of product control.
    void updateToVersion23();
    void revertFromVersion23();
    bool getUpdate23Applied() const;

    // Version 24: corrected coverage in the Ombrix master settings.
    void updateToVersion24();
    void revertFromVersion24();
    bool getUpdate24Applied() const;

    // Version 25: original names of growers, farms and fields, and serial port names.
    void updateToVersion25();
    void revertFromVersion25();
    bool getUpdate25Applied() const;

    // Version 26: standard deviations of correction services, and an empty pool.
    void updateToVersion26();
    void revertFromVersion26();
    bool getUpdate26Applied() const;

    // Version 27: a primary key for the ingredients of a mix.
    void updateToVersion27();
    void revertFromVersion27();
    bool getUpdate27Applied() const;

    // Version 28: the camera's reverse pop-up.
    void updateToVersion28();
    void revertFromVersion28();
    bool getUpdate28Applied() const;

    // Version 29: reverse sense is hardwired, no longer remote.
    void updateToVersion29();
    void revertFromVersion29();
    bool getUpdate29Applied() const;

    // Version 30: the wireless switch.
    void updateToVersion30();
    void revertFromVersion30();
    bool getUpdate30Applied() const;

    // Version 31: identifiers of carriers, mixes and planter varieties.
    void updateToVersion31();
    void revertFromVersion31();
    bool getUpdate31Applied() const;

    // Version 32: work order maps follow their file, and cloud jobs.
    void updateToVersion32();
    void revertFromVersion32();
    bool getUpdate32Applied() const;

    // Version 33: networking mode and the device's own access point.
    void updateToVersion33();
    void revertFromVersion33();
    bool getUpdate33Applied() const;

    // Version 34: conversion rates of work order maps.
    void updateToVersion34();
    void revertFromVersion34();
    bool getUpdate34Applied() const;

private:
    using Step = void (DatabaseMigrator::*)();
    using Probe = bool (DatabaseMigrator::*)() const;

    void fillRegistries();
    void openLog();
    void openDatabase();
    void chooseTargetVersion();
    QString readPlatform() const;
    void reapplyMissingSteps();

    /// Ends a forward step: logs its line and, when it has succeeded, sets the current version.
    void closeForwardStep(
        bool succeeded, int version, const QString &successLine, const QString &failureLine);

    QFile m_logFile;
    QTextStream m_logStream;                 ///< has no device while the log is not open
    int m_currentVersion = 0;                ///< the schema version that the database is at
    int m_alternateVersion = 0;              ///< the version before the last migration
    int m_targetVersion = 0;                 ///< the schema version to go to
    QSqlDatabase m_database;                 ///< the default connection
    QString m_databasePath;                  ///< empty without the directory "databases"
    QString m_fieldComputerId;               ///< from the registration file, as text
    QMap<int, Probe> m_probes;               ///< tell whether a version's change is there
    QMap<int, Step> m_forwardSteps;          ///< from the version before to this one
    QMap<int, Step> m_backwardSteps;         ///< from this version to the one before
    QString m_softwareVersion;               ///< of the device software that is installed
    QString m_storedMirelVersion;            ///< of the device software that last migrated
    bool m_targetTakenFromAlternate = false; ///< the command line gave no target
    bool m_migrationNeeded = false;          ///< the database was not at the target at the start
    QString m_platform;                      ///< the hardware platform's name
};

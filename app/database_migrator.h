#pragma once

#include "schema/table_info.h"

#include <QCoreApplication>
#include <QFile>
#include <QMap>
#include <QSqlDatabase>
#include <QString>
#include <QTextStream>
#include <QVector>

#include <optional>

class EqualNames;
class QSqlQuery;
struct RecreationFailure;
struct RenameTexts;
struct TableRecreation;

/// The whole migrator: brings the device's database from the schema version that it holds to a
/// target version, one step at a time, and keeps it sound. It reports only into its log file.
class DatabaseMigrator : public QCoreApplication
{
public:
    /// Opens the log and the database, reads the versions that the database records, chooses the
    /// target version and writes the opening line. Whatever cannot be opened or read is left out.
    /// @param argumentCount,arguments the command line; the first argument after the program's name
    /// is the target version, without it the target is the version before the last migration
    DatabaseMigrator(int &argumentCount, char **arguments);

    /// Closes the database, then the log.
    ~DatabaseMigrator() override;

    // ---- The run ------------------------------------------------------------------------------

    /// Writes one line to the log and flushes it; without an open log the line is lost.
    void logMessage(const QString &text);

    /// @return the first line of the device's software version file, empty without such a file
    QString readSoftwareVersion() const;

    /// The whole run after construction: checks and repairs the database, migrates where needed,
    /// then does the maintenance.
    void runMigration();

    /// Removes rows that break foreign keys, logs whether the database is sound, removes product
    /// configurations that nothing refers to, and applies again every step up to the current
    /// version whose change has gone missing. No failure stops it.
    void checkDatabaseIntegrity();

    /// Calls the forward steps above the current version, up to the target version.
    void migrateForward();

    /// Calls the backward steps from the current version down to the one above the target version.
    void migrateBackward();

    /// Records the version reached, the software version and the version before this migration.
    void updateDatabaseVersion();

    /// The schema version that the database is at; every step that has done its work moves it.
    int currentVersion() const { return m_currentVersion; }

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
    /// @param path absolute path of the file; a file that cannot be opened is skipped in silence
    void runSqlScript(const QString &path);

    /// Gives every file but the first of those that share type, grower, farm, field and name a
    /// name of its own: the name with "_" and a number from 2.
    void renameDuplicateFiles();

    /// Does the same for growers, for the farms of a grower and for the fields of a farm.
    void renameDuplicateNames();

    // ---- The schema toolkit -------------------------------------------------------------------
    // Names, types, values and conditions go into the statements as they are: a caller quotes its
    // text values. Every operation that fails to change something logs two lines, its own and the
    // database's, and answers false.

    /// @return true when there is a table of exactly this name
    bool tableExists(const QString &table) const;

    /// @return true when the table can be read and has the column, in any letter case
    bool columnExists(const QString &table, const QString &column) const;

    /// @return the table's structure, empty when there is no such table
    TableInfo getTableInfo(const QString &table) const;

    /// Adds a column, nullable without a default value and NOT NULL with one.
    /// @param type the type text, which may carry constraints of its own
    /// @return false when it failed, also because the column is already there
    bool addColumn(
        const QString &table, const QString &column, const QString &type,
        const QString &defaultValue = QString());

    /// Adds a column, always nullable, unless one of exactly this name is there.
    /// @param type the type text, which may carry constraints of its own
    /// @return false when it failed, also because of a column that differs only in letter case
    bool addColumnIfNotExists(
        const QString &table, const QString &column, const QString &type,
        const QString &defaultValue = QString());

    /// Sets a column in every row that meets the condition, in every row without one.
    /// @param value an SQL expression
    /// @param condition an SQL condition without the word WHERE
    /// @return false when the statement failed; no row at all is no failure
    bool setColumnValue(
        const QString &table, const QString &column, const QString &value,
        const QString &condition = QString());

    /// @return false when the table could not be dropped; no such table is no failure
    bool dropTable(const QString &table);

    /// Rebuilds a table without one column, matched in any letter case. Names, types, NOT NULL,
    /// defaults, the primary key and the FOREIGN KEY clauses that do not name the column are kept,
    /// everything else goes. A failure leaves what was done until then, there is no way back.
    /// @return false when a statement failed, as it does for a table without a primary key
    bool dropColumnSaveParameters(const QString &table, const QString &column);

    // ---- The catalogue ------------------------------------------------------------------------
    // A forward operation sets the current version to N when it has done its work, a backward one
    // to N-1; a probe only looks whether version N's change is there. What counts as done, and
    // which failures stop a step, is each step's own. What has shipped is never edited for another
    // step's sake.

    // Version 2: product settings per machine configuration.
    void updateToVersion2();
    void revertFromVersion2();
    bool getUpdate2Applied() const;

private:
    using Step = void (DatabaseMigrator::*)();
    using Probe = bool (DatabaseMigrator::*)() const;

    void fillRegistries();
    void openLog();
    void openDatabase();
    void chooseTargetVersion();
    QString readPlatform() const;

    void removeForeignKeyViolations();
    void logIntegrityVerdict();
    void removeOrphanedProductConfigurations();
    void reapplyMissingSteps();

    void renameEqualFiles(EqualNames &files, const QSqlQuery &file);
    void renameEqualGrowers(EqualNames &growers, const QString &name);
    void renameEqualFarms(EqualNames &farms, qint64 growerId, const QString &name);
    void renameEqualFields(EqualNames &fields, qint64 farmId, const QString &name);
    void renameAllButFirst(
        EqualNames &names, const QVector<qint64> &scope, const QString &name,
        const RenameTexts &texts);

    /// Runs a statement; on failure logs both lines, with the error's text for the second's %1.
    bool
    executeOrLogFailure(const QString &sql, const QString &failureLine, const QString &errorLine);

    /// Runs a statement; on failure logs the error's combined driver and database text.
    bool executeOrLogError(const QString &sql);

    /// Runs a statement; on failure logs the failure's words followed by the database's own text.
    bool executeOrLogDatabaseError(const QString &sql, const QString &failure = QString());

    /// Moves a table aside, creates it anew and copies every row.
    /// @return what failed, nothing when every row was copied
    std::optional<RecreationFailure> recreateTable(const TableRecreation &recreation);

    QFile m_logFile;
    QTextStream m_logStream;
    int m_currentVersion = 0;
    int m_alternateVersion = 0;
    int m_targetVersion = 0;
    QSqlDatabase m_database;
    QString m_databasePath;
    QString m_fieldComputerId;
    QMap<int, Probe> m_probes;
    QMap<int, Step> m_forwardSteps;
    QMap<int, Step> m_backwardSteps;
    QString m_softwareVersion;
    QString m_storedMirelVersion;
    bool m_targetTakenFromAlternate = false;
    bool m_migrationNeeded = false;
    QString m_platform;
};

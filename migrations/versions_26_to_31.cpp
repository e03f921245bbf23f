#include "app/database_migrator.h"
#include "schema/statements.h"

#include <QSqlError>
#include <QUuid>
#include <QVariantList>

#include <filesystem>
#include <system_error>

#include <unistd.h>

// ---- Version 26: standard deviations of correction services, and an empty pool. -----------------

namespace
{
/// Removes the pool's "*.iop" files, in any letter case; directories and hidden files stay.
/// Kept on purpose: both directions remove them, even if the step failed.
void removePoolFiles()
{
    // Qt's list of a directory leaves out names that are no valid UTF-8.
    std::error_code ignored;
    std::filesystem::directory_iterator file("/usr/bin/harlo/pool", ignored);
    while (file != std::filesystem::directory_iterator()) {
        const QByteArray name = file->path().filename().c_str();
        if (name.toLower().endsWith(".iop") && !name.startsWith('.') &&
            file->is_regular_file(ignored)) {
            unlink(file->path().c_str());
        }
        file.increment(ignored);
    }
}
} // namespace

void DatabaseMigrator::updateToVersion26()
{
    const bool columnsAdded = allSucceeded({
        addColumnIfNotExists("supportedHarloReceiverSettings", "ppp_STD_DEV", "REAL", "0.2"),
        addColumnIfNotExists("supportedHarloReceiverSettings", "terraStar_STD_DEV", "REAL", "0.2"),
        addColumnIfNotExists("supportedHarloReceiverSettings", "terraStarL_STD_DEV", "REAL", "0.5"),
    });
    removePoolFiles();
    closeForwardStep(
        columnsAdded,
        26,
        "Migration to version 26 was successful.",
        "Migration to version 26 FAILED!");
}

void DatabaseMigrator::revertFromVersion26()
{
    const bool columnsDropped = allSucceeded({
        dropColumnSaveParameters("supportedHarloReceiverSettings", "ppp_STD_DEV"),
        dropColumnSaveParameters("supportedHarloReceiverSettings", "terraStar_STD_DEV"),
        dropColumnSaveParameters("supportedHarloReceiverSettings", "terraStarL_STD_DEV"),
    });
    removePoolFiles();
    if (columnsDropped) {
        m_currentVersion = 25;
    } else {
        // Kept on purpose: two exclamation marks on the way back.
        logMessage("Reverting from version 26 FAILED!!");
    }
}

bool DatabaseMigrator::getUpdate26Applied() const
{
    return columnExists("supportedHarloReceiverSettings", "ppp_STD_DEV") &&
           columnExists("supportedHarloReceiverSettings", "terraStar_STD_DEV") &&
           columnExists("supportedHarloReceiverSettings", "terraStarL_STD_DEV");
}

// ---- Version 27: a primary key for the ingredients of a mix. ------------------------------------

void DatabaseMigrator::updateToVersion27()
{
    if (!getUpdate27Applied()) {
        // Kept on purpose: all four run, even after a failure, and a half-done rebuild is left as it
        // is.
        const bool tableRebuilt = allSucceeded({
            executeQuietly(
                "CREATE TABLE IF NOT EXISTS PC_IngredientToMixBridge_temp (mixId INTEGER, "
                "productId INTEGER, quantity REAL, rate REAL,displayUnit INTEGER DEFAULT 0,"
                "FOREIGN KEY (mixId) REFERENCES PC_Mix(id) ON DELETE CASCADE, "
                "FOREIGN KEY (productId) REFERENCES PC_Ingredient(id) ON DELETE CASCADE, "
                "PRIMARY KEY (mixId, productId) )"),
            executeQuietly("INSERT INTO PC_IngredientToMixBridge_temp "
                           "SELECT mixId, productId, quantity, rate, displayUnit "
                           "FROM PC_IngredientToMixBridge;"),
            executeQuietly("DROP TABLE PC_IngredientToMixBridge"),
            executeQuietly(
                "ALTER TABLE PC_IngredientToMixBridge_temp RENAME TO PC_IngredientToMixBridge"),
        });
        if (!tableRebuilt) {
            logMessage("Migration to version 27 FAILED!");
            return;
        }
    }
    m_currentVersion = 27;
    logMessage("Migration to version 27 was successful.");
}

void DatabaseMigrator::revertFromVersion27()
{
    // Kept on purpose: the table keeps its primary key.
    m_currentVersion = 26;
}

bool DatabaseMigrator::getUpdate27Applied() const
{
    const QStringList positions = getTableInfo("PC_IngredientToMixBridge").primaryKeyPositions;
    return positions.size() - positions.count("0") == 2;
}

// ---- Version 28: the camera's reverse pop-up. ---------------------------------------------------

void DatabaseMigrator::updateToVersion28()
{
    const bool succeeded = addColumnIfNotExists(
        "VideoCaptureConfigurationSetup", "cameraReversePopupEnabled", "INTEGER", "0");
    closeForwardStep(
        succeeded,
        28,
        "Migration to version 28 was successful.",
        "Migration to version 28 FAILED!");
}

void DatabaseMigrator::revertFromVersion28()
{
    // Kept on purpose: only this step and version 29 log that the way back was successful.
    if (dropColumnSaveParameters("VideoCaptureConfigurationSetup", "cameraReversePopupEnabled")) {
        m_currentVersion = 27;
        logMessage("Reverting from version 28 was successful.");
    } else {
        logMessage("Reverting from version 28 FAILED!!");
    }
}

bool DatabaseMigrator::getUpdate28Applied() const
{
    return columnExists("VideoCaptureConfigurationSetup", "cameraReversePopupEnabled");
}

// ---- Version 29: reverse sense is hardwired, no longer remote. ----------------------------------

namespace
{
void renameReverseSenseToHardwired(DatabaseMigrator &migrator)
{
    if (!executeQuietly("ALTER TABLE reverseSenseSettings RENAME TO reverseSenseSettings_temp")) {
        // Kept on purpose: the line names one table, but both are dropped.
        migrator.logMessage(
            "Could not rename table to reverseSenseSettings_temp. Dropping temp table to allow Mirel to create new empty table.");
        migrator.dropTable("reverseSenseSettings");
        migrator.dropTable("reverseSenseSettings_temp");
        return;
    }
    if (!executeQuietly("CREATE TABLE IF NOT EXISTS reverseSenseSettings ("
                        "mc_sqlId INTEGER PRIMARY KEY NOT NULL,"
                        "enableHardwiredReverseSense INTEGER NOT NULL,"
                        "overrideHardwiredReverseSenseDefaultDirection INTEGER NOT NULL)")) {
        if (!executeQuietly(
                "ALTER TABLE reverseSenseSettings_temp RENAME TO reverseSenseSettings")) {
            migrator.logMessage(
                "Could not rename table back to reverseSenseSettings while attempting to clean up upgrade failure. Dropping temp table to allow Mirel to create new empty table.");
            migrator.dropTable("reverseSenseSettings_temp");
        }
        return;
    }
    QSqlQuery copy;
    if (!copy.exec("INSERT INTO reverseSenseSettings(mc_sqlId, enableHardwiredReverseSense, "
                   "overrideHardwiredReverseSenseDefaultDirection)"
                   "SELECT mc_sqlId, enableRemoteReverseSense, "
                   "overrideRemoteReverseSenseDefaultDirection FROM reverseSenseSettings_temp")) {
        migrator.dropTable("reverseSenseSettings");
        migrator.logMessage(
            "Failed inserting data from reverseSenseSettings_temp into new reverseSenseSettings.  Error was " +
            copy.lastError().databaseText());
    }
    migrator.dropTable("reverseSenseSettings_temp");
}

bool renameReverseSenseToRemote(DatabaseMigrator &migrator)
{
    // Kept on purpose: no probe is asked. If the columns are already remote, they cannot be copied
    // and the table is dropped.
    if (!executeQuietly("ALTER TABLE reverseSenseSettings RENAME TO reverseSenseSettings_temp")) {
        migrator.logMessage(
            "Could not rename table to reverseSenseSettings_temp. Attempting to drop both tables to allow Mirel to create new empty table.");
        migrator.dropTable("reverseSenseSettings");
        migrator.dropTable("reverseSenseSettings_temp");
        return false;
    }
    if (!executeQuietly("CREATE TABLE IF NOT EXISTS reverseSenseSettings ("
                        "mc_sqlId INTEGER PRIMARY KEY NOT NULL,"
                        "enableRemoteReverseSense INTEGER NOT NULL,"
                        "overrideRemoteReverseSenseDefaultDirection INTEGER NOT NULL)")) {
        if (!executeQuietly(
                "ALTER TABLE reverseSenseSettings_temp RENAME TO reverseSenseSettings")) {
            migrator.logMessage(
                "Could not rename table back to reverseSenseSettings while attempting to clean up revert failure. Dropping temp table to allow Mirel to create new empty table.");
            migrator.dropTable("reverseSenseSettings_temp");
        }
        return false;
    }
    const bool rowsCopied = executeQuietly(
        "INSERT INTO reverseSenseSettings(mc_sqlId, enableRemoteReverseSense, "
        "overrideRemoteReverseSenseDefaultDirection)"
        "SELECT mc_sqlId, enableHardwiredReverseSense, "
        "overrideHardwiredReverseSenseDefaultDirection FROM reverseSenseSettings_temp");
    if (!rowsCopied) {
        // Kept on purpose: no error text, unlike the forward step.
        migrator.dropTable("reverseSenseSettings");
        migrator.logMessage(
            "Failed inserting data from reverseSenseSettings_temp into new reverseSenseSettings");
    }
    migrator.dropTable("reverseSenseSettings_temp");
    return rowsCopied;
}
} // namespace

void DatabaseMigrator::updateToVersion29()
{
    if (!getUpdate29Applied()) {
        renameReverseSenseToHardwired(*this);
    }
    // Kept on purpose: a dropped table counts as migrated, because the device software creates it
    // again.
    m_currentVersion = 29;
    logMessage("Migration to version 29 was successful.");
}

void DatabaseMigrator::revertFromVersion29()
{
    if (renameReverseSenseToRemote(*this)) {
        m_currentVersion = 28;
        logMessage("Reverting from version 29 was successful.");
    } else {
        logMessage("Reverting from version 29 FAILED!!");
    }
}

bool DatabaseMigrator::getUpdate29Applied() const
{
    return columnExists("reverseSenseSettings", "enableHardwiredReverseSense") &&
           columnExists("reverseSenseSettings", "overrideHardwiredReverseSenseDefaultDirection");
}

// ---- Version 30: the wireless switch. -----------------------------------------------------------

void DatabaseMigrator::updateToVersion30()
{
    const bool succeeded = addColumnIfNotExists("systemControl", "wirelessEnabled", "BOOLEAN", "0");
    closeForwardStep(
        succeeded,
        30,
        "Migration to version 30 was successful.",
        "Migration to version 30 FAILED!");
}

void DatabaseMigrator::revertFromVersion30()
{
    if (dropColumnSaveParameters("systemControl", "wirelessEnabled")) {
        m_currentVersion = 29;
    }
}

bool DatabaseMigrator::getUpdate30Applied() const
{
    return columnExists("systemControl", "wirelessEnabled");
}

// ---- Version 31: identifiers of carriers, mixes and planter varieties. --------------------------

namespace
{
bool fillUuids(const QString &table)
{
    QVariantList ids;
    QVariantList uuids;
    QSqlQuery rows = forwardOnlyQuery();
    rows.exec(QString("SELECT id FROM %1 WHERE uuid IS NULL").arg(table));
    while (rows.next()) {
        ids << rows.value(0);
        uuids << QUuid::createUuid().toString();
    }
    rows.finish();
    // Kept on purpose: only the batch decides. With empty lists it succeeds even if there is no such
    // table.
    QSqlQuery update;
    update.prepare(QString("UPDATE %1 SET uuid=:uuid WHERE id=:id").arg(table));
    update.bindValue(":uuid", uuids);
    update.bindValue(":id", ids);
    return update.execBatch();
}
} // namespace

void DatabaseMigrator::updateToVersion31()
{
    for (const QString table : {"PC_Carrier", "PC_Mix", "PC_PlanterVariety"}) {
        // Kept on purpose: the step fails only if the column cannot be filled.
        addColumnIfNotExists(table, "uuid", "TEXT");
        if (!fillUuids(table)) {
            logMessage(
                QString("Migration to version 31 FAILED! Failed to add and populate %1 uuid column")
                    .arg(table));
            return;
        }
    }
    // Kept on purpose: the default carriers' identifiers have no braces, replace whatever these
    // carriers had, and leave out carrier 7.
    const bool carriersIdentified = allSucceeded({
        executeQuietly(
            "UPDATE PC_Carrier SET uuid = '6925f16e-e25c-4768-bc50-8885c4baaa8f' WHERE id = 1"),
        executeQuietly(
            "UPDATE PC_Carrier SET uuid = '6f5e4750-b686-4d5a-ac6f-0dc2e3099b34' WHERE id = 2"),
        executeQuietly(
            "UPDATE PC_Carrier SET uuid = '0cdc8424-a0a6-4b01-aa23-8a6fe777f9db' WHERE id = 3"),
        executeQuietly(
            "UPDATE PC_Carrier SET uuid = 'b502fba8-3905-4e80-a9e4-25656ee30ac2' WHERE id = 4"),
        executeQuietly(
            "UPDATE PC_Carrier SET uuid = 'f036f28b-08cc-46c2-bfa7-1622ccc13636' WHERE id = 5"),
        executeQuietly(
            "UPDATE PC_Carrier SET uuid = 'a35c4042-30d1-4c80-9f89-350805a41ed1' WHERE id = 6"),
        executeQuietly(
            "UPDATE PC_Carrier SET uuid = '9457de07-8236-4840-81d8-e8c9011c0f56' WHERE id = 8"),
    });
    closeForwardStep(
        carriersIdentified,
        31,
        "Migration to version 31 was successful.",
        "Migration to version 31 FAILED! Failed to synch default carrier uuids");
}

void DatabaseMigrator::revertFromVersion31()
{
    const bool succeeded = allSucceeded({
        dropColumnSaveParameters("PC_Carrier", "uuid"),
        dropColumnSaveParameters("PC_Mix", "uuid"),
        dropColumnSaveParameters("PC_PlanterVariety", "uuid"),
    });
    if (succeeded) {
        m_currentVersion = 30;
    }
}

bool DatabaseMigrator::getUpdate31Applied() const
{
    return columnExists("PC_Carrier", "uuid") && columnExists("PC_Mix", "uuid") &&
           columnExists("PC_PlanterVariety", "uuid");
}

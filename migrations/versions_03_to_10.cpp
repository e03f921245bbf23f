#include "app/database_migrator.h"
#include "schema/limited_walk.h"
#include "schema/statements.h"

// ---- Version 3: the switch of the Ombrix master settings. ---------------------------------------

void DatabaseMigrator::updateToVersion3()
{
    if (addColumn("ombrixMasterSettings", "ombrixEnabled", "BOOLEAN DEFAULT 1")) {
        m_currentVersion = 3;
        logMessage("Database migration to version 3 completed successfully!");
    } else {
        // Kept on purpose: nothing follows the colon, the cause is in the lines before.
        logMessage("Database migration to version 3 failed! Error was: ");
    }
}

void DatabaseMigrator::revertFromVersion3()
{
    if (dropColumnSaveParameters("ombrixMasterSettings", "ombrixEnabled")) {
        m_currentVersion = 2;
    }
}

bool DatabaseMigrator::getUpdate3Applied() const
{
    return getTableInfo("ombrixMasterSettings").columnNames.indexOf("ombrixEnabled") > 0;
}

// ---- Version 4: whether the language was selected. ----------------------------------------------

void DatabaseMigrator::updateToVersion4()
{
    if (addColumn("systemControl", "languageSelected", "BOOLEAN DEFAULT 0")) {
        logMessage("Database migration to version 4 completed successfully!");
        m_currentVersion = 4;
    }
}

void DatabaseMigrator::revertFromVersion4()
{
    if (dropColumnSaveParameters("systemControl", "languageSelected")) {
        m_currentVersion = 3;
    }
}

bool DatabaseMigrator::getUpdate4Applied() const
{
    return getTableInfo("systemControl").columnNames.indexOf("languageSelected") > 0;
}

// ---- Version 5: fences of equipment sections. ---------------------------------------------------

void DatabaseMigrator::updateToVersion5()
{
    if (addColumn("MC_EquipmentSection", "fence", "INTEGER DEFAULT 0")) {
        logMessage("Database migration to version 5 completed successfully!");
        m_currentVersion = 5;
    }
}

void DatabaseMigrator::revertFromVersion5()
{
    if (dropColumnSaveParameters("MC_EquipmentSection", "fence")) {
        m_currentVersion = 4;
    }
}

bool DatabaseMigrator::getUpdate5Applied() const
{
    return getTableInfo("MC_EquipmentSection").columnNames.indexOf("fence") > 0;
}

// ---- Version 6: ISO node names of section groups. -----------------------------------------------

void DatabaseMigrator::updateToVersion6()
{
    if (addColumn("MC_EquipmentSectionGroup", "isoNodeName", "TEXT")) {
        executeQuietly(R"(UPDATE MC_EquipmentSectionGroup SET isoNodeName = "")");
    }
    // Kept on purpose: a column that is already there is a success.
    logMessage("Database migration to version 6 completed successfully!");
    m_currentVersion = 6;
}

void DatabaseMigrator::revertFromVersion6()
{
    // Kept on purpose: the column stays.
    m_currentVersion = 5;
}

bool DatabaseMigrator::getUpdate6Applied() const
{
    return getTableInfo("MC_EquipmentSectionGroup").columnNames.indexOf("isoNodeName") > 0;
}

// ---- Version 7: files move under the program directory, file transfers are forgotten. -----------

void DatabaseMigrator::updateToVersion7()
{
    LimitedWalk files;
    bool pathsRewritten = files.exec("SELECT * FROM files");
    while (files.next()) {
        const qint64 id = files.value(0).toLongLong();
        const QString oldPath = files.value(3).toString();
        const QString newPath =
            "/usr/bin/harlo/" + oldPath.mid(qMax(0, oldPath.indexOf("userFiles")));
        pathsRewritten &=
            executeQuietly(QString("UPDATE files SET absolutePath = '%1' WHERE id = %2")
                               .arg(newPath, QString::number(id)));
    }
    const bool filesRead = files.readToTheEnd();
    files.finish();

    const bool succeeded = allSucceeded({
        pathsRewritten,
        filesRead,
        executeQuietly("DELETE FROM OutgoingFiles"),
        executeQuietly("DELETE FROM IncomingFiles"),
        executeQuietly("DELETE FROM FileTransferHistory"),
        // Kept on purpose: without this table the step never succeeds.
        executeQuietly("DROP TABLE systemFiles"),
    });
    if (succeeded) {
        logMessage("Database migration to version 7 completed successfully!");
        m_currentVersion = 7;
    }
}

void DatabaseMigrator::revertFromVersion7()
{
    // Kept on purpose: nothing is restored.
    m_currentVersion = 6;
}

bool DatabaseMigrator::getUpdate7Applied() const
{
    return true;
}

// ---- Version 8: decimal marks in the user profiles. ---------------------------------------------

void DatabaseMigrator::updateToVersion8()
{
    if (addColumn("userProfiles", "decimalMark", "VARCHAR(1)")) {
        executeQuietly(R"(UPDATE userProfiles SET decimalMark = ".")");
    }
    // Kept on purpose: a column that is already there is a success.
    logMessage("Database migration to version 8 completed successfully!");
    m_currentVersion = 8;
}

void DatabaseMigrator::revertFromVersion8()
{
    // Kept on purpose: the column stays.
    m_currentVersion = 7;
}

bool DatabaseMigrator::getUpdate8Applied() const
{
    return getTableInfo("userProfiles").columnNames.indexOf("decimalMark") > 0;
}

// ---- Version 9: machine systems without a last used configuration go. ---------------------------

void DatabaseMigrator::updateToVersion9()
{
    executeQuietly("DELETE FROM MC_MachineSystem WHERE lastUsedConfigId IS NULL");
    // Kept on purpose: a failed deletion is a success.
    logMessage("Database migration to version 9 completed successfully!");
    m_currentVersion = 9;
}

void DatabaseMigrator::revertFromVersion9()
{
    // Kept on purpose: the deleted rows are not restored.
    m_currentVersion = 8;
}

bool DatabaseMigrator::getUpdate9Applied() const
{
    return true;
}

// ---- Version 10: boom capacities without machine and section group. -----------------------------

void DatabaseMigrator::updateToVersion10()
{
    if (dropColumnSaveParameters("boomCapacity", "machineId") &&
        dropColumnSaveParameters("boomCapacity", "sectionGroupName")) {
        logMessage("Migration to version 10 was successful.");
        m_currentVersion = 10;
    }
}

void DatabaseMigrator::revertFromVersion10()
{
    // Kept on purpose: the columns are not re-created.
    m_currentVersion = 9;
}

bool DatabaseMigrator::getUpdate10Applied() const
{
    // Without the table there is nothing to repair.
    const QStringList columns = getTableInfo("boomCapacity").columnNames;
    return !columns.contains("machineId") && !columns.contains("sectionGroupName");
}

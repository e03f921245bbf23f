#include "app/database_migrator.h"
#include "schema/statements.h"

// ---- Version 22: ISO identifiers and names of growers, farms and fields. ------------------------

void DatabaseMigrator::updateToVersion22()
{
    const bool succeeded = allSucceeded({
        addColumnIfNotExists("growers", "isoId", "TEXT"),
        addColumnIfNotExists("growers", "isoName", "TEXT"),
        addColumnIfNotExists("farms", "isoId", "TEXT"),
        addColumnIfNotExists("farms", "isoName", "TEXT"),
        addColumnIfNotExists("fields", "isoId", "TEXT"),
        addColumnIfNotExists("fields", "isoName", "TEXT"),
        addColumnIfNotExists("fields", "partfieldCode", "TEXT"),
    });
    closeForwardStep(
        succeeded,
        22,
        "Migration to version 22 was successful.",
        "Migration to version 22 FAILED!");
}

void DatabaseMigrator::revertFromVersion22()
{
    const bool succeeded = allSucceeded({
        dropColumnSaveParameters("growers", "isoId"),
        dropColumnSaveParameters("growers", "isoName"),
        dropColumnSaveParameters("farms", "isoId"),
        dropColumnSaveParameters("farms", "isoName"),
        dropColumnSaveParameters("fields", "isoId"),
        dropColumnSaveParameters("fields", "isoName"),
        dropColumnSaveParameters("fields", "partfieldCode"),
    });
    if (succeeded) {
        m_currentVersion = 21;
    }
}

bool DatabaseMigrator::getUpdate22Applied() const
{
    for (const QString table : {"growers", "farms", "fields"}) {
        const TableInfo info = getTableInfo(table);
        if (info.createText.isEmpty()) {
            continue;
        }
        // Version 25 renames isoName to originalName. Kept on purpose: a missing table has nothing
        // missing.
        const bool nameExists =
            info.columnNames.contains("isoName") || info.columnNames.contains("originalName");
        if (!info.columnNames.contains("isoId") || !nameExists) {
            return false;
        }
        if (table == "fields" && !info.columnNames.contains("partfieldCode")) {
            return false;
        }
    }
    return true;
}

// ---- Version 23: mix set-up of product control. -------------------------------------------------

void DatabaseMigrator::updateToVersion23()
{
    const bool succeeded = allSucceeded({
        addColumnIfNotExists("PC_Mix", "modified", "INTEGER", "0"),
        addColumnIfNotExists("PC_Mix", "configMode", "INTEGER", "0"),
        addColumnIfNotExists("PC_Mix", "displayUnit", "INTEGER", "0"),
        addColumnIfNotExists("PC_Mix", "totalRate", "REAL"),
        addColumnIfNotExists("PC_IngredientToMixBridge", "rate", "REAL"),
        addColumnIfNotExists("PC_IngredientToMixBridge", "displayUnit", "INTEGER", "0"),
        addColumnIfNotExists("productControl_userProfile", "mixSetupMode", "INTEGER"),
        // This comes before the display units below, which copy the new numbers.
        setColumnValue("PC_Ingredient", "unit", "2", "unit=1"),
        setColumnValue(
            "PC_IngredientToMixBridge",
            "displayUnit",
            "(SELECT PC_Ingredient.unit FROM PC_Ingredient "
            "WHERE PC_Ingredient.id=PC_IngredientToMixBridge.productId)"),
        setColumnValue(
            "PC_Mix",
            "modified",
            "1",
            "PC_Mix.carrierVolume!=0 OR (SELECT quantity FROM PC_IngredientToMixBridge "
            "WHERE quantity!=0 AND PC_IngredientToMixBridge.mixId=PC_Mix.id)"),
        setColumnValue("productControl_userProfile", "mixSetupMode", "0"),
    });
    closeForwardStep(
        succeeded,
        23,
        "Migration to version 23 was successful.",
        "Migration to version 23 FAILED!");
}

void DatabaseMigrator::revertFromVersion23()
{
    const bool succeeded = allSucceeded({
        dropColumnSaveParameters("PC_Mix", "modified"),
        dropColumnSaveParameters("PC_Mix", "configMode"),
        dropColumnSaveParameters("PC_Mix", "displayUnit"),
        dropColumnSaveParameters("PC_Mix", "totalRate"),
        dropColumnSaveParameters("PC_IngredientToMixBridge", "rate"),
        dropColumnSaveParameters("PC_IngredientToMixBridge", "displayUnit"),
        dropColumnSaveParameters("productControl_userProfile", "mixSetupMode"),
        // Kept on purpose: not the inverse of the forward step.
        setColumnValue("PC_Ingredient", "unit", "0", "unit=1"),
        setColumnValue("PC_Ingredient", "unit", "1", "unit=2"),
    });
    if (succeeded) {
        m_currentVersion = 22;
    }
}

bool DatabaseMigrator::getUpdate23Applied() const
{
    const QStringList mix = getTableInfo("PC_Mix").columnNames;
    const QStringList bridge = getTableInfo("PC_IngredientToMixBridge").columnNames;
    const QStringList profile = getTableInfo("productControl_userProfile").columnNames;
    return mix.contains("modified") && mix.contains("configMode") && mix.contains("displayUnit") &&
           mix.contains("totalRate") && bridge.contains("rate") && bridge.contains("displayUnit") &&
           profile.contains("mixSetupMode");
}

// ---- Version 24: corrected coverage in the Ombrix master settings. ------------------------------

void DatabaseMigrator::updateToVersion24()
{
    // Without the table there is nothing to add.
    const bool succeeded =
        !tableExists("ombrixMasterSettings") ||
        allSucceeded({
            addColumnIfNotExists(
                "ombrixMasterSettings", "onCorrectedCoverageEnabled", "BOOLEAN", "0"),
            addColumnIfNotExists(
                "ombrixMasterSettings", "offCorrectedCoverageEnabled", "BOOLEAN", "0"),
        });
    closeForwardStep(
        succeeded,
        24,
        "Migration to version 24 was successful.",
        "Migration to version 24 FAILED!");
}

void DatabaseMigrator::revertFromVersion24()
{
    // Kept on purpose: the columns go in the reverse order, and a failed way back has its line.
    const bool succeeded =
        !tableExists("ombrixMasterSettings") ||
        allSucceeded({
            dropColumnSaveParameters("ombrixMasterSettings", "offCorrectedCoverageEnabled"),
            dropColumnSaveParameters("ombrixMasterSettings", "onCorrectedCoverageEnabled"),
        });
    if (succeeded) {
        m_currentVersion = 23;
    } else {
        logMessage("Failed to revert from version 24 to 23");
    }
}

bool DatabaseMigrator::getUpdate24Applied() const
{
    const TableInfo settings = getTableInfo("ombrixMasterSettings");
    return settings.createText.isEmpty() ||
           (settings.columnNames.contains("onCorrectedCoverageEnabled") &&
            settings.columnNames.contains("offCorrectedCoverageEnabled"));
}

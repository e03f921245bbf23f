"""One row for each version in each table: the lines that its steps log on the device database, and
statements that take its change out again."""

import functools

from dumps import statements_by_name
from support.versions import VERSIONS, dump_of

# version: what its forward and its backward step log on the device database.
STEPS = {
    2: ("Database migration to version 2 completed successfully!\n", ""),
    3: ("Database migration to version 3 completed successfully!\n", ""),
    4: ("Database migration to version 4 completed successfully!\n", ""),
    5: ("Database migration to version 5 completed successfully!\n", ""),
    6: ("Database migration to version 6 completed successfully!\n", ""),
    7: ("Database migration to version 7 completed successfully!\n", ""),
    8: ("Database migration to version 8 completed successfully!\n", ""),
    9: ("Database migration to version 9 completed successfully!\n", ""),
    10: ("Migration to version 10 was successful.\n", ""),
    11: ("Migration to version 11 was successful.\n", ""),
    12: ("Switch to section mapping data copied successfully"
         " while migrating database to version 12!\n"
         "Migration to version 12 was successful.\n", ""),
    13: ("Migration to version 13 was successful.\n", ""),
    14: ("Migration to version 14 was successful.\n", ""),
    15: ("Migration to version 15 was successful.\n", ""),
    16: ("Migration to version 16 was successful.\n", ""),
    17: ("Migration to version 17 was successful.\n", ""),
    18: ("Migration to version 18 was successful.\n", ""),
    19: ("Migration to version 19 was successful.\n", ""),
    20: ("Migration to version 20 was successful.\n", ""),
    21: ("Migration to version 21 was successful.\n", ""),
    22: ("Migration to version 22 was successful.\n", ""),
    23: ("Migration to version 23 was successful.\n", ""),
    24: ("Migration to version 24 was successful.\n", ""),
    25: ("Migration to version 25 was successful.\n", ""),
    26: ("Migration to version 26 was successful.\n", ""),
    27: ("Migration to version 27 was successful.\n", ""),
    28: ("Migration to version 28 was successful.\n",
         "Reverting from version 28 was successful.\n"),
    29: ("Migration to version 29 was successful.\n",
         "Reverting from version 29 was successful.\n"),
    30: ("Migration to version 30 was successful.\n", ""),
    31: ("Migration to version 31 was successful.\n", ""),
    32: ("Migration to version 32 was successful.\n", ""),
    33: ("Migration to version 33 was successful.\n", ""),
    34: ("Migration to version 34 was successful.\n", ""),
}

# The lines that the forward steps log instead on a database that was walked back to version 1. The
# columns of versions 6 and 8 have stayed. The tables that 7, 12 and 16 need have not come back, so
# these three fail.
STEPS_AGAIN = {
    6: "DatabaseMigrator::addColumn - Failed to add column named isoNodeName"
       " to MC_EquipmentSectionGroup\n"
       "DatabaseMigrator::addColumn - duplicate column name: isoNodeName"
       " Unable to execute statement\n"
       "Database migration to version 6 completed successfully!\n",
    7: "",
    8: "DatabaseMigrator::addColumn - Failed to add column named decimalMark to userProfiles\n"
       "DatabaseMigrator::addColumn - duplicate column name: decimalMark"
       " Unable to execute statement\n"
       "Database migration to version 8 completed successfully!\n",
    12: "SELECT * FROM switchToSectionBridge query in updateToVersion12() failed!"
        "  The query error was: no such table: switchToSectionBridge\n"
        "Migration to version 12 FAILED!\n",
    16: "Migration to version 16 FAILED!\n",
}
INCOMPLETE_AGAIN = (7, 12, 16)

# Version 33 removes the column of 30, so from 33 on every run applies 30 and then 33 again.
ALWAYS_REAPPLIED = {version: (30, 33) if version >= 33 else () for version in VERSIONS}


@functools.cache
def statements_at(version):
    return statements_by_name(dump_of(version))


def as_at(version, *names):
    """Statements that bring tables back as they are at a version, with their rows."""
    return "".join(f"DROP TABLE IF EXISTS {name};\n" + "".join(statements_at(version)[name])
                   for name in names)


def without(table, *columns):
    return "".join(f"ALTER TABLE {table} DROP COLUMN {column};\n" for column in columns)


def dropped(*tables):
    return "".join(f"DROP TABLE {table};\n" for table in tables)


@functools.cache
def taken_out():
    """version: statements that take out its change, except parts that a later version has
    undone."""
    return {
        2: as_at(1, "productControl_productSettings"),
        3: without("ombrixMasterSettings", "ombrixEnabled"),
        4: without("systemControl", "languageSelected"),
        5: without("MC_EquipmentSection", "fence"),
        6: without("MC_EquipmentSectionGroup", "isoNodeName"),
        7: as_at(6, "systemFiles") +
           "UPDATE files SET absolutePath = '/data/old' || substr(absolutePath, 15) WHERE id < 4;\n"
           "INSERT INTO OutgoingFiles (fileUuid) SELECT uuid FROM files WHERE id < 4;\n"
           "INSERT INTO IncomingFiles (remoteName) VALUES('order-001.zip');\n"
           "INSERT INTO FileTransferHistory (direction, finished)"
           " VALUES(1, '2013-07-20T15:10:21');\n",
        8: without("userProfiles", "decimalMark"),
        9: as_at(8, "MC_MachineSystem"),
        10: as_at(9, "boomCapacity"),
        11: without("OutgoingFiles", "startDate", "endDate") +
            without("IncomingFiles", "startDate", "endDate") +
            without("FileTransferHistory", "startDate", "endDate") +
            "UPDATE userProfiles SET dateFormat = 'm/dd/yyyy' WHERE id IN (1, 8);\n"
            "UPDATE userProfiles SET dateFormat = 'dd/m/yyyy' WHERE id IN (4, 5, 7);\n",
        12: without("MC_EquipmentSection", "parentEquipmentSectionId", "sectionType", "fullName") +
            without("MC_EquipmentSectionGroup", "hashForIsoBoom") +
            as_at(11, "switchToSectionBridge", "onScreenSwitchboxSettings"),
        13: as_at(12, "SoftwareUpdateTable") + without("userProfiles", "acceptedEULA"),
        14: without("preferredGpsSolutions", "filterLevel"),
        15: without("MC_EquipmentSectionGroup", "useEcuOffsets"),
        16: as_at(15, "languages") +
            "UPDATE userProfiles SET language = substr(language, 1, 2)"
            " WHERE language IN ('en-US', 'es-ES', 'fr-FR', 'de-DE', 'ru-RU', 'pt-BR');\n",
        17: "ALTER TABLE supportedHarloReceiverSettings RENAME TO internalGpsReceiverSettings;\n" +
            without("internalGpsReceiverSettings", "firmwareVersion"),
        18: without("JP_JobProfile", "guidanceType"),
        19: dropped("onScreenSwitchboxToMachineMapping") +
            as_at(18, "onScreenSwitchboxConfig", "onScreenSwitchboxSwitchLabels"),
        20: without("userProfiles", "audibleBackingUpWarningEnabled", "audioVolumePercent"),
        21: dropped("gpsReceivers", "machineToGpsReceiverMapping") +
            as_at(20, "preferredGpsSolutions"),
        22: without("growers", "isoId") + without("farms", "isoId") +
            without("fields", "isoId", "partfieldCode"),
        23: without("PC_Mix", "modified", "configMode", "displayUnit", "totalRate") +
            without("PC_IngredientToMixBridge", "rate", "displayUnit") +
            without("productControl_userProfile", "mixSetupMode") + as_at(22, "PC_Ingredient"),
        24: without("ombrixMasterSettings",
                    "onCorrectedCoverageEnabled", "offCorrectedCoverageEnabled"),
        25: "".join(f"ALTER TABLE {table} RENAME COLUMN originalName TO isoName;\n"
                    for table in ("growers", "farms", "fields")),
        26: without("supportedHarloReceiverSettings",
                    "ppp_STD_DEV", "terraStar_STD_DEV", "terraStarL_STD_DEV"),
        27: as_at(26, "PC_IngredientToMixBridge"),
        28: without("VideoCaptureConfigurationSetup", "cameraReversePopupEnabled"),
        29: as_at(28, "reverseSenseSettings"),
        30: without("systemControl", "wirelessEnabled"),
        31: without("PC_Carrier", "uuid") + without("PC_Mix", "uuid") +
            without("PC_PlanterVariety", "uuid"),
        32: without("SM_Preferences", "enableCloudJobs") + as_at(31, "workOrderRxMaps") +
            "ALTER TABLE workOrderRxMaps ADD COLUMN woConvRate REAL;\n"
            "ALTER TABLE workOrderRxMaps ADD COLUMN userConvRate REAL;\n",
        33: as_at(32, "systemControl"),
        34: without("workOrderRxMaps", "woConvRate", "userConvRate"),
    }

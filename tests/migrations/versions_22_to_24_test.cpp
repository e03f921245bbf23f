#include "support/step_test.h"

// The work of versions 22 to 24 other than adding columns; for that see added_columns_test.

namespace
{
const Columns columnsOfVersion22 = {
    {"growers", "isoId"},
    {"growers", "isoName"},
    {"farms", "isoId"},
    {"farms", "isoName"},
    {"fields", "isoId"},
    {"fields", "isoName"},
    {"fields", "partfieldCode"},
};

const QByteArray landAt21 =
    "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT NOT NULL);"
    "CREATE TABLE farms (id INTEGER PRIMARY KEY, displayName TEXT, growerId INTEGER NOT NULL, "
    "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE);"
    "CREATE TABLE fields (id INTEGER PRIMARY KEY, area REAL DEFAULT 0.5, farmId INTEGER, "
    "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE);"
    "INSERT INTO growers VALUES(1, 'Müller'), (2, 'Петров');"
    "INSERT INTO farms VALUES(1, 'Nordhof', 2);"
    "INSERT INTO fields VALUES(1, 12.25, 1);";
const QByteArray landAt22 =
    "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT NOT NULL, isoId TEXT, "
    "isoName TEXT);"
    "CREATE TABLE farms (id INTEGER PRIMARY KEY, displayName TEXT, growerId INTEGER NOT NULL, "
    "isoId TEXT, isoName TEXT, "
    "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE);"
    "CREATE TABLE fields (id INTEGER PRIMARY KEY, area REAL DEFAULT 0.5, farmId INTEGER, "
    "isoId TEXT, isoName TEXT, partfieldCode TEXT, "
    "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE);"
    "INSERT INTO growers VALUES(1, 'Müller', 'CTR1', 'Mueller'), (2, 'Петров', NULL, '');"
    "INSERT INTO farms VALUES(1, 'Nordhof', 2, 'FRM1', NULL);"
    "INSERT INTO fields VALUES(1, 12.25, 1, 'PFD1', 'Am Bach', '09-117');";
/// The tables after a rebuild.
const QStringList landRebuilt =
    QStringList{
        "CREATE TABLE \"growers\" (id INTEGER , displayName TEXT NOT NULL  , PRIMARY KEY(id) )",
        "CREATE TABLE \"farms\" (id INTEGER , displayName TEXT , growerId INTEGER NOT NULL  , "
        "PRIMARY KEY(id) , FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE)",
        "CREATE TABLE \"fields\" (id INTEGER , area REAL DEFAULT 0.5 , farmId INTEGER , "
        "PRIMARY KEY(id) , FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)"} +
    rowsOf("growers", {"1, 'Müller'", "2, 'Петров'"}) + rowsOf("farms", {"1, 'Nordhof', 2"}) +
    rowsOf("fields", {"1, 12.25, 1"});

const Columns columnsOfVersion23 = {
    {"PC_Mix", "modified"},
    {"PC_Mix", "configMode"},
    {"PC_Mix", "displayUnit"},
    {"PC_Mix", "totalRate"},
    {"PC_IngredientToMixBridge", "rate"},
    {"PC_IngredientToMixBridge", "displayUnit"},
    {"productControl_userProfile", "mixSetupMode"},
};

const QByteArray mixesAt22 =
    "CREATE TABLE PC_Ingredient (id INTEGER PRIMARY KEY, unit INTEGER DEFAULT 0);"
    "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY, carrierVolume REAL);"
    "CREATE TABLE PC_IngredientToMixBridge (id INTEGER PRIMARY KEY, mixId INTEGER, "
    "productId INTEGER, quantity REAL, FOREIGN KEY (mixId) REFERENCES PC_Mix(id) ON DELETE CASCADE, "
    "FOREIGN KEY (productId) REFERENCES PC_Ingredient(id) ON DELETE CASCADE);"
    "CREATE TABLE productControl_userProfile (userProfileId INTEGER PRIMARY KEY, volume REAL);";
const QStringList mixSchemaAt23 = {
    "CREATE TABLE PC_Ingredient (id INTEGER PRIMARY KEY, unit INTEGER DEFAULT 0)",
    "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY, carrierVolume REAL, "
    "modified INTEGER DEFAULT 0, configMode INTEGER DEFAULT 0, displayUnit INTEGER DEFAULT 0, "
    "totalRate REAL)",
    "CREATE TABLE PC_IngredientToMixBridge (id INTEGER PRIMARY KEY, mixId INTEGER, "
    "productId INTEGER, quantity REAL, rate REAL, displayUnit INTEGER DEFAULT 0, "
    "FOREIGN KEY (mixId) REFERENCES PC_Mix(id) ON DELETE CASCADE, "
    "FOREIGN KEY (productId) REFERENCES PC_Ingredient(id) ON DELETE CASCADE)",
    "CREATE TABLE productControl_userProfile (userProfileId INTEGER PRIMARY KEY, volume REAL, "
    "mixSetupMode INTEGER)"};
const QByteArray mixesAt23 = mixSchemaAt23.join(";").toUtf8() + ";";
/// The tables after a rebuild.
const QStringList mixSchemaRebuilt = {
    "CREATE TABLE PC_Ingredient (id INTEGER PRIMARY KEY, unit INTEGER DEFAULT 0)",
    "CREATE TABLE \"PC_Mix\" (id INTEGER , carrierVolume REAL , PRIMARY KEY(id) )",
    "CREATE TABLE \"PC_IngredientToMixBridge\" (id INTEGER , mixId INTEGER , productId INTEGER , "
    "quantity REAL , PRIMARY KEY(id) , FOREIGN KEY (mixId) REFERENCES PC_Mix(id) ON DELETE CASCADE,"
    "FOREIGN KEY (productId) REFERENCES PC_Ingredient(id) ON DELETE CASCADE)",
    "CREATE TABLE \"productControl_userProfile\" (userProfileId INTEGER , volume REAL , "
    "PRIMARY KEY(userProfileId) )"};
const QString unitOfIngredient = "(SELECT PC_Ingredient.unit FROM PC_Ingredient "
                                 "WHERE PC_Ingredient.id=PC_IngredientToMixBridge.productId)";

/// @return the dump of the mixes' tables
QStringList mixDump(
    const QStringList &schema, const QStringList &ingredients, const QStringList &mixes,
    const QStringList &bridge, const QStringList &profiles)
{
    return schema + QStringList("PC_Ingredient") + ingredients + QStringList("PC_Mix") + mixes +
           QStringList("PC_IngredientToMixBridge") + bridge +
           QStringList("productControl_userProfile") + profiles;
}

/// One ingredient of unit 1, one mix with it, one profile.
const QByteArray oneMixAt22 = mixesAt22 + "INSERT INTO PC_Ingredient VALUES(1, 1);"
                                          "INSERT INTO PC_Mix VALUES(1, 800);"
                                          "INSERT INTO PC_IngredientToMixBridge VALUES(1, 1, 1, 5);"
                                          "INSERT INTO productControl_userProfile VALUES(1, 2.5);";

/// @return the rows that the forward step leaves of one mix when a trigger refuses an update
QStringList oneMixAt23(
    const char *refused, const QString &ingredient, const QString &mix, const QString &bridge,
    const QString &profile)
{
    return mixDump(
        mixSchemaAt23 + QStringList(refusal(QByteArray("UPDATE ON ") + refused)),
        {ingredient},
        {mix},
        {bridge},
        {profile});
}

const char *const settingsAt23 =
    "CREATE TABLE ombrixMasterSettings (machineConfigId INTEGER PRIMARY KEY, overlap INTEGER)";
const char *const settingsAt24 =
    "CREATE TABLE ombrixMasterSettings (machineConfigId INTEGER PRIMARY KEY, overlap INTEGER, "
    "onCorrectedCoverageEnabled BOOLEAN DEFAULT 0, offCorrectedCoverageEnabled BOOLEAN DEFAULT 0)";
const char *const settingsRebuilt =
    "CREATE TABLE \"ombrixMasterSettings\" (machineConfigId INTEGER , overlap INTEGER , "
    "PRIMARY KEY(machineConfigId) )";
const char *const settingsInOtherCase = "CREATE TABLE OmbrixMasterSettings (id INTEGER)";
} // namespace

class Versions22To24Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion22_data();
    void updateToVersion22() { checkStep(&M::updateToVersion22); }
    void revertFromVersion22_data();
    void revertFromVersion22() { checkStep(&M::revertFromVersion22); }
    void getUpdate22Applied_data();
    void getUpdate22Applied() { checkProbe(&M::getUpdate22Applied); }

    void updateToVersion23_data();
    void updateToVersion23() { checkStep(&M::updateToVersion23); }
    void revertFromVersion23_data();
    void revertFromVersion23() { checkStep(&M::revertFromVersion23); }
    void getUpdate23Applied_data();
    void getUpdate23Applied() { checkProbe(&M::getUpdate23Applied); }

    void updateToVersion24_data();
    void updateToVersion24() { checkStep(&M::updateToVersion24); }
    void revertFromVersion24_data();
    void revertFromVersion24() { checkStep(&M::revertFromVersion24); }
    void getUpdate24Applied_data();
    void getUpdate24Applied() { checkProbe(&M::getUpdate24Applied); }
};

void Versions22To24Test::updateToVersion22_data()
{
    const auto row = addColumns<StepRun>("run");

    const QStringList succeeded("Migration to version 22 was successful.");
    const QStringList failed("Migration to version 22 FAILED!");

    row("growers, farms and fields get their columns",
        {landAt21,
         succeeded,
         22,
         QStringList{
             "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT NOT NULL, "
             "isoId TEXT, isoName TEXT)",
             "CREATE TABLE farms (id INTEGER PRIMARY KEY, displayName TEXT, "
             "growerId INTEGER NOT NULL, isoId TEXT, isoName TEXT, "
             "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE)",
             "CREATE TABLE fields (id INTEGER PRIMARY KEY, area REAL DEFAULT 0.5, "
             "farmId INTEGER, isoId TEXT, isoName TEXT, partfieldCode TEXT, "
             "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)"} +
             rowsOf("growers", {"1, 'Müller', NULL, NULL", "2, 'Петров', NULL, NULL"}) +
             rowsOf("farms", {"1, 'Nordhof', 2, NULL, NULL"}) +
             rowsOf("fields", {"1, 12.25, 1, NULL, NULL, NULL"})});
    row("columns that are there stay as they are",
        {"CREATE TABLE growers (isoName, isoId INTEGER);"
         "CREATE TABLE farms (id, isoId UNIQUE);"
         "CREATE TABLE fields (partfieldCode INTEGER DEFAULT 7, isoName TEXT, isoId TEXT);"
         "INSERT INTO growers VALUES('Mueller', 5);"
         "INSERT INTO fields VALUES(9, 'Am Bach', 'PFD1');",
         succeeded,
         22,
         QStringList{
             "CREATE TABLE growers (isoName, isoId INTEGER)",
             "CREATE TABLE farms (id, isoId UNIQUE, isoName TEXT)",
             "CREATE TABLE fields (partfieldCode INTEGER DEFAULT 7, isoName TEXT, isoId TEXT)"} +
             rowsOf("growers", {"'Mueller', 5"}) + rowsOf("farms") +
             rowsOf("fields", {"9, 'Am Bach', 'PFD1'"})});
    row("there are no farms",
        {"CREATE TABLE growers (id);CREATE TABLE fields (id);",
         notAdded("isoId", "farms", noSuchTable("farms")) +
             notAdded("isoName", "farms", noSuchTable("farms")) + failed,
         versionUnmoved,
         {"CREATE TABLE growers (id, isoId TEXT, isoName TEXT)",
          "CREATE TABLE fields (id, isoId TEXT, isoName TEXT, partfieldCode TEXT)",
          "growers",
          "fields"}});

    row("there is no table: all seven columns are tried",
        {"", forEach(columnsOfVersion22, notAddedToNothing) + failed, versionUnmoved, {}});
    addRowOfClosedConnection(forEach(columnsOfVersion22, notAdded, "") + failed);
}

void Versions22To24Test::revertFromVersion22_data()
{
    const auto row = addColumns<StepRun>("run");
    row("growers, farms and fields lose their columns and keep their rows",
        {landAt22, {}, 21, landRebuilt});
    row("the columns are not there", {landAt21, {}, 21, landRebuilt});
    row("an earlier rebuild left its copy of one table",
        {"CREATE TABLE growers (id INTEGER PRIMARY KEY, isoId, isoName);"
         "CREATE TABLE farms (id INTEGER PRIMARY KEY, isoId, isoName);"
         "CREATE TABLE fields (id INTEGER PRIMARY KEY, isoId, isoName, partfieldCode);"
         "CREATE TABLE farms_temp (id);",
         columnStays("isoId", "farms", copyInTheWay("farms")) +
             columnStays("isoName", "farms", copyInTheWay("farms")),
         versionUnmoved,
         QStringList{
             "CREATE TABLE farms (id INTEGER PRIMARY KEY, isoId, isoName)",
             "CREATE TABLE farms_temp (id)",
             "CREATE TABLE \"growers\" (id INTEGER , PRIMARY KEY(id) )",
             "CREATE TABLE \"fields\" (id INTEGER , PRIMARY KEY(id) )"} +
             rowsOf("farms") + rowsOf("farms_temp") + rowsOf("growers") + rowsOf("fields")});

    row("there is no table: all seven columns are tried",
        {"", forEach(columnsOfVersion22, columnStays, rebuildRefused), versionUnmoved, {}});
    addRowOfClosedConnection(forEach(columnsOfVersion22, columnStays, ""));
}

void Versions22To24Test::getUpdate22Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    const QByteArray growers = "CREATE TABLE growers (isoId, isoName);";
    const QByteArray farms = "CREATE TABLE farms (isoId, isoName);";
    const QByteArray fields = "CREATE TABLE fields (isoId, isoName, partfieldCode);";
    QTest::newRow("all columns") << growers + farms + fields << true;
    QTest::newRow("there is no table") << QByteArray() << true;
    QTest::newRow("there are no growers") << farms + fields << true;
    QTest::newRow("there are no farms") << growers + fields << true;
    QTest::newRow("there are no fields") << growers + farms << true;
    QTest::newRow("growers in another letter case are not looked at")
        << "CREATE TABLE Growers (id);" + farms + fields << true;
    QTest::newRow("original names of growers in place of their ISO names")
        << "CREATE TABLE growers (isoId, originalName);" + farms + fields << true;
    QTest::newRow("original names of farms in place of their ISO names")
        << growers + "CREATE TABLE farms (isoId, originalName);" + fields << true;
    QTest::newRow("original names of fields in place of their ISO names")
        << growers + farms + "CREATE TABLE fields (isoId, originalName, partfieldCode);" << true;
    QTest::newRow("original names beside the ISO names")
        << growers + "CREATE TABLE farms (isoId, isoName, originalName);" + fields << true;
    QTest::newRow("original names in another letter case")
        << growers + "CREATE TABLE farms (isoId, originalname);" + fields << false;
    QTest::newRow("original names without ISO identifiers")
        << growers + "CREATE TABLE farms (originalName);" + fields << false;
}

void Versions22To24Test::updateToVersion23_data()
{
    const auto row = addColumns<StepRun>("run");

    const QStringList succeeded("Migration to version 23 was successful.");
    const QStringList failed("Migration to version 23 FAILED!");

    // Mix 1 is empty, the amounts of mixes 4 and 5 are not known, ingredient 9 does not exist.
    row("mixes with contents count as modified, units are renumbered first",
        {mixesAt22 + "INSERT INTO PC_Ingredient VALUES(1, 0), (2, 1), (3, 2), (4, NULL), (5, 3);"
                     "INSERT INTO PC_Mix VALUES(1, 0), (2, 0), (3, 120.5), (4, NULL), (5, 0), "
                     "(6, NULL), (7, -1);"
                     "INSERT INTO PC_IngredientToMixBridge VALUES(1, 1, 1, 0), (2, 1, 2, 0), "
                     "(3, 2, 2, 0), (4, 2, 3, 0.25), (5, 5, 4, NULL), (6, 6, 9, -2);"
                     "INSERT INTO productControl_userProfile VALUES(1, 2.5), (2, NULL);",
         succeeded,
         23,
         mixDump(
             mixSchemaAt23,
             {"1, 0", "2, 2", "3, 2", "4, NULL", "5, 3"},
             {"1, 0.0, 0, 0, 0, NULL",
              "2, 0.0, 1, 0, 0, NULL",
              "3, 120.5, 1, 0, 0, NULL",
              "4, NULL, 0, 0, 0, NULL",
              "5, 0.0, 0, 0, 0, NULL",
              "6, NULL, 1, 0, 0, NULL",
              "7, -1.0, 1, 0, 0, NULL"},
             {"1, 1, 1, 0.0, NULL, 0",
              "2, 1, 2, 0.0, NULL, 2",
              "3, 2, 2, 0.0, NULL, 2",
              "4, 2, 3, 0.25, NULL, 2",
              "5, 5, 4, NULL, NULL, NULL",
              "6, 6, 9, -2.0, NULL, NULL"},
             {"1, 2.5, 0", "2, NULL, 0"})});
    row("a second time: display units and set-up mode are reset, modified mixes stay modified",
        {mixesAt23 + "INSERT INTO PC_Ingredient VALUES(1, 2), (2, 1);"
                     "INSERT INTO PC_Mix VALUES(1, 0, 1, 3, 4, 5.5);"
                     "INSERT INTO PC_IngredientToMixBridge VALUES(1, 1, 1, 0, 6.5, 9), "
                     "(2, 1, 2, 0, 7.5, 9);"
                     "INSERT INTO productControl_userProfile VALUES(1, 2.5, 1);",
         succeeded,
         23,
         mixDump(
             mixSchemaAt23,
             {"1, 2", "2, 2"},
             {"1, 0.0, 1, 3, 4, 5.5"},
             {"1, 1, 1, 0.0, 6.5, 2", "2, 1, 2, 0.0, 7.5, 2"},
             {"1, 2.5, 0"})});

    row("the units cannot be renumbered",
        {oneMixAt22 + refusal("UPDATE ON PC_Ingredient"),
         notSet("unit", "2", rowRefused) + failed,
         versionUnmoved,
         oneMixAt23(
             "PC_Ingredient",
             "1, 1",
             "1, 800.0, 1, 0, 0, NULL",
             "1, 1, 1, 5.0, NULL, 1",
             "1, 2.5, 0")});
    row("the display units cannot be set",
        {oneMixAt22 + refusal("UPDATE ON PC_IngredientToMixBridge"),
         notSet("displayUnit", unitOfIngredient, rowRefused) + failed,
         versionUnmoved,
         oneMixAt23(
             "PC_IngredientToMixBridge",
             "1, 2",
             "1, 800.0, 1, 0, 0, NULL",
             "1, 1, 1, 5.0, NULL, 0",
             "1, 2.5, 0")});
    row("the mixes cannot be marked as modified",
        {oneMixAt22 + refusal("UPDATE ON PC_Mix"),
         notSet("modified", "1", rowRefused) + failed,
         versionUnmoved,
         oneMixAt23(
             "PC_Mix", "1, 2", "1, 800.0, 0, 0, 0, NULL", "1, 1, 1, 5.0, NULL, 2", "1, 2.5, 0")});
    row("the set-up mode cannot be set",
        {oneMixAt22 + refusal("UPDATE ON productControl_userProfile"),
         notSet("mixSetupMode", "0", rowRefused) + failed,
         versionUnmoved,
         oneMixAt23(
             "productControl_userProfile",
             "1, 2",
             "1, 800.0, 1, 0, 0, NULL",
             "1, 1, 1, 5.0, NULL, 2",
             "1, 2.5, NULL")});

    const auto notFilled = [](QString (*error)(const QString &table)) {
        return notSet("unit", "2", error("PC_Ingredient")) +
               notSet("displayUnit", unitOfIngredient, error("PC_IngredientToMixBridge")) +
               notSet("modified", "1", error("PC_Mix")) +
               notSet("mixSetupMode", "0", error("productControl_userProfile"));
    };
    row("there is no table: all eleven statements are tried",
        {"",
         forEach(columnsOfVersion23, notAddedToNothing) + notFilled(noSuchTable) + failed,
         versionUnmoved,
         {}});
    addRowOfClosedConnection(
        forEach(columnsOfVersion23, notAdded, "") + notFilled(noText) + failed);
}

void Versions22To24Test::revertFromVersion23_data()
{
    const auto row = addColumns<StepRun>("run");
    row("the columns are dropped, unit 1 becomes 0, then unit 2 becomes 1",
        {mixesAt23 + "INSERT INTO PC_Ingredient VALUES(1, 0), (2, 1), (3, 2), (4, 3), "
                     "(5, NULL);"
                     "INSERT INTO PC_Mix VALUES(1, 120.5, 1, 2, 3, 4.5);"
                     "INSERT INTO PC_IngredientToMixBridge VALUES(1, 1, 3, 0.25, 6.5, 2);"
                     "INSERT INTO productControl_userProfile VALUES(1, 2.5, 1);",
         {},
         22,
         mixDump(
             mixSchemaRebuilt,
             {"1, 0", "2, 0", "3, 1", "4, 3", "5, NULL"},
             {"1, 120.5"},
             {"1, 1, 3, 0.25"},
             {"1, 2.5"})});
    row("the columns are not there: the units are still renumbered",
        {oneMixAt22,
         {},
         22,
         mixDump(mixSchemaRebuilt, {"1, 0"}, {"1, 800.0"}, {"1, 1, 1, 5.0"}, {"1, 2.5"})});

    const QByteArray units = mixesAt23 + "INSERT INTO PC_Ingredient VALUES(1, 1), (2, 2);";
    row("unit 1 cannot be renumbered",
        {units + refusal("UPDATE ON PC_Ingredient WHEN OLD.unit = 1"),
         notSet("unit", "0", rowRefused),
         versionUnmoved,
         mixDump(
             mixSchemaRebuilt.mid(0, 1) +
                 QStringList(refusal("UPDATE ON PC_Ingredient WHEN OLD.unit = 1")) +
                 mixSchemaRebuilt.mid(1),
             {"1, 1", "2, 1"},
             {},
             {},
             {})});
    row("unit 2 cannot be renumbered",
        {units + refusal("UPDATE ON PC_Ingredient WHEN OLD.unit = 2"),
         notSet("unit", "1", rowRefused),
         versionUnmoved,
         mixDump(
             mixSchemaRebuilt.mid(0, 1) +
                 QStringList(refusal("UPDATE ON PC_Ingredient WHEN OLD.unit = 2")) +
                 mixSchemaRebuilt.mid(1),
             {"1, 0", "2, 2"},
             {},
             {},
             {})});
    const auto notRenumbered = [](const QString &error) {
        return notSet("unit", "0", error) + notSet("unit", "1", error);
    };
    row("there is no table: all nine statements are tried",
        {"",
         forEach(columnsOfVersion23, columnStays, rebuildRefused) +
             notRenumbered(noSuchTable("PC_Ingredient")),
         versionUnmoved,
         {}});
    addRowOfClosedConnection(forEach(columnsOfVersion23, columnStays, "") + notRenumbered(""));
}

void Versions22To24Test::getUpdate23Applied_data()
{
    const auto row = addColumns<QByteArray, bool>("before", "applied");

    const QByteArray mixes = "CREATE TABLE PC_Mix (modified, configMode, displayUnit, totalRate);";
    const QByteArray bridge = "CREATE TABLE PC_IngredientToMixBridge (rate, displayUnit);";
    const QByteArray profiles = "CREATE TABLE productControl_userProfile (mixSetupMode);";
    row("all columns", mixes + bridge + profiles, true);
    row("there is no table", "", false);
    row("there are no mixes", bridge + profiles, false);
    row("there is no bridge", mixes + profiles, false);
    row("there are no profiles", mixes + bridge, false);
    row("tables in another letter case are seen",
        "CREATE TABLE pc_mix (modified, configMode, displayUnit, totalRate);"
        "CREATE TABLE pc_ingredientToMixBridge (rate, displayUnit);"
        "CREATE TABLE ProductControl_userProfile (mixSetupMode);",
        true);
}

void Versions22To24Test::updateToVersion24_data()
{
    const auto row = addColumns<StepRun>("run");

    const QStringList succeeded("Migration to version 24 was successful.");
    row("both switches are added and off",
        {settingsAt23 + QByteArray(";INSERT INTO ombrixMasterSettings VALUES(1, 40), (2, 0);"),
         succeeded,
         24,
         {settingsAt24, "ombrixMasterSettings", "1, 40, 0, 0", "2, 0, 0, 0"}});
    row("switches that are there stay as they are",
        {settingsAt24 + QByteArray(";INSERT INTO ombrixMasterSettings VALUES(1, 40, 1, NULL);"),
         succeeded,
         24,
         {settingsAt24, "ombrixMasterSettings", "1, 40, 1, NULL"}});
    row("without the table there is nothing to add", {"", succeeded, 24, {}});
    addRowOfClosedConnection(succeeded, 24);
    row("the table in another letter case is not seen",
        {settingsInOtherCase, succeeded, 24, {settingsInOtherCase, "OmbrixMasterSettings"}});
    row("both switches in another letter case",
        {"CREATE TABLE ombrixMasterSettings "
         "(OnCorrectedCoverageEnabled, OffCorrectedCoverageEnabled)",
         duplicateNotAdded("onCorrectedCoverageEnabled", "ombrixMasterSettings") +
             duplicateNotAdded("offCorrectedCoverageEnabled", "ombrixMasterSettings") +
             QStringList("Migration to version 24 FAILED!"),
         versionUnmoved,
         {"CREATE TABLE ombrixMasterSettings "
          "(OnCorrectedCoverageEnabled, OffCorrectedCoverageEnabled)",
          "ombrixMasterSettings"}});
}

void Versions22To24Test::revertFromVersion24_data()
{
    const auto row = addColumns<StepRun>("run");
    row("both switches are dropped, the rows stay",
        {settingsAt24 + QByteArray(";INSERT INTO ombrixMasterSettings VALUES(1, 40, 1, 0);"),
         {},
         23,
         {settingsRebuilt, "ombrixMasterSettings", "1, 40"}});
    row("the switches are not there",
        {settingsAt23 + QByteArray(";INSERT INTO ombrixMasterSettings VALUES(1, 40);"),
         {},
         23,
         {settingsRebuilt, "ombrixMasterSettings", "1, 40"}});
    row("without the table there is nothing to remove", {"", {}, 23, {}});
    addRowOfClosedConnection({}, 23);
    row("the table in another letter case is not seen",
        {settingsInOtherCase, {}, 23, {settingsInOtherCase, "OmbrixMasterSettings"}});
    row("a table without a primary key: both switches are tried, the second one first",
        {"CREATE TABLE ombrixMasterSettings "
         "(onCorrectedCoverageEnabled, offCorrectedCoverageEnabled)",
         columnStays("offCorrectedCoverageEnabled", "ombrixMasterSettings", keyRefused) +
             columnStays("onCorrectedCoverageEnabled", "ombrixMasterSettings", keyRefused) +
             QStringList("Failed to revert from version 24 to 23"),
         versionUnmoved,
         {"CREATE TABLE ombrixMasterSettings "
          "(onCorrectedCoverageEnabled, offCorrectedCoverageEnabled)",
          "ombrixMasterSettings"}});
}

void Versions22To24Test::getUpdate24Applied_data()
{
    const auto row = addColumns<QByteArray, bool>("before", "applied");
    row("both switches", QByteArray(settingsAt24), true);
    row("neither switch", QByteArray(settingsAt23), false);
    row("there is no table", "", true);
    row("the table in another letter case is not looked at", QByteArray(settingsInOtherCase), true);
}

QTEST_APPLESS_MAIN(Versions22To24Test)
#include "versions_22_to_24_test.moc"

#include "support/step_test.h"

#include <QtTest>

namespace
{
struct Operations {
    Step update;
    Probe applied;
    Step revert;
};

/// Columns with their types, by the table's name.
using Tables = QMap<QString, QStringList>;

struct Version {
    Operations operations;
    Tables found; ///< what its tables have before
    Tables added; ///< what it adds to them
};
const QMap<int, Version> versions = {
    {22,
     {{&DatabaseMigrator::updateToVersion22,
       &DatabaseMigrator::getUpdate22Applied,
       &DatabaseMigrator::revertFromVersion22},
      {{"growers", {"id"}}, {"farms", {"id"}}, {"fields", {"id"}}},
      {{"growers", {"isoId TEXT", "isoName TEXT"}},
       {"farms", {"isoId TEXT", "isoName TEXT"}},
       {"fields", {"isoId TEXT", "isoName TEXT", "partfieldCode TEXT"}}}}},
    {23,
     {{&DatabaseMigrator::updateToVersion23,
       &DatabaseMigrator::getUpdate23Applied,
       &DatabaseMigrator::revertFromVersion23},
      {{"PC_Ingredient", {"id", "unit"}},
       {"PC_Mix", {"id", "carrierVolume"}},
       {"PC_IngredientToMixBridge", {"id", "mixId", "productId", "quantity"}},
       {"productControl_userProfile", {"id"}}},
      {{"PC_Mix",
        {"modified INTEGER DEFAULT 0",
         "configMode INTEGER DEFAULT 0",
         "displayUnit INTEGER DEFAULT 0",
         "totalRate REAL"}},
       {"PC_IngredientToMixBridge", {"rate REAL", "displayUnit INTEGER DEFAULT 0"}},
       {"productControl_userProfile", {"mixSetupMode INTEGER"}}}}},
    {24,
     {{&DatabaseMigrator::updateToVersion24,
       &DatabaseMigrator::getUpdate24Applied,
       &DatabaseMigrator::revertFromVersion24},
      {{"ombrixMasterSettings", {"id"}}},
      {{"ombrixMasterSettings",
        {"onCorrectedCoverageEnabled BOOLEAN DEFAULT 0",
         "offCorrectedCoverageEnabled BOOLEAN DEFAULT 0"}}}}},
};

Tables joined(Tables tables, const Tables &more)
{
    for (auto table = more.begin(); table != more.end(); ++table) {
        tables[table.key()] << table.value();
    }
    return tables;
}

QString nameOf(const QString &column)
{
    return column.section(' ', 0, 0);
}

/// @param key the columns of one table's primary key; the others' is their id
QByteArray createStatements(
    const Tables &tables, const QString &keyTable = QString(), const QString &key = QString())
{
    QString statements;
    for (auto table = tables.begin(); table != tables.end(); ++table) {
        statements += "CREATE TABLE " + table.key() + " (" + table->join(", ") + ", PRIMARY KEY (" +
                      (table.key() == keyTable ? key : "id") + "));";
    }
    return statements.toUtf8();
}

/// @return every column's name as `readColumnNames` gives it
QStringList columnNames(const Tables &tables)
{
    QStringList names;
    for (auto table = tables.begin(); table != tables.end(); ++table) {
        for (const QString &column : *table) {
            names << "'" + table.key() + "." + nameOf(column) + "'";
        }
    }
    return names;
}
const char *const readColumnNames =
    "SELECT sqlite_master.name || '.' || columns.name FROM sqlite_master "
    "JOIN pragma_table_info(sqlite_master.name) AS columns "
    "WHERE sqlite_master.type = 'table' ORDER BY sqlite_master.name, columns.cid";

/// A row for every column that a version adds.
void addColumnRows()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("column");
    for (auto version = versions.begin(); version != versions.end(); ++version) {
        const Tables &added = version->added;
        for (auto table = added.begin(); table != added.end(); ++table) {
            for (const QString &column : *table) {
                QTest::addRow(
                    "version %d, %s.%s",
                    version.key(),
                    qPrintable(table.key()),
                    qPrintable(nameOf(column)))
                    << version.key() << table.key() << column;
            }
        }
    }
}

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
/// What a rebuild leaves.
const QStringList landRebuilt = {
    "CREATE TABLE \"growers\" (id INTEGER , displayName TEXT NOT NULL  , PRIMARY KEY(id) )",
    "CREATE TABLE \"farms\" (id INTEGER , displayName TEXT , growerId INTEGER NOT NULL  , "
    "PRIMARY KEY(id) , FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE)",
    "CREATE TABLE \"fields\" (id INTEGER , area REAL DEFAULT 0.5 , farmId INTEGER , "
    "PRIMARY KEY(id) , FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)",
    "growers",
    "1, 'Müller'",
    "2, 'Петров'",
    "farms",
    "1, 'Nordhof', 2",
    "fields",
    "1, 12.25, 1"};

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
/// What a rebuild leaves.
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

/// One ingredient of unit 1, one mix that holds it, one profile.
const QByteArray oneMixAt22 = mixesAt22 + "INSERT INTO PC_Ingredient VALUES(1, 1);"
                                          "INSERT INTO PC_Mix VALUES(1, 800);"
                                          "INSERT INTO PC_IngredientToMixBridge VALUES(1, 1, 1, 5);"
                                          "INSERT INTO productControl_userProfile VALUES(1, 2.5);";

QByteArray refusal(const char *event)
{
    return QByteArray("CREATE TRIGGER refusal BEFORE UPDATE ON ") + event +
           " BEGIN SELECT RAISE(ABORT, 'refused'); END";
}

/// @return what the forward step leaves of one mix where a trigger refuses
QStringList oneMixAt23(
    const char *refused, const QString &ingredient, const QString &mix, const QString &bridge,
    const QString &profile)
{
    return mixDump(
        mixSchemaAt23 + QStringList(refusal(refused)), {ingredient}, {mix}, {bridge}, {profile});
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

class Versions22To24Test : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void updateToVersion22_data();
    void updateToVersion22();
    void revertFromVersion22_data();
    void revertFromVersion22();
    void getUpdate22Applied_data();
    void getUpdate22Applied();

    void updateToVersion23_data();
    void updateToVersion23();
    void revertFromVersion23_data();
    void revertFromVersion23();
    void getUpdate23Applied_data();
    void getUpdate23Applied();

    void updateToVersion24_data();
    void updateToVersion24();
    void revertFromVersion24_data();
    void revertFromVersion24();
    void getUpdate24Applied_data();
    void getUpdate24Applied();

    void addsTheOtherColumns_data() { addColumnRows(); }
    void addsTheOtherColumns();
    void dropsTheOtherColumns_data() { addColumnRows(); }
    void dropsTheOtherColumns();
    void looksForEveryColumn_data() { addColumnRows(); }
    void looksForEveryColumn();
    void closedConnection();

private:
    std::unique_ptr<ScratchDevice> device;
};

void Versions22To24Test::init()
{
    device = std::make_unique<ScratchDevice>();
}

void Versions22To24Test::cleanup()
{
    device.reset();
}

void Versions22To24Test::updateToVersion22_data()
{
    QTest::addColumn<StepRun>("run");

    QTest::newRow("growers, farms and fields get their columns") << StepRun{
        landAt21,
        {"Migration to version 22 was successful."},
        22,
        {"CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT NOT NULL, "
         "isoId TEXT, isoName TEXT)",
         "CREATE TABLE farms (id INTEGER PRIMARY KEY, displayName TEXT, "
         "growerId INTEGER NOT NULL, isoId TEXT, isoName TEXT, "
         "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE)",
         "CREATE TABLE fields (id INTEGER PRIMARY KEY, area REAL DEFAULT 0.5, "
         "farmId INTEGER, isoId TEXT, isoName TEXT, partfieldCode TEXT, "
         "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)",
         "growers",
         "1, 'Müller', NULL, NULL",
         "2, 'Петров', NULL, NULL",
         "farms",
         "1, 'Nordhof', 2, NULL, NULL",
         "fields",
         "1, 12.25, 1, NULL, NULL, NULL"}};
    QTest::newRow("columns that are there stay as they are") << StepRun{
        "CREATE TABLE growers (isoName, isoId INTEGER);"
        "CREATE TABLE farms (id, isoId UNIQUE);"
        "CREATE TABLE fields (partfieldCode INTEGER DEFAULT 7, isoName TEXT, isoId TEXT);"
        "INSERT INTO growers VALUES('Mueller', 5);"
        "INSERT INTO fields VALUES(9, 'Am Bach', 'PFD1');",
        {"Migration to version 22 was successful."},
        22,
        {"CREATE TABLE growers (isoName, isoId INTEGER)",
         "CREATE TABLE farms (id, isoId UNIQUE, isoName TEXT)",
         "CREATE TABLE fields (partfieldCode INTEGER DEFAULT 7, isoName TEXT, isoId TEXT)",
         "growers",
         "'Mueller', 5",
         "farms",
         "fields",
         "9, 'Am Bach', 'PFD1'"}};
    QTest::newRow("no farms") << StepRun{
        "CREATE TABLE growers (id);CREATE TABLE fields (id);",
        notAdded("isoId", "farms", noSuchTable("farms")) +
            notAdded("isoName", "farms", noSuchTable("farms")) +
            QStringList("Migration to version 22 FAILED!"),
        versionUnmoved,
        {"CREATE TABLE growers (id, isoId TEXT, isoName TEXT)",
         "CREATE TABLE fields (id, isoId TEXT, isoName TEXT, partfieldCode TEXT)",
         "growers",
         "fields"}};
    QTest::newRow("no table: all seven columns are tried") << StepRun{
        "",
        notAdded("isoId", "growers", noSuchTable("growers")) +
            notAdded("isoName", "growers", noSuchTable("growers")) +
            notAdded("isoId", "farms", noSuchTable("farms")) +
            notAdded("isoName", "farms", noSuchTable("farms")) +
            notAdded("isoId", "fields", noSuchTable("fields")) +
            notAdded("isoName", "fields", noSuchTable("fields")) +
            notAdded("partfieldCode", "fields", noSuchTable("fields")) +
            QStringList("Migration to version 22 FAILED!"),
        versionUnmoved,
        {}};
}

void Versions22To24Test::updateToVersion22()
{
    checkStep(*device, &DatabaseMigrator::updateToVersion22);
}

void Versions22To24Test::revertFromVersion22_data()
{
    QTest::addColumn<StepRun>("run");

    QTest::newRow("growers, farms and fields lose their columns and keep their rows")
        << StepRun{landAt22, {}, 21, landRebuilt};
    QTest::newRow("columns that are not there") << StepRun{landAt21, {}, 21, landRebuilt};
    QTest::newRow("a leftover copy of one table") << StepRun{
        "CREATE TABLE growers (id INTEGER PRIMARY KEY, isoId, isoName);"
        "CREATE TABLE farms (id INTEGER PRIMARY KEY, isoId, isoName);"
        "CREATE TABLE fields (id INTEGER PRIMARY KEY, isoId, isoName, partfieldCode);"
        "CREATE TABLE farms_temp (id);",
        columnStays("isoId", "farms", copyInTheWay("farms")) +
            columnStays("isoName", "farms", copyInTheWay("farms")),
        versionUnmoved,
        {"CREATE TABLE farms (id INTEGER PRIMARY KEY, isoId, isoName)",
         "CREATE TABLE farms_temp (id)",
         "CREATE TABLE \"growers\" (id INTEGER , PRIMARY KEY(id) )",
         "CREATE TABLE \"fields\" (id INTEGER , PRIMARY KEY(id) )",
         "farms",
         "farms_temp",
         "growers",
         "fields"}};
    QTest::newRow("no table: all seven columns are tried") << StepRun{
        "",
        columnStays("isoId", "growers", rebuildRefused) +
            columnStays("isoName", "growers", rebuildRefused) +
            columnStays("isoId", "farms", rebuildRefused) +
            columnStays("isoName", "farms", rebuildRefused) +
            columnStays("isoId", "fields", rebuildRefused) +
            columnStays("isoName", "fields", rebuildRefused) +
            columnStays("partfieldCode", "fields", rebuildRefused),
        versionUnmoved,
        {}};
}

void Versions22To24Test::revertFromVersion22()
{
    checkStep(*device, &DatabaseMigrator::revertFromVersion22);
}

void Versions22To24Test::getUpdate22Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    const QByteArray growers = "CREATE TABLE growers (isoId, isoName);";
    const QByteArray farms = "CREATE TABLE farms (isoId, isoName);";
    const QByteArray fields = "CREATE TABLE fields (isoId, isoName, partfieldCode);";
    QTest::newRow("all columns") << growers + farms + fields << true;
    QTest::newRow("no table") << QByteArray() << true;
    QTest::newRow("no growers") << farms + fields << true;
    QTest::newRow("no farms") << growers + fields << true;
    QTest::newRow("no fields") << growers + farms << true;
    QTest::newRow("growers in other letter case are not looked at")
        << "CREATE TABLE Growers (id);" + farms + fields << true;
    QTest::newRow("original names of growers in place of their ISO names")
        << "CREATE TABLE growers (isoId, originalName);" + farms + fields << true;
    QTest::newRow("original names of farms in place of their ISO names")
        << growers + "CREATE TABLE farms (isoId, originalName);" + fields << true;
    QTest::newRow("original names of fields in place of their ISO names")
        << growers + farms + "CREATE TABLE fields (isoId, originalName, partfieldCode);" << true;
    QTest::newRow("original names beside the ISO names")
        << growers + "CREATE TABLE farms (isoId, isoName, originalName);" + fields << true;
    QTest::newRow("original names in other letter case")
        << growers + "CREATE TABLE farms (isoId, originalname);" + fields << false;
    QTest::newRow("original names without ISO identifiers")
        << growers + "CREATE TABLE farms (originalName);" + fields << false;
}

void Versions22To24Test::getUpdate22Applied()
{
    checkProbe(*device, &DatabaseMigrator::getUpdate22Applied);
}

void Versions22To24Test::updateToVersion23_data()
{
    QTest::addColumn<StepRun>("run");

    const QStringList succeeded("Migration to version 23 was successful.");
    const QStringList failed("Migration to version 23 FAILED!");

    // Mix 1 holds nothing, mixes 4 and 5 hold no amount that is known; ingredient 9 is missing.
    QTest::newRow("mixes count as modified when they hold something, units are renumbered first")
        << StepRun{
               mixesAt22 +
                   "INSERT INTO PC_Ingredient VALUES(1, 0), (2, 1), (3, 2), (4, NULL), (5, 3);"
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
                   {"1, 2.5, 0", "2, NULL, 0"})};
    QTest::newRow("a second time: display units and set-up mode start afresh, modified mixes stay")
        << StepRun{
               mixesAt23 + "INSERT INTO PC_Ingredient VALUES(1, 2), (2, 1);"
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
                   {"1, 2.5, 0"})};

    QTest::newRow("the units cannot be renumbered") << StepRun{
        oneMixAt22 + refusal("PC_Ingredient"),
        notSet("unit", "2", rowRefused) + failed,
        versionUnmoved,
        oneMixAt23(
            "PC_Ingredient",
            "1, 1",
            "1, 800.0, 1, 0, 0, NULL",
            "1, 1, 1, 5.0, NULL, 1",
            "1, 2.5, 0")};
    QTest::newRow("the display units cannot be set") << StepRun{
        oneMixAt22 + refusal("PC_IngredientToMixBridge"),
        notSet("displayUnit", unitOfIngredient, rowRefused) + failed,
        versionUnmoved,
        oneMixAt23(
            "PC_IngredientToMixBridge",
            "1, 2",
            "1, 800.0, 1, 0, 0, NULL",
            "1, 1, 1, 5.0, NULL, 0",
            "1, 2.5, 0")};
    QTest::newRow("the mixes cannot be marked as modified") << StepRun{
        oneMixAt22 + refusal("PC_Mix"),
        notSet("modified", "1", rowRefused) + failed,
        versionUnmoved,
        oneMixAt23(
            "PC_Mix", "1, 2", "1, 800.0, 0, 0, 0, NULL", "1, 1, 1, 5.0, NULL, 2", "1, 2.5, 0")};
    QTest::newRow("the set-up mode cannot be set") << StepRun{
        oneMixAt22 + refusal("productControl_userProfile"),
        notSet("mixSetupMode", "0", rowRefused) + failed,
        versionUnmoved,
        oneMixAt23(
            "productControl_userProfile",
            "1, 2",
            "1, 800.0, 1, 0, 0, NULL",
            "1, 1, 1, 5.0, NULL, 2",
            "1, 2.5, NULL")};

    QTest::newRow("no table: all eleven statements are tried") << StepRun{
        "",
        notAdded("modified", "PC_Mix", noSuchTable("PC_Mix")) +
            notAdded("configMode", "PC_Mix", noSuchTable("PC_Mix")) +
            notAdded("displayUnit", "PC_Mix", noSuchTable("PC_Mix")) +
            notAdded("totalRate", "PC_Mix", noSuchTable("PC_Mix")) +
            notAdded("rate", "PC_IngredientToMixBridge", noSuchTable("PC_IngredientToMixBridge")) +
            notAdded(
                "displayUnit",
                "PC_IngredientToMixBridge",
                noSuchTable("PC_IngredientToMixBridge")) +
            notAdded(
                "mixSetupMode",
                "productControl_userProfile",
                noSuchTable("productControl_userProfile")) +
            notSet("unit", "2", noSuchTable("PC_Ingredient")) +
            notSet("displayUnit", unitOfIngredient, noSuchTable("PC_IngredientToMixBridge")) +
            notSet("modified", "1", noSuchTable("PC_Mix")) +
            notSet("mixSetupMode", "0", noSuchTable("productControl_userProfile")) + failed,
        versionUnmoved,
        {}};
}

void Versions22To24Test::updateToVersion23()
{
    checkStep(*device, &DatabaseMigrator::updateToVersion23);
}

void Versions22To24Test::revertFromVersion23_data()
{
    QTest::addColumn<StepRun>("run");

    QTest::newRow("the columns go, unit 1 becomes 0 and then unit 2 becomes 1") << StepRun{
        mixesAt23 + "INSERT INTO PC_Ingredient VALUES(1, 0), (2, 1), (3, 2), (4, 3), "
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
            {"1, 2.5"})};
    QTest::newRow("columns that are not there: the units are renumbered all the same") << StepRun{
        oneMixAt22,
        {},
        22,
        mixDump(mixSchemaRebuilt, {"1, 0"}, {"1, 800.0"}, {"1, 1, 1, 5.0"}, {"1, 2.5"})};

    const QByteArray units = mixesAt23 + "INSERT INTO PC_Ingredient VALUES(1, 1), (2, 2);";
    QTest::newRow("unit 1 cannot be renumbered") << StepRun{
        units + refusal("PC_Ingredient WHEN OLD.unit = 1"),
        notSet("unit", "0", rowRefused),
        versionUnmoved,
        mixDump(
            mixSchemaRebuilt.mid(0, 1) + QStringList(refusal("PC_Ingredient WHEN OLD.unit = 1")) +
                mixSchemaRebuilt.mid(1),
            {"1, 1", "2, 1"},
            {},
            {},
            {})};
    QTest::newRow("unit 2 cannot be renumbered") << StepRun{
        units + refusal("PC_Ingredient WHEN OLD.unit = 2"),
        notSet("unit", "1", rowRefused),
        versionUnmoved,
        mixDump(
            mixSchemaRebuilt.mid(0, 1) + QStringList(refusal("PC_Ingredient WHEN OLD.unit = 2")) +
                mixSchemaRebuilt.mid(1),
            {"1, 0", "2, 2"},
            {},
            {},
            {})};
    QTest::newRow("no table: all nine statements are tried") << StepRun{
        "",
        columnStays("modified", "PC_Mix", rebuildRefused) +
            columnStays("configMode", "PC_Mix", rebuildRefused) +
            columnStays("displayUnit", "PC_Mix", rebuildRefused) +
            columnStays("totalRate", "PC_Mix", rebuildRefused) +
            columnStays("rate", "PC_IngredientToMixBridge", rebuildRefused) +
            columnStays("displayUnit", "PC_IngredientToMixBridge", rebuildRefused) +
            columnStays("mixSetupMode", "productControl_userProfile", rebuildRefused) +
            notSet("unit", "0", noSuchTable("PC_Ingredient")) +
            notSet("unit", "1", noSuchTable("PC_Ingredient")),
        versionUnmoved,
        {}};
}

void Versions22To24Test::revertFromVersion23()
{
    checkStep(*device, &DatabaseMigrator::revertFromVersion23);
}

void Versions22To24Test::getUpdate23Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    const QByteArray mixes = "CREATE TABLE PC_Mix (modified, configMode, displayUnit, totalRate);";
    const QByteArray bridge = "CREATE TABLE PC_IngredientToMixBridge (rate, displayUnit);";
    const QByteArray profiles = "CREATE TABLE productControl_userProfile (mixSetupMode);";
    QTest::newRow("all columns") << mixes + bridge + profiles << true;
    QTest::newRow("no table") << QByteArray() << false;
    QTest::newRow("no mixes") << bridge + profiles << false;
    QTest::newRow("no bridge") << mixes + profiles << false;
    QTest::newRow("no profiles") << mixes + bridge << false;
    QTest::newRow("tables in other letter case are seen")
        << QByteArray("CREATE TABLE pc_mix (modified, configMode, displayUnit, totalRate);"
                      "CREATE TABLE pc_ingredientToMixBridge (rate, displayUnit);"
                      "CREATE TABLE ProductControl_userProfile (mixSetupMode);")
        << true;
}

void Versions22To24Test::getUpdate23Applied()
{
    checkProbe(*device, &DatabaseMigrator::getUpdate23Applied);
}

void Versions22To24Test::updateToVersion24_data()
{
    QTest::addColumn<StepRun>("run");

    const QStringList succeeded("Migration to version 24 was successful.");
    QTest::newRow("both switches are added and off") << StepRun{
        settingsAt23 + QByteArray(";INSERT INTO ombrixMasterSettings VALUES(1, 40), (2, 0);"),
        succeeded,
        24,
        {settingsAt24, "ombrixMasterSettings", "1, 40, 0, 0", "2, 0, 0, 0"}};
    QTest::newRow("switches that are there stay as they are") << StepRun{
        settingsAt24 + QByteArray(";INSERT INTO ombrixMasterSettings VALUES(1, 40, 1, NULL);"),
        succeeded,
        24,
        {settingsAt24, "ombrixMasterSettings", "1, 40, 1, NULL"}};
    QTest::newRow("without the table there is nothing to add") << StepRun{"", succeeded, 24, {}};
    QTest::newRow("the table in other letter case is not seen") << StepRun{
        settingsInOtherCase, succeeded, 24, {settingsInOtherCase, "OmbrixMasterSettings"}};
    QTest::newRow("both switches in other letter case") << StepRun{
        "CREATE TABLE ombrixMasterSettings "
        "(OnCorrectedCoverageEnabled, OffCorrectedCoverageEnabled)",
        notAdded(
            "onCorrectedCoverageEnabled",
            "ombrixMasterSettings",
            "duplicate column name: onCorrectedCoverageEnabled Unable to execute "
            "statement") +
            notAdded(
                "offCorrectedCoverageEnabled",
                "ombrixMasterSettings",
                "duplicate column name: offCorrectedCoverageEnabled Unable to execute "
                "statement") +
            QStringList("Migration to version 24 FAILED!"),
        versionUnmoved,
        {"CREATE TABLE ombrixMasterSettings "
         "(OnCorrectedCoverageEnabled, OffCorrectedCoverageEnabled)",
         "ombrixMasterSettings"}};
}

void Versions22To24Test::updateToVersion24()
{
    checkStep(*device, &DatabaseMigrator::updateToVersion24);
}

void Versions22To24Test::revertFromVersion24_data()
{
    QTest::addColumn<StepRun>("run");

    QTest::newRow("both switches go, the rows stay") << StepRun{
        settingsAt24 + QByteArray(";INSERT INTO ombrixMasterSettings VALUES(1, 40, 1, 0);"),
        {},
        23,
        {settingsRebuilt, "ombrixMasterSettings", "1, 40"}};
    QTest::newRow("switches that are not there") << StepRun{
        settingsAt23 + QByteArray(";INSERT INTO ombrixMasterSettings VALUES(1, 40);"),
        {},
        23,
        {settingsRebuilt, "ombrixMasterSettings", "1, 40"}};
    QTest::newRow("without the table there is nothing to remove") << StepRun{"", {}, 23, {}};
    QTest::newRow("the table in other letter case is not seen")
        << StepRun{settingsInOtherCase, {}, 23, {settingsInOtherCase, "OmbrixMasterSettings"}};
    QTest::newRow("a table without a key: both switches are tried, the second one first")
        << StepRun{
               "CREATE TABLE ombrixMasterSettings "
               "(onCorrectedCoverageEnabled, offCorrectedCoverageEnabled)",
               columnStays("offCorrectedCoverageEnabled", "ombrixMasterSettings", keyRefused) +
                   columnStays("onCorrectedCoverageEnabled", "ombrixMasterSettings", keyRefused) +
                   QStringList("Failed to revert from version 24 to 23"),
               versionUnmoved,
               {"CREATE TABLE ombrixMasterSettings "
                "(onCorrectedCoverageEnabled, offCorrectedCoverageEnabled)",
                "ombrixMasterSettings"}};
}

void Versions22To24Test::revertFromVersion24()
{
    checkStep(*device, &DatabaseMigrator::revertFromVersion24);
}

void Versions22To24Test::getUpdate24Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    QTest::newRow("both switches") << QByteArray(settingsAt24) << true;
    QTest::newRow("neither switch") << QByteArray(settingsAt23) << false;
    QTest::newRow("no table") << QByteArray() << true;
    QTest::newRow("the table in other letter case is not looked at")
        << QByteArray(settingsInOtherCase) << true;
}

void Versions22To24Test::getUpdate24Applied()
{
    checkProbe(*device, &DatabaseMigrator::getUpdate24Applied);
}

/// One column is there in capitals: its step does not see it and cannot add it.
void Versions22To24Test::addsTheOtherColumns()
{
    QFETCH(int, version);
    QFETCH(QString, table);
    QFETCH(QString, column);
    const QString name = nameOf(column);
    Tables before = versions[version].found;
    before[table] << column.toUpper();
    Tables others = versions[version].added;
    others[table].removeOne(column);
    device->sql(createStatements(before));
    DatabaseMigrator &migrator = startAt(*device, version - 1);

    (migrator.*versions[version].operations.update)();

    COMPARE_LINES(
        takeLogLines(*device),
        notAdded(name, table, "duplicate column name: " + name + " Unable to execute statement") +
            QStringList(QString("Migration to version %1 FAILED!").arg(version)));
    QCOMPARE(migrator.currentVersion(), version - 1);
    COMPARE_LINES(device->rows(readColumnNames), columnNames(joined(before, others)));
}

/// One column comes first in its table's key: the table cannot be rebuilt without it.
void Versions22To24Test::dropsTheOtherColumns()
{
    QFETCH(int, version);
    QFETCH(QString, table);
    QFETCH(QString, column);
    const QString name = nameOf(column);
    device->sql(createStatements(
        joined(versions[version].found, versions[version].added), table, name + ", id"));
    DatabaseMigrator &migrator = startAt(*device, version);
    QStringList log = columnStays(name, table, keyRefused);
    if (version == 24) {
        log << "Failed to revert from version 24 to 23";
    }

    (migrator.*versions[version].operations.revert)();

    COMPARE_LINES(takeLogLines(*device), log);
    QCOMPARE(migrator.currentVersion(), version);
    COMPARE_LINES(
        device->rows(readColumnNames),
        columnNames(joined(versions[version].found, {{table, {column}}})));
}

void Versions22To24Test::looksForEveryColumn()
{
    QFETCH(int, version);
    QFETCH(QString, table);
    QFETCH(QString, column);
    const Tables tables = joined(versions[version].found, versions[version].added);
    device->sql(createStatements(tables));
    const DatabaseMigrator &migrator = startAt(*device, version);
    const auto applied = versions[version].operations.applied;
    const QByteArray alteration = "ALTER TABLE " + table.toUtf8();
    const QByteArray name = nameOf(column).toUtf8();

    QVERIFY((migrator.*applied)());
    device->sql(alteration + " RENAME COLUMN " + name + " TO " + name.toUpper());
    QVERIFY2(!(migrator.*applied)(), "in other letter case");
    device->sql(alteration + " DROP COLUMN " + name);
    QVERIFY2(!(migrator.*applied)(), "missing");

    COMPARE_LINES(takeLogLines(*device), QStringList());
}

void Versions22To24Test::closedConnection()
{
    DatabaseMigrator &migrator = startAt(*device, 1);
    QSqlDatabase::database().close();

    migrator.updateToVersion22();
    migrator.revertFromVersion22();
    migrator.updateToVersion23();
    migrator.revertFromVersion23();
    QCOMPARE(migrator.currentVersion(), 1);
    migrator.updateToVersion24();
    QCOMPARE(migrator.currentVersion(), 24);
    migrator.revertFromVersion24();
    QCOMPARE(migrator.currentVersion(), 23);

    COMPARE_LINES(
        takeLogLines(*device),
        notAdded("isoId", "growers", "") + notAdded("isoName", "growers", "") +
            notAdded("isoId", "farms", "") + notAdded("isoName", "farms", "") +
            notAdded("isoId", "fields", "") + notAdded("isoName", "fields", "") +
            notAdded("partfieldCode", "fields", "") +
            QStringList("Migration to version 22 FAILED!") + columnStays("isoId", "growers", "") +
            columnStays("isoName", "growers", "") + columnStays("isoId", "farms", "") +
            columnStays("isoName", "farms", "") + columnStays("isoId", "fields", "") +
            columnStays("isoName", "fields", "") + columnStays("partfieldCode", "fields", "") +
            notAdded("modified", "PC_Mix", "") + notAdded("configMode", "PC_Mix", "") +
            notAdded("displayUnit", "PC_Mix", "") + notAdded("totalRate", "PC_Mix", "") +
            notAdded("rate", "PC_IngredientToMixBridge", "") +
            notAdded("displayUnit", "PC_IngredientToMixBridge", "") +
            notAdded("mixSetupMode", "productControl_userProfile", "") + notSet("unit", "2", "") +
            notSet("displayUnit", unitOfIngredient, "") + notSet("modified", "1", "") +
            notSet("mixSetupMode", "0", "") + QStringList("Migration to version 23 FAILED!") +
            columnStays("modified", "PC_Mix", "") + columnStays("configMode", "PC_Mix", "") +
            columnStays("displayUnit", "PC_Mix", "") + columnStays("totalRate", "PC_Mix", "") +
            columnStays("rate", "PC_IngredientToMixBridge", "") +
            columnStays("displayUnit", "PC_IngredientToMixBridge", "") +
            columnStays("mixSetupMode", "productControl_userProfile", "") +
            notSet("unit", "0", "") + notSet("unit", "1", "") +
            QStringList("Migration to version 24 was successful."));
    QVERIFY(migrator.getUpdate22Applied());
    QVERIFY(!migrator.getUpdate23Applied());
    QVERIFY(migrator.getUpdate24Applied());
}

QTEST_APPLESS_MAIN(Versions22To24Test)
#include "versions_22_to_24_test.moc"

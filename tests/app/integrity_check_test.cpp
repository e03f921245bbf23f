#include "support/device_test.h"

#include <QDir>
#include <QElapsedTimer>
#include <QSqlDatabase>
#include <QSqlDriver>

#include <sqlite3.h>

#include <limits>

namespace
{
const char *const productTables =
    "CREATE TABLE PC_ProductConfig (id INTEGER PRIMARY KEY, displayName TEXT);"
    "CREATE TABLE PC_MixToProductConfigBridge (mixId INTEGER, productConfigId INTEGER);"
    "CREATE TABLE PC_PlanterVarietyToProductConfigBridge (varietyId INTEGER, "
    "productConfigId INTEGER);"
    "CREATE TABLE PC_ProductConfigToMachineConfigBridge (machineConfigId INTEGER, "
    "activeProductConfigId INTEGER);";

const char *const readProductTables =
    "SELECT 'configuration', id, NULL FROM PC_ProductConfig UNION ALL "
    "SELECT 'mix', * FROM PC_MixToProductConfigBridge UNION ALL "
    "SELECT 'variety', * FROM PC_PlanterVarietyToProductConfigBridge UNION ALL "
    "SELECT 'machine', * FROM PC_ProductConfigToMachineConfigBridge";

const char *const settingsOfVersion1 =
    "CREATE TABLE productControl_productSettings (productId varchar(40) primary key, displayName "
    "varchar(40), tankCapacity REAL, machineConfigId INTEGER, maxAchievableRate REAL, "
    "timeToApplication REAL, lastAppliedRate REAL);"
    "INSERT INTO productControl_productSettings VALUES('p1', 'Kalk', 1200.5, 1, 40, 0.5, 12.25);"
    "CREATE TABLE MC_MachineConfig (id INTEGER PRIMARY KEY);"
    "INSERT INTO MC_MachineConfig VALUES(1);";

const char *const tableOfVersion2 =
    "CREATE TABLE productControl_productSettings (productId varchar(40), displayName varchar(40), "
    "tankCapacity REAL, machineConfigId INTEGER, maxAchievableRate REAL, timeToApplication REAL, "
    "lastAppliedRate REAL, calibratedInUsUnits BOOLEAN DEFAULT 0, PRIMARY KEY (productId, "
    "machineConfigId),FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE "
    "CASCADE)";

const char *const readSettings = "SELECT * FROM productControl_productSettings";

/// An index that does not agree with its table: every row is missing in it.
const char *const wrongIndex =
    "CREATE TABLE samples (id INTEGER PRIMARY KEY, place TEXT, depth INTEGER);"
    "INSERT INTO samples VALUES(1, 'a', 10), (2, 'b', 20), (3, 'c', 30);"
    "CREATE INDEX samplesByPlace ON samples (place);"
    "PRAGMA writable_schema = ON;"
    "UPDATE sqlite_master SET sql = 'CREATE INDEX samplesByPlace ON samples (depth)' "
    "WHERE name = 'samplesByPlace';";

/// Some forty rows to a page; the rows 5 and 400 are broken.
const QByteArray manyChildren =
    "CREATE TABLE parents (id INTEGER PRIMARY KEY);INSERT INTO parents VALUES(1);"
    "CREATE TABLE children (id INTEGER PRIMARY KEY, parentId INTEGER REFERENCES parents(id), "
    "notes TEXT);"
    "INSERT INTO children WITH RECURSIVE numbers(n) AS (VALUES(1) UNION ALL "
    "SELECT n + 1 FROM numbers WHERE n < 500) "
    "SELECT n, CASE WHEN n IN (5, 400) THEN 9 ELSE 1 END, hex(zeroblob(50)) FROM numbers;";

const QString passed = "Integrity check passed.\n";
const QString failed = "Integrity check FAILED! Integrity check results...\n";
const QString reapplied2 = "Corruption detected: applying update to db for version 2\n"
                           "Database migration to version 2 completed successfully!\n";
const QString failure1 = "Failure 1 while removing extraneous product config data. Error was: ";
const QString failure2 = "Failure 2 while removing extraneous product config data. Error was: ";
const QString failure3 = "Failure 3 while removing extraneous product config data. Error was: ";

/// The three failure lines of a database where every statement has the same error.
QString everyFailure(const QString &error)
{
    return failure1 + error + "\n" + failure2 + error + "\n" + failure3 + error + "\n";
}
} // namespace

class IntegrityCheckTest : public DeviceTest
{
    Q_OBJECT

private slots:
    void init() override;

    void healthyDatabaseStaysAsItIs_data();
    void healthyDatabaseStaysAsItIs();
    void foreignKeysAreRepaired_data();
    void foreignKeysAreRepaired();
    void orphanedConfigurationsAreRemoved_data();
    void orphanedConfigurationsAreRemoved();
    void failedRemovalStopsNothing_data();
    void failedRemovalStopsNothing();
    void statementsRunInTheirOrder();

    void damageIsReportedInOneLine_data();
    void damageIsReportedInOneLine();
    void rowThatComesAgainAndAgainEndsTheRepair();
    void fileThatIsNoDatabaseDoesNotStopTheRun_data();
    void fileThatIsNoDatabaseDoesNotStopTheRun();
    void missingStepIsAppliedAgain();
    void reappliedStepThatFailsStopsNothing();
    void versionIsSetBackAfterwards();
    void laterVersionsAreNotAsked_data();
    void laterVersionsAreNotAsked();
    void absurdVersionEndsAsFastAsTheNewest();
    void everyStageRunsWhateverTheOthersGave();
    void databaseThatIsNotOpen();
    void missingDatabaseDirectory();

private:
    QString check();
};

void IntegrityCheckTest::init()
{
    DeviceTest::init();
    device->sql(productTables);
}

/// Runs the check and returns what it logged.
QString IntegrityCheckTest::check()
{
    DatabaseMigrator &migrator = device->start();
    device->takeLog();
    migrator.checkDatabaseIntegrity();
    return device->takeLog();
}

void IntegrityCheckTest::healthyDatabaseStaysAsItIs_data()
{
    QTest::addColumn<int>("version");

    for (const int version : {std::numeric_limits<int>::min(), -1, 0, 1, 2}) {
        QTest::addRow("version %d", version) << version;
    }
}

void IntegrityCheckTest::healthyDatabaseStaysAsItIs()
{
    QFETCH(int, version);
    device->recordVersion(version);
    device->sql(
        "CREATE TABLE parents (id INTEGER PRIMARY KEY);"
        "CREATE TABLE children (id INTEGER PRIMARY KEY, parentId INTEGER REFERENCES parents(id));"
        "INSERT INTO parents VALUES(1);"
        "INSERT INTO children VALUES(1, 1), (2, NULL);"
        "INSERT INTO PC_ProductConfig VALUES(1, 'Kalk');"
        "INSERT INTO PC_MixToProductConfigBridge VALUES(1, 1)");
    const QStringList before = device->dump();

    QCOMPARE(check(), passed);

    COMPARE_LINES(device->dump(), before);
}

void IntegrityCheckTest::foreignKeysAreRepaired_data()
{
    QTest::addColumn<QByteArray>("setUp");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QByteArray>("query");
    QTest::addColumn<QStringList>("rows");

    const auto row = [](const char *name,
                        const QByteArray &setUp,
                        const QString &log,
                        const QByteArray &query,
                        const QStringList &rows) {
        QTest::newRow(name) << "CREATE TABLE parents (id INTEGER PRIMARY KEY);"
                               "INSERT INTO parents VALUES(1);" +
                                   setUp
                            << log << query << rows;
    };
    const QByteArray children = "CREATE TABLE children (id INTEGER PRIMARY KEY, "
                                "parentId INTEGER REFERENCES parents(id));";

    row("a row whose parent has gone",
        children + "INSERT INTO children VALUES(1, 1), (2, 9), (3, NULL), (4, 9)",
        "",
        "SELECT * FROM children",
        {"1, 1", "3, NULL"});
    row("rows one behind the other",
        children + "INSERT INTO children WITH RECURSIVE numbers(n) AS (VALUES(1) UNION ALL "
                   "SELECT n + 1 FROM numbers WHERE n < 20) SELECT n, n FROM numbers",
        "",
        "SELECT * FROM children",
        {"1, 1"});
    row("the parent table has gone: its children can neither stay whole nor be deleted",
        children + "INSERT INTO children VALUES(1, 1), (2, NULL), (3, 9);DROP TABLE parents",
        "no such table: main.parents\nno such table: main.parents\n",
        "SELECT * FROM children",
        {"1, 1", "2, NULL", "3, 9"});
    row("row ids beyond 32 bits",
        children +
            "INSERT INTO children VALUES(5000000000, 9), (705032704, 1), (-5000000000, 9), "
            "(-705032704, 1), (9223372036854775807, 9), (-9223372036854775808, 9), (-1, 1), (0, 1)",
        "",
        "SELECT * FROM children",
        {"-705032704, 1", "-1, 1", "0, 1", "705032704, 1"});
    row("a table without a key of its own",
        "CREATE TABLE children (name TEXT, parentId INTEGER REFERENCES parents(id));"
        "INSERT INTO children VALUES('a', 1), ('b', 9), ('b', 1)",
        "",
        "SELECT * FROM children",
        {"'a', 1", "'b', 1"});
    row("children of a removed row go with it where their key says so",
        children + "CREATE TABLE toys (id INTEGER PRIMARY KEY, childId INTEGER "
                   "REFERENCES children(id) ON DELETE CASCADE);"
                   "CREATE TABLE books (id INTEGER PRIMARY KEY, childId INTEGER "
                   "REFERENCES children(id) ON DELETE SET NULL);"
                   "INSERT INTO children VALUES(1, 1), (2, 9);"
                   "INSERT INTO toys VALUES(1, 1), (2, 2), (3, 2);"
                   "INSERT INTO books VALUES(1, 1), (2, 2)",
        "",
        "SELECT 'child', * FROM children UNION ALL SELECT 'toy', * FROM toys "
        "UNION ALL SELECT 'book', * FROM books",
        {"'child', 1, 1", "'toy', 1, 1", "'book', 1, 1", "'book', 2, NULL"});
    row("rows of the same table go with it, those ahead of the check and those behind it",
        "CREATE TABLE children (id INTEGER PRIMARY KEY, "
        "parentId INTEGER REFERENCES children(id) ON DELETE CASCADE);"
        "INSERT INTO children VALUES(1, 3), (2, NULL), (3, 9), (4, 3), (5, 4), (6, 9), (7, 2)",
        "",
        "SELECT * FROM children",
        {"2, NULL", "7, 2"});
    row("a row that others hold on to stays",
        children +
            "CREATE TABLE toys (id INTEGER PRIMARY KEY, childId INTEGER "
            "REFERENCES children(id));"
            "INSERT INTO children VALUES(1, 9), (2, 9), (3, 9);INSERT INTO toys VALUES(1, 2)",
        "FOREIGN KEY constraint failed\n",
        "SELECT * FROM children",
        {"2, 9"});
    row("a row that breaks two keys",
        "CREATE TABLE children (id INTEGER PRIMARY KEY, motherId INTEGER REFERENCES parents(id), "
        "fatherId INTEGER REFERENCES parents(id));"
        "INSERT INTO children VALUES(1, 8, 9), (2, 1, 1), (3, 1, 9)",
        "",
        "SELECT * FROM children",
        {"2, 1, 1"});
    row("rows that break two keys and that others hold on to stay",
        "CREATE TABLE children (id INTEGER PRIMARY KEY, motherId INTEGER REFERENCES parents(id), "
        "fatherId INTEGER REFERENCES parents(id));"
        "CREATE TABLE toys (id INTEGER PRIMARY KEY, childId INTEGER REFERENCES children(id));"
        "INSERT INTO children VALUES(1, 8, 9), (2, 8, 1), (3, 8, 9), (4, 8, 9);"
        "INSERT INTO toys VALUES(1, 1), (2, 2), (3, 4)",
        "FOREIGN KEY constraint failed\nFOREIGN KEY constraint failed\n"
        "FOREIGN KEY constraint failed\n"
        "FOREIGN KEY constraint failed\nFOREIGN KEY constraint failed\n",
        "SELECT * FROM children",
        {"1, 8, 9", "2, 8, 1", "4, 8, 9"});
    row("a row that others hold on to stays in each of two tables",
        children + "CREATE TABLE boys (id INTEGER PRIMARY KEY, "
                   "parentId INTEGER REFERENCES parents(id));"
                   "CREATE TABLE toys (id INTEGER PRIMARY KEY, childId INTEGER "
                   "REFERENCES children(id), boyId INTEGER REFERENCES boys(id));"
                   "INSERT INTO children VALUES(7, 9);INSERT INTO boys VALUES(5, 9);"
                   "INSERT INTO toys VALUES(1, 7, 5)",
        "FOREIGN KEY constraint failed\nFOREIGN KEY constraint failed\n",
        "SELECT 'child', * FROM children UNION ALL SELECT 'boy', * FROM boys",
        {"'child', 7, 9", "'boy', 5, 9"});
    row("a key of two columns",
        "CREATE TABLE places (x INTEGER, y INTEGER, PRIMARY KEY (x, y));"
        "CREATE TABLE children (id INTEGER PRIMARY KEY, x INTEGER, y INTEGER, "
        "FOREIGN KEY (x, y) REFERENCES places(x, y));"
        "INSERT INTO places VALUES(1, 2);"
        "INSERT INTO children VALUES(1, 1, 2), (2, 2, 1), (3, 2, NULL)",
        "",
        "SELECT * FROM children",
        {"1, 1, 2", "3, 2, NULL"});
    row("a trigger refuses one of them",
        children + "CREATE TRIGGER keep BEFORE DELETE ON children WHEN OLD.id = 2 "
                   "BEGIN SELECT RAISE(ABORT, 'refused'); END;"
                   "INSERT INTO children VALUES(1, 9), (2, 9), (3, 9)",
        "refused\n",
        "SELECT * FROM children",
        {"2, 9"});
    row("rows of a table WITHOUT ROWID stay",
        "CREATE TABLE children (name TEXT PRIMARY KEY, parentId INTEGER REFERENCES parents(id)) "
        "WITHOUT ROWID;"
        "INSERT INTO children VALUES('a', 9), ('b', 1), ('c', 9)",
        "no such column: rowid\nno such column: rowid\n",
        "SELECT * FROM children",
        {"'a', 9", "'b', 1", "'c', 9"});
    row("the row id of a table WITHOUT ROWID reads as 0",
        "CREATE TABLE children (rowid INTEGER PRIMARY KEY, "
        "parentId INTEGER REFERENCES parents(id)) WITHOUT ROWID;"
        "INSERT INTO children VALUES(0, 1), (5, 9)",
        "",
        "SELECT * FROM children",
        {"5, 9"});
    row("a table whose name needs quotes",
        "CREATE TABLE \"dear children\" (id INTEGER PRIMARY KEY, "
        "parentId INTEGER REFERENCES parents(id));"
        "INSERT INTO \"dear children\" VALUES(1, 9)",
        "near \"children\": syntax error\n",
        "SELECT * FROM \"dear children\"",
        {"1, 9"});
    row("a key that does not fit its parent makes the whole check fail",
        children + "CREATE TABLE names (name TEXT);"
                   "CREATE TABLE toys (id INTEGER PRIMARY KEY, name TEXT REFERENCES names(name));"
                   "INSERT INTO children VALUES(1, 9);INSERT INTO toys VALUES(1, 'a')",
        "foreign key mismatch - \"toys\" referencing \"names\"\n",
        "SELECT * FROM children",
        {"1, 9"});
}

void IntegrityCheckTest::foreignKeysAreRepaired()
{
    QFETCH(QByteArray, setUp);
    QFETCH(QString, log);
    QFETCH(QByteArray, query);
    QFETCH(QStringList, rows);
    device->recordVersion(1);
    device->sql(setUp);

    QCOMPARE(check(), log + passed);

    COMPARE_LINES(device->rows(query), rows);
}

void IntegrityCheckTest::orphanedConfigurationsAreRemoved_data()
{
    QTest::addColumn<QByteArray>("setUp");
    QTest::addColumn<QStringList>("rows");

    const auto row = [](const char *name, const QByteArray &setUp, const QStringList &rows) {
        QTest::newRow(name) << "INSERT INTO PC_ProductConfig VALUES(1, 'Kalk');" + setUp << rows;
    };

    row("nothing refers to it", "", {});
    row("a mix refers to it",
        "INSERT INTO PC_MixToProductConfigBridge VALUES(7, 1)",
        {"'configuration', 1, NULL", "'mix', 7, 1"});
    row("a planter variety refers to it",
        "INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(7, 1)",
        {"'configuration', 1, NULL", "'variety', 7, 1"});
    row("a machine configuration refers to it",
        "INSERT INTO PC_ProductConfigToMachineConfigBridge VALUES(7, 1)",
        {"'configuration', 1, NULL", "'machine', 7, 1"});
    row("only a row without a mix", "INSERT INTO PC_MixToProductConfigBridge VALUES(NULL, 1)", {});
    row("only a row without a planter variety",
        "INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(NULL, 1)",
        {});
    row("only a row without a machine configuration: that row stays",
        "INSERT INTO PC_ProductConfigToMachineConfigBridge VALUES(NULL, 1)",
        {"'machine', NULL, 1"});
    row("a row without a mix stays beside one with a mix",
        "INSERT INTO PC_MixToProductConfigBridge VALUES(NULL, 1), (7, 1)",
        {"'configuration', 1, NULL", "'mix', NULL, 1", "'mix', 7, 1"});
    row("rows of a configuration that is not there",
        "INSERT INTO PC_MixToProductConfigBridge VALUES(7, 1), (7, 9), (NULL, 9);"
        "INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(8, 9), (NULL, 9);"
        "INSERT INTO PC_ProductConfigToMachineConfigBridge VALUES(6, 9), (NULL, 9)",
        {"'configuration', 1, NULL", "'mix', 7, 1", "'machine', 6, 9", "'machine', NULL, 9"});
    row("rows without a configuration stay",
        "INSERT INTO PC_MixToProductConfigBridge VALUES(7, NULL);"
        "INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(8, NULL);"
        "INSERT INTO PC_ProductConfigToMachineConfigBridge VALUES(6, NULL)",
        {"'mix', 7, NULL", "'variety', 8, NULL", "'machine', 6, NULL"});
    row("each is looked at by itself",
        "INSERT INTO PC_ProductConfig VALUES(2, 'AHL'), (3, 'Mais'), (4, 'Soja'), (5, 'Raps');"
        "INSERT INTO PC_MixToProductConfigBridge VALUES(7, 2), (NULL, 4);"
        "INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(8, 3), (8, 2), (NULL, 5)",
        {"'configuration', 2, NULL",
         "'configuration', 3, NULL",
         "'mix', 7, 2",
         "'variety', 8, 3",
         "'variety', 8, 2"});
}

void IntegrityCheckTest::orphanedConfigurationsAreRemoved()
{
    QFETCH(QByteArray, setUp);
    QFETCH(QStringList, rows);
    device->recordVersion(1);
    device->sql(setUp);

    QCOMPARE(check(), passed);

    COMPARE_LINES(device->rows(readProductTables), rows);
}

void IntegrityCheckTest::failedRemovalStopsNothing_data()
{
    QTest::addColumn<QByteArray>("setUp");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QByteArray>("query");
    QTest::addColumn<QStringList>("rows");

    const auto row = [](const char *name,
                        const QByteArray &setUp,
                        const QString &log,
                        const QByteArray &query,
                        const QStringList &rows) {
        QTest::newRow(name)
            << "INSERT INTO PC_ProductConfig VALUES(1, 'Kalk'), (2, 'AHL');"
               "INSERT INTO PC_MixToProductConfigBridge VALUES(7, 2), (7, 9);"
               "INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(8, 2), (8, 9);" +
                   setUp
            << log << query << rows;
    };
    const auto refuse = [](const QByteArray &table) {
        return "CREATE TRIGGER keep" + table + " BEFORE DELETE ON " + table +
               " BEGIN SELECT RAISE(ABORT, 'refused'); END;";
    };

    row("configurations are not removed",
        refuse("PC_ProductConfig"),
        failure1 + "refused\n",
        readProductTables,
        {"'configuration', 1, NULL", "'configuration', 2, NULL", "'mix', 7, 2", "'variety', 8, 2"});
    row("rows of mixes are not removed",
        refuse("PC_MixToProductConfigBridge"),
        failure2 + "refused\n",
        readProductTables,
        {"'configuration', 2, NULL", "'mix', 7, 2", "'mix', 7, 9", "'variety', 8, 2"});
    row("rows of planter varieties are not removed",
        refuse("PC_PlanterVarietyToProductConfigBridge"),
        failure3 + "refused\n",
        readProductTables,
        {"'configuration', 2, NULL", "'mix', 7, 2", "'variety', 8, 2", "'variety', 8, 9"});
    row("nothing is removed",
        refuse("PC_ProductConfig") + refuse("PC_MixToProductConfigBridge") +
            refuse("PC_PlanterVarietyToProductConfigBridge"),
        everyFailure("refused"),
        readProductTables,
        {"'configuration', 1, NULL",
         "'configuration', 2, NULL",
         "'mix', 7, 2",
         "'mix', 7, 9",
         "'variety', 8, 2",
         "'variety', 8, 9"});
    row("no configurations",
        "DROP TABLE PC_ProductConfig",
        everyFailure("no such table: PC_ProductConfig"),
        "SELECT * FROM PC_MixToProductConfigBridge",
        {"7, 2", "7, 9"});
    row("no mixes",
        "DROP TABLE PC_MixToProductConfigBridge",
        failure1 + "no such table: PC_MixToProductConfigBridge\n" + failure2 +
            "no such table: PC_MixToProductConfigBridge\n",
        "SELECT * FROM PC_PlanterVarietyToProductConfigBridge",
        {"8, 2"});
    row("no planter varieties",
        "DROP TABLE PC_PlanterVarietyToProductConfigBridge",
        failure1 + "no such table: PC_PlanterVarietyToProductConfigBridge\n" + failure3 +
            "no such table: PC_PlanterVarietyToProductConfigBridge\n",
        "SELECT * FROM PC_MixToProductConfigBridge",
        {"7, 2"});
    row("no machine configurations",
        "DROP TABLE PC_ProductConfigToMachineConfigBridge",
        failure1 + "no such table: PC_ProductConfigToMachineConfigBridge\n",
        "SELECT * FROM PC_ProductConfig",
        {"1, 'Kalk'", "2, 'AHL'"});
}

void IntegrityCheckTest::failedRemovalStopsNothing()
{
    QFETCH(QByteArray, setUp);
    QFETCH(QString, log);
    QFETCH(QByteArray, query);
    QFETCH(QStringList, rows);
    device->recordVersion(1);
    device->sql(setUp);

    QCOMPARE(check(), passed + log);

    COMPARE_LINES(device->rows(query), rows);
}

void IntegrityCheckTest::statementsRunInTheirOrder()
{
    device->recordVersion(1);
    device->sql(
        "CREATE TABLE parents (id INTEGER PRIMARY KEY);"
        "CREATE TABLE children (id INTEGER PRIMARY KEY, parentId INTEGER REFERENCES parents(id));"
        "INSERT INTO children VALUES(5, 1)");
    DatabaseMigrator &migrator = device->start();
    QStringList statements;
    const QVariant handle = QSqlDatabase::database().driver()->handle();
    sqlite3_trace_v2(
        *static_cast<sqlite3 *const *>(handle.constData()),
        SQLITE_TRACE_STMT,
        [](unsigned, void *list, void *, void *text) {
            *static_cast<QStringList *>(list) << static_cast<const char *>(text);
            return 0;
        },
        &statements);

    migrator.checkDatabaseIntegrity();

    COMPARE_LINES(
        statements,
        QStringList(
            {"PRAGMA foreign_key_check;",
             "DELETE FROM children WHERE rowid=5",
             "PRAGMA integrity_check;",
             "DELETE FROM PC_ProductConfig WHERE id NOT IN    (SELECT ProductConfigId FROM "
             "PC_MixToProductConfigBridge INNER JOIN PC_ProductConfig     ON "
             "PC_ProductConfig.id=PC_MixToProductConfigBridge.productConfigId AND "
             "PC_MixToProductConfigBridge.mixId IS NOT NULL    UNION    SELECT "
             "ProductConfigId FROM PC_PlanterVarietyToProductConfigBridge INNER JOIN "
             "PC_ProductConfig    ON "
             "PC_ProductConfig.id=PC_PlanterVarietyToProductConfigBridge.productConfigId AND "
             "PC_PlanterVarietyToProductConfigBridge.varietyId IS NOT NULL    UNION    SELECT "
             "activeProductConfigId FROM PC_ProductConfigToMachineConfigBridge INNER JOIN "
             "PC_ProductConfig    ON "
             "PC_ProductConfig.id=PC_ProductConfigToMachineConfigBridge.activeProductConfigId "
             "AND PC_ProductConfigToMachineConfigBridge.machineConfigId IS NOT NULL    );",
             "DELETE FROM PC_MixToProductConfigBridge WHERE productConfigId IN(SELECT "
             "PC_MixToProductConfigBridge.productConfigId FROM PC_MixToProductConfigBridge "
             "WHERE PC_MixToProductConfigBridge.productConfigId NOT IN     ( SELECT id FROM "
             "PC_ProductConfig ));",
             "DELETE FROM PC_PlanterVarietyToProductConfigBridge WHERE productConfigId "
             "IN(SELECT PC_PlanterVarietyToProductConfigBridge.productConfigId FROM "
             "PC_PlanterVarietyToProductConfigBridge WHERE "
             "PC_PlanterVarietyToProductConfigBridge.productConfigId NOT IN    (SELECT id "
             "FROM PC_ProductConfig));"}));
}

void IntegrityCheckTest::damageIsReportedInOneLine_data()
{
    QTest::addColumn<QByteArray>("setUp");
    QTest::addColumn<QByteArray>("table");
    QTest::addColumn<int>("leaf");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QByteArray>("query");
    QTest::addColumn<QStringList>("rows");

    const auto row = [](const char *name,
                        const QByteArray &setUp,
                        const QByteArray &table,
                        int leaf,
                        const QString &log,
                        const QByteArray &query,
                        const QStringList &rows) {
        QTest::newRow(name) << setUp << table << leaf << log << query << rows;
    };
    row("an index that does not agree with its table",
        wrongIndex,
        "",
        0,
        failed,
        "SELECT * FROM samples",
        {"1, 'a', 10", "2, 'b', 20", "3, 'c', 30"});
    row("a table that no stage reads",
        "CREATE TABLE samples (place TEXT);INSERT INTO samples VALUES('a')",
        "samples",
        0,
        failed,
        "SELECT * FROM PC_ProductConfig",
        {});
    row("a table with a broken row in front of the damage",
        manyChildren,
        "children",
        3,
        failed,
        "SELECT id FROM children WHERE id IN (4, 5, 6, 399, 400, 401)",
        {"4", "6", "399", "400", "401"});
    row("a table with a broken row behind the damage",
        manyChildren + "UPDATE children SET parentId = 1 WHERE id = 5",
        "children",
        3,
        "database disk image is malformed\n" + failed,
        "SELECT id FROM children WHERE id IN (4, 5, 6, 399, 400, 401)",
        {"4", "5", "6", "399", "400", "401"});
    row("the product configurations",
        "INSERT INTO PC_MixToProductConfigBridge VALUES(7, 1);"
        "INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(8, 1)",
        "PC_ProductConfig",
        0,
        failed + everyFailure("database disk image is malformed"),
        "SELECT * FROM PC_MixToProductConfigBridge",
        {"7, 1"});
}

void IntegrityCheckTest::damageIsReportedInOneLine()
{
    QFETCH(QByteArray, setUp);
    QFETCH(QByteArray, table);
    QFETCH(int, leaf);
    QFETCH(QByteArray, query);
    QFETCH(QStringList, rows);
    device->recordVersion(1);
    device->sql(setUp);
    if (!table.isEmpty()) {
        device->overwriteLeaf(table, leaf);
    }

    QTEST(check(), "log");

    COMPARE_LINES(device->rows(query), rows);
}

void IntegrityCheckTest::rowThatComesAgainAndAgainEndsTheRepair()
{
    // A toy holds on to row 5, which is there twice. A removal that fails leads the check, when it
    // has come to the second one, back to the first.
    device->recordVersion(1);
    device->sql(manyChildren);
    device->sql("CREATE TABLE toys (id INTEGER PRIMARY KEY, "
                "childId INTEGER REFERENCES children(id));"
                "INSERT INTO toys VALUES(1, 5)");
    device->overwriteLeaf("children", 2, 0);

    QCOMPARE(check(), "FOREIGN KEY constraint failed\n" + failed);

    COMPARE_LINES(device->rows("SELECT * FROM toys"), QStringList("1, 5"));
}

void IntegrityCheckTest::fileThatIsNoDatabaseDoesNotStopTheRun_data()
{
    QTest::addColumn<int>("kept");
    QTest::addColumn<QByteArray>("appended");
    QTest::addColumn<QString>("error");

    QTest::newRow("a text") << 0 << QByteArray("field computer\n").repeated(1000)
                            << "file is not a database";
    QTest::newRow("a database that was cut off")
        << 3 * 4096 << QByteArray() << "database disk image is malformed";
}

void IntegrityCheckTest::fileThatIsNoDatabaseDoesNotStopTheRun()
{
    QFETCH(int, kept);
    QFETCH(QByteArray, appended);
    QFETCH(QString, error);
    device->recordVersion(1);
    const QByteArray file = device->readFile(ScratchDevice::databasePath);
    device->writeFile(ScratchDevice::databasePath, file.left(kept) + appended);
    DatabaseMigrator &migrator = device->start({"1"});
    device->takeLog();

    migrator.runMigration();

    QCOMPARE(
        device->takeLog(),
        error + "\n" + everyFailure(error) +
            "\n*****Updating version in DB to: 0 with software version: \n" + error +
            " Unable to execute statement\n" + error +
            " Unable to execute statement\n"
            "Query for grower displaynames failed\n");
    QVERIFY(device->readFile(ScratchDevice::databasePath) == file.left(kept) + appended);
}

void IntegrityCheckTest::missingStepIsAppliedAgain()
{
    device->recordVersion(2);
    device->sql(settingsOfVersion1);

    QCOMPARE(check(), passed + reapplied2);

    QCOMPARE(device->createText("productControl_productSettings"), QString(tableOfVersion2));
    COMPARE_LINES(
        device->rows(readSettings), QStringList({"'p1', 'Kalk', 1200.5, 1, 40.0, 0.5, 12.25, 0"}));
    QCOMPARE(device->createText("productControl_productSettings_old"), QString());
}

void IntegrityCheckTest::reappliedStepThatFailsStopsNothing()
{
    device->recordVersion(2);
    device->sql(settingsOfVersion1);
    device->sql("CREATE TABLE productControl_productSettings_old (productId TEXT)");
    const QStringList before = device->dump();
    DatabaseMigrator &migrator = device->start();
    device->takeLog();

    migrator.checkDatabaseIntegrity();

    QCOMPARE(
        device->takeLog(),
        passed + "Corruption detected: applying update to db for version 2\n"
                 "The ALTER TABLE RENAME query in updateToVersion2() failed!  The query error was: "
                 "there is already another table or index with this name: "
                 "productControl_productSettings_old\n");
    QCOMPARE(migrator.currentVersion(), 2);
    COMPARE_LINES(device->dump(), before);
}

void IntegrityCheckTest::versionIsSetBackAfterwards()
{
    device->recordVersion(3);
    device->sql(settingsOfVersion1);
    device->sql("CREATE TABLE ombrixMasterSettings (machineConfigId INTEGER PRIMARY KEY, "
                "ombrixEnabled BOOLEAN DEFAULT 1)");
    DatabaseMigrator &migrator = device->start();
    device->takeLog();

    migrator.checkDatabaseIntegrity();

    QCOMPARE(device->takeLog(), passed + reapplied2);
    QCOMPARE(migrator.currentVersion(), 3);
}

void IntegrityCheckTest::laterVersionsAreNotAsked_data()
{
    QTest::addColumn<int>("version");

    for (const int version : {std::numeric_limits<int>::min(), -1, 0, 1}) {
        QTest::addRow("version %d", version) << version;
    }
}

void IntegrityCheckTest::laterVersionsAreNotAsked()
{
    QFETCH(int, version);
    device->recordVersion(version);
    device->sql(settingsOfVersion1);
    const QStringList before = device->dump();

    QCOMPARE(check(), passed);

    COMPARE_LINES(device->dump(), before);
}

void IntegrityCheckTest::absurdVersionEndsAsFastAsTheNewest()
{
    QStringList logs;
    for (const int version : {34, 35, std::numeric_limits<int>::max()}) {
        device = std::make_unique<ScratchDevice>();
        device->recordVersion(version);
        device->sql(settingsOfVersion1);
        DatabaseMigrator &migrator = device->start();
        device->takeLog();
        QElapsedTimer time;
        time.start();

        migrator.checkDatabaseIntegrity();

        QVERIFY2(time.elapsed() < 10000, QByteArray::number(time.elapsed()));
        QCOMPARE(migrator.currentVersion(), version);
        logs << device->takeLog();
    }
    QVERIFY2(logs[0].contains(reapplied2), qPrintable(logs[0]));
    QCOMPARE(logs[1], logs[0]);
    QCOMPARE(logs[2], logs[0]);
}

void IntegrityCheckTest::everyStageRunsWhateverTheOthersGave()
{
    device->recordVersion(2);
    device->sql(settingsOfVersion1);
    device->sql(wrongIndex);
    device->sql("CREATE TABLE names (name TEXT);"
                "CREATE TABLE toys (id INTEGER PRIMARY KEY, name TEXT REFERENCES names(name));"
                "DROP TABLE PC_ProductConfig");

    QCOMPARE(
        check(),
        "foreign key mismatch - \"toys\" referencing \"names\"\n" + failed +
            everyFailure("no such table: PC_ProductConfig") + reapplied2);

    // The integrity check's query is over by then: it would lock the table that is dropped last.
    QCOMPARE(device->createText("productControl_productSettings"), QString(tableOfVersion2));
    QCOMPARE(device->createText("productControl_productSettings_old"), QString());
}

void IntegrityCheckTest::databaseThatIsNotOpen()
{
    device->recordVersion(2);
    device->sql(settingsOfVersion1);
    const QStringList before = device->dump();
    DatabaseMigrator &migrator = device->start();
    device->takeLog();
    QSqlDatabase::database().close();

    migrator.checkDatabaseIntegrity();

    QCOMPARE(device->takeLog(), "\n" + everyFailure(""));
    QCOMPARE(migrator.currentVersion(), 2);
    COMPARE_LINES(device->dump(), before);
}

void IntegrityCheckTest::missingDatabaseDirectory()
{
    QVERIFY(QDir("/app/databases").removeRecursively());
    DatabaseMigrator &migrator = device->start();

    migrator.checkDatabaseIntegrity();

    QCOMPARE(migrator.currentVersion(), 0);
    QVERIFY(!QFileInfo::exists("/app/databases"));
}

QTEST_APPLESS_MAIN(IntegrityCheckTest)
#include "integrity_check_test.moc"

#include "app/integrity_test.h"

#include <QDir>
#include <QElapsedTimer>
#include <QSqlDatabase>
#include <QSqlDriver>

#include <sqlite3.h>

#include <limits>

namespace
{
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

/// An index that does not match its table: it lacks every row.
const char *const wrongIndex =
    "CREATE TABLE samples (id INTEGER PRIMARY KEY, place TEXT, depth INTEGER);"
    "INSERT INTO samples VALUES(1, 'a', 10), (2, 'b', 20), (3, 'c', 30);"
    "CREATE INDEX samplesByPlace ON samples (place);"
    "PRAGMA writable_schema = ON;"
    "UPDATE sqlite_master SET sql = 'CREATE INDEX samplesByPlace ON samples (depth)' "
    "WHERE name = 'samplesByPlace';";

const QString reapplied2 = "Corruption detected: applying update to db for version 2\n"
                           "Database migration to version 2 completed successfully!\n";
} // namespace

class IntegrityCheckTest : public IntegrityTest
{
    Q_OBJECT

private slots:
    void healthyDatabaseStaysAsItIs_data();
    void healthyDatabaseStaysAsItIs();
    void statementsRunInTheirOrder();
    void damageIsReportedInOneLine_data();
    void damageIsReportedInOneLine();
    void fileThatIsNoDatabaseDoesNotStopTheRun_data();
    void fileThatIsNoDatabaseDoesNotStopTheRun();
    void missingStepIsAppliedAgain();
    void reappliedStepThatFailsStopsNothing();
    void versionIsSetBackAfterwards();
    void laterVersionsAreNotProbed_data();
    void laterVersionsAreNotProbed();
    void impossibleVersionAsksEveryProbeOnce();
    void everyStageRunsAfterFailuresOfOthers();
    void databaseThatIsNotOpen();
    void missingDatabaseDirectory();
};

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
    const auto row = addColumns<QByteArray, QByteArray, int, QString, QByteArray, QStringList>(
        "setUp", "table", "leaf", "log", "query", "rows");
    row("an index that does not match its table",
        wrongIndex,
        "",
        0,
        failed,
        "SELECT * FROM samples",
        {"1, 'a', 10", "2, 'b', 20", "3, 'c', 30"});
    row("a damaged table that no stage reads",
        "CREATE TABLE samples (place TEXT);INSERT INTO samples VALUES('a')",
        "samples",
        0,
        failed,
        "SELECT * FROM PC_ProductConfig",
        {});
    row("a table with a broken row before the damage",
        manyChildren,
        "children",
        3,
        failed,
        "SELECT id FROM children WHERE id IN (4, 5, 6, 399, 400, 401)",
        {"4", "6", "399", "400", "401"});
    row("a table with a broken row after the damage",
        manyChildren + "UPDATE children SET parentId = 1 WHERE id = 5",
        "children",
        3,
        "database disk image is malformed\n" + failed,
        "SELECT id FROM children WHERE id IN (4, 5, 6, 399, 400, 401)",
        {"4", "5", "6", "399", "400", "401"});
    row("the damaged product configurations",
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

void IntegrityCheckTest::fileThatIsNoDatabaseDoesNotStopTheRun_data()
{
    const auto row = addColumns<int, QByteArray, QString>("kept", "appended", "error");
    row("a text", 0, QByteArray("field computer\n").repeated(1000), "file is not a database");
    row("a truncated database", 3 * 4096, "", "database disk image is malformed");
}

void IntegrityCheckTest::fileThatIsNoDatabaseDoesNotStopTheRun()
{
    QFETCH(int, kept);
    QFETCH(QByteArray, appended);
    QFETCH(QString, error);
    device->recordVersion(1);
    const QByteArray file = device->readFile(ScratchDevice::databasePath);
    device->writeFile(ScratchDevice::databasePath, file.left(kept) + appended);
    DatabaseMigrator &migrator = start({"1"});

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
    DatabaseMigrator &migrator = start();

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
    DatabaseMigrator &migrator = start();

    migrator.checkDatabaseIntegrity();

    QCOMPARE(device->takeLog(), passed + reapplied2);
    QCOMPARE(migrator.currentVersion(), 3);
}

void IntegrityCheckTest::laterVersionsAreNotProbed_data()
{
    QTest::addColumn<int>("version");

    for (const int version : {std::numeric_limits<int>::min(), -1, 0, 1}) {
        QTest::addRow("version %d", version) << version;
    }
}

void IntegrityCheckTest::laterVersionsAreNotProbed()
{
    QFETCH(int, version);
    device->recordVersion(version);
    device->sql(settingsOfVersion1);
    const QStringList before = device->dump();

    QCOMPARE(check(), passed);

    COMPARE_LINES(device->dump(), before);
}

void IntegrityCheckTest::impossibleVersionAsksEveryProbeOnce()
{
    QStringList logs;
    for (const int version : {1'000, std::numeric_limits<int>::max()}) {
        device = std::make_unique<ScratchDevice>();
        device->recordVersion(version);
        device->sql(settingsOfVersion1);
        DatabaseMigrator &migrator = start();
        QElapsedTimer time;
        time.start();

        migrator.checkDatabaseIntegrity();

        QVERIFY2(time.elapsed() < 10000, QByteArray::number(time.elapsed()));
        QCOMPARE(migrator.currentVersion(), version);
        logs << device->takeLog();
    }
    QVERIFY2(logs[0].contains(reapplied2), qPrintable(logs[0]));
    QCOMPARE(logs[1], logs[0]);
}

void IntegrityCheckTest::everyStageRunsAfterFailuresOfOthers()
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

    // The check's query has ended, so the table that is dropped last is not locked.
    QCOMPARE(device->createText("productControl_productSettings"), QString(tableOfVersion2));
    QCOMPARE(device->createText("productControl_productSettings_old"), QString());
}

void IntegrityCheckTest::databaseThatIsNotOpen()
{
    device->recordVersion(2);
    device->sql(settingsOfVersion1);
    const QStringList before = device->dump();
    DatabaseMigrator &migrator = start();
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

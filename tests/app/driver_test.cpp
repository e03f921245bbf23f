#include "support/device_test.h"

#include <limits>

namespace
{
const int smallest = std::numeric_limits<int>::min();
const int largest = std::numeric_limits<int>::max();
/// Higher than any version.
const int newest = 1000;

// The tables that every run reads. Without them a run would log errors.
const QByteArray maintainedTables =
    "CREATE TABLE PC_ProductConfig (id INTEGER PRIMARY KEY);"
    "CREATE TABLE PC_MixToProductConfigBridge (mixId INTEGER, productConfigId INTEGER);"
    "CREATE TABLE PC_PlanterVarietyToProductConfigBridge "
    "(varietyId INTEGER, productConfigId INTEGER);"
    "CREATE TABLE PC_ProductConfigToMachineConfigBridge "
    "(activeProductConfigId INTEGER, machineConfigId INTEGER);"
    "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT);"
    "CREATE TABLE farms (id INTEGER PRIMARY KEY, displayName TEXT, growerId INTEGER);"
    "CREATE TABLE fields (id INTEGER PRIMARY KEY, displayName TEXT, farmId INTEGER);";

const QByteArray settingsTable =
    "CREATE TABLE MC_MachineConfig (id INTEGER PRIMARY KEY);"
    "CREATE TABLE productControl_productSettings (productId, displayName, tankCapacity, "
    "machineConfigId, maxAchievableRate, timeToApplication, lastAppliedRate";
const QByteArray settingsAtVersion1 = settingsTable + ");";
const QByteArray settingsAtVersion2 = settingsTable + ", calibratedInUsUnits);";
} // namespace

class DriverTest : public DeviceTest
{
    Q_OBJECT

private slots:
    void runMigration_data();
    void runMigration();
    void runsItsStagesInOrder();
    void walksBetweenAnyVersions_data();
    void walksBetweenAnyVersions();
    void walksNowhere();
    void updateDatabaseVersion_data();
    void updateDatabaseVersion();

private:
    void recordVersions(int main, int alternate, const QByteArray &mirelVersion);
    QStringList versions() { return device->rows("SELECT * FROM tableVersion"); }
    QStringList walk(int from, int to);
};

void DriverTest::recordVersions(int main, int alternate, const QByteArray &mirelVersion)
{
    device->sql(
        "CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, version INTEGER, MirelVersion TEXT);"
        "INSERT INTO tableVersion VALUES('mainSqlDb', " +
        QByteArray::number(main) + ", " + mirelVersion + "), ('altSqlDb', " +
        QByteArray::number(alternate) + ", NULL);");
}

void DriverTest::runMigration_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<int>("main");
    QTest::addColumn<int>("alternate");
    QTest::addColumn<QByteArray>("mirelVersion");
    QTest::addColumn<QByteArray>("softwareVersion");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QStringList>("after");

    QTest::newRow("up to date: nothing is written")
        << settingsAtVersion2 << 2 << 7 << QByteArray("'1.2.3'") << QByteArray("1.2.3\n")
        << QStringList("2") << "Integrity check passed.\n"
        << QStringList({"'mainSqlDb', 2, '1.2.3'", "'altSqlDb', 7, NULL"});
    QTest::newRow("up to date, neither the file nor the database has a software version")
        << settingsAtVersion2 << 2 << 7 << QByteArray("NULL") << QByteArray() << QStringList("2")
        << "Integrity check passed.\n"
        << QStringList({"'mainSqlDb', 2, NULL", "'altSqlDb', 7, NULL"});
    QTest::newRow("another software version: the versions are written")
        << settingsAtVersion2 << 2 << 7 << QByteArray("'1.2.3'") << QByteArray("1.2.4\n")
        << QStringList("2")
        << "Integrity check passed.\n"
           "\n*****Updating version in DB to: 2 with software version: 1.2.4\n"
        << QStringList({"'mainSqlDb', 2, '1.2.4'", "'altSqlDb', 2, NULL"});
    QTest::newRow("a software version that differs in letter case is another one")
        << settingsAtVersion2 << 2 << 7 << QByteArray("'1.2.3a'") << QByteArray("1.2.3A\n")
        << QStringList("2")
        << "Integrity check passed.\n"
           "\n*****Updating version in DB to: 2 with software version: 1.2.3A\n"
        << QStringList({"'mainSqlDb', 2, '1.2.3A'", "'altSqlDb', 2, NULL"});
    QTest::newRow("forward") << settingsAtVersion1 << 1 << 7 << QByteArray("'1.2.3'")
                             << QByteArray("1.2.3\n") << QStringList("2")
                             << "Integrity check passed.\n"
                                "Database migration to version 2 completed successfully!\n"
                                "\n*****Updating version in DB to: 2 with software version: 1.2.3\n"
                             << QStringList({"'mainSqlDb', 2, '1.2.3'", "'altSqlDb', 1, NULL"});
    QTest::newRow("forward: the step fails, the version reached is written")
        << QByteArray() << 1 << 7 << QByteArray("'1.2.3'") << QByteArray("1.2.4\n")
        << QStringList("2")
        << "Integrity check passed.\n"
           "The ALTER TABLE RENAME query in updateToVersion2() failed!  The query error was: "
           "no such table: productControl_productSettings\n"
           "\n*****Updating version in DB to: 1 with software version: 1.2.4\n"
        << QStringList({"'mainSqlDb', 1, '1.2.4'", "'altSqlDb', 1, NULL"});
    QTest::newRow("backward")
        << settingsAtVersion2 << 2 << 7 << QByteArray("'1.2.3'") << QByteArray("1.2.3\n")
        << QStringList("1")
        << "Integrity check passed.\n"
           "\n*****Updating version in DB to: 1 with software version: 1.2.3\n"
        << QStringList({"'mainSqlDb', 1, '1.2.3'", "'altSqlDb', 2, NULL"});
    QTest::newRow("backward below the oldest version")
        << settingsAtVersion2 << 2 << 7 << QByteArray("'1.2.3'") << QByteArray("1.2.3\n")
        << QStringList("-5")
        << "Integrity check passed.\n"
           "\n*****Updating version in DB to: 1 with software version: 1.2.3\n"
        << QStringList({"'mainSqlDb', 1, '1.2.3'", "'altSqlDb', 2, NULL"});
    QTest::newRow("backward: the step fails, the version reached is written")
        << QByteArray() << 2 << 7 << QByteArray("'1.2.3'") << QByteArray("1.2.4\n")
        << QStringList("1")
        << "Integrity check passed.\n"
           "The ALTER TABLE RENAME query in revertFromVersion2() failed!  The query error was: "
           "no such table: productControl_productSettings\n"
           "\n*****Updating version in DB to: 2 with software version: 1.2.4\n"
        << QStringList({"'mainSqlDb', 2, '1.2.4'", "'altSqlDb', 2, NULL"});
    QTest::newRow(
        "without an argument back to the alternate version: no software version is recorded")
        << settingsAtVersion2 << 2 << 1 << QByteArray("'1.2.3'") << QByteArray("1.2.3\n")
        << QStringList()
        << "Integrity check passed.\n"
           "\n*****Updating version in DB to: 1 with software version: \n"
        << QStringList({"'mainSqlDb', 1, ''", "'altSqlDb', 2, NULL"});
    QTest::newRow("without an argument forward to the alternate version")
        << settingsAtVersion1 << 1 << 2 << QByteArray("''") << QByteArray("1.2.3\n")
        << QStringList()
        << "Integrity check passed.\n"
           "Database migration to version 2 completed successfully!\n"
           "\n*****Updating version in DB to: 2 with software version: \n"
        << QStringList({"'mainSqlDb', 2, ''", "'altSqlDb', 1, NULL"});
    QTest::newRow("without an argument the versions are written even when all are equal")
        << settingsAtVersion2 << 2 << 2 << QByteArray("'1.2.3'") << QByteArray("1.2.3\n")
        << QStringList()
        << "Integrity check passed.\n"
           "\n*****Updating version in DB to: 2 with software version: \n"
        << QStringList({"'mainSqlDb', 2, ''", "'altSqlDb', 2, NULL"});
    QTest::newRow("no version between has a step")
        << settingsAtVersion1 << -3 << 7 << QByteArray("'1.2.3'") << QByteArray("1.2.3\n")
        << QStringList("1")
        << "Integrity check passed.\n"
           "\n*****Updating version in DB to: -3 with software version: 1.2.3\n"
        << QStringList({"'mainSqlDb', -3, '1.2.3'", "'altSqlDb', -3, NULL"});
}

void DriverTest::runMigration()
{
    QFETCH(QByteArray, before);
    QFETCH(int, main);
    QFETCH(int, alternate);
    QFETCH(QByteArray, mirelVersion);
    QFETCH(QByteArray, softwareVersion);
    QFETCH(QStringList, arguments);
    device->sql(maintainedTables + before);
    recordVersions(main, alternate, mirelVersion);
    ScratchDevice::writeFile(ScratchDevice::softwareVersionPath, softwareVersion);
    DatabaseMigrator &migrator = start(arguments);

    migrator.runMigration();

    QTEST(device->takeLog(), "log");
    QTEST(versions(), "after");
}

void DriverTest::runsItsStagesInOrder()
{
    device->sql(
        maintainedTables + settingsAtVersion1 +
        "CREATE TABLE files (id INTEGER PRIMARY KEY, uuid, displayName, p, q, typeId, r, growerId, "
        "farmId, fieldId);"
        "INSERT INTO files VALUES(1, 'a', 'Map', 0, 0, 3, 0, 1, 1, 1),"
        "(2, 'b', 'Map', 0, 0, 3, 0, 1, 1, 1);"
        "CREATE TRIGGER keepFile BEFORE UPDATE ON files BEGIN SELECT RAISE(ABORT, 'refused'); END;"
        "CREATE TRIGGER keepGrower BEFORE UPDATE ON growers "
        "BEGIN SELECT RAISE(ABORT, 'refused'); END;");
    recordVersions(1, 1, "''");
    ScratchDevice::writeFile(
        "/app/refMachines.sql",
        "INSERT INTO growers VALUES(1, 'North'); INSERT INTO machines VALUES(1)");
    ScratchDevice::writeFile(
        "/app/refProducts.sql",
        "INSERT INTO growers VALUES(2, 'North'); INSERT INTO products VALUES(1)");
    DatabaseMigrator &migrator = start({"2"});

    migrator.runMigration();

    QCOMPARE(
        device->takeLog(),
        QString("Integrity check passed.\n"
                "Database migration to version 2 completed successfully!\n"
                "\n*****Updating version in DB to: 2 with software version: \n"
                "no such table: machines Unable to execute statement\n"
                "no such table: products Unable to execute statement\n"
                "Failed to rename file Map_2\n"
                "Failed to rename file Map_2\n"
                "Failed to rename grower: North\n"
                "Failed to rename grower: North\n"));
}

/// Walks on a new database.
/// @return the version reached, the log and the database after the walk
QStringList DriverTest::walk(int from, int to)
{
    device = std::make_unique<ScratchDevice>();
    device->sql(from < to ? settingsAtVersion1 : settingsAtVersion2);
    device->sql("INSERT INTO MC_MachineConfig VALUES(1)");
    const QByteArray row =
        "INSERT INTO productControl_productSettings VALUES('p', 'A', 1, 1, 1, 1, 1";
    device->sql(row + (from < to ? ")" : ", 1)"));
    recordVersions(from, from, "''");
    DatabaseMigrator &migrator = start({QString::number(to)});

    from < to ? migrator.migrateForward() : migrator.migrateBackward();

    device->sql("DELETE FROM tableVersion");
    return QStringList({QString::number(migrator.currentVersion()), device->takeLog()}) +
           device->dump();
}

void DriverTest::walksBetweenAnyVersions_data()
{
    const auto row = addColumns<int, int, int, int>("from", "to", "sameFrom", "sameTo");
    row("forward from below the oldest version", -5, newest, 1, newest);
    row("forward to the largest number", 1, largest, 1, newest);
    row("forward through all numbers", smallest, largest, 1, newest);
    row("backward from the largest number", largest, 1, newest, 1);
    row("backward to below the oldest version", newest, -5, newest, 1);
    row("backward through all numbers", largest, smallest, newest, 1);
}

void DriverTest::walksBetweenAnyVersions()
{
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(int, sameFrom);
    QFETCH(int, sameTo);

    const QStringList expected = walk(sameFrom, sameTo);
    COMPARE_LINES(walk(from, to), expected);
}

void DriverTest::walksNowhere()
{
    device->sql(settingsAtVersion2);
    recordVersions(2, 2, "''");
    DatabaseMigrator &migrator = start({"2"});
    const QStringList before = device->dump();

    migrator.migrateForward();
    migrator.migrateBackward();

    QCOMPARE(device->takeLog(), QString());
    QCOMPARE(migrator.currentVersion(), 2);
    COMPARE_LINES(device->dump(), before);
}

void DriverTest::updateDatabaseVersion_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<int>("version");
    QTest::addColumn<QByteArray>("softwareVersion");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QStringList>("after");

    const QByteArray refuseMain =
        "CREATE TRIGGER keepMain BEFORE UPDATE ON tableVersion WHEN NEW.tableName = 'mainSqlDb' "
        "BEGIN SELECT RAISE(ABORT, 'refused main'); END;";
    const QByteArray refuseAlternate =
        "CREATE TRIGGER keepAlternate BEFORE UPDATE ON tableVersion "
        "WHEN NEW.tableName = 'altSqlDb' BEGIN SELECT RAISE(ABORT, 'refused alternate'); END;";

    QTest::newRow("both rows change, other rows stay")
        << QByteArray("INSERT INTO tableVersion VALUES('otherDb', 9, 'x');") << 3
        << QByteArray("1.2.3\n")
        << "\n*****Updating version in DB to: 3 with software version: 1.2.3\n"
        << QStringList({"'mainSqlDb', 3, '1.2.3'", "'altSqlDb', 7, NULL", "'otherDb', 9, 'x'"});
    QTest::newRow("the largest version")
        << QByteArray() << largest << QByteArray("1.2.3\n")
        << "\n*****Updating version in DB to: 2147483647 with software version: 1.2.3\n"
        << QStringList({"'mainSqlDb', 2147483647, '1.2.3'", "'altSqlDb', 7, NULL"});
    QTest::newRow("the smallest version")
        << QByteArray() << smallest << QByteArray("1.2.3\n")
        << "\n*****Updating version in DB to: -2147483648 with software version: 1.2.3\n"
        << QStringList({"'mainSqlDb', -2147483648, '1.2.3'", "'altSqlDb', 7, NULL"});
    QTest::newRow("markers in the software version are data")
        << QByteArray() << 3 << QByteArray("%1.%2%3\n")
        << "\n*****Updating version in DB to: 3 with software version: %1.%2%3\n"
        << QStringList({"'mainSqlDb', 3, '%1.%2%3'", "'altSqlDb', 7, NULL"});
    QTest::newRow("a quote in the software version: only the second statement runs")
        << QByteArray() << 3 << QByteArray("1.2'beta\n")
        << "\n*****Updating version in DB to: 3 with software version: 1.2'beta\n"
           "near \"beta\": syntax error Unable to execute statement\n"
        << QStringList({"'mainSqlDb', 8, '1.0'", "'altSqlDb', 7, NULL"});
    QTest::newRow("a quote in the software version ends the text")
        << QByteArray() << 3 << QByteArray("' || version || '\n")
        << "\n*****Updating version in DB to: 3 with software version: ' || version || '\n"
        << QStringList({"'mainSqlDb', 3, '8'", "'altSqlDb', 7, NULL"});
    QTest::newRow("the first statement fails")
        << refuseMain << 3 << QByteArray("1.2.3\n")
        << "\n*****Updating version in DB to: 3 with software version: 1.2.3\n"
           "refused main Unable to fetch row\n"
        << QStringList({"'mainSqlDb', 8, '1.0'", "'altSqlDb', 7, NULL"});
    QTest::newRow("the second statement fails")
        << refuseAlternate << 3 << QByteArray("1.2.3\n")
        << "\n*****Updating version in DB to: 3 with software version: 1.2.3\n"
           "refused alternate Unable to fetch row\n"
        << QStringList({"'mainSqlDb', 3, '1.2.3'", "'altSqlDb', 8, NULL"});
    QTest::newRow("both statements fail")
        << refuseMain + refuseAlternate << 3 << QByteArray("1.2.3\n")
        << "\n*****Updating version in DB to: 3 with software version: 1.2.3\n"
           "refused main Unable to fetch row\n"
           "refused alternate Unable to fetch row\n"
        << QStringList({"'mainSqlDb', 8, '1.0'", "'altSqlDb', 8, NULL"});
    QTest::newRow("there is no row to update")
        << QByteArray("DELETE FROM tableVersion;") << 3 << QByteArray("1.2.3\n")
        << "\n*****Updating version in DB to: 3 with software version: 1.2.3\n"
        << QStringList();
}

void DriverTest::updateDatabaseVersion()
{
    QFETCH(QByteArray, before);
    QFETCH(int, version);
    QFETCH(QByteArray, softwareVersion);
    recordVersions(version, 7, "''");
    ScratchDevice::writeFile(ScratchDevice::softwareVersionPath, softwareVersion);
    DatabaseMigrator &migrator = start({"2"});
    // Both rows change after construction has read them.
    device->sql("UPDATE tableVersion SET version = 8;"
                "UPDATE tableVersion SET MirelVersion = '1.0' WHERE tableName = 'mainSqlDb';");
    device->sql(before);

    migrator.updateDatabaseVersion();

    QTEST(device->takeLog(), "log");
    QTEST(versions(), "after");
}

QTEST_APPLESS_MAIN(DriverTest)
#include "driver_test.moc"

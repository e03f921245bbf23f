#include "support/scratch_device.h"

#include <QtTest>

#include <sqlite3.h>

namespace
{
const QByteArray version1Columns =
    "(productId varchar(40) primary key, displayName varchar(40), tankCapacity REAL, "
    "machineConfigId INTEGER, maxAchievableRate REAL, timeToApplication REAL, lastAppliedRate REAL, "
    "FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)";
const QByteArray version2Columns =
    "(productId varchar(40), displayName varchar(40), tankCapacity REAL, machineConfigId INTEGER, "
    "maxAchievableRate REAL, timeToApplication REAL, lastAppliedRate REAL, "
    "calibratedInUsUnits BOOLEAN DEFAULT 0, PRIMARY KEY (productId, machineConfigId),"
    "FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)";

const QByteArray create = "CREATE TABLE productControl_productSettings ";
const QByteArray createAside = "CREATE TABLE productControl_productSettings_old ";
// How the database writes the text of a table that was renamed.
const QByteArray renamedAside = "CREATE TABLE \"productControl_productSettings_old\" ";
const QByteArray renamedBack = "CREATE TABLE \"productControl_productSettings\" ";
const QByteArray insert = "INSERT INTO productControl_productSettings VALUES";

const QByteArray version1Table = create + version1Columns;
const QByteArray version2Table = create + version2Columns;
} // namespace

class Version2Test : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void updateToVersion2_data();
    void updateToVersion2();
    void updateToVersion2Fails_data();
    void updateToVersion2Fails();
    void revertFromVersion2_data();
    void revertFromVersion2();
    void revertFromVersion2Fails_data();
    void revertFromVersion2Fails();
    void rowsThatCannotBeReadAreNotLost_data();
    void rowsThatCannotBeReadAreNotLost();
    void tableAsideThatCannotBeDropped_data();
    void tableAsideThatCannotBeDropped();
    void referencesFollowTheTableAside();
    void getUpdate2Applied_data();
    void getUpdate2Applied();

private:
    /// A version that neither step sets.
    static const int otherVersion = 9;

    DatabaseMigrator &start();
    QStringList settings();
    void checkFailure(void (DatabaseMigrator::*step)());

    std::unique_ptr<ScratchDevice> device;
};

void Version2Test::init()
{
    device = std::make_unique<ScratchDevice>();
    device->recordVersion(otherVersion);
    device->sql("CREATE TABLE MC_MachineConfig (id INTEGER PRIMARY KEY);"
                "INSERT INTO MC_MachineConfig VALUES(0), (1), (2), (9007199254740993);");
}

void Version2Test::cleanup()
{
    device.reset();
}

DatabaseMigrator &Version2Test::start()
{
    DatabaseMigrator &migrator = device->start();
    device->takeLog();
    return migrator;
}

/// The settings table and the one aside, each with its CREATE text and its rows.
QStringList Version2Test::settings()
{
    QStringList lines;
    for (const QByteArray &table :
         {QByteArray("productControl_productSettings"),
          QByteArray("productControl_productSettings_old")}) {
        const QString createText = device->createText(table);
        if (!createText.isEmpty()) {
            lines << createText << device->rows("SELECT * FROM " + table);
        }
    }
    return lines;
}

void Version2Test::updateToVersion2_data()
{
    QTest::addColumn<QByteArray>("table");
    QTest::addColumn<QByteArray>("values");
    QTest::addColumn<QStringList>("rows");

    QTest::newRow("every row is copied")
        << version1Table
        << QByteArray("('p1', 'Winterweizen', 1200.5, 1, 40, 0.35, 12.25),"
                      "('p2', 'Озимая рожь', -3, 2, 0, 1, 2.5)")
        << QStringList(
               {"'p1', 'Winterweizen', 1200.5, 1, 40.0, 0.35, 12.25, 0",
                "'p2', 'Озимая рожь', -3.0, 2, 0.0, 1.0, 2.5, 0"});
    QTest::newRow("an empty table is created anew")
        << version1Table << QByteArray() << QStringList();
    QTest::newRow("reals keep six significant digits, ties away from zero")
        << version1Table
        << QByteArray("('p1', '', 1234567.89, 1, 1e-7, 0.00012345678, 123456.4),"
                      "('p2', '', 100000.5, 1, -100000.5, 200000.5, 1e300)")
        << QStringList(
               {"'p1', '', 1234570.0, 1, 1e-07, 0.000123457, 123456.0, 0",
                "'p2', '', 100001.0, 1, -100001.0, 200001.0, 1e+300, 0"});
    QTest::newRow("NULL becomes 0 and an empty text")
        << version1Table << QByteArray("(NULL, NULL, NULL, NULL, NULL, NULL, NULL)")
        << QStringList({"'', '', 0.0, 0, 0.0, 0.0, 0.0, 0"});
    QTest::newRow("a text that is no number becomes 0")
        << version1Table << QByteArray("('p1', '', 'full', 'all', '12 l', '', 'x')")
        << QStringList({"'p1', '', 0.0, 0, 0.0, 0.0, 0.0, 0"});
    QTest::newRow("a machine configuration is carried in 64 bits")
        << version1Table << QByteArray("('p1', '', 1, 9007199254740993, 2, 3, 4)")
        << QStringList({"'p1', '', 1.0, 9007199254740993, 2.0, 3.0, 4.0, 0"});
    QTest::newRow("markers in texts are data")
        << version1Table << QByteArray("('%2', '%1 %8 %%', 1, 1, 2, 3, 4)")
        << QStringList({"'%2', '%1 %8 %%', 1.0, 1, 2.0, 3.0, 4.0, 0"});
    QTest::newRow("a table of the new shape loses its calibration flags")
        << version2Table
        << QByteArray("('p1', 'A', 1, 1, 2, 3, 4, 1), ('p1', 'B', 5, 2, 6, 7, 8, 0)")
        << QStringList(
               {"'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0, 0", "'p1', 'B', 5.0, 2, 6.0, 7.0, 8.0, 0"});
    QTest::newRow("of rows that become one the last stays")
        << version2Table
        << QByteArray("('p1', 'A', 1, NULL, 2, 3, 4, 1), ('p1', 'B', 5, NULL, 6, 7, 8, 1)")
        << QStringList({"'p1', 'B', 5.0, 0, 6.0, 7.0, 8.0, 0"});
}

void Version2Test::updateToVersion2()
{
    QFETCH(QByteArray, table);
    QFETCH(QByteArray, values);
    QFETCH(QStringList, rows);
    device->sql(table);
    if (!values.isEmpty()) {
        device->sql(insert + values);
    }
    DatabaseMigrator &migrator = start();

    migrator.updateToVersion2();

    QCOMPARE(
        device->takeLog(), QString("Database migration to version 2 completed successfully!\n"));
    QCOMPARE(migrator.currentVersion(), 2);
    COMPARE_LINES(settings(), QStringList(version2Table) + rows);
}

void Version2Test::revertFromVersion2_data()
{
    QTest::addColumn<QByteArray>("table");
    QTest::addColumn<QByteArray>("values");
    QTest::addColumn<QStringList>("rows");

    QTest::newRow("every row is copied without its calibration flag")
        << version2Table
        << QByteArray("('p1', 'Winterweizen', 1200.5, 1, 40, 0.35, 12.25, 1),"
                      "('p2', 'Озимая рожь', -3, 2, 0, 1, 2.5, 0)")
        << QStringList(
               {"'p1', 'Winterweizen', 1200.5, 1, 40.0, 0.35, 12.25",
                "'p2', 'Озимая рожь', -3.0, 2, 0.0, 1.0, 2.5"});
    QTest::newRow("an empty table is created anew")
        << version2Table << QByteArray() << QStringList();
    QTest::newRow("reals keep six significant digits, ties away from zero")
        << version2Table
        << QByteArray("('p1', '', 1234567.89, 1, 1e-7, 0.00012345678, 123456.4, 0),"
                      "('p2', '', 100000.5, 1, -100000.5, 200000.5, 1e300, 0)")
        << QStringList(
               {"'p1', '', 1234570.0, 1, 1e-07, 0.000123457, 123456.0",
                "'p2', '', 100001.0, 1, -100001.0, 200001.0, 1e+300"});
    QTest::newRow("NULL becomes 0 and an empty text")
        << version2Table << QByteArray("(NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL)")
        << QStringList({"'', '', 0.0, 0, 0.0, 0.0, 0.0"});
    QTest::newRow("a text that is no number becomes 0")
        << version2Table << QByteArray("('p1', '', 'full', 'all', '12 l', '', 'x', 'yes')")
        << QStringList({"'p1', '', 0.0, 0, 0.0, 0.0, 0.0"});
    QTest::newRow("a machine configuration is carried in 64 bits")
        << version2Table << QByteArray("('p1', '', 1, 9007199254740993, 2, 3, 4, 0)")
        << QStringList({"'p1', '', 1.0, 9007199254740993, 2.0, 3.0, 4.0"});
    QTest::newRow("markers in texts are data")
        << version2Table << QByteArray("('%2', '%1 %8 %%', 1, 1, 2, 3, 4, 0)")
        << QStringList({"'%2', '%1 %8 %%', 1.0, 1, 2.0, 3.0, 4.0"});
    QTest::newRow("a table of the old shape is created anew")
        << version1Table << QByteArray("('p1', 'A', 1, 1, 2, 3, 4)")
        << QStringList({"'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0"});
    QTest::newRow("of a product's machine configurations the last stays")
        << version2Table
        << QByteArray("('p1', 'A', 1, 2, 2, 3, 4, 1), ('p2', 'C', 1, 1, 2, 3, 4, 0),"
                      "('p1', 'B', 5, 1, 6, 7, 8, 0)")
        << QStringList({"'p2', 'C', 1.0, 1, 2.0, 3.0, 4.0", "'p1', 'B', 5.0, 1, 6.0, 7.0, 8.0"});
}

void Version2Test::revertFromVersion2()
{
    QFETCH(QByteArray, table);
    QFETCH(QByteArray, values);
    QFETCH(QStringList, rows);
    device->sql(table);
    if (!values.isEmpty()) {
        device->sql(insert + values);
    }
    DatabaseMigrator &migrator = start();

    migrator.revertFromVersion2();

    QCOMPARE(device->takeLog(), QString());
    QCOMPARE(migrator.currentVersion(), 1);
    COMPARE_LINES(settings(), QStringList(version1Table) + rows);
}

void Version2Test::updateToVersion2Fails_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<int>("refusedAction");
    QTest::addColumn<QByteArray>("refusedTable");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QStringList>("after");

    const QByteArray filled =
        version1Table + ";" + insert + "('p1', 'A', 1.5, 1, 2.5, 3.5, 1234.5678)";
    const QByteArray row = "'p1', 'A', 1.5, 1, 2.5, 3.5, 1234.5678";

    QTest::newRow("there is no table")
        << QByteArray() << 0 << QByteArray()
        << QString("The ALTER TABLE RENAME query in updateToVersion2() failed!  The query error "
                   "was: no such table: productControl_productSettings\n")
        << QStringList();
    QTest::newRow("a table aside was left behind")
        << filled + ";" + createAside + "(productId)" << 0 << QByteArray()
        << QString("The ALTER TABLE RENAME query in updateToVersion2() failed!  The query error "
                   "was: there is already another table or index with this name: "
                   "productControl_productSettings_old\n")
        << QStringList({version1Table, row, createAside + "(productId)"});
    QTest::newRow("the new table cannot be created")
        << filled << SQLITE_CREATE_TABLE << QByteArray("productControl_productSettings")
        << QString("The CREATE TABLE IF NOT EXISTS query in updateToVersion2() failed!  The query "
                   "error was: not authorized\n")
        << QStringList({renamedAside + version1Columns, row});
    QTest::newRow("the table aside cannot be read")
        << filled << SQLITE_READ << QByteArray("productControl_productSettings_old")
        << QString("SELECT * FROM productControl_productSettings_old query in updateToVersion2() "
                   "failed!  The query error was: access to "
                   "productControl_productSettings_old.productId is prohibited\n")
        << QStringList({version2Table, renamedAside + version1Columns, row});
    QTest::newRow("a product's name holds a quote")
        << version1Table + ";" + insert +
               "('p1', 'A', 1, 1, 2, 3, 4), ('p2', 'O''Müller', 1, 1, 2, 3, 4),"
               "('p3', 'O''Neill', 1, 1, 2, 3, 4)"
        << 0 << QByteArray()
        << QString("Database migration failed in updateToVersion2()!  The error was: "
                   "near \"Müller\": syntax error\n")
        << QStringList(
               {renamedBack + version1Columns,
                "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0",
                "'p2', 'O''Müller', 1.0, 1, 2.0, 3.0, 4.0",
                "'p3', 'O''Neill', 1.0, 1, 2.0, 3.0, 4.0"});
    QTest::newRow("an error text is reduced to Latin-1")
        << version1Table + ";" + insert + "('p1', 'O''Кузнецов', 1, 1, 2, 3, 4)" << 0
        << QByteArray()
        << QString("Database migration failed in updateToVersion2()!  The error was: "
                   "near \"????????\": syntax error\n")
        << QStringList(
               {renamedBack + version1Columns, "'p1', 'O''Кузнецов', 1.0, 1, 2.0, 3.0, 4.0"});
    QTest::newRow("a product's identifier holds a quote")
        << version1Table + ";" + insert + "('p''1', 'A', 1, 1, 2, 3, 4)" << 0 << QByteArray()
        << QString("Database migration failed in updateToVersion2()!  The error was: "
                   "near \"1\": syntax error\n")
        << QStringList({renamedBack + version1Columns, "'p''1', 'A', 1.0, 1, 2.0, 3.0, 4.0"});
    QTest::newRow("a machine configuration of NULL becomes 0, which there is not")
        << version1Table + ";DELETE FROM MC_MachineConfig WHERE id = 0;" + insert +
               "('p1', 'A', 1, NULL, 2, 3, 4)"
        << 0 << QByteArray()
        << QString("Database migration failed in updateToVersion2()!  The error was: "
                   "FOREIGN KEY constraint failed\n")
        << QStringList({renamedBack + version1Columns, "'p1', 'A', 1.0, NULL, 2.0, 3.0, 4.0"});
    QTest::newRow("after a failed row the new table cannot be dropped")
        << version1Table + ";" + insert +
               "('p1', 'A', 1, 1, 2, 3, 4), ('p2', 'O''Neill', 1, 1, 2, 3, 4)"
        << SQLITE_DROP_TABLE << QByteArray("productControl_productSettings")
        << QString("DatabaseMigrator::dropTable - Failed to drop table named "
                   "productControl_productSettings\n"
                   "DatabaseMigrator::dropTable - not authorized Unable to execute statement\n"
                   "Database migration failed in updateToVersion2()!  The error was: "
                   "near \"Neill\": syntax error\n")
        << QStringList(
               {version2Table,
                "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0, 0",
                renamedAside + version1Columns,
                "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0",
                "'p2', 'O''Neill', 1.0, 1, 2.0, 3.0, 4.0"});
}

void Version2Test::updateToVersion2Fails()
{
    checkFailure(&DatabaseMigrator::updateToVersion2);
}

void Version2Test::revertFromVersion2Fails_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<int>("refusedAction");
    QTest::addColumn<QByteArray>("refusedTable");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QStringList>("after");

    const QByteArray filled =
        version2Table + ";" + insert + "('p1', 'A', 1.5, 1, 2.5, 3.5, 1234.5678, 1)";
    const QByteArray row = "'p1', 'A', 1.5, 1, 2.5, 3.5, 1234.5678, 1";

    QTest::newRow("there is no table")
        << QByteArray() << 0 << QByteArray()
        << QString("The ALTER TABLE RENAME query in revertFromVersion2() failed!  The query error "
                   "was: no such table: productControl_productSettings\n")
        << QStringList();
    QTest::newRow("a table aside was left behind")
        << filled + ";" + createAside + "(productId)" << 0 << QByteArray()
        << QString("The ALTER TABLE RENAME query in revertFromVersion2() failed!  The query error "
                   "was: there is already another table or index with this name: "
                   "productControl_productSettings_old\n")
        << QStringList({version2Table, row, createAside + "(productId)"});
    QTest::newRow("the new table cannot be created")
        << filled << SQLITE_CREATE_TABLE << QByteArray("productControl_productSettings")
        << QString("The CREATE TABLE IF NOT EXISTS query in revertFromVersion2() failed!  The "
                   "query error was: not authorized\n")
        << QStringList({renamedAside + version2Columns, row});
    QTest::newRow("the table aside cannot be read")
        << filled << SQLITE_READ << QByteArray("productControl_productSettings_old")
        << QString("SELECT * FROM productControl_productSettings_old query in revertFromVersion2() "
                   "failed!  The query error was: access to "
                   "productControl_productSettings_old.productId is prohibited\n")
        << QStringList({version1Table, renamedAside + version2Columns, row});
    QTest::newRow("a product's name holds a quote")
        << version2Table + ";" + insert +
               "('p1', 'A', 1, 1, 2, 3, 4, 1), ('p2', 'O''Müller', 1, 1, 2, 3, 4, 1),"
               "('p3', 'O''Neill', 1, 1, 2, 3, 4, 1)"
        << 0 << QByteArray()
        << QString("Database migration failed in revertFromVersion2()!  The error was: "
                   "near \"Müller\": syntax error\n")
        << QStringList(
               {renamedBack + version2Columns,
                "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0, 1",
                "'p2', 'O''Müller', 1.0, 1, 2.0, 3.0, 4.0, 1",
                "'p3', 'O''Neill', 1.0, 1, 2.0, 3.0, 4.0, 1"});
    QTest::newRow("an error text is reduced to Latin-1")
        << version2Table + ";" + insert + "('p1', 'O''Кузнецов', 1, 1, 2, 3, 4, 1)" << 0
        << QByteArray()
        << QString("Database migration failed in revertFromVersion2()!  The error was: "
                   "near \"????????\": syntax error\n")
        << QStringList(
               {renamedBack + version2Columns, "'p1', 'O''Кузнецов', 1.0, 1, 2.0, 3.0, 4.0, 1"});
    QTest::newRow("a product's identifier holds a quote")
        << version2Table + ";" + insert + "('p''1', 'A', 1, 1, 2, 3, 4, 1)" << 0 << QByteArray()
        << QString("Database migration failed in revertFromVersion2()!  The error was: "
                   "near \"1\": syntax error\n")
        << QStringList({renamedBack + version2Columns, "'p''1', 'A', 1.0, 1, 2.0, 3.0, 4.0, 1"});
    QTest::newRow("a machine configuration of NULL becomes 0, which there is not")
        << version2Table + ";DELETE FROM MC_MachineConfig WHERE id = 0;" + insert +
               "('p1', 'A', 1, NULL, 2, 3, 4, 1)"
        << 0 << QByteArray()
        << QString("Database migration failed in revertFromVersion2()!  The error was: "
                   "FOREIGN KEY constraint failed\n")
        << QStringList({renamedBack + version2Columns, "'p1', 'A', 1.0, NULL, 2.0, 3.0, 4.0, 1"});
    QTest::newRow("after a failed row the new table cannot be dropped")
        << version2Table + ";" + insert +
               "('p1', 'A', 1, 1, 2, 3, 4, 1), ('p2', 'O''Neill', 1, 1, 2, 3, 4, 1)"
        << SQLITE_DROP_TABLE << QByteArray("productControl_productSettings")
        << QString("DatabaseMigrator::dropTable - Failed to drop table named "
                   "productControl_productSettings\n"
                   "DatabaseMigrator::dropTable - not authorized Unable to execute statement\n"
                   "Database migration failed in revertFromVersion2()!  The error was: "
                   "near \"Neill\": syntax error\n")
        << QStringList(
               {version1Table,
                "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0",
                renamedAside + version2Columns,
                "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0, 1",
                "'p2', 'O''Neill', 1.0, 1, 2.0, 3.0, 4.0, 1"});
}

void Version2Test::revertFromVersion2Fails()
{
    checkFailure(&DatabaseMigrator::revertFromVersion2);
}

void Version2Test::checkFailure(void (DatabaseMigrator::*step)())
{
    QFETCH(QByteArray, before);
    QFETCH(int, refusedAction);
    QFETCH(QByteArray, refusedTable);
    QFETCH(QString, log);
    QFETCH(QStringList, after);
    device->sql(before);
    DatabaseMigrator &migrator = start();
    if (refusedAction != 0) {
        device->refuse(refusedAction, refusedTable);
    }

    (migrator.*step)();

    QCOMPARE(device->takeLog(), log);
    QCOMPARE(migrator.currentVersion(), otherVersion);
    COMPARE_LINES(settings(), after);
}

void Version2Test::rowsThatCannotBeReadAreNotLost_data()
{
    QTest::addColumn<bool>("forward");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("values");
    QTest::addColumn<QString>("after");
    QTest::addColumn<QString>("failureLine");

    QTest::newRow("forward")
        << true << version1Table << QByteArray("'p' || n, 'A', 1, 1, 2, 3, 4")
        << QString(renamedBack + version1Columns)
        << "SELECT * FROM productControl_productSettings_old query in updateToVersion2() failed!  The query error was: ";
    QTest::newRow("backward")
        << false << version2Table << QByteArray("'p' || n, 'A', 1, 1, 2, 3, 4, 1")
        << QString(renamedBack + version2Columns)
        << "SELECT * FROM productControl_productSettings_old query in revertFromVersion2() failed!  The query error was: ";
}

void Version2Test::rowsThatCannotBeReadAreNotLost()
{
    QFETCH(bool, forward);
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, values);
    QFETCH(QString, after);
    QFETCH(QString, failureLine);
    device->sql(
        before +
        ";WITH RECURSIVE number(n) AS "
        "(VALUES(1) UNION ALL SELECT n + 1 FROM number WHERE n < 500) "
        "INSERT INTO productControl_productSettings SELECT " +
        values + " FROM number");
    device->overwriteLeaf("productControl_productSettings", 2);
    DatabaseMigrator &migrator = start();

    forward ? migrator.updateToVersion2() : migrator.revertFromVersion2();

    QCOMPARE(device->takeLog(), failureLine + "database disk image is malformed\n");
    QCOMPARE(migrator.currentVersion(), otherVersion);
    QCOMPARE(device->createText("productControl_productSettings"), after);
    QCOMPARE(device->createText("productControl_productSettings_old"), QString());
    COMPARE_LINES(
        device->rows("SELECT productId FROM productControl_productSettings WHERE rowid = 1"),
        QStringList("'p1'"));
}

void Version2Test::tableAsideThatCannotBeDropped_data()
{
    QTest::addColumn<bool>("forward");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<int>("version");
    QTest::addColumn<QString>("successLine");
    QTest::addColumn<QStringList>("after");

    QTest::newRow("forward, the step counts as done")
        << true << version1Table + ";" + insert + "('p1', 'A', 1, 1, 2, 3, 4)" << 2
        << QString("Database migration to version 2 completed successfully!\n")
        << QStringList(
               {version2Table,
                "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0, 0",
                renamedAside + version1Columns,
                "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0"});
    QTest::newRow("backward, the step counts as done")
        << false << version2Table + ";" + insert + "('p1', 'A', 1, 1, 2, 3, 4, 1)" << 1 << QString()
        << QStringList(
               {version1Table,
                "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0",
                renamedAside + version2Columns,
                "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0, 1"});
}

void Version2Test::tableAsideThatCannotBeDropped()
{
    QFETCH(bool, forward);
    QFETCH(QByteArray, before);
    QFETCH(int, version);
    QFETCH(QString, successLine);
    QFETCH(QStringList, after);
    device->sql(before);
    DatabaseMigrator &migrator = start();
    device->refuse(SQLITE_DROP_TABLE, "productControl_productSettings_old");

    forward ? migrator.updateToVersion2() : migrator.revertFromVersion2();

    QCOMPARE(
        device->takeLog(),
        QString("DatabaseMigrator::dropTable - Failed to drop table named "
                "productControl_productSettings_old\n"
                "DatabaseMigrator::dropTable - not authorized Unable to execute statement\n") +
            successLine);
    QCOMPARE(migrator.currentVersion(), version);
    COMPARE_LINES(settings(), after);
}

void Version2Test::referencesFollowTheTableAside()
{
    device->sql(version1Table);
    device->sql(insert + "('p1', 'A', 1, 1, 2, 3, 4)");
    device->sql(
        "CREATE TABLE note (productId REFERENCES productControl_productSettings(productId));"
        "INSERT INTO note VALUES('p1')");
    DatabaseMigrator &migrator = start();

    migrator.updateToVersion2();

    QCOMPARE(
        device->takeLog(),
        QString("DatabaseMigrator::dropTable - Failed to drop table named "
                "productControl_productSettings_old\n"
                "DatabaseMigrator::dropTable - FOREIGN KEY constraint failed Unable to fetch row\n"
                "Database migration to version 2 completed successfully!\n"));
    QCOMPARE(migrator.currentVersion(), 2);
    COMPARE_LINES(
        settings(),
        QStringList(
            {version2Table,
             "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0, 0",
             renamedAside + version1Columns,
             "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0"}));
    QCOMPARE(
        device->createText("note"),
        QString("CREATE TABLE note (productId REFERENCES "
                "\"productControl_productSettings_old\"(productId))"));
}

void Version2Test::getUpdate2Applied_data()
{
    QTest::addColumn<QByteArray>("table");
    QTest::addColumn<bool>("applied");

    QTest::newRow("the column is there") << version2Table << true;
    QTest::newRow("the column is missing") << version1Table << false;
    QTest::newRow("there is no table") << QByteArray() << true;
    QTest::newRow("the column is written in another letter case")
        << create + "(productId, CalibratedInUSUnits)" << false;
    QTest::newRow("the column is the second one")
        << create + "(productId, calibratedInUsUnits)" << true;
    QTest::newRow("the column is the first one")
        << create + "(calibratedInUsUnits, productId)" << false;
}

void Version2Test::getUpdate2Applied()
{
    QFETCH(QByteArray, table);
    QFETCH(bool, applied);
    device->sql(table);
    DatabaseMigrator &migrator = start();
    const QStringList before = device->dump();

    QCOMPARE(migrator.getUpdate2Applied(), applied);

    QCOMPARE(device->takeLog(), QString());
    QCOMPARE(migrator.currentVersion(), otherVersion);
    COMPARE_LINES(device->dump(), before);
}

QTEST_APPLESS_MAIN(Version2Test)
#include "version_2_test.moc"

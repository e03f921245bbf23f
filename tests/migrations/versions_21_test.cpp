#include "support/step_test.h"

#include <QSqlDatabase>

#include <sqlite3.h>

namespace
{
const QByteArray receiverTable =
    "CREATE TABLE gpsReceivers (id INTEGER PRIMARY KEY AUTOINCREMENT, machineConfigId INTEGER, "
    "receiverId TEXT, serialPortName TEXT, filterLevel INTEGER DEFAULT 1, name TEXT, "
    "FOREIGN KEY(machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)";
const QByteArray mappingTable =
    "CREATE TABLE machineToGpsReceiverMapping(machineId INTEGER, gpsId INTEGER, "
    "PRIMARY KEY(machineId, gpsId), "
    "FOREIGN KEY(machineId) REFERENCES MC_Machine(id) ON DELETE CASCADE, "
    "FOREIGN KEY(gpsId) REFERENCES gpsReceivers(id) ON DELETE CASCADE)";
const QByteArray implementTable =
    "CREATE TABLE implementToGpsReceiverMapping (implementId INTEGER, gpsId INTEGER)";
const QByteArray solutionTable =
    "CREATE TABLE preferredGpsSolutions (mc_id INTEGER PRIMARY KEY, preferredSolution INTEGER NOT "
    "NULL, filterLevel INTEGER DEFAULT 1, FOREIGN KEY (mc_id) REFERENCES MC_MachineConfig(id) ON "
    "DELETE CASCADE)";

/// Two machines with a configuration each; the first one's GPS devices are 2, 4 and 5.
const QByteArray machines =
    "CREATE TABLE MC_Machine (id INTEGER PRIMARY KEY);"
    "INSERT INTO MC_Machine VALUES(10), (20);"
    "CREATE TABLE MC_MachineConfig (id INTEGER PRIMARY KEY, machineId INTEGER);"
    "INSERT INTO MC_MachineConfig VALUES(1, 10), (2, 20);"
    "CREATE TABLE serialDevices "
    "(id INTEGER PRIMARY KEY, mc_id INTEGER, portName TEXT, deviceHandlerName TEXT);"
    "INSERT INTO serialDevices VALUES(1, 2, 'ttyUSB0', 'BePluginGPS'), "
    "(2, 1, 'ttyS0', 'BePluginGPS'), (3, 1, 'ttyUSB1', 'BePluginRadar'), "
    "(4, 1, 'ttyS1', 'BePluginGPS'), (5, 1, 'ttyS2', 'BePluginGPS'), "
    "(6, 1, 'ttyS3', 'bepluginGPS');";
const QByteArray atVersion20 =
    machines + solutionTable + ";INSERT INTO preferredGpsSolutions VALUES(1, 2, 3), (2, 1, 0);";
const QByteArray atVersion21 =
    machines + receiverTable + ";" + mappingTable + ";" + implementTable +
    ";INSERT INTO gpsReceivers VALUES(1, 1, '', 'ttyS0', 3, ''), (2, 1, '', 'ttyS1', 3, ''), "
    "(3, 1, '', 'ttyS2', 3, ''), (4, 2, '', 'ttyUSB0', 0, '');"
    "INSERT INTO machineToGpsReceiverMapping VALUES(10, 2), (20, 4);"
    "INSERT INTO implementToGpsReceiverMapping VALUES(5, 3);";

const QStringList allReceivers = {
    receiverTable,
    "1, 1, '', 'ttyS0', 3, ''",
    "2, 1, '', 'ttyS1', 3, ''",
    "3, 1, '', 'ttyS2', 3, ''",
    "4, 2, '', 'ttyUSB0', 0, ''"};
const QStringList allMachines = {mappingTable, "10, 2", "20, 4"};
const QStringList allImplements = {implementTable, "5, 3"};
const QStringList allSolutions = {solutionTable, "1, 2, 3", "2, 1, 0"};

const QList<QByteArray> stepTables = {
    "gpsReceivers",
    "machineToGpsReceiverMapping",
    "implementToGpsReceiverMapping",
    "preferredGpsSolutions"};

// The first line of a run's outcome: the probe's answer.
const QStringList applied("applied");
const QStringList missing("missing");

const QString succeeded = "Migration to version 21 was successful.";
const QString failed = "Migration to version 21 FAILED!";
const QString devicesNotSelected =
    "updateToVersion21 - Failed to select portName from serialDevices";
const QString receiverNotAdded =
    "updateToVersion21 - Failed to populate gpsReceivers table with new entries";
} // namespace

class Versions21Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion21_data();
    void updateToVersion21() { checkStepAndProbe(&M::updateToVersion21); }
    void updateToVersion21Twice();
    void revertFromVersion21_data();
    void revertFromVersion21() { checkStepAndProbe(&M::revertFromVersion21); }
    void revertFromVersion21Twice();
    void revertFromVersion21AfterAFailure();
    void revertFromVersion21AfterAFailedDrop();
    void restoresWhatTheForwardStepMapped();
    void getUpdate21Applied_data();
    void getUpdate21Applied() { checkProbe(&M::getUpdate21Applied); }
    void closedConnection();

private:
    void checkStepAndProbe(Step step);
};

/// Checks a step against the test's row: the run leaves what the probe says of its work, and the
/// tables of the step.
void Versions21Test::checkStepAndProbe(Step step)
{
    checkStep(
        step,
        [this] {
            return (device->migrator().getUpdate21Applied() ? applied : missing) +
                   device->contents(stepTables);
        },
        {"MC_Machine", "MC_MachineConfig", "serialDevices"});
}

void Versions21Test::updateToVersion21_data()
{
    const auto row = addColumns<StepRun>("run");
    row("every GPS device becomes a receiver, its machine gets the preferred one",
        {atVersion20, {succeeded}, 21, applied + allReceivers + allMachines});
    row("there is no solution",
        {atVersion20 + "DELETE FROM preferredGpsSolutions;",
         {succeeded},
         21,
         applied + QStringList{receiverTable, mappingTable}});
    row("a preferred solution has a number higher than the devices",
        {atVersion20 + "UPDATE preferredGpsSolutions SET preferredSolution = 4 "
                       "WHERE mc_id = 1;",
         {succeeded},
         21,
         applied + allReceivers + QStringList({mappingTable, "20, 4"})});
    row("a preferred solution is 0",
        {atVersion20 + "UPDATE preferredGpsSolutions SET preferredSolution = 0;",
         {succeeded},
         21,
         applied + allReceivers + QStringList(mappingTable)});
    row("a configuration has no GPS device",
        {atVersion20 + "DELETE FROM serialDevices WHERE mc_id = 1;",
         {succeeded},
         21,
         applied +
             QStringList{receiverTable, "1, 2, '', 'ttyUSB0', 0, ''", mappingTable, "20, 1"}});
    row("GPS devices have no solution",
        {atVersion20 + "DELETE FROM preferredGpsSolutions WHERE mc_id = 1;",
         {succeeded},
         21,
         applied +
             QStringList{receiverTable, "1, 2, '', 'ttyUSB0', 0, ''", mappingTable, "20, 1"}});
    row("NULL becomes filter level 0 and an empty port name",
        {atVersion20 + "UPDATE preferredGpsSolutions SET filterLevel = NULL WHERE mc_id = 2;"
                       "UPDATE serialDevices SET portName = NULL WHERE mc_id = 2;",
         {succeeded},
         21,
         applied + allReceivers.mid(0, 4) + QStringList("4, 2, '', '', 0, ''") + allMachines});
    row("a marker in a port name is data",
        {atVersion20 + "UPDATE serialDevices SET portName = 'tty%1%3' WHERE mc_id = 2;",
         {succeeded},
         21,
         applied + allReceivers.mid(0, 4) + QStringList("4, 2, '', 'tty%1%3', 0, ''") +
             allMachines});
    row("rows are added to receiver tables that exist",
        {atVersion20 + receiverTable + ";" + mappingTable + ";" + implementTable +
             ";INSERT INTO gpsReceivers VALUES(7, 2, 'r7', 'ttyS9', 1, 'roof');"
             "INSERT INTO machineToGpsReceiverMapping VALUES(20, 7);"
             "INSERT INTO implementToGpsReceiverMapping VALUES(5, 7);",
         {succeeded},
         21,
         applied + QStringList{
                       receiverTable,
                       "7, 2, 'r7', 'ttyS9', 1, 'roof'",
                       "8, 1, '', 'ttyS0', 3, ''",
                       "9, 1, '', 'ttyS1', 3, ''",
                       "10, 1, '', 'ttyS2', 3, ''",
                       "11, 2, '', 'ttyUSB0', 0, ''",
                       mappingTable,
                       "20, 7",
                       "10, 9",
                       "20, 11",
                       implementTable,
                       "5, 7"}});

    row("the receiver table cannot be created",
        {atVersion20 + "CREATE INDEX gpsReceivers ON MC_Machine (id);",
         {"updateToVersion21 - Failed to create gpsReceivers table.", failed},
         versionUnmoved,
         missing + allSolutions});
    row("the mapping table cannot be created",
        {atVersion20 + "CREATE INDEX machineToGpsReceiverMapping ON MC_Machine (id);",
         {"updateToVersion21 - Failed to create machineToGpsReceiverMapping table.", failed},
         versionUnmoved,
         missing + QStringList(receiverTable) + allSolutions});
    row("the solutions are missing: the step fails, yet the probe finds it applied",
        {machines,
         {"updateToVersion21 - Failed to select entries from preferredGpsSolutions", failed},
         versionUnmoved,
         applied + QStringList{receiverTable, mappingTable}});
    row("the solutions have no filter level",
        {machines + "CREATE TABLE preferredGpsSolutions (mc_id, preferredSolution);",
         {"updateToVersion21 - Failed to select entries from preferredGpsSolutions", failed},
         versionUnmoved,
         missing + QStringList{
                       receiverTable,
                       mappingTable,
                       "CREATE TABLE preferredGpsSolutions (mc_id, preferredSolution)"}});
    row("the devices are missing",
        {atVersion20 + "DROP TABLE serialDevices;",
         {devicesNotSelected, devicesNotSelected, failed},
         versionUnmoved,
         applied + QStringList{receiverTable, mappingTable}});

    row("reading the solutions stops on an error: their table is still dropped",
        {atVersion20 +
             makeUnreadable("preferredGpsSolutions", "preferredSolution INTEGER", "mc_id = 2"),
         {failed},
         versionUnmoved,
         applied + allReceivers.mid(0, 4) + allMachines.mid(0, 2)});
    row("reading the devices stops on an error before the preferred one",
        {atVersion20 + makeUnreadable("serialDevices", "portName TEXT", "id = 4"),
         {devicesNotSelected, failed},
         versionUnmoved,
         applied + allReceivers.mid(0, 2) + QStringList(mappingTable)});

    // After a failure the receivers of the same configuration are still added but count as failed.
    // Later configurations get nothing. The solutions are still dropped.
    row("the first receiver fails because its port's name has a quote",
        {atVersion20 + "UPDATE serialDevices SET portName = 'tty''S0' WHERE id = 2;",
         {receiverNotAdded, receiverNotAdded, receiverNotAdded, devicesNotSelected, failed},
         versionUnmoved,
         applied + QStringList{
                       receiverTable,
                       "1, 1, '', 'ttyS1', 3, ''",
                       "2, 1, '', 'ttyS2', 3, ''",
                       mappingTable}});
    row("the last receiver fails after the machine was mapped",
        {atVersion20 + "UPDATE serialDevices SET portName = 'tty''S2' WHERE id = 5;",
         {receiverNotAdded, devicesNotSelected, failed},
         versionUnmoved,
         applied + allReceivers.mid(0, 3) + allMachines.mid(0, 2)});
    row("the machine configuration is missing: the receivers' foreign key refuses them",
        {atVersion20 + "DELETE FROM MC_MachineConfig WHERE id = 1;",
         {receiverNotAdded, receiverNotAdded, receiverNotAdded, devicesNotSelected, failed},
         versionUnmoved,
         applied + QStringList{receiverTable, mappingTable}});
    const QByteArray receiverTableWithoutKey =
        "CREATE TABLE gpsReceivers (id INTEGER PRIMARY KEY, machineConfigId INTEGER, "
        "receiverId TEXT, serialPortName TEXT, filterLevel INTEGER, name TEXT)";
    row("the machine configuration is missing, the receivers have no foreign key",
        {atVersion20 + receiverTableWithoutKey + ";DELETE FROM MC_MachineConfig WHERE id = 1;",
         {succeeded},
         21,
         applied + QStringList(receiverTableWithoutKey) + allReceivers.mid(1) +
             QStringList({mappingTable, "20, 4"})});
    row("the id of the newest row cannot be read",
        {atVersion20,
         {"updateToVersion21 - Failed to retrieve the last inserted rowid",
          receiverNotAdded,
          devicesNotSelected,
          failed},
         versionUnmoved,
         applied + allReceivers.mid(0, 4) + QStringList(mappingTable),
         {{SQLITE_FUNCTION, ""}}});
    row("the machine cannot be read",
        {atVersion20 + "ALTER TABLE MC_MachineConfig RENAME COLUMN machineId TO vehicleId;",
         {"updateToVersion21 - Failed to select machineId from MC_MachineConfig",
          receiverNotAdded,
          devicesNotSelected,
          failed},
         versionUnmoved,
         applied + allReceivers.mid(0, 4) + QStringList(mappingTable)});
    row("the machine is missing: the mapping's foreign key refuses it",
        {atVersion20 + "DELETE FROM MC_Machine WHERE id = 10;",
         {"updateToVersion21 - Failed to insert entry into machineToGpsReceiverMapping",
          receiverNotAdded,
          devicesNotSelected,
          failed},
         versionUnmoved,
         applied + allReceivers.mid(0, 4) + QStringList(mappingTable)});
    row("the last machine is missing",
        {atVersion20 + "DELETE FROM MC_Machine WHERE id = 20;",
         {"updateToVersion21 - Failed to insert entry into machineToGpsReceiverMapping", failed},
         versionUnmoved,
         applied + allReceivers + allMachines.mid(0, 2)});

    row("the solutions cannot be dropped, which is no failure",
        {atVersion20,
         tableStays("preferredGpsSolutions", notAuthorized) +
             QStringList(
                 {"updateToVersion21 - failed to drop preferredGpsSolutions table", succeeded}),
         21,
         missing + allReceivers + allMachines + allSolutions,
         {{SQLITE_DROP_TABLE, "preferredGpsSolutions"}}});
    row("the solutions are a view, which the probe does not see",
        {atVersion20 + "ALTER TABLE preferredGpsSolutions RENAME TO chosenSolutions;"
                       "CREATE VIEW preferredGpsSolutions AS SELECT * FROM chosenSolutions;",
         viewStays("preferredGpsSolutions") +
             QStringList(
                 {"updateToVersion21 - failed to drop preferredGpsSolutions table", succeeded}),
         21,
         applied + allReceivers + allMachines});
    row("the devices are missing and the solutions cannot be dropped",
        {atVersion20 + "DROP TABLE serialDevices;",
         QStringList({devicesNotSelected, devicesNotSelected}) +
             tableStays("preferredGpsSolutions", notAuthorized) +
             QStringList(
                 {"updateToVersion21 - failed to drop preferredGpsSolutions table", failed}),
         versionUnmoved,
         missing + QStringList({receiverTable, mappingTable}) + allSolutions,
         {{SQLITE_DROP_TABLE, "preferredGpsSolutions"}}});
}

void Versions21Test::updateToVersion21Twice()
{
    device->sql(atVersion20);
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    migrator.updateToVersion21();
    migrator.updateToVersion21();

    COMPARE_LINES(
        device->takeLogLines(),
        QStringList(
            {succeeded,
             "updateToVersion21 - Failed to select entries from preferredGpsSolutions",
             failed}));
    QCOMPARE(migrator.currentVersion(), 21);
    QVERIFY(migrator.getUpdate21Applied());
    COMPARE_LINES(device->contents(stepTables), allReceivers + allMachines);
}

void Versions21Test::revertFromVersion21_data()
{
    QTest::addColumn<StepRun>("run");

    QTest::newRow("the preferred receiver is found among the GPS devices again")
        << StepRun{atVersion21, {}, 20, missing + allSolutions};
    QTest::newRow("a receiver without a machine does not become a solution") << StepRun{
        atVersion21 + "DELETE FROM machineToGpsReceiverMapping WHERE machineId = 10;",
        {},
        20,
        missing + QStringList{solutionTable, "2, 1, 0"}};
    QTest::newRow("there is no mapping table of implements") << StepRun{
        atVersion21 + "DROP TABLE implementToGpsReceiverMapping;", {}, 20, missing + allSolutions};
    QTest::newRow("the port no longer belongs to a GPS device") << StepRun{
        atVersion21 + "DELETE FROM serialDevices WHERE id = 4;"
                      "UPDATE serialDevices SET portName = 'ttyS1' WHERE id = 3;",
        {},
        20,
        missing + QStringList{solutionTable, "2, 1, 0"}};
    QTest::newRow("the port belongs to another configuration") << StepRun{
        atVersion21 + "UPDATE serialDevices SET mc_id = 2 WHERE id = 4;",
        {},
        20,
        missing + QStringList{solutionTable, "2, 1, 0"}};
    QTest::newRow("a port in another letter case is another port") << StepRun{
        atVersion21 + "UPDATE serialDevices SET portName = 'TTYS1' WHERE id = 4;",
        {},
        20,
        missing + QStringList{solutionTable, "2, 1, 0"}};
    QTest::newRow("of several devices on one port the last one counts") << StepRun{
        atVersion21 + "UPDATE serialDevices SET portName = 'ttyS1' WHERE id IN (3, 5);",
        {},
        20,
        missing + QStringList{solutionTable, "1, 3, 3", "2, 1, 0"}};
    QTest::newRow("a quote in the port's name does no harm") << StepRun{
        atVersion21 + "UPDATE serialDevices SET portName = 'tty''S1' WHERE id = 4;"
                      "UPDATE gpsReceivers SET serialPortName = 'tty''S1' WHERE id = 2;",
        {},
        20,
        missing + allSolutions};
    QTest::newRow("solutions that exist are replaced") << StepRun{
        atVersion21 + solutionTable +
            ";INSERT INTO MC_MachineConfig VALUES(3, 10);"
            "INSERT INTO preferredGpsSolutions VALUES(1, 9, 9), (3, 8, 8);",
        {},
        20,
        missing + QStringList{solutionTable, "1, 2, 3", "2, 1, 0", "3, 8, 8"}};

    QTest::newRow("the solutions' table cannot be created") << StepRun{
        atVersion21 + "CREATE INDEX preferredGpsSolutions ON MC_Machine (id);",
        {"Failed to create preferredGpsSolutions table."},
        versionUnmoved,
        applied + allReceivers + allMachines + allImplements};
    QTest::newRow("the receivers are missing") << StepRun{
        atVersion21 + "DROP TABLE gpsReceivers;",
        {"Failed to determine preferredGpsSolutions table entries."},
        versionUnmoved,
        missing + allMachines + allImplements + QStringList(solutionTable)};
    QTest::newRow("the mapping is missing") << StepRun{
        atVersion21 + "DROP TABLE machineToGpsReceiverMapping;",
        {"Failed to determine preferredGpsSolutions table entries."},
        versionUnmoved,
        missing + allReceivers + allImplements + QStringList(solutionTable)};
    QTest::newRow("the devices are missing") << StepRun{
        atVersion21 + "DROP TABLE serialDevices;",
        {"Failed to determine instance numbers.", "Failed to determine instance numbers."},
        versionUnmoved,
        missing + allReceivers + allMachines + allImplements + QStringList(solutionTable)};
    const QByteArray unreadableReceivers =
        QByteArray(receiverTable)
            .replace("serialPortName TEXT", unreadableColumn("serialPortName TEXT", "id = 4"));
    QTest::newRow("reading the receivers stops on an error: their table stays") << StepRun{
        atVersion21 + makeUnreadable("gpsReceivers", "serialPortName TEXT", "id = 4"),
        {},
        versionUnmoved,
        missing +
            QStringList(
                {unreadableReceivers,
                 "1, 1, '', 'ttyS0', 'ttyS0', 3, ''",
                 "2, 1, '', 'ttyS1', 'ttyS1', 3, ''",
                 "3, 1, '', 'ttyS2', 'ttyS2', 3, ''"}) +
            allMachines + allImplements + QStringList({solutionTable, "1, 2, 3"})};
    QTest::newRow(
        "reading the devices stops on an error: the other solution is made, the receivers stay")
        << StepRun{
               atVersion21 + makeUnreadable("serialDevices", "portName TEXT", "id = 4"),
               {},
               versionUnmoved,
               missing + allReceivers + allMachines + allImplements +
                   QStringList({solutionTable, "2, 1, 0"})};
    QTest::newRow("one solution fails, the other one is made") << StepRun{
        atVersion21 + "DELETE FROM MC_MachineConfig WHERE id = 1;",
        {"Failed to insert preferredGpsSolutions table entries."},
        versionUnmoved,
        missing + allReceivers + allMachines + allImplements +
            QStringList({solutionTable, "2, 1, 0"})};
    QTest::newRow("after a solution failed, the search for its port goes on") << StepRun{
        atVersion21 + "DELETE FROM MC_MachineConfig WHERE id = 1;"
                      "UPDATE serialDevices SET portName = 'ttyS1' WHERE id = 5;",
        {"Failed to insert preferredGpsSolutions table entries.",
         "Failed to insert preferredGpsSolutions table entries."},
        versionUnmoved,
        missing + allReceivers + allMachines + allImplements +
            QStringList({solutionTable, "2, 1, 0"})};

    const QByteArray implementTableWithKey =
        "CREATE TABLE implementToGpsReceiverMapping (gpsId REFERENCES gpsReceivers(id));";
    QTest::newRow("the receivers cannot be dropped") << StepRun{
        atVersion21 + "DROP TABLE implementToGpsReceiverMapping;" + implementTableWithKey +
            "INSERT INTO implementToGpsReceiverMapping VALUES(3);",
        tableStays("gpsReceivers", "FOREIGN KEY constraint failed Unable to fetch row"),
        versionUnmoved,
        missing + allReceivers + allSolutions};
    QTest::newRow("the machines' mapping cannot be dropped") << StepRun{
        atVersion21 + "ALTER TABLE machineToGpsReceiverMapping RENAME TO mapped;"
                      "CREATE VIEW machineToGpsReceiverMapping AS SELECT * FROM mapped;",
        viewStays("machineToGpsReceiverMapping"),
        versionUnmoved,
        missing + allSolutions};
    QTest::newRow("the implements' mapping cannot be dropped") << StepRun{
        atVersion21 + "DROP TABLE implementToGpsReceiverMapping;"
                      "CREATE VIEW implementToGpsReceiverMapping AS SELECT * FROM serialDevices;",
        viewStays("implementToGpsReceiverMapping"),
        versionUnmoved,
        missing + allSolutions};
    QTest::newRow("no table can be dropped, all three are tried") << StepRun{
        atVersion21,
        tableStays("gpsReceivers", notAuthorized) +
            tableStays("machineToGpsReceiverMapping", notAuthorized) +
            tableStays("implementToGpsReceiverMapping", notAuthorized),
        versionUnmoved,
        missing + allReceivers + allMachines + allImplements + allSolutions,
        {{SQLITE_DROP_TABLE, ""}}};
}

void Versions21Test::revertFromVersion21Twice()
{
    device->sql(atVersion21);
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    migrator.revertFromVersion21();
    migrator.revertFromVersion21();

    COMPARE_LINES(
        device->takeLogLines(),
        QStringList("Failed to determine preferredGpsSolutions table entries."));
    QCOMPARE(migrator.currentVersion(), 20);
    COMPARE_LINES(device->contents(stepTables), allSolutions);
}

void Versions21Test::revertFromVersion21AfterAFailure()
{
    device->sql(atVersion21 + "DELETE FROM MC_MachineConfig WHERE id = 1;");
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    migrator.revertFromVersion21();
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    device->takeLog();

    device->sql("INSERT INTO MC_MachineConfig VALUES(1, 10);");
    migrator.revertFromVersion21();

    COMPARE_LINES(device->takeLogLines(), QStringList());
    QCOMPARE(migrator.currentVersion(), 20);
    COMPARE_LINES(device->contents(stepTables), allSolutions);
}

/// The next run needs what the failed run dropped.
void Versions21Test::revertFromVersion21AfterAFailedDrop()
{
    device->sql(atVersion21);
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    device->refuse(SQLITE_DROP_TABLE, "gpsReceivers");
    migrator.revertFromVersion21();
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    device->takeLog();

    device->allowAll();
    migrator.revertFromVersion21();

    COMPARE_LINES(
        device->takeLogLines(),
        QStringList("Failed to determine preferredGpsSolutions table entries."));
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    COMPARE_LINES(device->contents(stepTables), allReceivers + allSolutions);
}

void Versions21Test::restoresWhatTheForwardStepMapped()
{
    device->sql(
        atVersion20 + "INSERT INTO MC_MachineConfig VALUES(3, 20);"
                      "INSERT INTO serialDevices VALUES(7, 3, 'ttyS4', 'BePluginGPS');"
                      "INSERT INTO preferredGpsSolutions VALUES(3, 2, 5);");
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    migrator.updateToVersion21();
    migrator.revertFromVersion21();

    COMPARE_LINES(device->takeLogLines(), QStringList(succeeded));
    QCOMPARE(migrator.currentVersion(), 20);
    COMPARE_LINES(device->contents(stepTables), allSolutions);
}

void Versions21Test::getUpdate21Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    const QByteArray someReceivers = "CREATE TABLE gpsReceivers (id);";
    const QByteArray someMapping = "CREATE TABLE machineToGpsReceiverMapping (id);";
    const QByteArray someSolutions = "CREATE TABLE preferredGpsSolutions (id);";
    QTest::newRow("both new tables without the old one") << someReceivers + someMapping << true;
    QTest::newRow("both new tables beside the old one")
        << someReceivers + someMapping + someSolutions << false;
    QTest::newRow("only the receivers") << someReceivers << false;
    QTest::newRow("only the mapping") << someMapping << false;
    QTest::newRow("only the old table") << someSolutions << false;
    QTest::newRow("there is no table") << QByteArray() << false;
    QTest::newRow("the receivers in another letter case")
        << "CREATE TABLE GPSReceivers (id);" + someMapping << false;
    QTest::newRow("the mapping in another letter case")
        << someReceivers + "CREATE TABLE MachineToGpsReceiverMapping (id);" << false;
    QTest::newRow("the old table in another letter case is not seen")
        << someReceivers + someMapping + "CREATE TABLE PreferredGpsSolutions (id);" << true;
    QTest::newRow("receivers that are a view are not seen")
        << someMapping + "CREATE VIEW gpsReceivers AS SELECT 1;" << false;
    QTest::newRow("a mapping that is a view is not seen")
        << someReceivers + "CREATE VIEW machineToGpsReceiverMapping AS SELECT 1;" << false;
}

void Versions21Test::closedConnection()
{
    device->sql(atVersion20);
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    QSqlDatabase::database().close();

    migrator.updateToVersion21();
    migrator.revertFromVersion21();

    COMPARE_LINES(
        device->takeLogLines(),
        QStringList(
            {"updateToVersion21 - Failed to create gpsReceivers table.",
             failed,
             "Failed to create preferredGpsSolutions table."}));
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    QVERIFY(!migrator.getUpdate21Applied());
}

QTEST_APPLESS_MAIN(Versions21Test)
#include "versions_21_test.moc"

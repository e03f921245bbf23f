#include "support/step_test.h"

#include <QtTest>

#include <sqlite3.h>

namespace
{
/// One run of the step: what it finds and what it leaves.
struct Run {
    QByteArray before; ///< statements on top of the tables that every test finds
    QStringList log;
    int version;
    bool applied;      ///< what the probe answers afterwards
    QStringList after; ///< the CREATE text and the rows of every table of the step that is there
    QList<Refusal> refusals = {};
};

const char *const receiverTable =
    "CREATE TABLE gpsReceivers (id INTEGER PRIMARY KEY AUTOINCREMENT, machineConfigId INTEGER, "
    "receiverId TEXT, serialPortName TEXT, filterLevel INTEGER DEFAULT 1, name TEXT, "
    "FOREIGN KEY(machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)";
const char *const mappingTable =
    "CREATE TABLE machineToGpsReceiverMapping(machineId INTEGER, gpsId INTEGER, "
    "PRIMARY KEY(machineId, gpsId), "
    "FOREIGN KEY(machineId) REFERENCES MC_Machine(id) ON DELETE CASCADE, "
    "FOREIGN KEY(gpsId) REFERENCES gpsReceivers(id) ON DELETE CASCADE)";
const char *const implementTable =
    "CREATE TABLE implementToGpsReceiverMapping (implementId INTEGER, gpsId INTEGER)";
const char *const solutionTable =
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

const QString succeeded = "Migration to version 21 was successful.";
const QString failed = "Migration to version 21 FAILED!";
const QString devicesNotSelected =
    "updateToVersion21 - Failed to select portName from serialDevices";
const QString receiverNotAdded =
    "updateToVersion21 - Failed to populate gpsReceivers table with new entries";
} // namespace
Q_DECLARE_METATYPE(Run)

class Version21Test : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void updateToVersion21_data();
    void updateToVersion21();
    void updateToVersion21Twice();
    void revertFromVersion21_data();
    void revertFromVersion21();
    void revertFromVersion21Twice();
    void revertFromVersion21AfterAFailure();
    void revertFromVersion21AfterAFailedDrop();
    void restoresWhatTheForwardStepMapped();
    void getUpdate21Applied_data();
    void getUpdate21Applied();
    void closedConnection();

private:
    void runStep(int version, Step step);
    QStringList stepTables();

    std::unique_ptr<ScratchDevice> device;
};

void Version21Test::init()
{
    device = std::make_unique<ScratchDevice>();
}

void Version21Test::cleanup()
{
    device.reset();
}

/// Runs a step as the test's row "run" says; the tables that it reads stay as they are.
void Version21Test::runStep(int version, Step step)
{
    QFETCH(Run, run);
    device->sql(run.before);
    DatabaseMigrator &migrator = startAt(*device, version);
    for (const Refusal &refusal : run.refusals) {
        device->refuse(refusal.action, refusal.object);
    }
    const QList<QByteArray> readTables = {"MC_Machine", "MC_MachineConfig", "serialDevices"};
    const QStringList read = contents(*device, readTables);

    (migrator.*step)();

    COMPARE_LINES(takeLogLines(*device), run.log);
    QCOMPARE(migrator.currentVersion(), run.version);
    QCOMPARE(migrator.getUpdate21Applied(), run.applied);
    COMPARE_LINES(stepTables(), run.after);
    COMPARE_LINES(contents(*device, readTables), read);
}

QStringList Version21Test::stepTables()
{
    return contents(
        *device,
        {"gpsReceivers",
         "machineToGpsReceiverMapping",
         "implementToGpsReceiverMapping",
         "preferredGpsSolutions"});
}

void Version21Test::updateToVersion21_data()
{
    QTest::addColumn<Run>("run");

    QTest::newRow("every GPS device becomes a receiver, its machine gets the preferred one")
        << Run{atVersion20, {succeeded}, 21, true, allReceivers + allMachines};
    QTest::newRow("no solution at all")
        << Run{atVersion20 + "DELETE FROM preferredGpsSolutions;",
               {succeeded},
               21,
               true,
               {receiverTable, mappingTable}};
    QTest::newRow("a preferred solution beyond the devices")
        << Run{atVersion20 + "UPDATE preferredGpsSolutions SET preferredSolution = 4 "
                             "WHERE mc_id = 1;",
               {succeeded},
               21,
               true,
               allReceivers + QStringList({mappingTable, "20, 4"})};
    QTest::newRow("a preferred solution of 0")
        << Run{atVersion20 + "UPDATE preferredGpsSolutions SET preferredSolution = 0;",
               {succeeded},
               21,
               true,
               allReceivers + QStringList(mappingTable)};
    QTest::newRow("a configuration without GPS devices")
        << Run{atVersion20 + "DELETE FROM serialDevices WHERE mc_id = 1;",
               {succeeded},
               21,
               true,
               {receiverTable, "1, 2, '', 'ttyUSB0', 0, ''", mappingTable, "20, 1"}};
    QTest::newRow("GPS devices without a solution")
        << Run{atVersion20 + "DELETE FROM preferredGpsSolutions WHERE mc_id = 1;",
               {succeeded},
               21,
               true,
               {receiverTable, "1, 2, '', 'ttyUSB0', 0, ''", mappingTable, "20, 1"}};
    QTest::newRow("a filter level and a port name of NULL are read as 0 and as an empty text")
        << Run{atVersion20 + "UPDATE preferredGpsSolutions SET filterLevel = NULL WHERE mc_id = 2;"
                             "UPDATE serialDevices SET portName = NULL WHERE mc_id = 2;",
               {succeeded},
               21,
               true,
               allReceivers.mid(0, 4) + QStringList("4, 2, '', '', 0, ''") + allMachines};
    QTest::newRow("a port name that looks like a marker")
        << Run{atVersion20 + "UPDATE serialDevices SET portName = 'tty%1%3' WHERE mc_id = 2;",
               {succeeded},
               21,
               true,
               allReceivers.mid(0, 4) + QStringList("4, 2, '', 'tty%1%3', 0, ''") + allMachines};
    QTest::newRow("receiver tables that are there already are added to")
        << Run{atVersion20 + receiverTable + ";" + mappingTable + ";" + implementTable +
                   ";INSERT INTO gpsReceivers VALUES(7, 2, 'r7', 'ttyS9', 1, 'roof');"
                   "INSERT INTO machineToGpsReceiverMapping VALUES(20, 7);"
                   "INSERT INTO implementToGpsReceiverMapping VALUES(5, 7);",
               {succeeded},
               21,
               true,
               {receiverTable,
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
                "5, 7"}};

    QTest::newRow("the receiver table cannot be made")
        << Run{atVersion20 + "CREATE INDEX gpsReceivers ON MC_Machine (id);",
               {"updateToVersion21 - Failed to create gpsReceivers table.", failed},
               20,
               false,
               allSolutions};
    QTest::newRow("the mapping table cannot be made")
        << Run{atVersion20 + "CREATE INDEX machineToGpsReceiverMapping ON MC_Machine (id);",
               {"updateToVersion21 - Failed to create machineToGpsReceiverMapping table.", failed},
               20,
               false,
               QStringList(receiverTable) + allSolutions};
    QTest::newRow("the solutions are missing, so that the probe is content with a failed step")
        << Run{machines,
               {"updateToVersion21 - Failed to select entries from preferredGpsSolutions", failed},
               20,
               true,
               {receiverTable, mappingTable}};
    QTest::newRow("the solutions have no filter level")
        << Run{machines + "CREATE TABLE preferredGpsSolutions (mc_id, preferredSolution);",
               {"updateToVersion21 - Failed to select entries from preferredGpsSolutions", failed},
               20,
               false,
               {receiverTable,
                mappingTable,
                "CREATE TABLE preferredGpsSolutions (mc_id, preferredSolution)"}};
    QTest::newRow("the devices are missing")
        << Run{atVersion20 + "DROP TABLE serialDevices;",
               {devicesNotSelected, devicesNotSelected, failed},
               20,
               true,
               {receiverTable, mappingTable}};

    QTest::newRow("the solutions break off, and go all the same")
        << Run{atVersion20 + makeUnreadable(
                                 "preferredGpsSolutions", "preferredSolution INTEGER", "mc_id = 2"),
               {failed},
               20,
               true,
               allReceivers.mid(0, 4) + allMachines.mid(0, 2)};
    QTest::newRow("the devices break off: the preferred one is not reached")
        << Run{atVersion20 + makeUnreadable("serialDevices", "portName TEXT", "id = 4"),
               {devicesNotSelected, failed},
               20,
               true,
               allReceivers.mid(0, 2) + QStringList(mappingTable)};

    // Once something has failed, the receivers of the same configuration are still added but count
    // as failed, and the later configurations get nothing. The solutions go all the same.
    QTest::newRow("the first receiver is refused because of a quote in the port's name") << Run{
        atVersion20 + "UPDATE serialDevices SET portName = 'tty''S0' WHERE id = 2;",
        {receiverNotAdded, receiverNotAdded, receiverNotAdded, devicesNotSelected, failed},
        20,
        true,
        {receiverTable, "1, 1, '', 'ttyS1', 3, ''", "2, 1, '', 'ttyS2', 3, ''", mappingTable}};
    QTest::newRow("the last receiver is refused, the machine is mapped by then")
        << Run{atVersion20 + "UPDATE serialDevices SET portName = 'tty''S2' WHERE id = 5;",
               {receiverNotAdded, devicesNotSelected, failed},
               20,
               true,
               allReceivers.mid(0, 3) + allMachines.mid(0, 2)};
    QTest::newRow("the machine configuration is missing: the receivers' key refuses them")
        << Run{atVersion20 + "DELETE FROM MC_MachineConfig WHERE id = 1;",
               {receiverNotAdded, receiverNotAdded, receiverNotAdded, devicesNotSelected, failed},
               20,
               true,
               {receiverTable, mappingTable}};
    const char *const receiverTableWithoutKey =
        "CREATE TABLE gpsReceivers (id INTEGER PRIMARY KEY, machineConfigId INTEGER, "
        "receiverId TEXT, serialPortName TEXT, filterLevel INTEGER, name TEXT)";
    QTest::newRow("the machine configuration is missing where the receivers have no key for it")
        << Run{atVersion20 + receiverTableWithoutKey +
                   ";DELETE FROM MC_MachineConfig WHERE id = 1;",
               {succeeded},
               21,
               true,
               QStringList(receiverTableWithoutKey) + allReceivers.mid(1) +
                   QStringList({mappingTable, "20, 4"})};
    QTest::newRow("the newest row's id cannot be read")
        << Run{atVersion20,
               {"updateToVersion21 - Failed to retrieve the last inserted rowid",
                receiverNotAdded,
                devicesNotSelected,
                failed},
               20,
               true,
               allReceivers.mid(0, 4) + QStringList(mappingTable),
               {{SQLITE_FUNCTION, ""}}};
    QTest::newRow("the machine cannot be read")
        << Run{atVersion20 + "ALTER TABLE MC_MachineConfig RENAME COLUMN machineId TO vehicleId;",
               {"updateToVersion21 - Failed to select machineId from MC_MachineConfig",
                receiverNotAdded,
                devicesNotSelected,
                failed},
               20,
               true,
               allReceivers.mid(0, 4) + QStringList(mappingTable)};
    QTest::newRow("the machine is missing: the mapping's key refuses it")
        << Run{atVersion20 + "DELETE FROM MC_Machine WHERE id = 10;",
               {"updateToVersion21 - Failed to insert entry into machineToGpsReceiverMapping",
                receiverNotAdded,
                devicesNotSelected,
                failed},
               20,
               true,
               allReceivers.mid(0, 4) + QStringList(mappingTable)};
    QTest::newRow("the last machine is missing") << Run{
        atVersion20 + "DELETE FROM MC_Machine WHERE id = 20;",
        {"updateToVersion21 - Failed to insert entry into machineToGpsReceiverMapping", failed},
        20,
        true,
        allReceivers + allMachines.mid(0, 2)};

    QTest::newRow("the solutions cannot be dropped, which is no failure") << Run{
        atVersion20,
        tableStays("preferredGpsSolutions", "not authorized Unable to execute statement") +
            QStringList(
                {"updateToVersion21 - failed to drop preferredGpsSolutions table", succeeded}),
        21,
        false,
        allReceivers + allMachines + allSolutions,
        {{SQLITE_DROP_TABLE, "preferredGpsSolutions"}}};
    QTest::newRow("the solutions are a view, which the probe does not see") << Run{
        atVersion20 + "ALTER TABLE preferredGpsSolutions RENAME TO chosenSolutions;"
                      "CREATE VIEW preferredGpsSolutions AS SELECT * FROM chosenSolutions;",
        tableStays(
            "preferredGpsSolutions",
            "use DROP VIEW to delete view preferredGpsSolutions Unable to execute "
            "statement") +
            QStringList(
                {"updateToVersion21 - failed to drop preferredGpsSolutions table", succeeded}),
        21,
        true,
        allReceivers + allMachines};
    QTest::newRow("the devices are missing and the solutions cannot be dropped") << Run{
        atVersion20 + "DROP TABLE serialDevices;",
        QStringList({devicesNotSelected, devicesNotSelected}) +
            tableStays("preferredGpsSolutions", "not authorized Unable to execute statement") +
            QStringList({"updateToVersion21 - failed to drop preferredGpsSolutions table", failed}),
        20,
        false,
        QStringList({receiverTable, mappingTable}) + allSolutions,
        {{SQLITE_DROP_TABLE, "preferredGpsSolutions"}}};
}

void Version21Test::updateToVersion21()
{
    runStep(20, &DatabaseMigrator::updateToVersion21);
}

void Version21Test::updateToVersion21Twice()
{
    device->sql(atVersion20);
    DatabaseMigrator &migrator = startAt(*device, 20);

    migrator.updateToVersion21();
    migrator.updateToVersion21();

    COMPARE_LINES(
        takeLogLines(*device),
        QStringList(
            {succeeded,
             "updateToVersion21 - Failed to select entries from preferredGpsSolutions",
             failed}));
    QCOMPARE(migrator.currentVersion(), 21);
    QVERIFY(migrator.getUpdate21Applied());
    COMPARE_LINES(stepTables(), allReceivers + allMachines);
}

void Version21Test::revertFromVersion21_data()
{
    QTest::addColumn<Run>("run");

    QTest::newRow("the preferred receiver is found among the GPS devices again")
        << Run{atVersion21, {}, 20, false, allSolutions};
    QTest::newRow("a receiver without a machine is no solution")
        << Run{atVersion21 + "DELETE FROM machineToGpsReceiverMapping WHERE machineId = 10;",
               {},
               20,
               false,
               {solutionTable, "2, 1, 0"}};
    QTest::newRow("no mapping table of implements") << Run{
        atVersion21 + "DROP TABLE implementToGpsReceiverMapping;", {}, 20, false, allSolutions};
    QTest::newRow("the port is no longer among the GPS devices")
        << Run{atVersion21 + "DELETE FROM serialDevices WHERE id = 4;"
                             "UPDATE serialDevices SET portName = 'ttyS1' WHERE id = 3;",
               {},
               20,
               false,
               {solutionTable, "2, 1, 0"}};
    QTest::newRow("the port is another configuration's")
        << Run{atVersion21 + "UPDATE serialDevices SET mc_id = 2 WHERE id = 4;",
               {},
               20,
               false,
               {solutionTable, "2, 1, 0"}};
    QTest::newRow("a port in other letter case is another port")
        << Run{atVersion21 + "UPDATE serialDevices SET portName = 'TTYS1' WHERE id = 4;",
               {},
               20,
               false,
               {solutionTable, "2, 1, 0"}};
    QTest::newRow("of several devices on one port the last one wins")
        << Run{atVersion21 + "UPDATE serialDevices SET portName = 'ttyS1' WHERE id IN (3, 5);",
               {},
               20,
               false,
               {solutionTable, "1, 3, 3", "2, 1, 0"}};
    QTest::newRow("a quote in the port's name does no harm")
        << Run{atVersion21 + "UPDATE serialDevices SET portName = 'tty''S1' WHERE id = 4;"
                             "UPDATE gpsReceivers SET serialPortName = 'tty''S1' WHERE id = 2;",
               {},
               20,
               false,
               allSolutions};
    QTest::newRow("solutions that are there already are replaced")
        << Run{atVersion21 + solutionTable +
                   ";INSERT INTO MC_MachineConfig VALUES(3, 10);"
                   "INSERT INTO preferredGpsSolutions VALUES(1, 9, 9), (3, 8, 8);",
               {},
               20,
               false,
               {solutionTable, "1, 2, 3", "2, 1, 0", "3, 8, 8"}};

    QTest::newRow("the solutions' table cannot be made")
        << Run{atVersion21 + "CREATE INDEX preferredGpsSolutions ON MC_Machine (id);",
               {"Failed to create preferredGpsSolutions table."},
               21,
               true,
               allReceivers + allMachines + allImplements};
    QTest::newRow("the receivers are missing")
        << Run{atVersion21 + "DROP TABLE gpsReceivers;",
               {"Failed to determine preferredGpsSolutions table entries."},
               21,
               false,
               allMachines + allImplements + QStringList(solutionTable)};
    QTest::newRow("the mapping is missing")
        << Run{atVersion21 + "DROP TABLE machineToGpsReceiverMapping;",
               {"Failed to determine preferredGpsSolutions table entries."},
               21,
               false,
               allReceivers + allImplements + QStringList(solutionTable)};
    QTest::newRow("the devices are missing")
        << Run{atVersion21 + "DROP TABLE serialDevices;",
               {"Failed to determine instance numbers.", "Failed to determine instance numbers."},
               21,
               false,
               allReceivers + allMachines + allImplements + QStringList(solutionTable)};
    const QByteArray unreadableReceivers =
        QByteArray(receiverTable)
            .replace("serialPortName TEXT", unreadableColumn("serialPortName TEXT", "id = 4"));
    QTest::newRow("the receivers break off, and stay")
        << Run{atVersion21 + makeUnreadable("gpsReceivers", "serialPortName TEXT", "id = 4"),
               {},
               21,
               false,
               QStringList(
                   {unreadableReceivers,
                    "1, 1, '', 'ttyS0', 'ttyS0', 3, ''",
                    "2, 1, '', 'ttyS1', 'ttyS1', 3, ''",
                    "3, 1, '', 'ttyS2', 'ttyS2', 3, ''"}) +
                   allMachines + allImplements + QStringList({solutionTable, "1, 2, 3"})};
    QTest::newRow("the devices break off: the other solution is made, the receivers stay") << Run{
        atVersion21 + makeUnreadable("serialDevices", "portName TEXT", "id = 4"),
        {},
        21,
        false,
        allReceivers + allMachines + allImplements + QStringList({solutionTable, "2, 1, 0"})};
    QTest::newRow("one solution is refused, the other one is made") << Run{
        atVersion21 + "DELETE FROM MC_MachineConfig WHERE id = 1;",
        {"Failed to insert preferredGpsSolutions table entries."},
        21,
        false,
        allReceivers + allMachines + allImplements + QStringList({solutionTable, "2, 1, 0"})};
    QTest::newRow("a refused solution does not end the search for its port") << Run{
        atVersion21 + "DELETE FROM MC_MachineConfig WHERE id = 1;"
                      "UPDATE serialDevices SET portName = 'ttyS1' WHERE id = 5;",
        {"Failed to insert preferredGpsSolutions table entries.",
         "Failed to insert preferredGpsSolutions table entries."},
        21,
        false,
        allReceivers + allMachines + allImplements + QStringList({solutionTable, "2, 1, 0"})};

    const char *const implementTableWithKey =
        "CREATE TABLE implementToGpsReceiverMapping (gpsId REFERENCES gpsReceivers(id));";
    QTest::newRow("the receivers cannot be dropped")
        << Run{atVersion21 + "DROP TABLE implementToGpsReceiverMapping;" + implementTableWithKey +
                   "INSERT INTO implementToGpsReceiverMapping VALUES(3);",
               tableStays("gpsReceivers", "FOREIGN KEY constraint failed Unable to fetch row"),
               21,
               false,
               allReceivers + allSolutions};
    QTest::newRow("the machines' mapping cannot be dropped")
        << Run{atVersion21 + "ALTER TABLE machineToGpsReceiverMapping RENAME TO mapped;"
                             "CREATE VIEW machineToGpsReceiverMapping AS SELECT * FROM mapped;",
               tableStays(
                   "machineToGpsReceiverMapping",
                   "use DROP VIEW to delete view machineToGpsReceiverMapping Unable to execute "
                   "statement"),
               21,
               false,
               allSolutions};
    QTest::newRow("the implements' mapping cannot be dropped") << Run{
        atVersion21 + "DROP TABLE implementToGpsReceiverMapping;"
                      "CREATE VIEW implementToGpsReceiverMapping AS SELECT * FROM serialDevices;",
        tableStays(
            "implementToGpsReceiverMapping",
            "use DROP VIEW to delete view implementToGpsReceiverMapping Unable to execute "
            "statement"),
        21,
        false,
        allSolutions};
    const QString refused = "not authorized Unable to execute statement";
    QTest::newRow("no table can be dropped, all three are tried") << Run{
        atVersion21,
        tableStays("gpsReceivers", refused) + tableStays("machineToGpsReceiverMapping", refused) +
            tableStays("implementToGpsReceiverMapping", refused),
        21,
        false,
        allReceivers + allMachines + allImplements + allSolutions,
        {{SQLITE_DROP_TABLE, ""}}};
}

void Version21Test::revertFromVersion21()
{
    runStep(21, &DatabaseMigrator::revertFromVersion21);
}

void Version21Test::revertFromVersion21Twice()
{
    device->sql(atVersion21);
    DatabaseMigrator &migrator = startAt(*device, 21);

    migrator.revertFromVersion21();
    migrator.revertFromVersion21();

    COMPARE_LINES(
        takeLogLines(*device),
        QStringList("Failed to determine preferredGpsSolutions table entries."));
    QCOMPARE(migrator.currentVersion(), 20);
    COMPARE_LINES(stepTables(), allSolutions);
}

void Version21Test::revertFromVersion21AfterAFailure()
{
    device->sql(atVersion21 + "DELETE FROM MC_MachineConfig WHERE id = 1;");
    DatabaseMigrator &migrator = startAt(*device, 21);
    migrator.revertFromVersion21();
    QCOMPARE(migrator.currentVersion(), 21);
    device->takeLog();

    device->sql("INSERT INTO MC_MachineConfig VALUES(1, 10);");
    migrator.revertFromVersion21();

    COMPARE_LINES(takeLogLines(*device), QStringList());
    QCOMPARE(migrator.currentVersion(), 20);
    COMPARE_LINES(stepTables(), allSolutions);
}

/// What the failed run dropped is what the next one needs.
void Version21Test::revertFromVersion21AfterAFailedDrop()
{
    device->sql(atVersion21);
    DatabaseMigrator &migrator = startAt(*device, 21);
    device->refuse(SQLITE_DROP_TABLE, "gpsReceivers");
    migrator.revertFromVersion21();
    QCOMPARE(migrator.currentVersion(), 21);
    device->takeLog();

    device->allowAll();
    migrator.revertFromVersion21();

    COMPARE_LINES(
        takeLogLines(*device),
        QStringList("Failed to determine preferredGpsSolutions table entries."));
    QCOMPARE(migrator.currentVersion(), 21);
    COMPARE_LINES(stepTables(), allReceivers + allSolutions);
}

void Version21Test::restoresWhatTheForwardStepMapped()
{
    device->sql(
        atVersion20 + "INSERT INTO MC_MachineConfig VALUES(3, 20);"
                      "INSERT INTO serialDevices VALUES(7, 3, 'ttyS4', 'BePluginGPS');"
                      "INSERT INTO preferredGpsSolutions VALUES(3, 2, 5);");
    DatabaseMigrator &migrator = startAt(*device, 20);

    migrator.updateToVersion21();
    migrator.revertFromVersion21();

    COMPARE_LINES(takeLogLines(*device), QStringList(succeeded));
    QCOMPARE(migrator.currentVersion(), 20);
    COMPARE_LINES(stepTables(), allSolutions);
}

void Version21Test::getUpdate21Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    const QByteArray someReceivers = "CREATE TABLE gpsReceivers (id);";
    const QByteArray someMapping = "CREATE TABLE machineToGpsReceiverMapping (id);";
    const QByteArray someSolutions = "CREATE TABLE preferredGpsSolutions (id);";
    QTest::newRow("both new tables without the old one") << someReceivers + someMapping << true;
    QTest::newRow("beside the old table") << someReceivers + someMapping + someSolutions << false;
    QTest::newRow("the receivers only") << someReceivers << false;
    QTest::newRow("the mapping only") << someMapping << false;
    QTest::newRow("the old table only") << someSolutions << false;
    QTest::newRow("no table") << QByteArray() << false;
    QTest::newRow("the receivers in other letter case")
        << "CREATE TABLE GPSReceivers (id);" + someMapping << false;
    QTest::newRow("the mapping in other letter case")
        << someReceivers + "CREATE TABLE MachineToGpsReceiverMapping (id);" << false;
    QTest::newRow("the old table in other letter case is not seen")
        << someReceivers + someMapping + "CREATE TABLE PreferredGpsSolutions (id);" << true;
    QTest::newRow("a view is no receiver table")
        << someMapping + "CREATE VIEW gpsReceivers AS SELECT 1;" << false;
    QTest::newRow("a view is no mapping table")
        << someReceivers + "CREATE VIEW machineToGpsReceiverMapping AS SELECT 1;" << false;
}

void Version21Test::getUpdate21Applied()
{
    checkProbe(*device, &DatabaseMigrator::getUpdate21Applied);
}

void Version21Test::closedConnection()
{
    device->sql(atVersion20);
    DatabaseMigrator &migrator = startAt(*device, 20);
    QSqlDatabase::database().close();

    migrator.updateToVersion21();
    migrator.revertFromVersion21();

    COMPARE_LINES(
        takeLogLines(*device),
        QStringList(
            {"updateToVersion21 - Failed to create gpsReceivers table.",
             failed,
             "Failed to create preferredGpsSolutions table."}));
    QCOMPARE(migrator.currentVersion(), 20);
    QVERIFY(!migrator.getUpdate21Applied());
}

QTEST_APPLESS_MAIN(Version21Test)
#include "version_21_test.moc"

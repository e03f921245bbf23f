#include "support/step_test.h"

#include <QtTest>

#include <sqlite3.h>

namespace
{
/// One run of the step on "TORVIKMAX": what it finds in the ports' tables and what it leaves.
struct PortRun {
    QByteArray before;
    QStringList log;
    int version;
    QStringList updates; ///< the column and the id of every row that was rewritten, in this order
    QStringList devices;
    QStringList receivers;
};

const QByteArray namesAt24 =
    "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT NOT NULL, isoName TEXT);"
    "CREATE TABLE farms (id INTEGER PRIMARY KEY, growerId INTEGER, isoName TEXT, "
    "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE);"
    "CREATE TABLE fields (id INTEGER PRIMARY KEY, partfieldCode TEXT, farmId INTEGER, isoName TEXT, "
    "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE);"
    "INSERT INTO growers VALUES(1, 'Müller', 'Mueller'), (2, 'Петров', NULL);"
    "INSERT INTO farms VALUES(1, 2, 'Nord');"
    "INSERT INTO fields VALUES(1, '09-117', 1, 'Am Bach');";
const QByteArray namesAt25 = QByteArray(namesAt24).replace("isoName", "originalName");

// What a rebuild leaves, forward and backward.
const QStringList growersForward = {
    "CREATE TABLE \"growers\" (id INTEGER , displayName TEXT NOT NULL  , originalName TEXT , "
    "PRIMARY KEY(id) )",
    "1, 'Müller', 'Mueller'",
    "2, 'Петров', NULL"};
const QStringList farmsForward = {
    "CREATE TABLE \"farms\" (id INTEGER , growerId INTEGER , originalName TEXT , PRIMARY KEY(id) , "
    "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE)",
    "1, 2, 'Nord'"};
const QStringList fieldsForward = {
    "CREATE TABLE \"fields\" (id INTEGER , partfieldCode TEXT , farmId INTEGER , "
    "originalName TEXT , PRIMARY KEY(id) , "
    "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)",
    "1, '09-117', 1, 'Am Bach'"};
const QStringList growersBackward = {
    "CREATE TABLE \"growers\" (id INTEGER , displayName TEXT NOT NULL  , isoName TEXT , "
    "PRIMARY KEY(id) )",
    "1, 'Müller', 'Mueller'",
    "2, 'Петров', NULL"};
const QStringList farmsBackward = {
    "CREATE TABLE \"farms\" (id INTEGER , growerId INTEGER , isoName TEXT , PRIMARY KEY(id) , "
    "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE)",
    "1, 2, 'Nord'"};
const char *const fieldTableBackward =
    "CREATE TABLE \"fields\" (id INTEGER , farmId INTEGER , isoName TEXT , partfieldCode TEXT , "
    "PRIMARY KEY(id) , FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)";
const QStringList fieldsBackward = {fieldTableBackward, "1, 1, 'Am Bach', '09-117'"};

/// The ports' tables, and one that gets a line for every row that is rewritten.
const QByteArray portTables =
    "CREATE TABLE serialDevices (id INTEGER, mc_id INTEGER, portName TEXT);"
    "CREATE TABLE gpsReceivers (id INTEGER, machineConfigId INTEGER, receiverId TEXT, "
    "serialPortName TEXT);"
    "CREATE TABLE updates (line TEXT);"
    "CREATE TRIGGER deviceRewritten AFTER UPDATE OF portName ON serialDevices "
    "BEGIN INSERT INTO updates VALUES('portName ' || NEW.id); END;"
    "CREATE TRIGGER receiverRewritten AFTER UPDATE OF receiverId ON gpsReceivers "
    "BEGIN INSERT INTO updates VALUES('receiverId ' || NEW.id); END;"
    "CREATE TRIGGER portRewritten AFTER UPDATE OF serialPortName ON gpsReceivers "
    "BEGIN INSERT INTO updates VALUES('serialPortName ' || NEW.id); END;";

const QString succeeded = "Migration to version 25 was successful.";
const QString failed = "Migration to version 25 FAILED!";
const QString notAuthorized = "not authorized Unable to execute statement";

/// What the step leaves of its tables; a copy that a rebuild leaves shows after its table.
QStringList readNames(ScratchDevice &device)
{
    return contents(
        device, {"growers", "growers_temp", "farms", "farms_temp", "fields", "fields_temp"});
}

QByteArray refusal(const char *table)
{
    return QByteArray("CREATE TRIGGER refusal BEFORE UPDATE ON ") + table +
           " BEGIN SELECT RAISE(ABORT, 'refused'); END;";
}
} // namespace
Q_DECLARE_METATYPE(PortRun)

class Version25Test : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void updateToVersion25_data();
    void updateToVersion25();
    void updateToVersion25WithOnBoardPorts_data();
    void updateToVersion25WithOnBoardPorts();
    void revertFromVersion25_data();
    void revertFromVersion25();
    void revertFromVersion25WithOnBoardPorts_data();
    void revertFromVersion25WithOnBoardPorts();
    void comparesThePlatformExactly_data();
    void comparesThePlatformExactly();
    void getUpdate25Applied_data();
    void getUpdate25Applied();
    void closedConnection();

private:
    void runOnPorts(Step step);

    std::unique_ptr<ScratchDevice> device;
};

void Version25Test::init()
{
    device = std::make_unique<ScratchDevice>();
}

void Version25Test::cleanup()
{
    device.reset();
}

/// Runs a step as the test's row "run" says, on the platform with on-board ports.
void Version25Test::runOnPorts(Step step)
{
    QFETCH(PortRun, run);
    device->sql(run.before);
    ScratchDevice::writeFile(ScratchDevice::platformPath, "TORVIKMAX\n");
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);

    (migrator.*step)();

    COMPARE_LINES(takeLogLines(*device), run.log);
    QCOMPARE(migrator.currentVersion(), run.version);
    QStringList updates = device->rows("SELECT * FROM updates");
    COMPARE_LINES(updates.replaceInStrings("'", ""), run.updates);
    COMPARE_LINES(contents(*device, {"serialDevices"}).mid(1), run.devices);
    COMPARE_LINES(contents(*device, {"gpsReceivers"}).mid(1), run.receivers);
}

void Version25Test::updateToVersion25_data()
{
    QTest::addColumn<StepRun>("run");

    QTest::newRow("original names take the place of ISO names")
        << StepRun{namesAt24, {succeeded}, 25, growersForward + farmsForward + fieldsForward};
    QTest::newRow("a second time")
        << StepRun{namesAt25, {succeeded}, 25, growersForward + farmsForward + fieldsForward};
    QTest::newRow("original names that are there stay, the ISO names go") << StepRun{
        namesAt24 + "ALTER TABLE growers ADD COLUMN originalName TEXT;"
                    "UPDATE growers SET originalName = 'Hof ' || id;",
        {succeeded},
        25,
        QStringList({growersForward[0], "1, 'Müller', 'Hof 1'", "2, 'Петров', 'Hof 2'"}) +
            farmsForward + fieldsForward};

    QTest::newRow("original names in other letter case are not seen") << StepRun{
        namesAt24 + "ALTER TABLE growers ADD COLUMN OriginalName TEXT;",
        notAdded(
            "originalName",
            "growers",
            "duplicate column name: originalName Unable to execute statement") +
            QStringList(failed),
        versionUnmoved,
        QStringList(growersForward).replaceInStrings("originalName", "OriginalName") +
            farmsForward + fieldsForward};
    QTest::newRow("a name cannot be copied and is lost") << StepRun{
        namesAt24 + refusal("farms"),
        notSet("originalName", "isoName", rowRefused) + QStringList(failed),
        versionUnmoved,
        growersForward + QStringList({farmsForward[0], "1, 2, NULL"}) + fieldsForward};
    QTest::newRow("no ISO names to copy") << StepRun{
        namesAt24 + "ALTER TABLE fields DROP COLUMN isoName;",
        notSet("originalName", "isoName", "no such column: isoName Unable to execute statement") +
            QStringList(failed),
        versionUnmoved,
        growersForward + farmsForward + QStringList({fieldsForward[0], "1, '09-117', 1, NULL"})};
    QTest::newRow("ISO names of growers cannot be dropped") << StepRun{
        namesAt24 + "CREATE TABLE growers_temp (id);",
        columnStays("isoName", "growers", copyInTheWay("growers")) + QStringList(failed),
        versionUnmoved,
        QStringList(
            {"CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT NOT NULL, "
             "isoName TEXT, originalName TEXT)",
             "1, 'Müller', 'Mueller', 'Mueller'",
             "2, 'Петров', NULL, NULL",
             "CREATE TABLE growers_temp (id)"}) +
            farmsForward + fieldsForward};
    QTest::newRow("ISO names of farms cannot be dropped") << StepRun{
        namesAt24 + "CREATE TABLE farms_temp (id);",
        columnStays("isoName", "farms", copyInTheWay("farms")) + QStringList(failed),
        versionUnmoved,
        growersForward +
            QStringList(
                {"CREATE TABLE farms (id INTEGER PRIMARY KEY, growerId INTEGER, "
                 "isoName TEXT, originalName TEXT, "
                 "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE)",
                 "1, 2, 'Nord', 'Nord'",
                 "CREATE TABLE farms_temp (id)"}) +
            fieldsForward};
    QTest::newRow("ISO names of fields cannot be dropped") << StepRun{
        namesAt24 + "CREATE TABLE fields_temp (id);",
        columnStays("isoName", "fields", copyInTheWay("fields")) + QStringList(failed),
        versionUnmoved,
        growersForward + farmsForward +
            QStringList(
                {"CREATE TABLE fields (id INTEGER PRIMARY KEY, partfieldCode TEXT, "
                 "farmId INTEGER, isoName TEXT, originalName TEXT, "
                 "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)",
                 "1, '09-117', 1, 'Am Bach', 'Am Bach'",
                 "CREATE TABLE fields_temp (id)"})};

    QTest::newRow("no table: everything is tried") << StepRun{
        "",
        notAdded("originalName", "growers", noSuchTable("growers")) +
            notSet("originalName", "isoName", noSuchTable("growers")) +
            notAdded("originalName", "farms", noSuchTable("farms")) +
            notSet("originalName", "isoName", noSuchTable("farms")) +
            notAdded("originalName", "fields", noSuchTable("fields")) +
            notSet("originalName", "isoName", noSuchTable("fields")) +
            columnStays("isoName", "growers", rebuildRefused) +
            columnStays("isoName", "farms", rebuildRefused) +
            columnStays("isoName", "fields", rebuildRefused) + QStringList(failed),
        versionUnmoved,
        {}};
}

void Version25Test::updateToVersion25()
{
    checkStep(*device, &DatabaseMigrator::updateToVersion25, readNames);
}

void Version25Test::updateToVersion25WithOnBoardPorts_data()
{
    QTest::addColumn<PortRun>("run");

    const QByteArray before = namesAt24 + portTables;
    QTest::newRow("USB adapters become on-board ports, other names are rewritten as they are")
        << PortRun{
               before +
                   "INSERT INTO serialDevices VALUES(1, 5, 'ttyUSB0'), (2, 5, '/dev/ttymxc2'), "
                   "(3, 5, 'ttymxc1'), (4, 6, 'ttyUSB1 ttymxc2'), (5, 6, 'ttyusb1 ttymxc2'), "
                   "(6, 6, 'USB-USB'), (7, 6, 'ttymxc2,ttymxc2'), (8, 6, 'TTYMXC2'), "
                   "(9, 6, 'tty%1USB%2'), (10, 6, NULL), (11, NULL, 'ttyS3');"
                   "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyUSB0', '/dev/ttyUSB0'), "
                   "(2, 5, '', 'ttymxc2'), (3, 5, 'ttymxc2', 'ttyS4'), (4, 5, NULL, NULL);",
               {succeeded},
               25,
               {"portName 1",
                "portName 2",
                "portName 3",
                "portName 4",
                "portName 5",
                "portName 6",
                "portName 7",
                "portName 8",
                "portName 9",
                "portName 10",
                "portName 11",
                "receiverId 1",
                "receiverId 2",
                "receiverId 3",
                "receiverId 4",
                "serialPortName 1",
                "serialPortName 2",
                "serialPortName 3",
                "serialPortName 4"},
               {"1, 5, 'ttyS0'",
                "2, 5, '/dev/gps1'",
                "3, 5, 'ttymxc1'",
                "4, 6, 'ttyS1 ttymxc2'",
                "5, 6, 'ttyusb1 gps1'",
                "6, 6, 'S-S'",
                "7, 6, 'gps1,gps1'",
                "8, 6, 'TTYMXC2'",
                "9, 6, 'tty%1S%2'",
                "10, 6, ''",
                "11, NULL, 'ttyS3'"},
               {"1, 5, 'ttyS0', '/dev/ttyS0'",
                "2, 5, '', 'gps1'",
                "3, 5, 'gps1', 'ttyS4'",
                "4, 5, '', ''"}};
    QTest::newRow("no device and no receiver") << PortRun{before, {succeeded}, 25, {}, {}, {}};
    QTest::newRow("rows are rewritten by ascending id") << PortRun{
        before + "INSERT INTO serialDevices VALUES(5000000000, 5, 'a'), (-3, 5, 'b'), "
                 "(7, 5, 'USB');"
                 "INSERT INTO gpsReceivers VALUES(10, 5, 'c', 'd'), (9, 5, 'e', 'f');",
        {succeeded},
        25,
        {"portName -3",
         "portName 7",
         "portName 5000000000",
         "receiverId 9",
         "receiverId 10",
         "serialPortName 9",
         "serialPortName 10"},
        {"5000000000, 5, 'a'", "-3, 5, 'b'", "7, 5, 'S'"},
        {"10, 5, 'c', 'd'", "9, 5, 'e', 'f'"}};
    QTest::newRow("of rows with one id the last one's name goes to all") << PortRun{
        before + "INSERT INTO serialDevices VALUES(1, 5, 'ttyUSB0'), (1, 6, 'ttyUSB1');",
        {succeeded},
        25,
        {"portName 1", "portName 1"},
        {"1, 5, 'ttyS1'", "1, 6, 'ttyS1'"},
        {}};
    QTest::newRow("the names are read by their place, not by their column's name") << PortRun{
        namesAt24 + "CREATE TABLE updates (line);"
                    "CREATE TABLE serialDevices (id, portName, mount);"
                    "CREATE TABLE gpsReceivers (id, serialPortName, mount, receiverId);"
                    "INSERT INTO serialDevices VALUES(1, 'ttyUSB0', 'USB hub');"
                    "INSERT INTO gpsReceivers VALUES(1, 'ttyUSB1', 'USB box', 'ttymxc2');",
        {succeeded},
        25,
        {},
        {"1, 'S hub', 'USB hub'"},
        {"1, 'gps1', 'USB box', 'S box'"}};

    QTest::newRow("a device's name holds a quote: the others go on, the receivers stay") << PortRun{
        before + "INSERT INTO serialDevices VALUES(1, 5, 'ttyUSB0'), (2, 5, 'tty''s'), "
                 "(3, 5, 'ttyUSB3');"
                 "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyUSB0', 'ttyUSB0');",
        {"Error while updating to version 25. Error was: near \"s\": syntax error", failed},
        versionUnmoved,
        {"portName 1", "portName 3"},
        {"1, 5, 'ttyS0'", "2, 5, 'tty''s'", "3, 5, 'ttyS3'"},
        {"1, 5, 'ttyUSB0', 'ttyUSB0'"}};
    QTest::newRow("a receiver's id holds a quote: the other ids and all its ports go on")
        << PortRun{
               before + "INSERT INTO gpsReceivers VALUES(1, 5, 'r''s', 'ttyUSB1'), "
                        "(2, 5, 'ttyUSB2', 'ttyUSB2');",
               {"Error while updating to version 25. Error was: near \"s\": syntax error", failed},
               versionUnmoved,
               {"receiverId 2", "serialPortName 1", "serialPortName 2"},
               {},
               {"1, 5, 'r''s', 'ttyS1'", "2, 5, 'ttyS2', 'ttyS2'"}};
    QTest::newRow("a receiver's port holds a quote: the others go on") << PortRun{
        before + "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyUSB1', 'tty''s'), "
                 "(2, 5, 'ttyUSB2', 'ttyUSB2');",
        {"Error while updating to version 25. Error was: near \"s\": syntax error", failed},
        versionUnmoved,
        {"receiverId 1", "receiverId 2", "serialPortName 2"},
        {},
        {"1, 5, 'ttyS1', 'tty''s'", "2, 5, 'ttyS2', 'ttyS2'"}};
    QTest::newRow("no receiver can be rewritten") << PortRun{
        before + "CREATE TRIGGER refusal BEFORE UPDATE ON gpsReceivers "
                 "BEGIN SELECT RAISE(ABORT, 'refused'); END;"
                 "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyUSB1', 'ttyUSB1');",
        {"Error while updating to version 25. Error was: refused",
         "Error while updating to version 25. Error was: refused",
         failed},
        versionUnmoved,
        {},
        {},
        {"1, 5, 'ttyUSB1', 'ttyUSB1'"}};
    QTest::newRow("no devices' table: the receivers stay") << PortRun{
        before + "DROP TABLE serialDevices;"
                 "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyUSB0', 'ttyUSB0');",
        {failed},
        versionUnmoved,
        {},
        {},
        {"1, 5, 'ttyUSB0', 'ttyUSB0'"}};
    const QByteArray twoPorts =
        "INSERT INTO serialDevices VALUES(1, 5, 'ttyUSB0'), (2, 5, 'ttyUSB1');"
        "INSERT INTO gpsReceivers VALUES(1, 5, 'r1', 'ttyUSB0'), (2, 5, 'r2', 'ttyUSB1');";
    QTest::newRow("the devices break off: none is rewritten, nor a receiver") << PortRun{
        before + twoPorts + makeUnreadable("serialDevices", "portName TEXT", "id = 2"),
        {failed},
        versionUnmoved,
        {},
        {"1, 5, 'ttyUSB0', 'ttyUSB0'"},
        {"1, 5, 'r1', 'ttyUSB0'", "2, 5, 'r2', 'ttyUSB1'"}};
    QTest::newRow("the receivers break off: none is rewritten") << PortRun{
        before + twoPorts + makeUnreadable("gpsReceivers", "serialPortName TEXT", "id = 2"),
        {failed},
        versionUnmoved,
        {"portName 1", "portName 2"},
        {"1, 5, 'ttyS0'", "2, 5, 'ttyS1'"},
        {"1, 5, 'r1', 'ttyUSB0', 'ttyUSB0'"}};
    QTest::newRow("no receivers' table") << PortRun{
        before + "DROP TABLE gpsReceivers;"
                 "INSERT INTO serialDevices VALUES(1, 5, 'ttyUSB0');",
        {failed},
        versionUnmoved,
        {"portName 1"},
        {"1, 5, 'ttyS0'"},
        {}};
    QTest::newRow("a column has failed before: the devices go on, the receivers stay") << PortRun{
        before + "CREATE TABLE farms_temp (id);"
                 "INSERT INTO serialDevices VALUES(1, 5, 'tty''s'), (2, 5, 'ttyUSB2');"
                 "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyUSB0', 'ttyUSB0');",
        columnStays("isoName", "farms", copyInTheWay("farms")) +
            QStringList(
                {"Error while updating to version 25. Error was: near \"s\": syntax error",
                 failed}),
        versionUnmoved,
        {"portName 2"},
        {"1, 5, 'tty''s'", "2, 5, 'ttyS2'"},
        {"1, 5, 'ttyUSB0', 'ttyUSB0'"}};
}

void Version25Test::updateToVersion25WithOnBoardPorts()
{
    runOnPorts(&DatabaseMigrator::updateToVersion25);
}

void Version25Test::revertFromVersion25_data()
{
    QTest::addColumn<StepRun>("run");

    QTest::newRow("ISO names take the place of original names, codes move to the end")
        << StepRun{namesAt25, {}, 24, growersBackward + farmsBackward + fieldsBackward};
    QTest::newRow("ISO names that are there are overwritten") << StepRun{
        namesAt25 + "ALTER TABLE growers ADD COLUMN isoName TEXT;"
                    "UPDATE growers SET isoName = 'Hof ' || id;",
        {},
        24,
        growersBackward + farmsBackward + fieldsBackward};
    QTest::newRow("codes become texts") << StepRun{
        namesAt25 + "ALTER TABLE fields DROP COLUMN partfieldCode;"
                    "ALTER TABLE fields ADD COLUMN partfieldCode INTEGER DEFAULT 117;",
        {},
        24,
        growersBackward + farmsBackward +
            QStringList({fieldTableBackward, "1, 1, 'Am Bach', '117'"})};
    QTest::newRow("a second time: there is no original name to copy") << StepRun{
        namesAt24,
        notSet(
            "isoName", "originalName", "no such column: originalName Unable to execute statement") +
            notSet(
                "isoName",
                "originalName",
                "no such column: originalName Unable to execute statement") +
            notSet(
                "isoName",
                "originalName",
                "no such column: originalName Unable to execute statement"),
        versionUnmoved,
        growersBackward + farmsBackward + fieldsBackward};

    const QString duplicateName = "duplicate column name: isoName Unable to execute statement";
    QTest::newRow("ISO names of growers in other letter case") << StepRun{
        namesAt25 + "ALTER TABLE growers ADD COLUMN IsoName TEXT;",
        notAdded("isoName", "growers", duplicateName),
        versionUnmoved,
        QStringList(growersBackward).replaceInStrings("isoName", "IsoName") + farmsBackward +
            fieldsBackward};
    QTest::newRow("ISO names of farms in other letter case") << StepRun{
        namesAt25 + "ALTER TABLE farms ADD COLUMN IsoName TEXT;",
        notAdded("isoName", "farms", duplicateName),
        versionUnmoved,
        growersBackward + QStringList(farmsBackward).replaceInStrings("isoName", "IsoName") +
            fieldsBackward};
    QTest::newRow("ISO names of fields in other letter case") << StepRun{
        namesAt25 + "ALTER TABLE fields ADD COLUMN IsoName TEXT;",
        notAdded("isoName", "fields", duplicateName),
        versionUnmoved,
        growersBackward + farmsBackward +
            QStringList(fieldsBackward).replaceInStrings("isoName", "IsoName")};

    QTest::newRow("names of growers cannot be copied and are lost") << StepRun{
        namesAt25 + refusal("growers"),
        notSet("isoName", "originalName", rowRefused),
        versionUnmoved,
        QStringList({growersBackward[0], "1, 'Müller', NULL", "2, 'Петров', NULL"}) +
            farmsBackward + fieldsBackward};
    QTest::newRow("names of farms cannot be copied and are lost") << StepRun{
        namesAt25 + refusal("farms"),
        notSet("isoName", "originalName", rowRefused),
        versionUnmoved,
        growersBackward + QStringList({farmsBackward[0], "1, 2, NULL"}) + fieldsBackward};
    QTest::newRow("names of fields cannot be copied and are lost") << StepRun{
        namesAt25 + refusal("fields"),
        notSet("isoName", "originalName", rowRefused),
        versionUnmoved,
        growersBackward + farmsBackward +
            QStringList({fieldTableBackward, "1, 1, NULL, '09-117'"})};

    QTest::newRow("original names of growers cannot be dropped") << StepRun{
        namesAt25 + "CREATE TABLE growers_temp (id);",
        columnStays("originalName", "growers", copyInTheWay("growers")),
        versionUnmoved,
        QStringList(
            {"CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT NOT NULL, "
             "originalName TEXT, isoName TEXT)",
             "1, 'Müller', 'Mueller', 'Mueller'",
             "2, 'Петров', NULL, NULL",
             "CREATE TABLE growers_temp (id)"}) +
            farmsBackward + fieldsBackward};
    QTest::newRow("original names of farms cannot be dropped") << StepRun{
        namesAt25 + "CREATE TABLE farms_temp (id);",
        columnStays("originalName", "farms", copyInTheWay("farms")),
        versionUnmoved,
        growersBackward +
            QStringList(
                {"CREATE TABLE farms (id INTEGER PRIMARY KEY, growerId INTEGER, "
                 "originalName TEXT, isoName TEXT, "
                 "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE)",
                 "1, 2, 'Nord', 'Nord'",
                 "CREATE TABLE farms_temp (id)"}) +
            fieldsBackward};

    // The statements of fields alone: their table is rebuilt three times.
    const auto withFields = [](const QByteArray &columnsAndKey, const QByteArray &values) {
        return namesAt25 + "DROP TABLE fields;CREATE TABLE fields (" + columnsAndKey +
               ");INSERT INTO fields VALUES(" + values + ");";
    };
    QTest::newRow("original names of fields cannot be dropped") << StepRun{
        withFields(
            "id INTEGER, partfieldCode TEXT, originalName TEXT, "
            "PRIMARY KEY (originalName, id)",
            "1, '09-117', 'Am Bach'"),
        columnStays("originalName", "fields", keyRefused),
        versionUnmoved,
        growersBackward + farmsBackward +
            QStringList(
                {"CREATE TABLE \"fields\" (id INTEGER , originalName TEXT , isoName TEXT , "
                 "partfieldCode TEXT , PRIMARY KEY(originalName,id) )",
                 "1, 'Am Bach', 'Am Bach', '09-117'"})};
    QTest::newRow("a leftover copy of fields: none of their columns can be dropped") << StepRun{
        namesAt25 + "CREATE TABLE fields_temp (id);",
        columnStays("originalName", "fields", copyInTheWay("fields")) +
            columnStays("partfieldCode", "fields", copyInTheWay("fields")) +
            columnStays("partfieldCode_temp", "fields", copyInTheWay("fields")),
        versionUnmoved,
        growersBackward + farmsBackward +
            QStringList(
                {"CREATE TABLE fields (id INTEGER PRIMARY KEY, partfieldCode TEXT, "
                 "farmId INTEGER, originalName TEXT, isoName TEXT, "
                 "partfieldCode_temp TEXT, "
                 "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)",
                 "1, '09-117', 1, 'Am Bach', 'Am Bach', '09-117'",
                 "CREATE TABLE fields_temp (id)"})};
    QTest::newRow("the codes' other column is there in other letter case") << StepRun{
        namesAt25 + "ALTER TABLE fields ADD COLUMN PartfieldCode_Temp TEXT;",
        notAdded(
            "partfieldCode_temp",
            "fields",
            "duplicate column name: partfieldCode_temp Unable to execute statement"),
        versionUnmoved,
        growersBackward + farmsBackward + fieldsBackward};
    QTest::newRow("the codes' other column is there and holds something") << StepRun{
        namesAt25 + "ALTER TABLE fields ADD COLUMN partfieldCode_temp TEXT DEFAULT 'old';",
        {},
        24,
        growersBackward + farmsBackward + fieldsBackward};
    QTest::newRow("codes cannot be copied aside and are lost") << StepRun{
        namesAt25,
        notSet("partfieldCode_temp", "partfieldCode", notAuthorized),
        versionUnmoved,
        growersBackward + farmsBackward +
            QStringList({fieldTableBackward, "1, 1, 'Am Bach', NULL"}),
        {{SQLITE_UPDATE, "fields", "partfieldCode_temp"}}};
    QTest::newRow("no codes: the column is made all the same") << StepRun{
        namesAt25 + "ALTER TABLE fields DROP COLUMN partfieldCode;",
        notSet(
            "partfieldCode_temp",
            "partfieldCode",
            "no such column: partfieldCode Unable to execute statement"),
        versionUnmoved,
        growersBackward + farmsBackward +
            QStringList({fieldTableBackward, "1, 1, 'Am Bach', NULL"})};
    QTest::newRow("the codes' column cannot be dropped") << StepRun{
        withFields(
            "id INTEGER, partfieldCode TEXT, originalName TEXT, "
            "PRIMARY KEY (partfieldCode, id)",
            "1, '09-117', 'Am Bach'"),
        columnStays("partfieldCode", "fields", keyRefused),
        versionUnmoved,
        growersBackward + farmsBackward +
            QStringList(
                {"CREATE TABLE \"fields\" (id INTEGER , partfieldCode TEXT , "
                 "isoName TEXT , PRIMARY KEY(partfieldCode,id) )",
                 "1, '09-117', 'Am Bach'"})};
    QTest::newRow("the codes' column cannot be made again, the codes are lost") << StepRun{
        namesAt25 + "ALTER TABLE fields ADD COLUMN isoName TEXT;"
                    "ALTER TABLE fields ADD COLUMN partfieldCode_temp TEXT;",
        notAdded("partfieldCode", "fields", notAuthorized) +
            notSet(
                "partfieldCode",
                "partfieldCode_temp",
                "no such column: partfieldCode Unable to execute statement"),
        versionUnmoved,
        growersBackward + farmsBackward +
            QStringList(
                {"CREATE TABLE \"fields\" (id INTEGER , farmId INTEGER , isoName TEXT , "
                 "PRIMARY KEY(id) , "
                 "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)",
                 "1, 1, 'Am Bach'"}),
        {{SQLITE_ALTER_TABLE, "main", "fields"}}};
    QTest::newRow("codes cannot be copied back and are lost") << StepRun{
        namesAt25,
        notSet("partfieldCode", "partfieldCode_temp", notAuthorized),
        versionUnmoved,
        growersBackward + farmsBackward +
            QStringList({fieldTableBackward, "1, 1, 'Am Bach', NULL"}),
        {{SQLITE_UPDATE, "fields", "partfieldCode"}}};
    QTest::newRow("the codes' other column cannot be dropped") << StepRun{
        withFields(
            "id INTEGER, partfieldCode TEXT, partfieldCode_temp TEXT, originalName TEXT, "
            "PRIMARY KEY (partfieldCode_temp, id)",
            "1, '09-117', 'old', 'Am Bach'"),
        columnStays("partfieldCode_temp", "fields", keyRefused),
        versionUnmoved,
        growersBackward + farmsBackward +
            QStringList(
                {"CREATE TABLE \"fields\" (id INTEGER , partfieldCode_temp TEXT , "
                 "isoName TEXT , partfieldCode TEXT, PRIMARY KEY(partfieldCode_temp,id) )",
                 "1, '09-117', 'Am Bach', '09-117'"})};

    QTest::newRow("no table: all fifteen statements are tried") << StepRun{
        "",
        notAdded("isoName", "growers", noSuchTable("growers")) +
            notAdded("isoName", "farms", noSuchTable("farms")) +
            notAdded("isoName", "fields", noSuchTable("fields")) +
            notSet("isoName", "originalName", noSuchTable("growers")) +
            notSet("isoName", "originalName", noSuchTable("farms")) +
            notSet("isoName", "originalName", noSuchTable("fields")) +
            columnStays("originalName", "growers", rebuildRefused) +
            columnStays("originalName", "farms", rebuildRefused) +
            columnStays("originalName", "fields", rebuildRefused) +
            notAdded("partfieldCode_temp", "fields", noSuchTable("fields")) +
            notSet("partfieldCode_temp", "partfieldCode", noSuchTable("fields")) +
            columnStays("partfieldCode", "fields", rebuildRefused) +
            notAdded("partfieldCode", "fields", noSuchTable("fields")) +
            notSet("partfieldCode", "partfieldCode_temp", noSuchTable("fields")) +
            columnStays("partfieldCode_temp", "fields", rebuildRefused),
        versionUnmoved,
        {}};
}

void Version25Test::revertFromVersion25()
{
    checkStep(*device, &DatabaseMigrator::revertFromVersion25, readNames);
}

void Version25Test::revertFromVersion25WithOnBoardPorts_data()
{
    QTest::addColumn<PortRun>("run");

    const QByteArray before = namesAt25 + portTables;
    QTest::newRow("on-board ports become USB adapters, also those that never were") << PortRun{
        before + "INSERT INTO serialDevices VALUES(1, 5, 'ttyS0'), (2, 5, '/dev/gps1'), "
                 "(3, 5, 'ttymxc1'), (4, 6, 'ttyS1 gps1'), (5, 6, 'ttys1 gps1'), "
                 "(6, 6, 'ttyS-ttyS'), (7, 6, 'gps1,gps1'), (8, 6, 'S4'), (9, 6, 'ttyS%1%2'), "
                 "(10, 6, NULL), (11, NULL, 'ttyUSB3');"
                 "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyS0', '/dev/ttyS0'), "
                 "(2, 5, '', 'gps1'), (3, 5, 'gps1', 'ttyUSB4'), (4, 5, NULL, NULL);",
        {},
        24,
        {"portName 1",
         "portName 2",
         "portName 3",
         "portName 4",
         "portName 5",
         "portName 6",
         "portName 7",
         "portName 8",
         "portName 9",
         "portName 10",
         "portName 11",
         "receiverId 1",
         "receiverId 2",
         "receiverId 3",
         "receiverId 4",
         "serialPortName 1",
         "serialPortName 2",
         "serialPortName 3",
         "serialPortName 4"},
        {"1, 5, 'ttyUSB0'",
         "2, 5, '/dev/ttymxc2'",
         "3, 5, 'ttymxc1'",
         "4, 6, 'ttyUSB1 gps1'",
         "5, 6, 'ttys1 ttymxc2'",
         "6, 6, 'ttyUSB-ttyUSB'",
         "7, 6, 'ttymxc2,ttymxc2'",
         "8, 6, 'S4'",
         "9, 6, 'ttyUSB%1%2'",
         "10, 6, ''",
         "11, NULL, 'ttyUSB3'"},
        {"1, 5, 'ttyUSB0', '/dev/ttyUSB0'",
         "2, 5, '', 'ttymxc2'",
         "3, 5, 'ttymxc2', 'ttyUSB4'",
         "4, 5, '', ''"}};
    QTest::newRow("no device and no receiver") << PortRun{before, {}, 24, {}, {}, {}};

    QTest::newRow("a device's name holds a quote: the others go on, the receivers stay") << PortRun{
        before + "INSERT INTO serialDevices VALUES(1, 5, 'ttyS0'), (2, 5, 'tty''s'), "
                 "(3, 5, 'ttyS3');"
                 "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyS0', 'ttyS0');",
        {"Error while reverting to version 24. Error was: near \"s\": syntax error"},
        versionUnmoved,
        {"portName 1", "portName 3"},
        {"1, 5, 'ttyUSB0'", "2, 5, 'tty''s'", "3, 5, 'ttyUSB3'"},
        {"1, 5, 'ttyS0', 'ttyS0'"}};
    QTest::newRow("a receiver's id holds a quote: the other ids and all its ports go on")
        << PortRun{
               before + "INSERT INTO gpsReceivers VALUES(1, 5, 'r''s', 'ttyS1'), "
                        "(2, 5, 'ttyS2', 'ttyS2');",
               {"Error while reverting to version 24. Error was: near \"s\": syntax error"},
               versionUnmoved,
               {"receiverId 2", "serialPortName 1", "serialPortName 2"},
               {},
               {"1, 5, 'r''s', 'ttyUSB1'", "2, 5, 'ttyUSB2', 'ttyUSB2'"}};
    QTest::newRow("a receiver's port holds a quote: the others go on") << PortRun{
        before + "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyS1', 'tty''s'), "
                 "(2, 5, 'ttyS2', 'ttyS2');",
        {"Error while reverting to version 24. Error was: near \"s\": syntax error"},
        versionUnmoved,
        {"receiverId 1", "receiverId 2", "serialPortName 2"},
        {},
        {"1, 5, 'ttyUSB1', 'tty''s'", "2, 5, 'ttyUSB2', 'ttyUSB2'"}};
    QTest::newRow("no devices' table: the receivers stay") << PortRun{
        before + "DROP TABLE serialDevices;"
                 "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyS0', 'ttyS0');",
        {},
        versionUnmoved,
        {},
        {},
        {"1, 5, 'ttyS0', 'ttyS0'"}};
    const QByteArray twoPorts =
        "INSERT INTO serialDevices VALUES(1, 5, 'ttyS0'), (2, 5, 'ttyS1');"
        "INSERT INTO gpsReceivers VALUES(1, 5, 'r1', 'ttyS0'), (2, 5, 'r2', 'ttyS1');";
    QTest::newRow("the devices break off: none is rewritten, nor a receiver") << PortRun{
        before + twoPorts + makeUnreadable("serialDevices", "portName TEXT", "id = 2"),
        {},
        versionUnmoved,
        {},
        {"1, 5, 'ttyS0', 'ttyS0'"},
        {"1, 5, 'r1', 'ttyS0'", "2, 5, 'r2', 'ttyS1'"}};
    QTest::newRow("the receivers break off: none is rewritten") << PortRun{
        before + twoPorts + makeUnreadable("gpsReceivers", "serialPortName TEXT", "id = 2"),
        {},
        versionUnmoved,
        {"portName 1", "portName 2"},
        {"1, 5, 'ttyUSB0'", "2, 5, 'ttyUSB1'"},
        {"1, 5, 'r1', 'ttyS0', 'ttyS0'"}};
    QTest::newRow("no receivers' table") << PortRun{
        before + "DROP TABLE gpsReceivers;"
                 "INSERT INTO serialDevices VALUES(1, 5, 'ttyS0');",
        {},
        versionUnmoved,
        {"portName 1"},
        {"1, 5, 'ttyUSB0'"},
        {}};
    QTest::newRow("a column has failed before: the devices go on, the receivers stay") << PortRun{
        before + "CREATE TABLE farms_temp (id);"
                 "INSERT INTO serialDevices VALUES(1, 5, 'tty''s'), (2, 5, 'ttyS2');"
                 "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyS0', 'ttyS0');",
        columnStays("originalName", "farms", copyInTheWay("farms")) +
            QStringList("Error while reverting to version 24. Error was: near \"s\": syntax error"),
        versionUnmoved,
        {"portName 2"},
        {"1, 5, 'tty''s'", "2, 5, 'ttyUSB2'"},
        {"1, 5, 'ttyS0', 'ttyS0'"}};
}

void Version25Test::revertFromVersion25WithOnBoardPorts()
{
    runOnPorts(&DatabaseMigrator::revertFromVersion25);
}

void Version25Test::comparesThePlatformExactly_data()
{
    QTest::addColumn<QByteArray>("platform");
    QTest::addColumn<QStringList>("forward");
    QTest::addColumn<QStringList>("backward");

    const QStringList untouched = {"1, 5, 'ttyUSB0'", "2, 5, 'ttyS5'"};
    const QStringList onBoard = {"1, 5, 'ttyS0'", "2, 5, 'ttyS5'"};
    const QStringList usb = {"1, 5, 'ttyUSB0'", "2, 5, 'ttyUSB5'"};
    QTest::newRow("TORVIKMAX") << QByteArray("TORVIKMAX\n") << onBoard << usb;
    QTest::newRow("TORVIKMAX above other lines")
        << QByteArray("TORVIKMAX\nTORVIK\n") << onBoard << usb;
    QTest::newRow("TORVIK") << QByteArray("TORVIK\n") << untouched << untouched;
    QTest::newRow("lower case") << QByteArray("torvikmax\n") << untouched << untouched;
    QTest::newRow("a longer name") << QByteArray("TORVIKMAX2\n") << untouched << untouched;
    QTest::newRow("TORVIKMAX after a blank")
        << QByteArray(" TORVIKMAX\n") << untouched << untouched;
    QTest::newRow("TORVIKMAX in the second line")
        << QByteArray("\nTORVIKMAX\n") << untouched << untouched;
    QTest::newRow("no platform file") << QByteArray() << untouched << untouched;
}

void Version25Test::comparesThePlatformExactly()
{
    QFETCH(QByteArray, platform);
    device->sql(
        namesAt24 + portTables +
        "INSERT INTO serialDevices VALUES(1, 5, 'ttyUSB0'), (2, 5, 'ttyS5');");
    if (!platform.isNull()) {
        ScratchDevice::writeFile(ScratchDevice::platformPath, platform);
    }
    DatabaseMigrator &migrator = startAt(*device, 24);

    migrator.updateToVersion25();
    QCOMPARE(migrator.currentVersion(), 25);
    QTEST(device->rows("SELECT * FROM serialDevices"), "forward");
    migrator.revertFromVersion25();
    QCOMPARE(migrator.currentVersion(), 24);
    QTEST(device->rows("SELECT * FROM serialDevices"), "backward");

    COMPARE_LINES(takeLogLines(*device), QStringList(succeeded));
}

void Version25Test::getUpdate25Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    const QByteArray growers = "CREATE TABLE growers (originalName);";
    const QByteArray farms = "CREATE TABLE farms (originalName);";
    const QByteArray fields = "CREATE TABLE fields (originalName);";
    QTest::newRow("original names everywhere") << growers + farms + fields << true;
    QTest::newRow("no table") << QByteArray() << true;
    QTest::newRow("fields only") << fields << true;
    QTest::newRow("growers and farms only") << growers + farms << true;
    QTest::newRow("growers without original names")
        << "CREATE TABLE growers (id);" + farms + fields << false;
    QTest::newRow("farms without original names")
        << growers + "CREATE TABLE farms (id);" + fields << false;
    QTest::newRow("fields without original names")
        << growers + farms + "CREATE TABLE fields (id);" << false;
    QTest::newRow("growers with both names")
        << "CREATE TABLE growers (originalName, isoName);" + farms + fields << false;
    QTest::newRow("farms with both names")
        << growers + "CREATE TABLE farms (originalName, isoName);" + fields << false;
    QTest::newRow("fields with both names")
        << growers + farms + "CREATE TABLE fields (originalName, isoName);" << false;
    QTest::newRow("original names in other letter case")
        << growers + farms + "CREATE TABLE fields (OriginalName);" << false;
    QTest::newRow("ISO names in other letter case are not seen")
        << growers + farms + "CREATE TABLE fields (originalName, IsoName);" << true;
    QTest::newRow("a table in other letter case is not looked at")
        << growers + farms + "CREATE TABLE Fields (id);" << true;
}

void Version25Test::getUpdate25Applied()
{
    checkProbe(*device, &DatabaseMigrator::getUpdate25Applied);
}

void Version25Test::closedConnection()
{
    ScratchDevice::writeFile(ScratchDevice::platformPath, "TORVIKMAX\n");
    DatabaseMigrator &migrator = startAt(*device, 1);
    QSqlDatabase::database().close();

    migrator.updateToVersion25();
    migrator.revertFromVersion25();

    COMPARE_LINES(
        takeLogLines(*device),
        notAdded("originalName", "growers", "") + notSet("originalName", "isoName", "") +
            notAdded("originalName", "farms", "") + notSet("originalName", "isoName", "") +
            notAdded("originalName", "fields", "") + notSet("originalName", "isoName", "") +
            columnStays("isoName", "growers", "") + columnStays("isoName", "farms", "") +
            columnStays("isoName", "fields", "") + QStringList(failed) +
            notAdded("isoName", "growers", "") + notAdded("isoName", "farms", "") +
            notAdded("isoName", "fields", "") + notSet("isoName", "originalName", "") +
            notSet("isoName", "originalName", "") + notSet("isoName", "originalName", "") +
            columnStays("originalName", "growers", "") + columnStays("originalName", "farms", "") +
            columnStays("originalName", "fields", "") +
            notAdded("partfieldCode_temp", "fields", "") +
            notSet("partfieldCode_temp", "partfieldCode", "") +
            columnStays("partfieldCode", "fields", "") + notAdded("partfieldCode", "fields", "") +
            notSet("partfieldCode", "partfieldCode_temp", "") +
            columnStays("partfieldCode_temp", "fields", ""));
    QCOMPARE(migrator.currentVersion(), 1);
    QVERIFY(migrator.getUpdate25Applied());
}

QTEST_APPLESS_MAIN(Version25Test)
#include "version_25_test.moc"

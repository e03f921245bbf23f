#include "support/step_test.h"

// The serial ports on the platform with on-board ports; for the names see versions_25_test.

namespace
{
/// The tables of the names, empty; both directions succeed on them.
const QByteArray names =
    "CREATE TABLE growers (id INTEGER PRIMARY KEY, isoName TEXT, originalName TEXT);"
    "CREATE TABLE farms (id INTEGER PRIMARY KEY, isoName TEXT, originalName TEXT);"
    "CREATE TABLE fields (id INTEGER PRIMARY KEY, partfieldCode TEXT, isoName TEXT, "
    "originalName TEXT);";
/// The ports' tables, and a table that gets a row for every row that is rewritten.
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
const QByteArray before = names + portTables;

/// The lines that a direction logs, and the names that it changes.
struct Direction {
    QByteArray oldPrefix;
    QByteArray newPrefix;
    QStringList successLog;
    QStringList failureLog; ///< its last lines
    QString error;          ///< the text before SQLite's error
    int version;
    QString nameThatGoes;
};
const Direction forward = {
    "ttyUSB",
    "ttyS",
    {"Migration to version 25 was successful."},
    {"Migration to version 25 FAILED!"},
    "Error while updating to version 25. Error was: ",
    25,
    "isoName"};
const Direction backward = {
    "ttyS",
    "ttyUSB",
    {},
    {},
    "Error while reverting to version 24. Error was: ",
    24,
    "originalName"};

/// The content that a run leaves, as `readPorts` returns it.
/// @param updates the column and the id of every row that was rewritten, in this order
QStringList ports(
    const QStringList &updates, const QStringList &devices, const QStringList &receivers)
{
    return QStringList("updates") + updates + QStringList("serialDevices") + devices +
           QStringList("gpsReceivers") + receivers;
}

/// @return the lines of the rows 1 to `last` when each has its column rewritten
QStringList rewritten(const QString &column, int last)
{
    QStringList lines;
    for (int id = 1; id <= last; ++id) {
        lines << column + " " + QString::number(id);
    }
    return lines;
}

/// The rows that both directions have. OLD and NEW are the prefixes of the port names.
void addRowsOfBothDirections(const Direction &direction)
{
    const auto named = [&](QString text) {
        return text.replace("OLD", direction.oldPrefix).replace("NEW", direction.newPrefix);
    };
    const auto row = [&](const char *sentence,
                         const QByteArray &statements,
                         const QStringList &log,
                         const QStringList &after) {
        QTest::newRow(sentence) << StepRun{
            before + named(statements).toUtf8(),
            log + direction.failureLog,
            versionUnmoved,
            named(after.join("\n")).split("\n")};
    };
    const QStringList syntaxError(direction.error + "near \"s\": syntax error");

    QTest::newRow("no device and no receiver")
        << StepRun{before, direction.successLog, direction.version, ports({}, {}, {})};
    row("a device's name has a quote: the other names change, the receivers stay",
        "INSERT INTO serialDevices VALUES(1, 5, 'OLD0'), (2, 5, 'tty''s'), (3, 5, 'OLD3');"
        "INSERT INTO gpsReceivers VALUES(1, 5, 'OLD0', 'OLD0');",
        syntaxError,
        ports(
            {"portName 1", "portName 3"},
            {"1, 5, 'NEW0'", "2, 5, 'tty''s'", "3, 5, 'NEW3'"},
            {"1, 5, 'OLD0', 'OLD0'"}));
    row("a receiver's id has a quote: the other ids and all ports change",
        "INSERT INTO gpsReceivers VALUES(1, 5, 'r''s', 'OLD1'), (2, 5, 'OLD2', 'OLD2');",
        syntaxError,
        ports(
            {"receiverId 2", "serialPortName 1", "serialPortName 2"},
            {},
            {"1, 5, 'r''s', 'NEW1'", "2, 5, 'NEW2', 'NEW2'"}));
    row("a receiver's port has a quote: the other names change",
        "INSERT INTO gpsReceivers VALUES(1, 5, 'OLD1', 'tty''s'), (2, 5, 'OLD2', 'OLD2');",
        syntaxError,
        ports(
            {"receiverId 1", "receiverId 2", "serialPortName 2"},
            {},
            {"1, 5, 'NEW1', 'tty''s'", "2, 5, 'NEW2', 'NEW2'"}));
    row("there is no table of devices: the receivers stay",
        "DROP TABLE serialDevices;INSERT INTO gpsReceivers VALUES(1, 5, 'OLD0', 'OLD0');",
        {},
        ports({}, {}, {"1, 5, 'OLD0', 'OLD0'"}));
    const QByteArray twoPorts =
        "INSERT INTO serialDevices VALUES(1, 5, 'OLD0'), (2, 5, 'OLD1');"
        "INSERT INTO gpsReceivers VALUES(1, 5, 'r1', 'OLD0'), (2, 5, 'r2', 'OLD1');";
    row("reading the devices stops on an error: no device and no receiver is rewritten",
        twoPorts + makeUnreadable("serialDevices", "portName TEXT", "id = 2"),
        {},
        ports({}, {"1, 5, 'OLD0', 'OLD0'"}, {"1, 5, 'r1', 'OLD0'", "2, 5, 'r2', 'OLD1'"}));
    row("reading the receivers stops on an error: no receiver is rewritten",
        twoPorts + makeUnreadable("gpsReceivers", "serialPortName TEXT", "id = 2"),
        {},
        ports(
            {"portName 1", "portName 2"},
            {"1, 5, 'NEW0'", "2, 5, 'NEW1'"},
            {"1, 5, 'r1', 'OLD0', 'OLD0'"}));
    row("there is no table of receivers",
        "DROP TABLE gpsReceivers;INSERT INTO serialDevices VALUES(1, 5, 'OLD0');",
        {},
        ports({"portName 1"}, {"1, 5, 'NEW0'"}, {}));
    row("a column could not be dropped: the devices change, the receivers stay",
        "CREATE TABLE farms_temp (id);"
        "INSERT INTO serialDevices VALUES(1, 5, 'tty''s'), (2, 5, 'OLD2');"
        "INSERT INTO gpsReceivers VALUES(1, 5, 'OLD0', 'OLD0');",
        columnStays(direction.nameThatGoes, "farms", copyInTheWay("farms")) + syntaxError,
        ports({"portName 2"}, {"1, 5, 'tty''s'", "2, 5, 'NEW2'"}, {"1, 5, 'OLD0', 'OLD0'"}));
}
} // namespace

class Versions25PortsTest : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion25_data();
    void updateToVersion25() { checkOnBoardPorts(&M::updateToVersion25); }
    void revertFromVersion25_data();
    void revertFromVersion25() { checkOnBoardPorts(&M::revertFromVersion25); }
    void comparesThePlatformExactly_data();
    void comparesThePlatformExactly();

private:
    void checkOnBoardPorts(Step step);
    QStringList readPorts();
};

void Versions25PortsTest::checkOnBoardPorts(Step step)
{
    ScratchDevice::writeFile(ScratchDevice::platformPath, "TORVIKMAX\n");
    checkStep(step, [this] { return readPorts(); });
}

/// @return the names of the tables and their rows
QStringList Versions25PortsTest::readPorts()
{
    return ports(
        device->contents({"updates"}).mid(1).replaceInStrings("'", ""),
        device->contents({"serialDevices"}).mid(1),
        device->contents({"gpsReceivers"}).mid(1));
}

void Versions25PortsTest::updateToVersion25_data()
{
    const auto row = addColumns<StepRun>("run");

    addRowsOfBothDirections(forward);
    row("USB adapters become on-board ports, other names are rewritten unchanged",
        {before + "INSERT INTO serialDevices VALUES(1, 5, 'ttyUSB0'), (2, 5, '/dev/ttymxc2'), "
                  "(3, 5, 'ttymxc1'), (4, 6, 'ttyUSB1 ttymxc2'), (5, 6, 'ttyusb1 ttymxc2'), "
                  "(6, 6, 'USB-USB'), (7, 6, 'ttymxc2,ttymxc2'), (8, 6, 'TTYMXC2'), "
                  "(9, 6, 'tty%1USB%2'), (10, 6, NULL), (11, NULL, 'ttyS3');"
                  "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyUSB0', '/dev/ttyUSB0'), "
                  "(2, 5, '', 'ttymxc2'), (3, 5, 'ttymxc2', 'ttyS4'), (4, 5, NULL, NULL);",
         forward.successLog,
         25,
         ports(
             rewritten("portName", 11) + rewritten("receiverId", 4) +
                 rewritten("serialPortName", 4),
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
              "4, 5, '', ''"})});
    row("rows are rewritten in the order of their ids",
        {before + "INSERT INTO serialDevices VALUES(5000000000, 5, 'a'), (-3, 5, 'b'), "
                  "(7, 5, 'USB');"
                  "INSERT INTO gpsReceivers VALUES(10, 5, 'c', 'd'), (9, 5, 'e', 'f');",
         forward.successLog,
         25,
         ports(
             {"portName -3",
              "portName 7",
              "portName 5000000000",
              "receiverId 9",
              "receiverId 10",
              "serialPortName 9",
              "serialPortName 10"},
             {"5000000000, 5, 'a'", "-3, 5, 'b'", "7, 5, 'S'"},
             {"10, 5, 'c', 'd'", "9, 5, 'e', 'f'"})});
    row("rows with the same id all get the name of the last one",
        {before + "INSERT INTO serialDevices VALUES(1, 5, 'ttyUSB0'), (1, 6, 'ttyUSB1');",
         forward.successLog,
         25,
         ports({"portName 1", "portName 1"}, {"1, 5, 'ttyS1'", "1, 6, 'ttyS1'"}, {})});
    row("names are read by position, not by column name",
        {names + "CREATE TABLE updates (line);"
                 "CREATE TABLE serialDevices (id, portName, mount);"
                 "CREATE TABLE gpsReceivers (id, serialPortName, mount, receiverId);"
                 "INSERT INTO serialDevices VALUES(1, 'ttyUSB0', 'USB hub');"
                 "INSERT INTO gpsReceivers VALUES(1, 'ttyUSB1', 'USB box', 'ttymxc2');",
         forward.successLog,
         25,
         ports({}, {"1, 'S hub', 'USB hub'"}, {"1, 'gps1', 'USB box', 'S box'"})});
    row("no receiver can be rewritten",
        {before + "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyUSB1', 'ttyUSB1');" +
             refusal("UPDATE ON gpsReceivers"),
         {"Error while updating to version 25. Error was: refused",
          "Error while updating to version 25. Error was: refused",
          "Migration to version 25 FAILED!"},
         versionUnmoved,
         ports({}, {}, {"1, 5, 'ttyUSB1', 'ttyUSB1'"})});
}

void Versions25PortsTest::revertFromVersion25_data()
{
    const auto row = addColumns<StepRun>("run");

    addRowsOfBothDirections(backward);
    row("on-board ports become USB adapters, even those that never were USB adapters",
        {before + "INSERT INTO serialDevices VALUES(1, 5, 'ttyS0'), (2, 5, '/dev/gps1'), "
                  "(3, 5, 'ttymxc1'), (4, 6, 'ttyS1 gps1'), (5, 6, 'ttys1 gps1'), "
                  "(6, 6, 'ttyS-ttyS'), (7, 6, 'gps1,gps1'), (8, 6, 'S4'), (9, 6, 'ttyS%1%2'), "
                  "(10, 6, NULL), (11, NULL, 'ttyUSB3');"
                  "INSERT INTO gpsReceivers VALUES(1, 5, 'ttyS0', '/dev/ttyS0'), "
                  "(2, 5, '', 'gps1'), (3, 5, 'gps1', 'ttyUSB4'), (4, 5, NULL, NULL);",
         {},
         24,
         ports(
             rewritten("portName", 11) + rewritten("receiverId", 4) +
                 rewritten("serialPortName", 4),
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
              "4, 5, '', ''"})});
}

void Versions25PortsTest::comparesThePlatformExactly_data()
{
    const auto row =
        addColumns<QByteArray, QStringList, QStringList>("platform", "forward", "backward");

    const QStringList untouched = {"1, 5, 'ttyUSB0'", "2, 5, 'ttyS5'"};
    const QStringList onBoard = {"1, 5, 'ttyS0'", "2, 5, 'ttyS5'"};
    const QStringList usb = {"1, 5, 'ttyUSB0'", "2, 5, 'ttyUSB5'"};
    row("TORVIKMAX", "TORVIKMAX\n", onBoard, usb);
    row("TORVIKMAX above other lines", "TORVIKMAX\nTORVIK\n", onBoard, usb);
    row("TORVIK", "TORVIK\n", untouched, untouched);
    row("lower case", "torvikmax\n", untouched, untouched);
    row("a longer name", "TORVIKMAX2\n", untouched, untouched);
    row("a blank before TORVIKMAX", " TORVIKMAX\n", untouched, untouched);
    row("TORVIKMAX in the second line", "\nTORVIKMAX\n", untouched, untouched);
    row("there is no platform file", "", untouched, untouched);
}

void Versions25PortsTest::comparesThePlatformExactly()
{
    QFETCH(QByteArray, platform);
    device->sql(before + "INSERT INTO serialDevices VALUES(1, 5, 'ttyUSB0'), (2, 5, 'ttyS5');");
    if (!platform.isNull()) {
        ScratchDevice::writeFile(ScratchDevice::platformPath, platform);
    }
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    migrator.updateToVersion25();
    QCOMPARE(migrator.currentVersion(), 25);
    QTEST(device->rows("SELECT * FROM serialDevices"), "forward");
    migrator.revertFromVersion25();
    QCOMPARE(migrator.currentVersion(), 24);
    QTEST(device->rows("SELECT * FROM serialDevices"), "backward");

    COMPARE_LINES(device->takeLogLines(), forward.successLog);
}

QTEST_APPLESS_MAIN(Versions25PortsTest)
#include "versions_25_ports_test.moc"

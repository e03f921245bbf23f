#include "schema/limited_walk.h"
#include "support/step_test.h"

/// Walks that would never end, because every row that is read adds another one.
class LongWalksTest : public StepTest
{
    Q_OBJECT

private slots:
    void stepsEnd_data();
    void stepsEnd();
    void growthThatEndsIsReadToItsEnd();
};

namespace
{
/// @return a trigger that adds a row to a table for every event in another table
QByteArray adding(const QByteArray &event, const QByteArray &table, const QByteArray &row)
{
    return ";CREATE TRIGGER addition AFTER " + event + " BEGIN INSERT INTO " + table + " VALUES(" +
           row + "); END;";
}

/// Every row that is read adds another. When the walk counts the table, the table has as many rows
/// as the walk has read. The walk stops after `growth` times that many more.
const qint64 rowsRead = (1 + LimitedWalk::growth) * LimitedWalk::uncountedRows;
} // namespace

void LongWalksTest::stepsEnd_data()
{
    const QByteArray config = "CREATE TABLE onScreenSwitchboxConfig "
                              "(machineConfigId INTEGER, sectionId INTEGER, switchId INTEGER);";
    const QByteArray labels = "CREATE TABLE onScreenSwitchboxSwitchLabels "
                              "(machineConfigId INTEGER, switchId INTEGER, switchLabel TEXT);";
    const QByteArray bridge = "CREATE TABLE switchToSectionBridge "
                              "(machineConfigId INTEGER, sectionId INTEGER, switchId INTEGER);";
    const QByteArray machinery = "CREATE TABLE MC_EquipmentSection (id INTEGER);"
                                 "CREATE TABLE MC_EquipmentSectionGroup (id INTEGER);"
                                 "CREATE TABLE onScreenSwitchboxSettings (id INTEGER);";
    const QByteArray solutions = "CREATE TABLE preferredGpsSolutions "
                                 "(mc_id INTEGER, preferredSolution INTEGER, filterLevel INTEGER);";
    const QByteArray receivers =
        "CREATE TABLE gpsReceivers (id INTEGER PRIMARY KEY, machineConfigId INTEGER, "
        "receiverId TEXT, serialPortName TEXT, filterLevel INTEGER, name TEXT);";
    const QByteArray mapping =
        "CREATE TABLE machineToGpsReceiverMapping (machineId INTEGER, gpsId INTEGER);";
    const QByteArray devices =
        "CREATE TABLE serialDevices (mc_id INTEGER, portName TEXT, deviceHandlerName TEXT);";
    const QByteArray oneDevice = "INSERT INTO serialDevices VALUES(1, 'ttyS0', 'BePluginGPS')";
    const QByteArray oneReceiver = "INSERT INTO gpsReceivers VALUES(1, 1, '', 'ttyS0', 3, '');"
                                   "INSERT INTO machineToGpsReceiverMapping VALUES(10, 1)";

    const auto row =
        addColumns<Step, QByteArray, QStringList, QByteArray>("step", "before", "log", "rowsRead");
    row("version 7 reads files",
        &M::updateToVersion7,
        QByteArray(
            "CREATE TABLE files "
            "(id INTEGER PRIMARY KEY, displayName TEXT, typeId INTEGER, absolutePath TEXT);"
            "CREATE TABLE OutgoingFiles (id INTEGER);CREATE TABLE IncomingFiles (id INTEGER);"
            "CREATE TABLE FileTransferHistory (id INTEGER);"
            "CREATE TABLE systemFiles (id INTEGER);"
            "INSERT INTO files VALUES(1, 'one', 3, 'userFiles/one')") +
            adding("UPDATE ON files", "files", "NEW.id + 1, 'more', 3, 'userFiles/more'"),
        {},
        "SELECT count(*) FROM files WHERE absolutePath LIKE '/usr%'");
    row("version 12 reads switches",
        &M::updateToVersion12,
        machinery + config + labels + bridge + "INSERT INTO switchToSectionBridge VALUES(1, 1, 0)" +
            adding("INSERT ON onScreenSwitchboxConfig", "switchToSectionBridge", "1, 1, 0"),
        {"SELECT * FROM switchToSectionBridge query in updateToVersion12() failed!  "
         "The query error was: ",
         "Migration to version 12 FAILED!"},
        "SELECT count(*) FROM onScreenSwitchboxConfig");
    row("version 12 makes labels",
        &M::updateToVersion12,
        machinery + config + labels + bridge + "INSERT INTO switchToSectionBridge VALUES(1, 1, 0)" +
            adding("INSERT ON onScreenSwitchboxSwitchLabels", "onScreenSwitchboxConfig", "1, 1, 0"),
        {"Switch to section mapping data copied successfully while migrating database to "
         "version 12!",
         "Migration to version 12 FAILED!"},
        "SELECT count(*) FROM onScreenSwitchboxSwitchLabels");
    row("version 19 reads switches",
        &M::updateToVersion19,
        config +
            "CREATE TABLE onScreenSwitchboxToMachineMapping "
            "(machineConfigId INTEGER PRIMARY KEY, boomStringRepresentation TEXT);"
            "INSERT INTO onScreenSwitchboxConfig VALUES(1, 1, 0)" +
            adding(
                "INSERT ON onScreenSwitchboxToMachineMapping",
                "onScreenSwitchboxConfig",
                "NEW.machineConfigId + 1, 1, 0"),
        {"Migration to version 19 FAILED!"},
        "SELECT count(*) FROM onScreenSwitchboxToMachineMapping");
    // Every solution has a device. The index makes it quick to find.
    row("version 21 reads solutions",
        &M::updateToVersion21,
        receivers + mapping + solutions +
            "CREATE INDEX solutionsByConfiguration ON preferredGpsSolutions (mc_id);"
            "CREATE VIEW serialDevices AS SELECT mc_id, 'ttyS0' AS portName, "
            "'BePluginGPS' AS deviceHandlerName FROM preferredGpsSolutions;"
            "INSERT INTO preferredGpsSolutions VALUES(1, 0, 3)" +
            adding(
                "INSERT ON gpsReceivers", "preferredGpsSolutions", "NEW.machineConfigId + 1, 0, 3"),
        {"Migration to version 21 FAILED!"},
        "SELECT count(*) FROM gpsReceivers");
    row("version 21 reads devices",
        &M::updateToVersion21,
        receivers + mapping + solutions + devices + oneDevice +
            ";INSERT INTO preferredGpsSolutions VALUES(1, 0, 3)" +
            adding("INSERT ON gpsReceivers", "serialDevices", "1, 'ttyS0', 'BePluginGPS'"),
        {"Migration to version 21 FAILED!"},
        "SELECT count(*) FROM gpsReceivers");
    row("the way back from version 21 reads receivers",
        &M::revertFromVersion21,
        receivers + mapping + solutions + oneReceiver + ";" +
            "CREATE INDEX receiversByConfiguration ON gpsReceivers (machineConfigId);"
            "CREATE VIEW serialDevices AS SELECT 'ttyS0' AS portName, machineConfigId AS mc_id, "
            "'BePluginGPS' AS deviceHandlerName FROM gpsReceivers" +
            adding(
                "INSERT ON preferredGpsSolutions",
                "gpsReceivers",
                "NEW.mc_id + 1, NEW.mc_id + 1, '', 'ttyS0', 3, ''); "
                "INSERT INTO machineToGpsReceiverMapping VALUES(10, NEW.mc_id + 1"),
        {},
        "SELECT count(*) FROM preferredGpsSolutions");
    row("the way back from version 21 reads devices",
        &M::revertFromVersion21,
        receivers + mapping + solutions + devices + oneReceiver + ";" + oneDevice +
            adding("INSERT ON preferredGpsSolutions", "serialDevices", "1, 'ttyS0', 'BePluginGPS'"),
        {},
        "SELECT count(*) FROM preferredGpsSolutions");
}

void LongWalksTest::stepsEnd()
{
    QFETCH(Step, step);
    QFETCH(QByteArray, before);
    QFETCH(QStringList, log);
    device->sql(before);
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    (migrator.*step)();

    COMPARE_LINES(device->takeLogLines(), log);
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    QFETCH(QByteArray, rowsRead);
    COMPARE_LINES(device->rows(rowsRead), QStringList(QString::number(::rowsRead)));
}

/// A trigger adds rows, but stops by itself.
void LongWalksTest::growthThatEndsIsReadToItsEnd()
{
    device->sql(
        "CREATE TABLE files "
        "(id INTEGER PRIMARY KEY, displayName TEXT, typeId INTEGER, absolutePath TEXT);"
        "CREATE TABLE OutgoingFiles (id INTEGER);CREATE TABLE IncomingFiles (id INTEGER);"
        "CREATE TABLE FileTransferHistory (id INTEGER);CREATE TABLE systemFiles (id INTEGER);"
        "WITH RECURSIVE number(n) AS (VALUES(1) UNION ALL SELECT n + 1 FROM number "
        "WHERE n < 1500) INSERT INTO files SELECT n, 'file', 3, 'userFiles/file' FROM number;"
        "CREATE TRIGGER growing AFTER UPDATE ON files "
        "WHEN (SELECT max(id) FROM files) < 20000 BEGIN "
        "INSERT INTO files (displayName, typeId, absolutePath) VALUES('more', 3, 'userFiles/1'), "
        "('more', 3, 'userFiles/2'), ('more', 3, 'userFiles/3'), ('more', 3, 'userFiles/4'), "
        "('more', 3, 'userFiles/5'); END;");
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    migrator.updateToVersion7();

    COMPARE_LINES(
        device->takeLogLines(),
        QStringList("Database migration to version 7 completed successfully!"));
    QCOMPARE(migrator.currentVersion(), 7);
    COMPARE_LINES(
        device->rows(
            "SELECT count(*), sum(absolutePath LIKE '/usr/bin/harlo/userFiles/%') FROM files"),
        QStringList("20000, 20000"));
}

QTEST_APPLESS_MAIN(LongWalksTest)
#include "long_walks_test.moc"

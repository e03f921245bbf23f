#include "migrations/switchbox_tables.h"
#include "support/step_test.h"

// Version 13, and versions 13 to 20 one after the other.

namespace
{
// Other tables that the walk from version 12 to version 20 changes.
const QByteArray languages = "CREATE TABLE languages (code TEXT)";
const QByteArray internalReceivers =
    "CREATE TABLE internalGpsReceiverSettings (id INTEGER PRIMARY KEY, baudRate INTEGER";
const QByteArray receiversRebuilt = " (id INTEGER , baudRate INTEGER , PRIMARY KEY(id) )";

/// The tables that versions 13 to 20 find, with a row in each.
const QByteArray tablesAt12 = profiles + ", language TEXT);" + machines + ";" + switches + ";" +
                              labels + ";" + languages + ";" + internalReceivers +
                              ");"
                              "CREATE TABLE SoftwareUpdateTable (id INTEGER PRIMARY KEY);"
                              "CREATE TABLE SoftwareVersion (id INTEGER PRIMARY KEY);"
                              "CREATE TABLE SoftwareUpdates (id INTEGER PRIMARY KEY);"
                              "CREATE TABLE preferredGpsSolutions (id INTEGER PRIMARY KEY);"
                              "CREATE TABLE MC_EquipmentSectionGroup (id INTEGER PRIMARY KEY);"
                              "CREATE TABLE JP_JobProfile (id INTEGER PRIMARY KEY);"
                              "INSERT INTO userProfiles VALUES(1, 'Петров', 'ru');"
                              "INSERT INTO MC_MachineConfig VALUES(1);"
                              "INSERT INTO onScreenSwitchboxConfig VALUES(1, 10, 0);"
                              "INSERT INTO onScreenSwitchboxSwitchLabels VALUES(1, 0, 'S1');"
                              "INSERT INTO languages VALUES('ru');"
                              "INSERT INTO internalGpsReceiverSettings VALUES(1, 38400);"
                              "INSERT INTO SoftwareUpdateTable VALUES(1);"
                              "INSERT INTO SoftwareVersion VALUES(1);"
                              "INSERT INTO SoftwareUpdates VALUES(1);"
                              "INSERT INTO preferredGpsSolutions VALUES(1);"
                              "INSERT INTO MC_EquipmentSectionGroup VALUES(1);"
                              "INSERT INTO JP_JobProfile VALUES(1);";
} // namespace

class Versions13To20Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion13_data();
    void updateToVersion13() { checkStep(&M::updateToVersion13); }
    void revertFromVersion13_data();
    void revertFromVersion13() { checkStep(&M::revertFromVersion13); }
    void secondUpdate_data();
    void secondUpdate();
    void secondRevert_data();
    void secondRevert() { checkSecondRun(startAt20()); }
    void backFrom20To12AndForwardAgain();

private:
    DatabaseMigrator &startAt20();
};

/// Makes the tables of version 12 and runs the steps to version 20.
DatabaseMigrator &Versions13To20Test::startAt20()
{
    device->sql(tablesAt12);
    DatabaseMigrator &migrator = startAt(12);
    migrator.updateToVersion13();
    migrator.updateToVersion14();
    migrator.updateToVersion15();
    migrator.updateToVersion16();
    migrator.updateToVersion17();
    migrator.updateToVersion18();
    migrator.updateToVersion19();
    migrator.updateToVersion20();
    return migrator;
}

void Versions13To20Test::updateToVersion13_data()
{
    const QByteArray updates = "CREATE TABLE SoftwareUpdateTable (id INTEGER PRIMARY KEY);";
    const QByteArray updatesView = viewInPlaceOf("SoftwareUpdateTable");
    const QByteArray licence = ", acceptedEULA BOOLEAN DEFAULT 0)";

    const QStringList succeeded("Migration to version 13 was successful.");
    const QStringList failed("Migration to version 13 FAILED!");
    const QStringList updatesStay = viewStays("SoftwareUpdateTable");

    const auto row = addColumns<StepRun>("run");
    row("the updates are dropped, no profile has accepted the licence",
        {updates + profiles +
             ");INSERT INTO SoftwareUpdateTable VALUES(1), (2);"
             "INSERT INTO userProfiles VALUES(1, 'Müller'), (7, NULL);",
         succeeded,
         13,
         {profiles + licence, "userProfiles", "1, 'Müller', 0", "7, NULL, 0"}});
    row("there are no updates",
        {profiles + ")", succeeded, 13, {profiles + licence, "userProfiles"}});
    row("the tables that the backward step drops stay",
        {"CREATE TABLE SoftwareVersion (id);CREATE TABLE SoftwareUpdates (id);" + profiles +
             ");INSERT INTO SoftwareVersion VALUES(1);"
             "INSERT INTO SoftwareUpdates VALUES(2);",
         succeeded,
         13,
         QStringList{
             "CREATE TABLE SoftwareVersion (id)",
             "CREATE TABLE SoftwareUpdates (id)",
             profiles + licence} +
             rowsOf("SoftwareVersion", {"1"}) + rowsOf("SoftwareUpdates", {"2"}) +
             rowsOf("userProfiles")});
    row("the updates cannot be dropped: the licence is still added",
        {updatesView + ";" + profiles + ");INSERT INTO userProfiles VALUES(1, 'Müller')",
         updatesStay + failed,
         versionUnmoved,
         {updatesView, profiles + licence, "userProfiles", "1, 'Müller', 0"}});
    row("the licence is already there: the updates are still dropped",
        {updates + profiles + licence + ";INSERT INTO userProfiles VALUES(1, 'Müller', 1)",
         addedBefore("acceptedEULA", "userProfiles") + failed,
         versionUnmoved,
         {profiles + licence, "userProfiles", "1, 'Müller', 1"}});
    row("the licence is already there in another letter case",
        {updates + profiles + ", ACCEPTEDEULA)",
         addedBefore("acceptedEULA", "userProfiles") + failed,
         versionUnmoved,
         {profiles + ", ACCEPTEDEULA)", "userProfiles"}});
    row("both fail; they are tried in order",
        {updatesView,
         updatesStay + addedToNothing("acceptedEULA", "userProfiles") + failed,
         versionUnmoved,
         {updatesView}});
    addRowOfClosedConnection(
        tableStays("SoftwareUpdateTable", "") +
        newColumnNotAdded("acceptedEULA", "userProfiles", "") + failed);
}

void Versions13To20Test::revertFromVersion13_data()
{
    const QByteArray software = "CREATE TABLE SoftwareVersion (id);";
    const QByteArray updates = "CREATE TABLE SoftwareUpdates (id);";
    const QByteArray softwareView = viewInPlaceOf("SoftwareVersion");
    const QByteArray updatesView = viewInPlaceOf("SoftwareUpdates");
    const QByteArray licensed = profiles + ", acceptedEULA BOOLEAN DEFAULT 0);"
                                           "INSERT INTO userProfiles VALUES(1, 'Müller', 1);";
    const QByteArray copy = "CREATE TABLE userProfiles_temp (a)";

    const QStringList softwareStays = viewStays("SoftwareVersion");
    const QStringList updatesStay = viewStays("SoftwareUpdates");

    const auto row = addColumns<StepRun>("run");
    row("the licence and two tables are dropped",
        {software + updates + licensed +
             "INSERT INTO userProfiles VALUES(7, NULL, 0);"
             "INSERT INTO SoftwareVersion VALUES(1);INSERT INTO SoftwareUpdates VALUES(2);",
         {},
         12,
         {profilesRebuilt, "userProfiles", "1, 'Müller'", "7, NULL"}});
    row("only the profiles are there", {profiles + ")", {}, 12, {profilesRebuilt, "userProfiles"}});
    row("the table that the forward step drops stays",
        {"CREATE TABLE SoftwareUpdateTable (id);" + licensed,
         {},
         12,
         QStringList{"CREATE TABLE SoftwareUpdateTable (id)", profilesRebuilt} +
             rowsOf("SoftwareUpdateTable") + rowsOf("userProfiles", {"1, 'Müller'"})});
    row("the software version cannot be dropped: the rest is dropped",
        {softwareView + ";" + updates + licensed,
         softwareStays,
         versionUnmoved,
         {softwareView, profilesRebuilt, "userProfiles", "1, 'Müller'"}});
    row("the software updates cannot be dropped: the rest is dropped",
        {software + updatesView + ";" + licensed,
         updatesStay,
         versionUnmoved,
         {updatesView, profilesRebuilt, "userProfiles", "1, 'Müller'"}});
    row("the licence cannot be dropped: the rest is dropped",
        {software + updates + licensed + copy,
         columnStays("acceptedEULA", "userProfiles", copyInTheWay("userProfiles")),
         versionUnmoved,
         QStringList{profiles + ", acceptedEULA BOOLEAN DEFAULT 0)", copy} +
             rowsOf("userProfiles", {"1, 'Müller', 1"}) + rowsOf("userProfiles_temp")});
    row("all three fail; they are tried in order",
        {softwareView + ";" + updatesView,
         softwareStays + updatesStay + columnStays("acceptedEULA", "userProfiles", rebuildRefused),
         versionUnmoved,
         {softwareView, updatesView}});
    addRowOfClosedConnection(
        tableStays("SoftwareVersion", "") + tableStays("SoftwareUpdates", "") +
        columnStays("acceptedEULA", "userProfiles", ""));
}

void Versions13To20Test::secondUpdate_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<int>("version");
    QTest::addColumn<QStringList>("log");

    QTest::newRow("version 13: the licence is already there")
        << Step(&M::updateToVersion13) << 13
        << addedBefore("acceptedEULA", "userProfiles") +
               QStringList("Migration to version 13 FAILED!");
    QTest::newRow("version 16: the languages are dropped already")
        << Step(&M::updateToVersion16) << 16 << QStringList("Migration to version 16 FAILED!");
    QTest::newRow("version 17: the column is there")
        << Step(&M::updateToVersion17) << 17
        << addedBefore("firmwareVersion", "supportedHarloReceiverSettings") +
               QStringList("Migration to version 17 FAILED!");
    QTest::newRow("version 19: the mapping stays")
        << Step(&M::updateToVersion19) << 19
        << QStringList("Migration to version 19 was successful.");
    QTest::newRow("version 20: the columns are there")
        << Step(&M::updateToVersion20) << 20
        << QStringList("Migration to version 20 was successful.");
}

void Versions13To20Test::secondUpdate()
{
    device->sql(tablesAt12);
    checkSecondRun(startAt(12));
}

void Versions13To20Test::secondRevert_data()
{
    const auto row = addColumns<Step, int, QStringList>("step", "version", "log");
    row("version 13: the table is rebuilt as it is", &M::revertFromVersion13, 12, {});
    row("version 16: no locale is left", &M::revertFromVersion16, 15, {});
    row("version 17: the table has its old name",
        &M::revertFromVersion17,
        16,
        columnStays("firmwareVersion", "supportedHarloReceiverSettings", rebuildRefused));
    row("version 19: no table is left", &M::revertFromVersion19, 18, {});
    row("version 20: the table is rebuilt as it is", &M::revertFromVersion20, 19, {});
}

void Versions13To20Test::backFrom20To12AndForwardAgain()
{
    DatabaseMigrator &migrator = startAt20();
    QCOMPARE(migrator.currentVersion(), 20);
    device->takeLog();

    migrator.revertFromVersion20();
    migrator.revertFromVersion19();
    migrator.revertFromVersion18();
    migrator.revertFromVersion17();
    migrator.revertFromVersion16();
    migrator.revertFromVersion15();
    migrator.revertFromVersion14();
    migrator.revertFromVersion13();

    COMPARE_LINES(device->takeLogLines(), QStringList());
    QCOMPARE(migrator.currentVersion(), 12);
    COMPARE_LINES(
        device->dump(),
        QStringList(
            {machines,
             "CREATE TABLE \"JP_JobProfile\" (id INTEGER , PRIMARY KEY(id) )",
             "CREATE TABLE \"internalGpsReceiverSettings\"" + receiversRebuilt,
             "CREATE TABLE \"MC_EquipmentSectionGroup\" (id INTEGER , PRIMARY KEY(id) )",
             "CREATE TABLE \"preferredGpsSolutions\" (id INTEGER , PRIMARY KEY(id) )",
             "CREATE TABLE \"userProfiles\" (id INTEGER , userName TEXT , language TEXT , "
             "PRIMARY KEY(id) )"}) +
            rowsOf("MC_MachineConfig", {"1"}) + rowsOf("JP_JobProfile", {"1"}) +
            rowsOf("internalGpsReceiverSettings", {"1, 38400"}) +
            rowsOf("MC_EquipmentSectionGroup", {"1"}) + rowsOf("preferredGpsSolutions", {"1"}) +
            rowsOf("userProfiles", {"1, 'Петров', 'ru'"}));

    migrator.updateToVersion13();
    migrator.updateToVersion14();
    migrator.updateToVersion15();
    migrator.updateToVersion16();
    QCOMPARE(migrator.currentVersion(), 15);
    migrator.updateToVersion17();
    migrator.updateToVersion18();
    migrator.updateToVersion19();
    migrator.updateToVersion20();

    COMPARE_LINES(
        device->takeLogLines(),
        QStringList(
            {"Migration to version 13 was successful.",
             "Migration to version 14 was successful.",
             "Migration to version 15 was successful.",
             "Migration to version 16 FAILED!",
             "Migration to version 17 was successful.",
             "Migration to version 18 was successful.",
             "Migration to version 19 was successful.",
             "Migration to version 20 was successful."}));
    QCOMPARE(migrator.currentVersion(), 20);
    COMPARE_LINES(
        device->dump(),
        QStringList(
            {machines,
             "CREATE TABLE \"JP_JobProfile\" (id INTEGER , guidanceType INTEGER DEFAULT 2, "
             "PRIMARY KEY(id) )",
             "CREATE TABLE \"supportedHarloReceiverSettings\" (id INTEGER , baudRate INTEGER , "
             "firmwareVersion VARCHAR[40], PRIMARY KEY(id) )",
             "CREATE TABLE \"MC_EquipmentSectionGroup\" (id INTEGER , "
             "useEcuOffsets BOOLEAN DEFAULT 1, PRIMARY KEY(id) )",
             "CREATE TABLE \"preferredGpsSolutions\" (id INTEGER , "
             "filterLevel INTEGER DEFAULT 1, PRIMARY KEY(id) )",
             "CREATE TABLE \"userProfiles\" (id INTEGER , userName TEXT , language TEXT , "
             "acceptedEULA BOOLEAN DEFAULT 0, audibleBackingUpWarningEnabled BOOLEAN, "
             "audioVolumePercent REAL, PRIMARY KEY(id) )",
             mapping}) +
            rowsOf("MC_MachineConfig", {"1"}) + rowsOf("JP_JobProfile", {"1, 2"}) +
            rowsOf("supportedHarloReceiverSettings", {"1, 38400, NULL"}) +
            rowsOf("MC_EquipmentSectionGroup", {"1, 1"}) +
            rowsOf("preferredGpsSolutions", {"1, 1"}) +
            rowsOf("userProfiles", {"1, 'Петров', 'ru-RU', 0, 1, 0.75"}) +
            rowsOf("onScreenSwitchboxToMachineMapping"));
}

QTEST_APPLESS_MAIN(Versions13To20Test)
#include "versions_13_to_20_test.moc"

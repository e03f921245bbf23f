#include "migrations/switchbox_tables.h"
#include "support/step_test.h"

namespace
{
const QByteArray sounds = ", audibleBackingUpWarningEnabled BOOLEAN, audioVolumePercent REAL)";
} // namespace

class Versions19To20Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion19_data();
    void updateToVersion19() { checkStep(&M::updateToVersion19); }
    void revertFromVersion19_data();
    void revertFromVersion19() { checkStep(&M::revertFromVersion19); }
    void getUpdate19Applied_data();
    void getUpdate19Applied() { checkProbe(&M::getUpdate19Applied); }
    void updateToVersion20_data();
    void updateToVersion20() { checkStep(&M::updateToVersion20); }
    void revertFromVersion20_data();
    void revertFromVersion20() { checkStep(&M::revertFromVersion20); }
    void getUpdate20Applied();
};

void Versions19To20Test::updateToVersion19_data()
{
    const QByteArray indexInTheWay =
        "CREATE INDEX onScreenSwitchboxToMachineMapping ON MC_MachineConfig (id)";
    const QByteArray mappingView = viewInPlaceOf("onScreenSwitchboxToMachineMapping");
    const QByteArray switchesView =
        "CREATE VIEW onScreenSwitchboxConfig AS SELECT id AS machineConfigId FROM MC_MachineConfig";
    const QByteArray brokenSwitchesView =
        "CREATE VIEW onScreenSwitchboxConfig AS SELECT machineConfigId FROM nowhere";
    const QByteArray labelsView = viewInPlaceOf("onScreenSwitchboxSwitchLabels");
    const QByteArray insertMachines = ";INSERT INTO MC_MachineConfig VALUES";
    const QByteArray insertSwitches = ";INSERT INTO onScreenSwitchboxConfig VALUES";
    const QByteArray mapped = "CREATE TABLE mapped (machineConfigId INTEGER)";
    const QByteArray watchingMapping =
        "CREATE TRIGGER watching AFTER INSERT ON onScreenSwitchboxToMachineMapping BEGIN "
        "INSERT INTO mapped VALUES(NEW.machineConfigId); END";
    const QByteArray refusal =
        "CREATE TRIGGER refusal BEFORE INSERT ON onScreenSwitchboxToMachineMapping "
        "WHEN NEW.machineConfigId = 3 BEGIN SELECT RAISE(ABORT, 'refused'); END";

    const QStringList succeeded("Migration to version 19 was successful.");
    const QStringList failed("Migration to version 19 FAILED!");
    const QStringList switchesStay = viewStays("onScreenSwitchboxConfig");
    const QStringList labelsStay = viewStays("onScreenSwitchboxSwitchLabels");
    const QString mappingTable = "onScreenSwitchboxToMachineMapping";

    const auto row = addColumns<StepRun>("run");
    row("every machine with switches is mapped once, switches and labels are dropped",
        {machines + insertMachines + "(1), (2), (5);" + switches + insertSwitches +
             "(5, 10, 0), (5, 11, 3), (5, 12, 3), (2, 20, 7);" + labels +
             ";INSERT INTO onScreenSwitchboxSwitchLabels VALUES(5, 0, 'S1'), (1, 0, 'S1')",
         succeeded,
         19,
         QStringList{machines, mapping} + rowsOf("MC_MachineConfig", {"1", "2", "5"}) +
             rowsOf(mappingTable, {"2, 'Invalid Configuration'", "5, 'Invalid Configuration'"})});
    row("there are no switches",
        {machines + ";" + switches + ";" + labels,
         succeeded,
         19,
         {machines, mapping, "MC_MachineConfig", mappingTable}});
    row("there is no table of switches: the labels are dropped, nothing is mapped",
        {machines + insertMachines + "(1);" + labels +
             ";INSERT INTO onScreenSwitchboxSwitchLabels VALUES(1, 0, 'S1')",
         succeeded,
         19,
         {machines, mapping, "MC_MachineConfig", "1", mappingTable}});
    row("the switches have no column for the machine: they are dropped, nothing is mapped",
        {"CREATE TABLE onScreenSwitchboxConfig (a);"
         "INSERT INTO onScreenSwitchboxConfig VALUES(1);",
         succeeded,
         19,
         {mapping, mappingTable}});
    row("there is no table", {"", succeeded, 19, {mapping, mappingTable}});
    row("mapped machines that have switches are mapped again, the others stay",
        {machines + insertMachines + "(1), (2);" + switches + insertSwitches + "(1, 10, 0);" +
             mapping +
             ";INSERT INTO onScreenSwitchboxToMachineMapping VALUES(1, 'S1-S4'), (2, 'S5')",
         succeeded,
         19,
         QStringList{machines, mapping} + rowsOf("MC_MachineConfig", {"1", "2"}) +
             rowsOf(mappingTable, {"1, 'Invalid Configuration'", "2, 'S5'"})});
    row("a machine with three sections is mapped only once",
        {machines + insertMachines + "(5);" + switches + insertSwitches +
             "(5, 10, 0), (5, 11, 3), (5, 12, 3);" + mapping + ";" + mapped + ";" + watchingMapping,
         succeeded,
         19,
         QStringList{machines, mapping, mapped, watchingMapping} +
             rowsOf("MC_MachineConfig", {"5"}) +
             rowsOf(mappingTable, {"5, 'Invalid Configuration'"}) + rowsOf("mapped", {"5"})});
    row("machines are 64-bit integers, anything else becomes 0",
        {machines + insertMachines + "(-1), (0), (9007199254740993);" + switches + insertSwitches +
             "(9007199254740993, 1, 0), ('ten', 1, 0), (NULL, 1, 0), (-1, 1, 0)",
         succeeded,
         19,
         QStringList{machines, mapping} +
             rowsOf("MC_MachineConfig", {"-1", "0", "9007199254740993"}) +
             rowsOf(
                 mappingTable,
                 {"-1, 'Invalid Configuration'",
                  "0, 'Invalid Configuration'",
                  "9007199254740993, 'Invalid Configuration'"})});

    row("the mapping's table cannot be created: everything stays",
        {machines + insertMachines + "(1);" + indexInTheWay + ";" + switches + insertSwitches +
             "(1, 10, 0);" + labels,
         failed,
         versionUnmoved,
         QStringList{machines, indexInTheWay, switches, labels} +
             rowsOf("MC_MachineConfig", {"1"}) + rowsOf("onScreenSwitchboxConfig", {"1, 10, 0"}) +
             rowsOf("onScreenSwitchboxSwitchLabels")});
    row("one machine cannot be mapped: the next one is mapped, switches and labels stay",
        {machines + insertMachines + "(1), (3), (5);" + switches + insertSwitches +
             "(1, 10, 0), (3, 10, 0), (5, 10, 0);" + labels + ";" + mapping + ";" + refusal,
         failed,
         versionUnmoved,
         QStringList{machines, switches, labels, mapping, refusal} +
             rowsOf("MC_MachineConfig", {"1", "3", "5"}) +
             rowsOf("onScreenSwitchboxConfig", {"1, 10, 0", "3, 10, 0", "5, 10, 0"}) +
             rowsOf("onScreenSwitchboxSwitchLabels") +
             rowsOf(mappingTable, {"1, 'Invalid Configuration'", "5, 'Invalid Configuration'"})});
    const QByteArray unreadableSwitches =
        "CREATE TABLE onScreenSwitchboxConfig (" +
        unreadableColumn("machineConfigId INTEGER", "stored = 3") + ")";
    row("reading the machines stops on an error: switches and labels stay",
        {machines + insertMachines + "(1), (3), (5);" +
             "CREATE TABLE onScreenSwitchboxConfig (machineConfigId INTEGER)" + insertSwitches +
             "(1), (3), (5);" + labels +
             makeUnreadable("onScreenSwitchboxConfig", "machineConfigId INTEGER", "stored = 3"),
         failed,
         versionUnmoved,
         QStringList{machines, unreadableSwitches, labels, mapping} +
             rowsOf("MC_MachineConfig", {"1", "3", "5"}) +
             rowsOf("onScreenSwitchboxConfig", {"1, 1"}) + rowsOf("onScreenSwitchboxSwitchLabels") +
             rowsOf(mappingTable, {"1, 'Invalid Configuration'"})});
    row("one machine does not exist: the others are mapped",
        {machines + insertMachines + "(1), (5);" + switches + insertSwitches +
             "(1, 10, 0), (3, 10, 0), (5, 10, 0)",
         failed,
         versionUnmoved,
         QStringList{machines, switches, mapping} + rowsOf("MC_MachineConfig", {"1", "5"}) +
             rowsOf("onScreenSwitchboxConfig", {"1, 10, 0", "3, 10, 0", "5, 10, 0"}) +
             rowsOf(mappingTable, {"1, 'Invalid Configuration'", "5, 'Invalid Configuration'"})});
    row("the mapping is a view, and there are no switches",
        {mappingView + ";" + switches, succeeded, 19, {mappingView}});
    row("the mapping is a view, and there is a switch",
        {mappingView + ";" + machines + insertMachines + "(1);" + switches + insertSwitches +
             "(1, 10, 0)",
         failed,
         versionUnmoved,
         QStringList{mappingView, machines, switches} + rowsOf("MC_MachineConfig", {"1"}) +
             rowsOf("onScreenSwitchboxConfig", {"1, 10, 0"})});
    row("the switches cannot be dropped: the labels are",
        {machines + insertMachines + "(1), (2);" + switchesView + ";" + labels,
         switchesStay + succeeded,
         19,
         QStringList{machines, switchesView, mapping} + rowsOf("MC_MachineConfig", {"1", "2"}) +
             rowsOf(mappingTable, {"1, 'Invalid Configuration'", "2, 'Invalid Configuration'"})});
    row("neither can be read or dropped; both are tried in order",
        {brokenSwitchesView + ";" + labelsView,
         switchesStay + labelsStay + succeeded,
         19,
         {brokenSwitchesView, labelsView, mapping, mappingTable}});
    addRowOfClosedConnection(failed);
}

void Versions19To20Test::revertFromVersion19_data()
{
    const QByteArray switchesView = viewInPlaceOf("onScreenSwitchboxConfig");
    const QByteArray labelsView = viewInPlaceOf("onScreenSwitchboxSwitchLabels");
    const QByteArray mappingView = viewInPlaceOf("onScreenSwitchboxToMachineMapping");
    const QStringList switchesStay = viewStays("onScreenSwitchboxConfig");
    const QStringList labelsStay = viewStays("onScreenSwitchboxSwitchLabels");
    const QStringList mappingStays = viewStays("onScreenSwitchboxToMachineMapping");

    const auto row = addColumns<StepRun>("run");
    row("the mapping is dropped, the older tables are not restored",
        {machines + ";" + mapping +
             ";INSERT INTO MC_MachineConfig VALUES(5);"
             "INSERT INTO onScreenSwitchboxToMachineMapping VALUES(5, 'Invalid Configuration')",
         {},
         18,
         {machines, "MC_MachineConfig", "5"}});
    row("switches and labels are dropped with the mapping",
        {machines + ";" + switches + ";" + labels + ";" + mapping +
             ";INSERT INTO MC_MachineConfig VALUES(5);"
             "INSERT INTO onScreenSwitchboxConfig VALUES(5, 10, 0);"
             "INSERT INTO onScreenSwitchboxSwitchLabels VALUES(5, 0, 'S1');"
             "INSERT INTO onScreenSwitchboxToMachineMapping VALUES(5, 'S1');",
         {},
         18,
         {machines, "MC_MachineConfig", "5"}});
    row("there is no table", {"", {}, 18, {}});
    row("the switches cannot be dropped",
        {switchesView + ";" + labels + ";" + mapping, switchesStay, 18, {switchesView}});
    row("the labels cannot be dropped",
        {switches + ";" + labelsView + ";" + mapping, labelsStay, 18, {labelsView}});
    row("the mapping cannot be dropped",
        {switches + ";" + labels + ";" + mappingView, mappingStays, 18, {mappingView}});
    row("none can be dropped; all are tried in order",
        {switchesView + ";" + labelsView + ";" + mappingView,
         switchesStay + labelsStay + mappingStays,
         18,
         {switchesView, labelsView, mappingView}});
    addRowOfClosedConnection(
        tableStays("onScreenSwitchboxConfig", "") +
            tableStays("onScreenSwitchboxSwitchLabels", "") +
            tableStays("onScreenSwitchboxToMachineMapping", ""),
        18);
}

void Versions19To20Test::getUpdate19Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    const QByteArray labelsWithState =
        "CREATE TABLE onScreenSwitchboxSwitchLabels (id, switchState)";
    QTest::newRow("there is no table") << QByteArray() << false;
    QTest::newRow("only the mapping is there") << mapping << true;
    QTest::newRow("the mapping has another letter case")
        << QByteArray("CREATE TABLE OnScreenSwitchboxToMachineMapping (id)") << false;
    QTest::newRow("the mapping is a view")
        << viewInPlaceOf("onScreenSwitchboxToMachineMapping") << false;
    QTest::newRow("only the labels are there") << labels << false;
    QTest::newRow("only labels with a switch state are there") << labelsWithState << false;
    QTest::newRow("mapping and labels are there") << mapping + ";" + labels << false;
    QTest::newRow("mapping and labels with a switch state are there")
        << mapping + ";" + labelsWithState << true;
    QTest::newRow("the labels have a switch state in another letter case")
        << mapping + ";CREATE TABLE onScreenSwitchboxSwitchLabels (id, SwitchState)" << false;
    QTest::newRow("labels in another letter case are not seen")
        << mapping + ";CREATE TABLE OnScreenSwitchboxSwitchLabels (id)" << true;
    QTest::newRow("labels that are a view are not seen")
        << mapping + ";" + viewInPlaceOf("onScreenSwitchboxSwitchLabels") << true;
    QTest::newRow("the switches are not looked at") << mapping + ";" + switches << true;
}

void Versions19To20Test::updateToVersion20_data()
{
    const QByteArray insert = ";INSERT INTO userProfiles VALUES";
    const QByteArray noWarning =
        "CREATE TRIGGER refusal BEFORE UPDATE OF audibleBackingUpWarningEnabled ON userProfiles "
        "BEGIN SELECT RAISE(ABORT, 'refused'); END";
    const QByteArray noVolume =
        "CREATE TRIGGER refusal BEFORE UPDATE OF audioVolumePercent ON userProfiles "
        "BEGIN SELECT RAISE(ABORT, 'refused'); END";
    const QByteArray otherWarning =
        profiles + ", AudibleBackingUpWarningEnabled BOOLEAN, audioVolumePercent REAL)";
    const QByteArray otherVolume =
        profiles + ", audibleBackingUpWarningEnabled BOOLEAN, AudioVolumePercent REAL)";

    const QStringList succeeded("Migration to version 20 was successful.");
    const QStringList failed("Migration to version 20 FAILED!");

    const auto row = addColumns<StepRun>("run");
    row("every profile gets the warning and three quarters of the volume",
        {profiles + ")" + insert + "(1, 'Müller'), (7, NULL)",
         succeeded,
         20,
         {profiles + sounds, "userProfiles", "1, 'Müller', 1, 0.75", "7, NULL, 1, 0.75"}});
    row("every profile gets them even when both columns are there",
        {profiles + sounds + insert + "(1, 'Müller', 0, 1.0), (7, NULL, NULL, NULL)",
         succeeded,
         20,
         {profiles + sounds, "userProfiles", "1, 'Müller', 1, 0.75", "7, NULL, 1, 0.75"}});
    row("every profile gets them even when only the volume is there",
        {profiles + ", audioVolumePercent TEXT)" + insert + "(1, 'Müller', 'loud')",
         succeeded,
         20,
         {profiles + ", audioVolumePercent TEXT, audibleBackingUpWarningEnabled BOOLEAN)",
          "userProfiles",
          "1, 'Müller', '0.75', 1"}});
    row("there are no profiles",
        {profiles + ")", succeeded, 20, {profiles + sounds, "userProfiles"}});
    row("the warning is there in another letter case: everything else is done",
        {profiles + ", AudibleBackingUpWarningEnabled BOOLEAN)" + insert + "(1, 'Müller', 0)",
         duplicateNotAdded("audibleBackingUpWarningEnabled", "userProfiles") + failed,
         versionUnmoved,
         {otherWarning, "userProfiles", "1, 'Müller', 1, 0.75"}});
    row("the volume is there in another letter case: everything else is done",
        {otherVolume + insert + "(1, 'Müller', 0, 1.0)",
         duplicateNotAdded("audioVolumePercent", "userProfiles") + failed,
         versionUnmoved,
         {otherVolume, "userProfiles", "1, 'Müller', 1, 0.75"}});
    row("the warning cannot be switched on: the volume is set",
        {profiles + sounds + insert + "(1, 'Müller', 0, 1.0);" + noWarning,
         notSet("audibleBackingUpWarningEnabled", "1", rowRefused) + failed,
         versionUnmoved,
         {profiles + sounds, noWarning, "userProfiles", "1, 'Müller', 0, 0.75"}});
    row("the volume cannot be set: the warning is switched on",
        {profiles + sounds + insert + "(1, 'Müller', 0, 1.0);" + noVolume,
         notSet("audioVolumePercent", "0.75", rowRefused) + failed,
         versionUnmoved,
         {profiles + sounds, noVolume, "userProfiles", "1, 'Müller', 1, 1.0"}});
    row("there is no table: all four statements are tried in order",
        {"",
         notAddedToNothing("audibleBackingUpWarningEnabled", "userProfiles") +
             notAddedToNothing("audioVolumePercent", "userProfiles") +
             notSet("audibleBackingUpWarningEnabled", "1", noSuchTable("userProfiles")) +
             notSet("audioVolumePercent", "0.75", noSuchTable("userProfiles")) + failed,
         versionUnmoved,
         {}});
    addRowOfClosedConnection(
        notAdded("audibleBackingUpWarningEnabled", "userProfiles", "") +
        notAdded("audioVolumePercent", "userProfiles", "") +
        notSet("audibleBackingUpWarningEnabled", "1", "") +
        notSet("audioVolumePercent", "0.75", "") + failed);
}

void Versions19To20Test::revertFromVersion20_data()
{
    const QByteArray warningInKey =
        "CREATE TABLE userProfiles (id INTEGER, audibleBackingUpWarningEnabled BOOLEAN, "
        "audioVolumePercent REAL, PRIMARY KEY (audibleBackingUpWarningEnabled, id))";
    const QByteArray volumeInKey =
        "CREATE TABLE userProfiles (id INTEGER, audibleBackingUpWarningEnabled BOOLEAN, "
        "audioVolumePercent REAL, PRIMARY KEY (audioVolumePercent, id))";

    const auto row = addColumns<StepRun>("run");
    row("warning and volume are dropped, the profiles stay",
        {profiles + sounds +
             ";INSERT INTO userProfiles VALUES(1, 'Müller', 1, 0.75), (7, NULL, 0, NULL)",
         {},
         19,
         {profilesRebuilt, "userProfiles", "1, 'Müller'", "7, NULL"}});
    row("neither column is there",
        {profiles + ");INSERT INTO userProfiles VALUES(1, 'Müller')",
         {},
         19,
         {profilesRebuilt, "userProfiles", "1, 'Müller'"}});
    row("the warning cannot be dropped: the volume stays too",
        {warningInKey + ";INSERT INTO userProfiles VALUES(1, 1, 0.75)",
         columnStays("audibleBackingUpWarningEnabled", "userProfiles", keyRefused),
         versionUnmoved,
         {warningInKey, "userProfiles", "1, 1, 0.75"}});
    row("the volume cannot be dropped: the warning is dropped already",
        {volumeInKey + ";INSERT INTO userProfiles VALUES(1, 1, 0.75)",
         columnStays("audioVolumePercent", "userProfiles", keyRefused),
         versionUnmoved,
         {"CREATE TABLE \"userProfiles\" (id INTEGER , audioVolumePercent REAL , "
          "PRIMARY KEY(audioVolumePercent,id) )",
          "userProfiles",
          "1, 0.75"}});
    row("there is no table: only the warning is tried",
        {"",
         columnStays("audibleBackingUpWarningEnabled", "userProfiles", rebuildRefused),
         versionUnmoved,
         {}});
    addRowOfClosedConnection(columnStays("audibleBackingUpWarningEnabled", "userProfiles", ""));
}

/// column_probes_test tests one column at a time.
void Versions19To20Test::getUpdate20Applied()
{
    device->sql("CREATE TABLE userProfiles (id)");

    QVERIFY(!startAt(versionUnmoved).getUpdate20Applied());
}

QTEST_APPLESS_MAIN(Versions19To20Test)
#include "versions_19_to_20_test.moc"

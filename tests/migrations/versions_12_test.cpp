#include "migrations/switchbox_tables.h"
#include "support/step_test.h"

#include <sqlite3.h>

// The work of version 12 other than adding columns; for that see added_columns_test.

namespace
{
const Columns columnsOfVersion12 = {
    {"MC_EquipmentSection", "parentEquipmentSectionId"},
    {"MC_EquipmentSection", "sectionType"},
    {"MC_EquipmentSection", "fullName"},
    {"MC_EquipmentSectionGroup", "hashForIsoBoom"},
};
// The tables, in the order in which they are dropped.
const Columns columnsLeavingVersion12 = {
    {"MC_EquipmentSection", "fullName"},
    {"MC_EquipmentSection", "sectionType"},
    {"MC_EquipmentSection", "parentEquipmentSectionId"},
    {"MC_EquipmentSectionGroup", "hashForIsoBoom"},
};

const QByteArray sections = "CREATE TABLE MC_EquipmentSection (id INTEGER PRIMARY KEY";
const QByteArray groups = "CREATE TABLE MC_EquipmentSectionGroup (id INTEGER PRIMARY KEY";
const QByteArray bridge = "CREATE TABLE switchToSectionBridge (machine, section, switch, note)";

const QString switchesCopied = "Switch to section mapping data copied successfully while migrating "
                               "database to version 12!";
} // namespace

class Versions12Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion12_data();
    void updateToVersion12() { checkStep(&M::updateToVersion12); }
    void revertFromVersion12_data();
    void revertFromVersion12() { checkStep(&M::revertFromVersion12); }
    void secondRun_data();
    void secondRun();
    void getUpdate12Applied_data();
    void getUpdate12Applied() { checkProbe(&M::getUpdate12Applied); }
};

void Versions12Test::updateToVersion12_data()
{
    const QByteArray machinery = machines + ";INSERT INTO MC_MachineConfig VALUES(0), (1), (2);" +
                                 sections + ");INSERT INTO MC_EquipmentSection VALUES(10);" +
                                 groups + ");INSERT INTO MC_EquipmentSectionGroup VALUES(5);";
    const QByteArray settings = ";CREATE TABLE onScreenSwitchboxSettings (a);";
    const QByteArray insertSwitches = ";INSERT INTO switchToSectionBridge VALUES";

    const QStringList extended = {
        machines,
        sections + ", parentEquipmentSectionId INTEGER DEFAULT 0, sectionType INTEGER DEFAULT 0, "
                   "fullName TEXT)",
        groups + ", hashForIsoBoom TEXT)"};
    const QStringList extendedRows = rowsOf("MC_MachineConfig", {"0", "1", "2"}) +
                                     rowsOf("MC_EquipmentSection", {"10, 0, 0, NULL"}) +
                                     rowsOf("MC_EquipmentSectionGroup", {"5, NULL"});
    const QStringList created = {switches, labels};

    const QString succeeded = "Migration to version 12 was successful.";
    const QString failed = "Migration to version 12 FAILED!";
    const QByteArray noLabelForSwitch3 =
        refusal("INSERT ON onScreenSwitchboxSwitchLabels WHEN NEW.switchId = 3");
    const QString labelRefused = "The INSERT OR REPLACE INTO onScreenSwitchboxSwitchLabels query "
                                 "in updateToVersion12() failed!  The query error was: refused";
    const QString noBridge =
        "SELECT * FROM switchToSectionBridge query in updateToVersion12() failed!  "
        "The query error was: no such table: switchToSectionBridge";

    QTest::addColumn<StepRun>("run");

    QTest::newRow("switches are moved and get their labels") << StepRun{
        machinery + bridge + insertSwitches +
            "(1, 10, 0, 'a'), (1, 11, 3, NULL), (1, 12, 3, ''), (2, 20, 7, '')" + settings,
        {switchesCopied, succeeded},
        12,
        extended + created + extendedRows +
            rowsOf("onScreenSwitchboxConfig", {"1, 10, 0", "1, 11, 3", "1, 12, 3", "2, 20, 7"}) +
            rowsOf("onScreenSwitchboxSwitchLabels", {"1, 0, 'S1'", "1, 3, 'S4'", "2, 7, 'S8'"})};
    QTest::newRow("there is no switch") << StepRun{
        machinery + bridge + settings,
        {switchesCopied, succeeded},
        12,
        extended + created + extendedRows +
            QStringList{"onScreenSwitchboxConfig", "onScreenSwitchboxSwitchLabels"}};
    QTest::newRow("there are no settings") << StepRun{
        machinery + bridge,
        {switchesCopied, succeeded},
        12,
        extended + created + extendedRows +
            QStringList{"onScreenSwitchboxConfig", "onScreenSwitchboxSwitchLabels"}};
    QTest::newRow("numbers are 64-bit integers, anything else becomes 0") << StepRun{
        machinery + bridge + insertSwitches +
            "(NULL, 'ten', '7', ''), (1, 9007199254740993, -1, ''),"
            "(2, 20, 9223372036854775806, ''), (2, 21, 9223372036854775807, '')" +
            settings,
        {switchesCopied, succeeded},
        12,
        extended + created + extendedRows +
            QStringList{
                "onScreenSwitchboxConfig",
                "0, 0, 7",
                "1, 9007199254740993, -1",
                "2, 20, 9223372036854775806",
                "2, 21, 9223372036854775807",
                "onScreenSwitchboxSwitchLabels",
                "0, 7, 'S8'",
                "1, -1, 'S0'",
                "2, 9223372036854775806, 'S9223372036854775807'",
                "2, 9223372036854775807, 'S-9223372036854775808'"}};
    QTest::newRow("of a section's switches only the last one is kept") << StepRun{
        machinery + bridge + insertSwitches + "(1, 10, 0, ''), (1, 11, 1, ''), (1, 10, 4, '')" +
            settings,
        {switchesCopied, succeeded},
        12,
        extended + created + extendedRows +
            rowsOf("onScreenSwitchboxConfig", {"1, 11, 1", "1, 10, 4"}) +
            rowsOf("onScreenSwitchboxSwitchLabels", {"1, 1, 'S2'", "1, 4, 'S5'"})};
    QTest::newRow("the new tables are there and keep their other rows") << StepRun{
        machinery + switches + ";" + labels + ";" + bridge +
            ";INSERT INTO onScreenSwitchboxConfig VALUES(1, 10, 9), (2, 30, 1);"
            "INSERT INTO onScreenSwitchboxSwitchLabels VALUES(1, 0, 'old'), (2, 5, 'own')" +
            insertSwitches + "(1, 10, 0, '')" + settings,
        {switchesCopied, succeeded},
        12,
        extended + created + extendedRows +
            rowsOf("onScreenSwitchboxConfig", {"2, 30, 1", "1, 10, 0"}) +
            rowsOf("onScreenSwitchboxSwitchLabels", {"2, 5, 'own'", "2, 1, 'S2'", "1, 0, 'S1'"})};
    QTest::newRow("a bridge that cannot be dropped is no failure") << StepRun{
        machinery +
            "CREATE VIEW switchToSectionBridge AS SELECT 1 AS machine, 10 AS section, 0 AS switch" +
            settings,
        QStringList(switchesCopied) + viewStays("switchToSectionBridge") + QStringList(succeeded),
        12,
        extended +
            QStringList("CREATE VIEW switchToSectionBridge AS SELECT 1 AS machine, 10 AS section, "
                        "0 AS switch") +
            created + extendedRows + rowsOf("onScreenSwitchboxConfig", {"1, 10, 0"}) +
            rowsOf("onScreenSwitchboxSwitchLabels", {"1, 0, 'S1'"})};

    // From here on the step fails.
    QTest::newRow("there is no table at all") << StepRun{
        "",
        forEach(columnsOfVersion12, addedToNothing) + QStringList{noBridge, failed},
        versionUnmoved,
        created + QStringList{"onScreenSwitchboxConfig", "onScreenSwitchboxSwitchLabels"}};
    QTest::newRow("without the bridge the labels are made and the settings are dropped") << StepRun{
        machinery + switches + ";INSERT INTO onScreenSwitchboxConfig VALUES(1, 10, 9)" + settings,
        {noBridge, failed},
        versionUnmoved,
        extended + created + extendedRows + rowsOf("onScreenSwitchboxConfig", {"1, 10, 9"}) +
            rowsOf("onScreenSwitchboxSwitchLabels", {"1, 9, 'S10'"})};
    QTest::newRow("the new table cannot be created: the switches stay in the bridge") << StepRun{
        machinery + bridge + insertSwitches + "(1, 10, 0, '');" +
            "CREATE INDEX onScreenSwitchboxConfig ON MC_MachineConfig (id)" + settings,
        {"The CREATE TABLE query in updateToVersion12() failed!  The query error was: "
         "there is already an index named onScreenSwitchboxConfig",
         "The SELECT * FROM onScreenSwitchboxConfig query in updateToVersion12() failed!  "
         "The query error was: no such table: onScreenSwitchboxConfig",
         failed},
        versionUnmoved,
        extended +
            QStringList{
                bridge, "CREATE INDEX onScreenSwitchboxConfig ON MC_MachineConfig (id)", labels} +
            extendedRows +
            QStringList{"switchToSectionBridge", "1, 10, 0, ''", "onScreenSwitchboxSwitchLabels"}};
    QTest::newRow("copying stops at the first row that fails, making labels does not") << StepRun{
        machinery + bridge + insertSwitches + "(1, 10, 0, ''), (9, 11, 1, ''), (2, 20, 7, '')" +
            settings,
        {"Database migration failed in updateToVersion12() while copying data from old table: "
         "switchToSectionBridge to new table: onScreenSwitchboxConfig...  The error was: "
         "FOREIGN KEY constraint failed",
         failed},
        versionUnmoved,
        extended + QStringList(bridge) + created + extendedRows +
            rowsOf("switchToSectionBridge", {"1, 10, 0, ''", "9, 11, 1, ''", "2, 20, 7, ''"}) +
            rowsOf("onScreenSwitchboxConfig", {"1, 10, 0"}) +
            rowsOf("onScreenSwitchboxSwitchLabels", {"1, 0, 'S1'"})};
    const QByteArray unreadableBridge =
        QByteArray(bridge).replace("note", unreadableColumn("note", "section = 11"));
    QTest::newRow("reading the bridge stops on an error: the switches stay in it") << StepRun{
        machinery + bridge + insertSwitches + "(1, 10, 0, ''), (1, 11, 3, ''), (2, 20, 7, '')" +
            settings + makeUnreadable("switchToSectionBridge", "note", "section = 11"),
        {"SELECT * FROM switchToSectionBridge query in updateToVersion12() failed!  "
         "The query error was: " +
             unreadable,
         failed},
        versionUnmoved,
        extended + QStringList(unreadableBridge) + created + extendedRows +
            rowsOf("switchToSectionBridge", {"1, 10, 0, '', ''"}) +
            rowsOf("onScreenSwitchboxConfig", {"1, 10, 0"}) +
            rowsOf("onScreenSwitchboxSwitchLabels", {"1, 0, 'S1'"})};
    QTest::newRow("the labels' table cannot be created: the settings are dropped") << StepRun{
        machinery + bridge + insertSwitches + "(1, 10, 0, '');" +
            "CREATE INDEX onScreenSwitchboxSwitchLabels ON MC_MachineConfig (id)" + settings,
        {switchesCopied,
         "The CREATE TABLE IF NOT EXISTS onScreenSwitchboxSwitchLabels query in "
         "updateToVersion12() failed!  The query error was: "
         "there is already an index named onScreenSwitchboxSwitchLabels",
         failed},
        versionUnmoved,
        extended +
            QStringList{
                "CREATE INDEX onScreenSwitchboxSwitchLabels ON MC_MachineConfig (id)", switches} +
            extendedRows + QStringList{"onScreenSwitchboxConfig", "1, 10, 0"}};
    QTest::newRow("the new table cannot be read: the settings are dropped") << StepRun{
        machinery + switches + ";" + bridge + insertSwitches + "(1, 10, 0, '')" + settings,
        {switchesCopied,
         "The SELECT * FROM onScreenSwitchboxConfig query in updateToVersion12() failed!  "
         "The query error was: access to onScreenSwitchboxConfig.machineConfigId is prohibited",
         failed},
        versionUnmoved,
        extended + created + extendedRows +
            QStringList{"onScreenSwitchboxConfig", "1, 10, 0", "onScreenSwitchboxSwitchLabels"},
        {{SQLITE_READ, "onScreenSwitchboxConfig"}}};
    const QByteArray unreadableConfig = QByteArray(switches).replace(
        "switchId INTEGER", unreadableColumn("switchId INTEGER", "sectionId = 11"));
    QTest::newRow("reading the new table stops on an error: the settings are dropped") << StepRun{
        machinery + switches + ";" + bridge +
            ";INSERT INTO onScreenSwitchboxConfig VALUES(1, 10, 0), (1, 11, 3), (2, 20, 7)" +
            settings +
            makeUnreadable("onScreenSwitchboxConfig", "switchId INTEGER", "sectionId = 11"),
        {switchesCopied, failed},
        versionUnmoved,
        extended + QStringList{unreadableConfig, labels} + extendedRows +
            rowsOf("onScreenSwitchboxConfig", {"1, 10, 0, 0"}) +
            rowsOf("onScreenSwitchboxSwitchLabels", {"1, 0, 'S1'"})};
    QTest::newRow("every label is tried, the settings are dropped") << StepRun{
        machinery + bridge + ";" + labels + ";" + noLabelForSwitch3 + insertSwitches +
            "(1, 10, 3, ''), (1, 11, 4, ''), (1, 12, 3, ''), (1, 13, 5, '')" + settings,
        {switchesCopied, labelRefused, labelRefused, failed},
        versionUnmoved,
        extended + QStringList{labels, noLabelForSwitch3, switches} + extendedRows +
            rowsOf("onScreenSwitchboxSwitchLabels", {"1, 4, 'S5'", "1, 5, 'S6'"}) +
            rowsOf("onScreenSwitchboxConfig", {"1, 10, 3", "1, 11, 4", "1, 12, 3", "1, 13, 5"})};
    QTest::newRow("the settings cannot be dropped") << StepRun{
        machinery + bridge + ";CREATE VIEW onScreenSwitchboxSettings AS SELECT 1 AS a",
        QStringList(switchesCopied) + viewStays("onScreenSwitchboxSettings") + QStringList(failed),
        versionUnmoved,
        extended + QStringList("CREATE VIEW onScreenSwitchboxSettings AS SELECT 1 AS a") + created +
            extendedRows + QStringList{"onScreenSwitchboxConfig", "onScreenSwitchboxSwitchLabels"}};
    addRowOfClosedConnection(
        forEach(columnsOfVersion12, newColumnNotAdded, "") +
        QStringList{
            "The CREATE TABLE query in updateToVersion12() failed!  The query error was: ",
            "The CREATE TABLE IF NOT EXISTS onScreenSwitchboxSwitchLabels query in "
            "updateToVersion12() failed!  The query error was: "} +
        tableStays("onScreenSwitchboxSettings", "") + QStringList(failed));
}

void Versions12Test::revertFromVersion12_data()
{
    const QByteArray columns = ", parentEquipmentSectionId INTEGER DEFAULT 0, "
                               "sectionType INTEGER DEFAULT 0, fullName TEXT);";
    const QByteArray tables[] = {
        "onScreenSwitchboxConfig",
        "onScreenSwitchboxSwitchLabels",
        "WeatherStationConfig",
        "JP_DispatcherFilters",
    };
    const QStringList rebuilt = {
        "CREATE TABLE \"MC_EquipmentSection\" (id INTEGER , PRIMARY KEY(id) )",
        "CREATE TABLE \"MC_EquipmentSectionGroup\" (id INTEGER , PRIMARY KEY(id) )"};

    QTest::addColumn<StepRun>("run");

    QTest::newRow("columns and tables are dropped, nothing is restored") << StepRun{
        sections + columns + groups + ", hashForIsoBoom TEXT);" + switches + ";" + labels + ";" +
            "CREATE TABLE WeatherStationConfig (a);CREATE TABLE JP_DispatcherFilters (a);"
            "INSERT INTO MC_EquipmentSection VALUES(10, 1, 2, 'boom 1'), (11, 0, 0, NULL);"
            "INSERT INTO MC_EquipmentSectionGroup VALUES(5, 'b026324c');"
            "INSERT INTO onScreenSwitchboxConfig VALUES(1, 10, 0);"
            "INSERT INTO onScreenSwitchboxSwitchLabels VALUES(1, 0, 'S1');"
            "INSERT INTO WeatherStationConfig VALUES(1);"
            "INSERT INTO JP_DispatcherFilters VALUES(1);",
        {},
        11,
        rebuilt + QStringList{"MC_EquipmentSection", "10", "11", "MC_EquipmentSectionGroup", "5"}};
    QTest::newRow("there is no table at all")
        << StepRun{"", forEach(columnsLeavingVersion12, columnStays, rebuildRefused), 11, {}};

    QByteArray views = sections + ");" + groups + ");";
    QStringList viewsStay;
    QStringList log;
    for (const QByteArray &view : tables) {
        const QByteArray createView = "CREATE VIEW " + view + " AS SELECT 1 AS a";
        const QStringList stays = viewStays(view);
        views += createView + ";";
        viewsStay << createView;
        log << stays;

        QByteArray oneView = sections + ");" + groups + ");";
        for (const QByteArray &table : tables) {
            oneView += table == view ? createView + ";" : "CREATE TABLE " + table + " (a);";
        }
        QTest::addRow("%s cannot be dropped", view.constData()) << StepRun{
            oneView,
            stays,
            11,
            QStringList(createView) + rebuilt +
                QStringList{"MC_EquipmentSection", "MC_EquipmentSectionGroup"}};
    }
    QTest::newRow("none can be dropped") << StepRun{
        views,
        log,
        11,
        viewsStay + rebuilt + QStringList{"MC_EquipmentSection", "MC_EquipmentSectionGroup"}};
    addRowOfClosedConnection(
        forEach(columnsLeavingVersion12, columnStays, "") +
            tableStays("onScreenSwitchboxConfig", "") +
            tableStays("onScreenSwitchboxSwitchLabels", "") +
            tableStays("WeatherStationConfig", "") + tableStays("JP_DispatcherFilters", ""),
        11);
}

void Versions12Test::secondRun_data()
{
    const auto row = addColumns<Step, int, QStringList>("step", "version", "log");
    row("forward: the columns are there, the bridge is not",
        &M::updateToVersion12,
        12,
        (forEach(columnsOfVersion12, addedBefore)
         << "SELECT * FROM switchToSectionBridge query in updateToVersion12() failed!  "
            "The query error was: no such table: switchToSectionBridge"
         << "Migration to version 12 FAILED!"));
    row("backward: the tables are rebuilt as they are", &M::revertFromVersion12, 11, {});
}

void Versions12Test::secondRun()
{
    device->sql(
        machines + ";" + sections + ");" + groups + ");" + bridge +
        ";INSERT INTO MC_MachineConfig VALUES(1);INSERT INTO MC_EquipmentSection VALUES(10);"
        "INSERT INTO switchToSectionBridge VALUES(1, 10, 0, ''), (1, 11, 3, ''), (1, 12, 3, '');");
    checkSecondRun(startAt(versionUnmoved));
}

void Versions12Test::getUpdate12Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    QTest::newRow("the parent is there")
        << QByteArray("CREATE TABLE MC_EquipmentSection (id, parentEquipmentSectionId)") << true;
    QTest::newRow("the parent is the first column")
        << QByteArray("CREATE TABLE MC_EquipmentSection (parentEquipmentSectionId, id)") << true;
    QTest::newRow("there is no parent")
        << QByteArray("CREATE TABLE MC_EquipmentSection (id, sectionType, fullName)") << false;
    QTest::newRow("the parent has another letter case")
        << QByteArray("CREATE TABLE MC_EquipmentSection (id, ParentEquipmentSectionId)") << false;
    QTest::newRow("the table has another letter case")
        << QByteArray("CREATE TABLE mc_equipmentsection (id, parentEquipmentSectionId)") << true;
    QTest::newRow("there is no table") << QByteArray() << false;
}

QTEST_APPLESS_MAIN(Versions12Test)
#include "versions_12_test.moc"

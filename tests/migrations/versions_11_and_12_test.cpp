#include "support/step_test.h"

#include <QSqlDatabase>
#include <QtTest>

#include <sqlite3.h>

namespace
{
using M = DatabaseMigrator;

using Column = QPair<QByteArray, QByteArray>; // with its table's name first
using Columns = QVector<Column>;

const Columns columnsOfVersion11 = {
    {"OutgoingFiles", "startDate"},
    {"OutgoingFiles", "endDate"},
    {"IncomingFiles", "startDate"},
    {"IncomingFiles", "endDate"},
    {"FileTransferHistory", "startDate"},
    {"FileTransferHistory", "endDate"},
};
const Columns columnsOfVersion12 = {
    {"MC_EquipmentSection", "parentEquipmentSectionId"},
    {"MC_EquipmentSection", "sectionType"},
    {"MC_EquipmentSection", "fullName"},
    {"MC_EquipmentSectionGroup", "hashForIsoBoom"},
};
// In the order in which they go.
const Columns columnsLeavingVersion12 = {
    {"MC_EquipmentSection", "fullName"},
    {"MC_EquipmentSection", "sectionType"},
    {"MC_EquipmentSection", "parentEquipmentSectionId"},
    {"MC_EquipmentSectionGroup", "hashForIsoBoom"},
};

// The tables of version 11, without its columns, and of the profiles whose formats it corrects.
const QByteArray outgoing = "CREATE TABLE OutgoingFiles (id INTEGER PRIMARY KEY";
const QByteArray incoming = "CREATE TABLE IncomingFiles (id INTEGER PRIMARY KEY";
const QByteArray history = "CREATE TABLE FileTransferHistory (id INTEGER PRIMARY KEY";
const QByteArray dates = ", startDate TEXT, endDate TEXT)";
const QStringList noTransfers = {"OutgoingFiles", "IncomingFiles", "FileTransferHistory"};
const QByteArray profiles = "CREATE TABLE userProfiles (id INTEGER PRIMARY KEY, dateFormat TEXT)";

// The tables of version 12.
const QByteArray machines = "CREATE TABLE MC_MachineConfig (id INTEGER PRIMARY KEY)";
const QByteArray sections = "CREATE TABLE MC_EquipmentSection (id INTEGER PRIMARY KEY";
const QByteArray groups = "CREATE TABLE MC_EquipmentSectionGroup (id INTEGER PRIMARY KEY";
const QByteArray bridge = "CREATE TABLE switchToSectionBridge (machine, section, switch, note)";
const QByteArray config =
    "CREATE TABLE onScreenSwitchboxConfig (machineConfigId INTEGER, sectionId INTEGER, "
    "switchId INTEGER, PRIMARY KEY (machineConfigId, sectionId), FOREIGN KEY (machineConfigId) "
    "REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)";
const QByteArray labels =
    "CREATE TABLE onScreenSwitchboxSwitchLabels (machineConfigId INTEGER, switchId INTEGER, "
    "switchLabel varchar(3), PRIMARY KEY (machineConfigId, switchId), FOREIGN KEY "
    "(machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)";

const QString switchesCopied = "Switch to section mapping data copied successfully while migrating "
                               "database to version 12!";

/// What the toolkit logs when the same happens to every column.
template <typename Lines, typename... Error>
QStringList forEach(const Columns &columns, Lines lines, const Error &...error)
{
    QStringList log;
    for (const auto &[table, column] : columns) {
        log << lines(column, table, error...);
    }
    return log;
}

QByteArray refusalToChange(const QByteArray &dateFormat)
{
    return "CREATE TRIGGER refusal BEFORE UPDATE ON userProfiles WHEN OLD.dateFormat = '" +
           dateFormat + "' BEGIN SELECT RAISE(ABORT, 'refused'); END";
}
} // namespace

class Versions11And12Test : public QObject
{
    Q_OBJECT

private slots:
    void init() { device = std::make_unique<ScratchDevice>(); }
    void cleanup() { device.reset(); }

    void updateToVersion11_data();
    void updateToVersion11() { checkStep(*device, &M::updateToVersion11); }
    void revertFromVersion11_data();
    void revertFromVersion11() { checkStep(*device, &M::revertFromVersion11); }
    void updateToVersion12_data();
    void updateToVersion12() { checkStep(*device, &M::updateToVersion12); }
    void revertFromVersion12_data();
    void revertFromVersion12() { checkStep(*device, &M::revertFromVersion12); }
    void updateWithOneColumnThere_data();
    void updateWithOneColumnThere();
    void revertWithOneColumnThatStays_data();
    void revertWithOneColumnThatStays();
    void secondRun_data();
    void secondRun();
    void dateFormatsDoNotComeBack();
    void probes_data();
    void probes();
    void stepsOnAClosedConnection_data();
    void stepsOnAClosedConnection() { checkStepOnAClosedConnection(*device); }
    void probesOnAClosedConnection();

private:
    QStringList addedColumns();

    std::unique_ptr<ScratchDevice> device;
};

void Versions11And12Test::updateToVersion11_data()
{
    const QByteArray rows =
        ";INSERT INTO userProfiles VALUES(1, 'm/dd/yyyy'), (2, 'dd/m/yyyy'), (3, 'M/dd/yyyy'),"
        "(4, 'dd/M/yyyy'), (5, 'M/DD/YYYY'), (6, ' m/dd/yyyy'), (7, NULL), (8, 'm/dd/yyyy');";
    const QStringList corrected = {
        "userProfiles",
        "1, 'M/d/yyyy'",
        "2, 'd/M/yyyy'",
        "3, 'M/dd/yyyy'",
        "4, 'dd/M/yyyy'",
        "5, 'M/DD/YYYY'",
        "6, ' m/dd/yyyy'",
        "7, NULL",
        "8, 'M/d/yyyy'"};
    const QByteArray before = outgoing + ");" + incoming + ");" + history + ");";
    const QStringList tables = {outgoing + dates, incoming + dates, history + dates};
    const QStringList succeeded = {"Migration to version 11 was successful."};
    const QByteArray firstRefused = refusalToChange("m/dd/yyyy");
    const QByteArray secondRefused = refusalToChange("dd/m/yyyy");

    QTest::addColumn<StepRun>("run");

    QTest::newRow("transfers get their dates, profiles another format") << StepRun{
        before +
            "INSERT INTO OutgoingFiles VALUES(1), (2);INSERT INTO IncomingFiles VALUES(3);"
            "INSERT INTO FileTransferHistory VALUES(4);" +
            profiles + rows,
        succeeded,
        11,
        tables +
            QStringList{
                profiles,
                "OutgoingFiles",
                "1, NULL, NULL",
                "2, NULL, NULL",
                "IncomingFiles",
                "3, NULL, NULL",
                "FileTransferHistory",
                "4, NULL, NULL"} +
            corrected};
    QTest::newRow("the profiles have no table")
        << StepRun{before, succeeded, 11, tables + noTransfers};
    QTest::newRow("the first format cannot be corrected") << StepRun{
        before + profiles + ";INSERT INTO userProfiles VALUES(1, 'm/dd/yyyy'), (2, 'dd/m/yyyy');" +
            firstRefused,
        succeeded,
        11,
        tables + QStringList{profiles, firstRefused} + noTransfers +
            QStringList{"userProfiles", "1, 'm/dd/yyyy'", "2, 'd/M/yyyy'"}};
    QTest::newRow("the second format cannot be corrected") << StepRun{
        before + profiles + ";INSERT INTO userProfiles VALUES(1, 'm/dd/yyyy'), (2, 'dd/m/yyyy');" +
            secondRefused,
        succeeded,
        11,
        tables + QStringList{profiles, secondRefused} + noTransfers +
            QStringList{"userProfiles", "1, 'M/d/yyyy'", "2, 'dd/m/yyyy'"}};
    QTest::newRow("the transfers have no tables") << StepRun{
        profiles + rows,
        forEach(columnsOfVersion11, addedToNothing) +
            QStringList("Migration to version 11 FAILED!"),
        versionUnmoved,
        QStringList(profiles) + corrected};
}

void Versions11And12Test::revertFromVersion11_data()
{
    const QByteArray rows =
        ";INSERT INTO userProfiles VALUES(1, 'M/dd/yyyy'), (2, 'dd/M/yyyy'), (3, 'M/d/yyyy'),"
        "(4, 'd/M/yyyy'), (5, 'm/dd/yyyy'), (6, 'dd/m/yyyy'), (7, NULL), (8, 'M/dd/yyyy');";
    const QStringList reverted = {
        "userProfiles",
        "1, 'm/d/yyyy'",
        "2, 'd/m/yyyy'",
        "3, 'M/d/yyyy'",
        "4, 'd/M/yyyy'",
        "5, 'm/dd/yyyy'",
        "6, 'dd/m/yyyy'",
        "7, NULL",
        "8, 'm/d/yyyy'"};
    const QByteArray before =
        outgoing + dates + ";" + incoming + dates + ";" + history + dates + ";";
    const QStringList tables = {
        "CREATE TABLE \"OutgoingFiles\" (id INTEGER , PRIMARY KEY(id) )",
        "CREATE TABLE \"IncomingFiles\" (id INTEGER , PRIMARY KEY(id) )",
        "CREATE TABLE \"FileTransferHistory\" (id INTEGER , PRIMARY KEY(id) )"};
    const QByteArray firstRefused = refusalToChange("M/dd/yyyy");
    const QByteArray secondRefused = refusalToChange("dd/M/yyyy");

    QTest::addColumn<StepRun>("run");

    QTest::newRow("transfers lose their dates, other formats than the forward step's change")
        << StepRun{
               profiles + rows + before +
                   "INSERT INTO OutgoingFiles VALUES(1, '2013-01-01', '2013-02-01'), (2, '', NULL);"
                   "INSERT INTO IncomingFiles VALUES(3, NULL, '2013-02-01');"
                   "INSERT INTO FileTransferHistory VALUES(4, NULL, NULL);",
               {},
               10,
               QStringList(profiles) + tables + reverted +
                   QStringList{
                       "OutgoingFiles",
                       "1",
                       "2",
                       "IncomingFiles",
                       "3",
                       "FileTransferHistory",
                       "4"}};
    QTest::newRow("the profiles have no table") << StepRun{before, {}, 10, tables + noTransfers};
    QTest::newRow("the first format cannot be changed") << StepRun{
        before + profiles + ";INSERT INTO userProfiles VALUES(1, 'M/dd/yyyy'), (2, 'dd/M/yyyy');" +
            firstRefused,
        {},
        10,
        QStringList{profiles, firstRefused} + tables +
            QStringList{"userProfiles", "1, 'M/dd/yyyy'", "2, 'd/m/yyyy'"} + noTransfers};
    QTest::newRow("the second format cannot be changed") << StepRun{
        before + profiles + ";INSERT INTO userProfiles VALUES(1, 'M/dd/yyyy'), (2, 'dd/M/yyyy');" +
            secondRefused,
        {},
        10,
        QStringList{profiles, secondRefused} + tables +
            QStringList{"userProfiles", "1, 'm/d/yyyy'", "2, 'dd/M/yyyy'"} + noTransfers};
    QTest::newRow("the transfers have no tables") << StepRun{
        profiles + rows,
        forEach(columnsOfVersion11, columnStays, rebuildRefused),
        10,
        QStringList(profiles) + reverted};
}

void Versions11And12Test::updateToVersion12_data()
{
    const QByteArray machinery = machines + ";INSERT INTO MC_MachineConfig VALUES(0), (1), (2);" +
                                 sections + ");INSERT INTO MC_EquipmentSection VALUES(10);" +
                                 groups + ");INSERT INTO MC_EquipmentSectionGroup VALUES(5);";
    const QByteArray settings = ";CREATE TABLE onScreenSwitchboxSettings (a);";
    const QByteArray switches = ";INSERT INTO switchToSectionBridge VALUES";

    const QStringList extended = {
        machines,
        sections + ", parentEquipmentSectionId INTEGER DEFAULT 0, sectionType INTEGER DEFAULT 0, "
                   "fullName TEXT)",
        groups + ", hashForIsoBoom TEXT)"};
    const QStringList extendedRows = {
        "MC_MachineConfig",
        "0",
        "1",
        "2",
        "MC_EquipmentSection",
        "10, 0, 0, NULL",
        "MC_EquipmentSectionGroup",
        "5, NULL"};
    const QStringList created = {config, labels};

    const QString succeeded = "Migration to version 12 was successful.";
    const QString failed = "Migration to version 12 FAILED!";
    const QByteArray noLabelForSwitch3 =
        "CREATE TRIGGER refusal BEFORE INSERT ON onScreenSwitchboxSwitchLabels "
        "WHEN NEW.switchId = 3 BEGIN SELECT RAISE(ABORT, 'refused'); END";
    const QString labelRefused = "The INSERT OR REPLACE INTO onScreenSwitchboxSwitchLabels query "
                                 "in updateToVersion12() failed!  The query error was: refused";
    const QString noBridge =
        "SELECT * FROM switchToSectionBridge query in updateToVersion12() failed!  "
        "The query error was: no such table: switchToSectionBridge";

    QTest::addColumn<StepRun>("run");

    QTest::newRow("switches move and get their labels") << StepRun{
        machinery + bridge + switches +
            "(1, 10, 0, 'a'), (1, 11, 3, NULL), (1, 12, 3, ''), (2, 20, 7, '')" + settings,
        {switchesCopied, succeeded},
        12,
        extended + created + extendedRows +
            QStringList{
                "onScreenSwitchboxConfig",
                "1, 10, 0",
                "1, 11, 3",
                "1, 12, 3",
                "2, 20, 7",
                "onScreenSwitchboxSwitchLabels",
                "1, 0, 'S1'",
                "1, 3, 'S4'",
                "2, 7, 'S8'"}};
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
    QTest::newRow("numbers are integers of 64 bits, what is none becomes 0") << StepRun{
        machinery + bridge + switches +
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
    QTest::newRow("of a section's switches the last one stays") << StepRun{
        machinery + bridge + switches + "(1, 10, 0, ''), (1, 11, 1, ''), (1, 10, 4, '')" + settings,
        {switchesCopied, succeeded},
        12,
        extended + created + extendedRows +
            QStringList{
                "onScreenSwitchboxConfig",
                "1, 11, 1",
                "1, 10, 4",
                "onScreenSwitchboxSwitchLabels",
                "1, 1, 'S2'",
                "1, 4, 'S5'"}};
    QTest::newRow("the new tables are there and keep their other rows") << StepRun{
        machinery + config + ";" + labels + ";" + bridge +
            ";INSERT INTO onScreenSwitchboxConfig VALUES(1, 10, 9), (2, 30, 1);"
            "INSERT INTO onScreenSwitchboxSwitchLabels VALUES(1, 0, 'old'), (2, 5, 'own')" +
            switches + "(1, 10, 0, '')" + settings,
        {switchesCopied, succeeded},
        12,
        extended + created + extendedRows +
            QStringList{
                "onScreenSwitchboxConfig",
                "2, 30, 1",
                "1, 10, 0",
                "onScreenSwitchboxSwitchLabels",
                "2, 5, 'own'",
                "2, 1, 'S2'",
                "1, 0, 'S1'"}};
    QTest::newRow("a bridge that cannot be dropped is no failure") << StepRun{
        machinery +
            "CREATE VIEW switchToSectionBridge AS SELECT 1 AS machine, 10 AS section, 0 AS switch" +
            settings,
        QStringList(switchesCopied) +
            tableStays(
                "switchToSectionBridge",
                "use DROP VIEW to delete view switchToSectionBridge Unable to execute statement") +
            QStringList(succeeded),
        12,
        extended +
            QStringList("CREATE VIEW switchToSectionBridge AS SELECT 1 AS machine, 10 AS section, "
                        "0 AS switch") +
            created + extendedRows +
            QStringList{
                "onScreenSwitchboxConfig",
                "1, 10, 0",
                "onScreenSwitchboxSwitchLabels",
                "1, 0, 'S1'"}};

    // From here on the step fails.
    QTest::newRow("there is nothing at all") << StepRun{
        "",
        forEach(columnsOfVersion12, addedToNothing) + QStringList{noBridge, failed},
        versionUnmoved,
        created + QStringList{"onScreenSwitchboxConfig", "onScreenSwitchboxSwitchLabels"}};
    QTest::newRow("without the bridge the labels are made and the settings go") << StepRun{
        machinery + config + ";INSERT INTO onScreenSwitchboxConfig VALUES(1, 10, 9)" + settings,
        {noBridge, failed},
        versionUnmoved,
        extended + created + extendedRows +
            QStringList{
                "onScreenSwitchboxConfig",
                "1, 10, 9",
                "onScreenSwitchboxSwitchLabels",
                "1, 9, 'S10'"}};
    QTest::newRow("without the new table the switches stay") << StepRun{
        machinery + bridge + switches + "(1, 10, 0, '');" +
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
    QTest::newRow("the copy ends at the first row that fails, the labels do not") << StepRun{
        machinery + bridge + switches + "(1, 10, 0, ''), (9, 11, 1, ''), (2, 20, 7, '')" + settings,
        {"Database migration failed in updateToVersion12() while copying data from old table: "
         "switchToSectionBridge to new table: onScreenSwitchboxConfig...  The error was: "
         "FOREIGN KEY constraint failed",
         failed},
        versionUnmoved,
        extended + QStringList(bridge) + created + extendedRows +
            QStringList{
                "switchToSectionBridge",
                "1, 10, 0, ''",
                "9, 11, 1, ''",
                "2, 20, 7, ''",
                "onScreenSwitchboxConfig",
                "1, 10, 0",
                "onScreenSwitchboxSwitchLabels",
                "1, 0, 'S1'"}};
    const QByteArray unreadableBridge =
        QByteArray(bridge).replace("note", unreadableColumn("note", "section = 11"));
    QTest::newRow("the copy breaks off: the switches stay") << StepRun{
        machinery + bridge + switches + "(1, 10, 0, ''), (1, 11, 3, ''), (2, 20, 7, '')" +
            settings + makeUnreadable("switchToSectionBridge", "note", "section = 11"),
        {"SELECT * FROM switchToSectionBridge query in updateToVersion12() failed!  "
         "The query error was: " +
             unreadable,
         failed},
        versionUnmoved,
        extended + QStringList(unreadableBridge) + created + extendedRows +
            QStringList{
                "switchToSectionBridge",
                "1, 10, 0, '', ''",
                "onScreenSwitchboxConfig",
                "1, 10, 0",
                "onScreenSwitchboxSwitchLabels",
                "1, 0, 'S1'"}};
    QTest::newRow("the labels have no table, the settings go") << StepRun{
        machinery + bridge + switches + "(1, 10, 0, '');" +
            "CREATE INDEX onScreenSwitchboxSwitchLabels ON MC_MachineConfig (id)" + settings,
        {switchesCopied,
         "The CREATE TABLE IF NOT EXISTS onScreenSwitchboxSwitchLabels query in "
         "updateToVersion12() failed!  The query error was: "
         "there is already an index named onScreenSwitchboxSwitchLabels",
         failed},
        versionUnmoved,
        extended +
            QStringList{
                "CREATE INDEX onScreenSwitchboxSwitchLabels ON MC_MachineConfig (id)", config} +
            extendedRows + QStringList{"onScreenSwitchboxConfig", "1, 10, 0"}};
    QTest::newRow("the new table cannot be read, the settings go") << StepRun{
        machinery + config + ";" + bridge + switches + "(1, 10, 0, '')" + settings,
        {switchesCopied,
         "The SELECT * FROM onScreenSwitchboxConfig query in updateToVersion12() failed!  "
         "The query error was: access to onScreenSwitchboxConfig.machineConfigId is prohibited",
         failed},
        versionUnmoved,
        extended + created + extendedRows +
            QStringList{"onScreenSwitchboxConfig", "1, 10, 0", "onScreenSwitchboxSwitchLabels"},
        {{SQLITE_READ, "onScreenSwitchboxConfig"}}};
    const QByteArray unreadableConfig = QByteArray(config).replace(
        "switchId INTEGER", unreadableColumn("switchId INTEGER", "sectionId = 11"));
    QTest::newRow("the labels break off, the settings go") << StepRun{
        machinery + config + ";" + bridge +
            ";INSERT INTO onScreenSwitchboxConfig VALUES(1, 10, 0), (1, 11, 3), (2, 20, 7)" +
            settings +
            makeUnreadable("onScreenSwitchboxConfig", "switchId INTEGER", "sectionId = 11"),
        {switchesCopied, failed},
        versionUnmoved,
        extended + QStringList{unreadableConfig, labels} + extendedRows +
            QStringList{
                "onScreenSwitchboxConfig",
                "1, 10, 0, 0",
                "onScreenSwitchboxSwitchLabels",
                "1, 0, 'S1'"}};
    QTest::newRow("every label is tried, the settings go") << StepRun{
        machinery + bridge + ";" + labels + ";" + noLabelForSwitch3 + switches +
            "(1, 10, 3, ''), (1, 11, 4, ''), (1, 12, 3, ''), (1, 13, 5, '')" + settings,
        {switchesCopied, labelRefused, labelRefused, failed},
        versionUnmoved,
        extended + QStringList{labels, noLabelForSwitch3, config} + extendedRows +
            QStringList{
                "onScreenSwitchboxSwitchLabels",
                "1, 4, 'S5'",
                "1, 5, 'S6'",
                "onScreenSwitchboxConfig",
                "1, 10, 3",
                "1, 11, 4",
                "1, 12, 3",
                "1, 13, 5"}};
    QTest::newRow("the settings cannot be dropped") << StepRun{
        machinery + bridge + ";CREATE VIEW onScreenSwitchboxSettings AS SELECT 1 AS a",
        QStringList(switchesCopied) +
            tableStays(
                "onScreenSwitchboxSettings",
                "use DROP VIEW to delete view onScreenSwitchboxSettings "
                "Unable to execute statement") +
            QStringList(failed),
        versionUnmoved,
        extended + QStringList("CREATE VIEW onScreenSwitchboxSettings AS SELECT 1 AS a") + created +
            extendedRows + QStringList{"onScreenSwitchboxConfig", "onScreenSwitchboxSwitchLabels"}};
}

void Versions11And12Test::revertFromVersion12_data()
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

    QTest::newRow("columns and tables go, nothing comes back") << StepRun{
        sections + columns + groups + ", hashForIsoBoom TEXT);" + config + ";" + labels + ";" +
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
    QTest::newRow("there is nothing at all")
        << StepRun{"", forEach(columnsLeavingVersion12, columnStays, rebuildRefused), 11, {}};

    QByteArray views = sections + ");" + groups + ");";
    QStringList viewsStay;
    QStringList log;
    for (const QByteArray &view : tables) {
        const QByteArray createView = "CREATE VIEW " + view + " AS SELECT 1 AS a";
        const QStringList stays = tableStays(
            view, "use DROP VIEW to delete view " + view + " Unable to execute statement");
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
}

/// The columns of versions 11 and 12 that are there, as quoted texts.
QStringList Versions11And12Test::addedColumns()
{
    return device->rows(
        "SELECT tables.name || '.' || columns.name "
        "FROM sqlite_master AS tables, pragma_table_info(tables.name) AS columns "
        "WHERE columns.name IN ('startDate', 'endDate', 'parentEquipmentSectionId', 'sectionType', "
        "'fullName', 'hashForIsoBoom') ORDER BY 1");
}

void Versions11And12Test::updateWithOneColumnThere_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<Columns>("columns");
    QTest::addColumn<Column>("there");
    QTest::addColumn<QStringList>("log");

    for (const auto &[table, column] : columnsOfVersion11) {
        QTest::addRow("version 11: %s.%s", table.constData(), column.constData())
            << Step(&M::updateToVersion11) << columnsOfVersion11 << Column(table, column)
            << (addedBefore(column, table) << "Migration to version 11 FAILED!");
    }
    for (const auto &[table, column] : columnsOfVersion12) {
        QTest::addRow("version 12: %s.%s", table.constData(), column.constData())
            << Step(&M::updateToVersion12) << columnsOfVersion12 << Column(table, column)
            << (addedBefore(column, table) << switchesCopied << "Migration to version 12 FAILED!");
    }
}

void Versions11And12Test::updateWithOneColumnThere()
{
    QFETCH(Step, step);
    QFETCH(Columns, columns);
    QFETCH(Column, there);
    QFETCH(QStringList, log);
    device->sql(
        outgoing + ");" + incoming + ");" + history + ");" + sections + ");" + groups + ");" +
        bridge + ";" + profiles + ";ALTER TABLE " + there.first + " ADD COLUMN " + there.second);
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);

    (migrator.*step)();

    COMPARE_LINES(takeLogLines(*device), log);
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    QStringList all;
    for (const auto &[table, column] : columns) {
        all << "'" + table + "." + column + "'";
    }
    all.sort();
    COMPARE_LINES(addedColumns(), all);
}

void Versions11And12Test::revertWithOneColumnThatStays_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<Columns>("columns");
    QTest::addColumn<Column>("staying");
    QTest::addColumn<int>("version");

    for (const auto &[table, column] : columnsOfVersion11) {
        QTest::addRow("version 11: %s.%s", table.constData(), column.constData())
            << Step(&M::revertFromVersion11) << columnsOfVersion11 << Column(table, column) << 10;
    }
    for (const auto &[table, column] : columnsOfVersion12) {
        QTest::addRow("version 12: %s.%s", table.constData(), column.constData())
            << Step(&M::revertFromVersion12) << columnsOfVersion12 << Column(table, column) << 11;
    }
}

void Versions11And12Test::revertWithOneColumnThatStays()
{
    QFETCH(Step, step);
    QFETCH(Columns, columns);
    QFETCH(Column, staying);
    QFETCH(int, version);
    QMap<QByteArray, QByteArray> tables;
    for (const auto &[table, column] : columns) {
        tables[table] += column + ", ";
    }
    for (auto table = tables.cbegin(); table != tables.cend(); ++table) {
        // A column that is the primary key cannot be taken away.
        const QByteArray key = table.key() == staying.first ? staying.second : "id";
        device->sql(
            "CREATE TABLE " + table.key() + " (id, " + table.value() + "PRIMARY KEY(" + key + "))");
    }
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);

    (migrator.*step)();

    COMPARE_LINES(takeLogLines(*device), columnStays(staying.second, staying.first, keyRefused));
    QCOMPARE(migrator.currentVersion(), version);
    COMPARE_LINES(addedColumns(), QStringList("'" + staying.first + "." + staying.second + "'"));
}

void Versions11And12Test::secondRun_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<int>("version");
    QTest::addColumn<QStringList>("log");

    QTest::newRow("forward, version 11: the columns are there")
        << Step(&M::updateToVersion11) << 11
        << (forEach(columnsOfVersion11, addedBefore) << "Migration to version 11 FAILED!");
    QTest::newRow("forward, version 12: the columns are there, the bridge has gone")
        << Step(&M::updateToVersion12) << 12
        << (forEach(columnsOfVersion12, addedBefore)
            << "SELECT * FROM switchToSectionBridge query in updateToVersion12() failed!  "
               "The query error was: no such table: switchToSectionBridge"
            << "Migration to version 12 FAILED!");
    QTest::newRow("backward, version 11: the tables are rebuilt as they are")
        << Step(&M::revertFromVersion11) << 10 << QStringList();
    QTest::newRow("backward, version 12: the tables are rebuilt as they are")
        << Step(&M::revertFromVersion12) << 11 << QStringList();
}

void Versions11And12Test::secondRun()
{
    QFETCH(Step, step);
    QFETCH(int, version);
    QFETCH(QStringList, log);
    device->sql(
        outgoing + ");" + incoming + ");" + history + ");" + profiles + ";" + machines + ";" +
        sections + ");" + groups + ");" + bridge + ";" +
        "INSERT INTO OutgoingFiles VALUES(1);INSERT INTO userProfiles VALUES(1, 'm/dd/yyyy');"
        "INSERT INTO MC_MachineConfig VALUES(1);INSERT INTO MC_EquipmentSection VALUES(10);"
        "INSERT INTO switchToSectionBridge VALUES(1, 10, 0, ''), (1, 11, 3, ''), (1, 12, 3, '');");
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);
    (migrator.*step)();
    QCOMPARE(migrator.currentVersion(), version);
    device->takeLog();
    const QStringList before = device->dump();

    (migrator.*step)();

    COMPARE_LINES(takeLogLines(*device), log);
    QCOMPARE(migrator.currentVersion(), version);
    COMPARE_LINES(device->dump(), before);
}

void Versions11And12Test::dateFormatsDoNotComeBack()
{
    device->sql(
        outgoing + ");" + incoming + ");" + history + ");" + profiles +
        ";INSERT INTO userProfiles VALUES(1, 'm/dd/yyyy'), (2, 'dd/m/yyyy')");
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);

    migrator.updateToVersion11();
    migrator.revertFromVersion11();

    COMPARE_LINES(
        device->rows("SELECT * FROM userProfiles"),
        QStringList({"1, 'M/d/yyyy'", "2, 'd/M/yyyy'"}));
    QCOMPARE(migrator.currentVersion(), 10);
}

void Versions11And12Test::probes_data()
{
    const Probe probe11 = &M::getUpdate11Applied;
    const Probe probe12 = &M::getUpdate12Applied;

    QTest::addColumn<Probe>("probe");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    QTest::newRow("version 11: both columns are there")
        << probe11 << QByteArray("CREATE TABLE OutgoingFiles (id, startDate, endDate)") << true;
    QTest::newRow("version 11: the columns are the first")
        << probe11 << QByteArray("CREATE TABLE OutgoingFiles (endDate, startDate)") << true;
    QTest::newRow("version 11: there is no start")
        << probe11 << QByteArray("CREATE TABLE OutgoingFiles (id, endDate)") << false;
    QTest::newRow("version 11: there is no end")
        << probe11 << QByteArray("CREATE TABLE OutgoingFiles (id, startDate)") << false;
    QTest::newRow("version 11: the start has another letter case")
        << probe11 << QByteArray("CREATE TABLE OutgoingFiles (id, StartDate, endDate)") << false;
    QTest::newRow("version 11: the end has another letter case")
        << probe11 << QByteArray("CREATE TABLE OutgoingFiles (id, startDate, EndDate)") << false;
    QTest::newRow("version 11: there is no table") << probe11 << QByteArray() << true;
    QTest::newRow("version 11: the table has another letter case, as if there were none")
        << probe11 << QByteArray("CREATE TABLE outgoingfiles (id)") << true;
    QTest::newRow("version 11: a view is no table")
        << probe11 << QByteArray("CREATE VIEW OutgoingFiles AS SELECT 1 AS id") << true;
    QTest::newRow("version 11: the other tables are not looked at")
        << probe11
        << QByteArray("CREATE TABLE OutgoingFiles (id, startDate, endDate);"
                      "CREATE TABLE IncomingFiles (id);CREATE TABLE FileTransferHistory (id)")
        << true;

    QTest::newRow("version 12: the parent is there")
        << probe12 << QByteArray("CREATE TABLE MC_EquipmentSection (id, parentEquipmentSectionId)")
        << true;
    QTest::newRow("version 12: the parent is the first column")
        << probe12 << QByteArray("CREATE TABLE MC_EquipmentSection (parentEquipmentSectionId, id)")
        << true;
    QTest::newRow("version 12: there is no parent")
        << probe12 << QByteArray("CREATE TABLE MC_EquipmentSection (id, sectionType, fullName)")
        << false;
    QTest::newRow("version 12: the parent has another letter case")
        << probe12 << QByteArray("CREATE TABLE MC_EquipmentSection (id, ParentEquipmentSectionId)")
        << false;
    QTest::newRow("version 12: the table has another letter case")
        << probe12 << QByteArray("CREATE TABLE mc_equipmentsection (id, parentEquipmentSectionId)")
        << true;
    QTest::newRow("version 12: there is no table") << probe12 << QByteArray() << false;
}

void Versions11And12Test::probes()
{
    QFETCH(Probe, probe);
    checkProbe(*device, probe);
}

void Versions11And12Test::stepsOnAClosedConnection_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<int>("version");
    QTest::addColumn<QStringList>("log");

    QTest::newRow("forward, version 11") << Step(&M::updateToVersion11) << versionUnmoved
                                         << (forEach(columnsOfVersion11, newColumnNotAdded, "")
                                             << "Migration to version 11 FAILED!");
    QTest::newRow("backward, version 11")
        << Step(&M::revertFromVersion11) << 10 << forEach(columnsOfVersion11, columnStays, "");
    QTest::newRow("forward, version 12")
        << Step(&M::updateToVersion12) << versionUnmoved
        << forEach(columnsOfVersion12, newColumnNotAdded, "") +
               QStringList{
                   "The CREATE TABLE query in updateToVersion12() failed!  The query error was: ",
                   "The CREATE TABLE IF NOT EXISTS onScreenSwitchboxSwitchLabels query in "
                   "updateToVersion12() failed!  The query error was: "} +
               tableStays("onScreenSwitchboxSettings", "") +
               QStringList("Migration to version 12 FAILED!");
    QTest::newRow("backward, version 12")
        << Step(&M::revertFromVersion12) << 11
        << forEach(columnsLeavingVersion12, columnStays, "") +
               tableStays("onScreenSwitchboxConfig", "") +
               tableStays("onScreenSwitchboxSwitchLabels", "") +
               tableStays("WeatherStationConfig", "") + tableStays("JP_DispatcherFilters", "");
}

void Versions11And12Test::probesOnAClosedConnection()
{
    const DatabaseMigrator &migrator = startAt(*device, versionUnmoved);
    QSqlDatabase::database().close();

    QCOMPARE(migrator.getUpdate11Applied(), true);
    QCOMPARE(migrator.getUpdate12Applied(), false);
    COMPARE_LINES(takeLogLines(*device), QStringList());
}

QTEST_APPLESS_MAIN(Versions11And12Test)
#include "versions_11_and_12_test.moc"

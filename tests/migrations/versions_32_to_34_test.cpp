#include "support/step_test.h"

#include <sqlite3.h>

namespace
{
using M = DatabaseMigrator;

/// SQLite's answer to what a test refuses.
const QString notAuthorized = "not authorized Unable to execute statement";

QString duplicate(const QString &column)
{
    return "duplicate column name: " + column + " Unable to execute statement";
}

// ---- Version 32 -------------------------------------------------------------------------------

const QByteArray mapColumnsAt31 =
    "(id INTEGER PRIMARY KEY AUTOINCREMENT, rxUuid TEXT NOT NULL, woUuid TEXT NOT NULL, "
    "absolutePath TEXT NOT NULL, rateColumn TEXT, pid TEXT, mapName TEXT, units TEXT, "
    "uniqueProdId INTEGER, FOREIGN KEY(woUuid) REFERENCES files(uuid) ON DELETE CASCADE )";
const QByteArray mapColumnsAt32 =
    "(id INTEGER PRIMARY KEY AUTOINCREMENT, rxUuid TEXT NOT NULL, woUuid TEXT NOT NULL, "
    "absolutePath TEXT NOT NULL, rateColumn TEXT, pid TEXT, mapName TEXT, units TEXT, "
    "uniqueProdId INTEGER, "
    "FOREIGN KEY(woUuid) REFERENCES files(uuid) ON UPDATE CASCADE ON DELETE CASCADE )";
const QByteArray mapsAt31 = "CREATE TABLE workOrderRxMaps " + mapColumnsAt31;
const QByteArray mapsAt32 = "CREATE TABLE workOrderRxMaps " + mapColumnsAt32;
// How the database writes the text of a table that was renamed.
const QByteArray renamedAside = "CREATE TABLE \"workOrderRxMaps_old\" ";
const QByteArray renamedBack = "CREATE TABLE \"workOrderRxMaps\" ";

const QByteArray files = "CREATE TABLE files (id INTEGER PRIMARY KEY, uuid TEXT UNIQUE);"
                         "INSERT INTO files VALUES(1, 'wo1'), (2, 'wo2');";
const QByteArray insertMaps = ";INSERT INTO workOrderRxMaps VALUES";
/// One complete row, one with gaps; their identifiers have gaps too.
const QByteArray twoMaps =
    insertMaps + "(3, 'rx3', 'wo1', '/maps/Süd.shp', 'Menge', 'P1', '100 %1 \"%2\"', 'l/ha', 21), "
                 "(7, 'rx7', 'wo2', '/maps/7.shp', NULL, NULL, NULL, NULL, NULL);";
const QStringList rowsBefore = {
    "3, 'rx3', 'wo1', '/maps/Süd.shp', 'Menge', 'P1', '100 %1 \"%2\"', 'l/ha', 21",
    "7, 'rx7', 'wo2', '/maps/7.shp', NULL, NULL, NULL, NULL, NULL"};
const QStringList rowsAfter = {
    "3, 'rx3', 'wo1', '/maps/Süd.shp', 'Menge', 'P1', '100 %1 \"%2\"', 'l/ha', 21",
    "7, 'rx7', 'wo2', '/maps/7.shp', '', '', '', '', 0"};

const QByteArray preferencesAt31 =
    "CREATE TABLE SM_Preferences (id INTEGER PRIMARY KEY, gridSpacing REAL DEFAULT 2.5);"
    "INSERT INTO SM_Preferences VALUES(1, 6.25);";
const QByteArray preferencesAt32 =
    "CREATE TABLE SM_Preferences (id INTEGER PRIMARY KEY, gridSpacing REAL DEFAULT 2.5, "
    "enableCloudJobs INTEGER DEFAULT 0);"
    "INSERT INTO SM_Preferences VALUES(1, 6.25, 1);";
const QStringList preferencesWithCloudJobs = {
    "CREATE TABLE SM_Preferences (id INTEGER PRIMARY KEY, gridSpacing REAL DEFAULT 2.5, "
    "enableCloudJobs INTEGER DEFAULT 0)",
    "1, 6.25, 0"};
const QStringList preferencesRebuilt = {
    "CREATE TABLE \"SM_Preferences\" (id INTEGER , gridSpacing REAL DEFAULT 2.5 , "
    "PRIMARY KEY(id) )",
    "1, 6.25"};

/// @return the tables that version 32 works on
QStringList mapsAndPreferences(ScratchDevice &device)
{
    return contents(device, {"workOrderRxMaps", "workOrderRxMaps_old", "SM_Preferences"});
}

// ---- Version 33 -------------------------------------------------------------------------------

const QByteArray controlAt32 =
    "CREATE TABLE systemControl (id INTEGER PRIMARY KEY, brightness INTEGER NOT NULL DEFAULT 80, "
    "wirelessEnabled BOOLEAN DEFAULT 0);"
    "INSERT INTO systemControl VALUES(1, 90, 1);";
const QByteArray controlAt33 =
    "CREATE TABLE systemControl (id INTEGER PRIMARY KEY, brightness INTEGER NOT NULL DEFAULT 80, "
    "networkingMode INTEGER DEFAULT 0, apSsid TEXT DEFAULT 'TK-1', apPassword TEXT DEFAULT 'tk2');"
    "INSERT INTO systemControl VALUES(1, 90, 2, 'Hof', 'geheim');";
const QByteArray registration =
    "CREATE TABLE registrationInfo (partNumber TEXT, serialNumber, barcode);";
const QByteArray registered =
    registration + "INSERT INTO registrationInfo VALUES('94071A', 1234567, 1804629537);";

QStringList control(ScratchDevice &device)
{
    return contents(device, {"systemControl"});
}

// ---- Version 34 -------------------------------------------------------------------------------

const QByteArray mapsAt34 =
    "CREATE TABLE workOrderRxMaps (id INTEGER PRIMARY KEY AUTOINCREMENT, woUuid TEXT NOT NULL, "
    "woConvRate REAL, userConvRate REAL, "
    "FOREIGN KEY(woUuid) REFERENCES files(uuid) ON UPDATE CASCADE ON DELETE CASCADE )";
const QByteArray mapsAt33 =
    "CREATE TABLE workOrderRxMaps (id INTEGER PRIMARY KEY AUTOINCREMENT, woUuid TEXT NOT NULL, "
    "FOREIGN KEY(woUuid) REFERENCES files(uuid) ON UPDATE CASCADE ON DELETE CASCADE )";
const QString mapsRebuilt =
    "CREATE TABLE \"workOrderRxMaps\" (id INTEGER , woUuid TEXT NOT NULL  , PRIMARY KEY(id) , "
    "FOREIGN KEY(woUuid) REFERENCES files(uuid) ON UPDATE CASCADE ON DELETE CASCADE )";

QStringList maps(ScratchDevice &device)
{
    return contents(device, {"workOrderRxMaps"});
}
} // namespace

class Versions32To34Test : public QObject
{
    Q_OBJECT

private slots:
    void init() { device = std::make_unique<ScratchDevice>(); }
    void cleanup() { device.reset(); }

    void updateToVersion32_data();
    void updateToVersion32() { checkStep(*device, &M::updateToVersion32, mapsAndPreferences); }
    void revertFromVersion32_data();
    void revertFromVersion32() { checkStep(*device, &M::revertFromVersion32, mapsAndPreferences); }
    void version32KeepsTheNextIdentifier();
    void getUpdate32Applied_data();
    void getUpdate32Applied() { checkProbe(*device, &M::getUpdate32Applied); }

    void updateToVersion33_data();
    void updateToVersion33() { checkStep(*device, &M::updateToVersion33, control); }
    void version33DerivesDefaults_data();
    void version33DerivesDefaults();
    void revertFromVersion33_data();
    void revertFromVersion33() { checkStep(*device, &M::revertFromVersion33, control); }
    void getUpdate33Applied_data();
    void getUpdate33Applied() { checkProbe(*device, &M::getUpdate33Applied); }
    void version33TakesVersion30Away();

    void updateToVersion34_data();
    void updateToVersion34() { checkStep(*device, &M::updateToVersion34, maps); }
    void revertFromVersion34_data();
    void revertFromVersion34() { checkStep(*device, &M::revertFromVersion34, maps); }
    void getUpdate34Applied_data();
    void getUpdate34Applied() { checkProbe(*device, &M::getUpdate34Applied); }

    void secondRun_data();
    void secondRun();
    void closedConnection();

private:
    std::unique_ptr<ScratchDevice> device;
};

void Versions32To34Test::updateToVersion32_data()
{
    QTest::addColumn<StepRun>("run");

    const QStringList succeeded("Migration to version 32 was successful.");
    const QStringList failed("Migration to version 32 failed");
    const QByteArray before = files + preferencesAt31 + mapsAt31;
    QTest::newRow("maps follow their file, gaps are filled") << StepRun{
        before + twoMaps,
        succeeded,
        32,
        QStringList(mapsAt32) + rowsAfter + preferencesWithCloudJobs};
    QTest::newRow("no map") << StepRun{
        before, succeeded, 32, QStringList(mapsAt32) + preferencesWithCloudJobs};
    QTest::newRow("identifiers and products beyond 32 bits, a product that is no number")
        << StepRun{
               before + insertMaps +
                   "(5000000000, 'a', 'wo1', '', '', '', '', '', 6000000000),"
                   "(5000000001, 'b', 'wo1', '', '', '', '', '', 'x');",
               succeeded,
               32,
               QStringList(
                   {mapsAt32,
                    "5000000000, 'a', 'wo1', '', '', '', '', '', 6000000000",
                    "5000000001, 'b', 'wo1', '', '', '', '', '', 0"}) +
                   preferencesWithCloudJobs};
    QTest::newRow("maps that follow their file already, and cloud jobs that are on") << StepRun{
        files + preferencesAt32 + mapsAt32 + twoMaps,
        succeeded,
        32,
        QStringList(mapsAt32) + rowsAfter +
            QStringList({preferencesWithCloudJobs[0], "1, 6.25, 1"})};
    QTest::newRow("columns of a later version go") << StepRun{
        before + twoMaps +
            "ALTER TABLE workOrderRxMaps ADD COLUMN woConvRate REAL;"
            "UPDATE workOrderRxMaps SET woConvRate = 1.5;",
        succeeded,
        32,
        QStringList(mapsAt32) + rowsAfter + preferencesWithCloudJobs};
    QTest::newRow("the table aside cannot be dropped, the step counts as done") << StepRun{
        before + twoMaps,
        tableStays("workOrderRxMaps_old", notAuthorized) + succeeded,
        32,
        QStringList(mapsAt32) + rowsAfter + QStringList(renamedAside + mapColumnsAt31) +
            rowsBefore + preferencesWithCloudJobs,
        {{SQLITE_DROP_TABLE, "workOrderRxMaps_old"}}};

    QTest::newRow("no table: it is created") << StepRun{
        files + preferencesAt31, succeeded, 32, QStringList(mapsAt32) + preferencesWithCloudJobs};
    QTest::newRow("no table, and it cannot be created") << StepRun{
        files + preferencesAt31,
        failed,
        versionUnmoved,
        preferencesWithCloudJobs,
        {{SQLITE_CREATE_TABLE, "workOrderRxMaps"}}};
    QTest::newRow("the table in other letter case counts as created") << StepRun{
        files + preferencesAt31 + "CREATE TABLE WorkOrderRxMaps (id)",
        succeeded,
        32,
        preferencesWithCloudJobs};

    // Whatever happened to the maps, the preferences get their column.
    QTest::newRow("a table aside was left behind") << StepRun{
        before + twoMaps + "CREATE TABLE workOrderRxMaps_old (id)",
        QStringList("The ALTER TABLE RENAME query in updateToVersion32() failed!  The "
                    "query error was: there is already another table or index with "
                    "this name: workOrderRxMaps_old") +
            failed,
        versionUnmoved,
        QStringList(mapsAt31) + rowsBefore + QStringList("CREATE TABLE workOrderRxMaps_old (id)") +
            preferencesWithCloudJobs};
    QTest::newRow("the new table cannot be created: the maps stay aside") << StepRun{
        before + twoMaps,
        QStringList("The CREATE TABLE IF NOT EXISTS query in updateToVersion32() "
                    "failed!  The query error was: not authorized") +
            failed,
        versionUnmoved,
        QStringList(renamedAside + mapColumnsAt31) + rowsBefore + preferencesWithCloudJobs,
        {{SQLITE_CREATE_TABLE, "workOrderRxMaps"}}};
    QTest::newRow("the table aside cannot be read: the maps stay there") << StepRun{
        before + twoMaps,
        QStringList("SELECT * FROM workOrderRxMaps_old query in updateToVersion32() "
                    "failed!  The query error was: access to "
                    "workOrderRxMaps_old.mapName is prohibited") +
            failed,
        versionUnmoved,
        QStringList(mapsAt32) + QStringList(renamedAside + mapColumnsAt31) + rowsBefore +
            preferencesWithCloudJobs,
        {{SQLITE_READ, "workOrderRxMaps_old", "mapName"}}};
    const QByteArray unreadableMaps =
        QByteArray(mapColumnsAt31)
            .replace("uniqueProdId INTEGER", unreadableColumn("uniqueProdId INTEGER", "id = 7"));
    QTest::newRow("the maps break off: the old table is restored") << StepRun{
        before + twoMaps + makeUnreadable("workOrderRxMaps", "uniqueProdId INTEGER", "id = 7"),
        QStringList(
            "SELECT * FROM workOrderRxMaps_old query in updateToVersion32() failed!  "
            "The query error was: " +
            unreadable) +
            failed,
        versionUnmoved,
        QStringList({QString(renamedBack + unreadableMaps), rowsBefore[0] + ", 21"}) +
            preferencesWithCloudJobs};
    const QByteArray quoted =
        insertMaps + "(8, 'rx8', 'wo1', '/maps/O''Neill.shp', '', '', '', '', 0);";
    const QString quotedRow = "8, 'rx8', 'wo1', '/maps/O''Neill.shp', '', '', '', '', 0";
    const QStringList notInserted(
        "Database migration failed in updateToVersion32()!  The error was: near \"Neill\": syntax "
        "error");
    QTest::newRow("a path holds a quote: the old table is restored") << StepRun{
        before + twoMaps + quoted,
        notInserted + failed,
        versionUnmoved,
        QStringList(renamedBack + mapColumnsAt31) + rowsBefore + QStringList(quotedRow) +
            preferencesWithCloudJobs};
    QTest::newRow("a map's file is missing: the old table is restored") << StepRun{
        before + twoMaps + "DELETE FROM files WHERE uuid = 'wo1'",
        QStringList("Database migration failed in updateToVersion32()!  The error was: "
                    "FOREIGN KEY constraint failed") +
            failed,
        versionUnmoved,
        QStringList(renamedBack + mapColumnsAt31) + rowsBefore + preferencesWithCloudJobs};
    QTest::newRow("after a failed map the new table cannot be dropped: both stay") << StepRun{
        before + twoMaps + quoted,
        tableStays("workOrderRxMaps", notAuthorized) + notInserted + failed,
        versionUnmoved,
        QStringList(mapsAt32) + rowsAfter + QStringList(renamedAside + mapColumnsAt31) +
            rowsBefore + QStringList(quotedRow) + preferencesWithCloudJobs,
        {{SQLITE_DROP_TABLE, "workOrderRxMaps"}}};

    QTest::newRow("no preferences: the maps are done all the same") << StepRun{
        files + mapsAt31 + twoMaps,
        notAdded("enableCloudJobs", "SM_Preferences", noSuchTable("SM_Preferences")) + failed,
        versionUnmoved,
        QStringList(mapsAt32) + rowsAfter};
    QTest::newRow("neither maps nor preferences are done") << StepRun{
        mapsAt31 + ";CREATE TABLE workOrderRxMaps_old (id)",
        QStringList("The ALTER TABLE RENAME query in updateToVersion32() failed!  The "
                    "query error was: there is already another table or index with "
                    "this name: workOrderRxMaps_old") +
            notAdded("enableCloudJobs", "SM_Preferences", noSuchTable("SM_Preferences")) + failed,
        versionUnmoved,
        {mapsAt31, "CREATE TABLE workOrderRxMaps_old (id)"}};
}

void Versions32To34Test::revertFromVersion32_data()
{
    QTest::addColumn<StepRun>("run");

    const QByteArray before = files + preferencesAt32 + mapsAt32;
    QTest::newRow("maps do not follow their file any more, gaps are filled") << StepRun{
        before + twoMaps, {}, 31, QStringList(mapsAt31) + rowsAfter + preferencesRebuilt};
    QTest::newRow("maps and preferences of version 31") << StepRun{
        files + preferencesAt31 + mapsAt31 + twoMaps,
        {},
        31,
        QStringList(mapsAt31) + rowsAfter + preferencesRebuilt};
    QTest::newRow("the table aside cannot be dropped, the step counts as done") << StepRun{
        before + twoMaps,
        tableStays("workOrderRxMaps_old", notAuthorized),
        31,
        QStringList(mapsAt31) + rowsAfter + QStringList(renamedAside + mapColumnsAt32) +
            rowsBefore + preferencesRebuilt,
        {{SQLITE_DROP_TABLE, "workOrderRxMaps_old"}}};

    // Whatever happened to the maps, the preferences lose their column.
    QTest::newRow("no table") << StepRun{
        preferencesAt32,
        {"The ALTER TABLE RENAME query in revertFromVersion32() failed!  The query "
         "error was: no such table: workOrderRxMaps"},
        versionUnmoved,
        preferencesRebuilt};
    QTest::newRow("a table aside was left behind") << StepRun{
        before + twoMaps + "CREATE TABLE workOrderRxMaps_old (id)",
        {"The ALTER TABLE RENAME query in revertFromVersion32() failed!  The query "
         "error was: there is already another table or index with this name: "
         "workOrderRxMaps_old"},
        versionUnmoved,
        QStringList(mapsAt32) + rowsBefore + QStringList("CREATE TABLE workOrderRxMaps_old (id)") +
            preferencesRebuilt};
    QTest::newRow("the new table cannot be created: the maps stay aside") << StepRun{
        before + twoMaps,
        {"The CREATE TABLE IF NOT EXISTS query in revertFromVersion32() failed!  The "
         "query error was: not authorized"},
        versionUnmoved,
        QStringList(renamedAside + mapColumnsAt32) + rowsBefore + preferencesRebuilt,
        {{SQLITE_CREATE_TABLE, "workOrderRxMaps"}}};
    QTest::newRow("the table aside cannot be read: the maps stay there") << StepRun{
        before + twoMaps,
        {"SELECT * FROM workOrderRxMaps_old query in revertFromVersion32() failed!  "
         "The query error was: access to workOrderRxMaps_old.mapName is prohibited"},
        versionUnmoved,
        QStringList(mapsAt31) + QStringList(renamedAside + mapColumnsAt32) + rowsBefore +
            preferencesRebuilt,
        {{SQLITE_READ, "workOrderRxMaps_old", "mapName"}}};
    const QByteArray unreadableMaps =
        QByteArray(mapColumnsAt32)
            .replace("uniqueProdId INTEGER", unreadableColumn("uniqueProdId INTEGER", "id = 7"));
    QTest::newRow("the maps break off: the old table is restored") << StepRun{
        before + twoMaps + makeUnreadable("workOrderRxMaps", "uniqueProdId INTEGER", "id = 7"),
        {"SELECT * FROM workOrderRxMaps_old query in revertFromVersion32() failed!  "
         "The query error was: " +
         unreadable},
        versionUnmoved,
        QStringList({QString(renamedBack + unreadableMaps), rowsBefore[0] + ", 21"}) +
            preferencesRebuilt};
    const QByteArray quoted =
        insertMaps + "(8, 'rx8', 'wo1', '/8.shp', '', 'O''Neill', '', '', 0);";
    const QString quotedRow = "8, 'rx8', 'wo1', '/8.shp', '', 'O''Neill', '', '', 0";
    const QStringList notInserted(
        "Database migration failed in revertFromVersion32()!  The error was: near \"Neill\": "
        "syntax error");
    QTest::newRow("a text holds a quote: the old table is restored") << StepRun{
        before + twoMaps + quoted,
        notInserted,
        versionUnmoved,
        QStringList(renamedBack + mapColumnsAt32) + rowsBefore + QStringList(quotedRow) +
            preferencesRebuilt};
    QTest::newRow("after a failed map the new table cannot be dropped: both stay") << StepRun{
        before + twoMaps + quoted,
        tableStays("workOrderRxMaps", notAuthorized) + notInserted,
        versionUnmoved,
        QStringList(mapsAt31) + rowsAfter + QStringList(renamedAside + mapColumnsAt32) +
            rowsBefore + QStringList(quotedRow) + preferencesRebuilt,
        {{SQLITE_DROP_TABLE, "workOrderRxMaps"}}};

    QTest::newRow("no preferences: the maps are done all the same") << StepRun{
        files + mapsAt32 + twoMaps,
        columnStays("enableCloudJobs", "SM_Preferences", rebuildRefused),
        versionUnmoved,
        QStringList(mapsAt31) + rowsAfter};
    QTest::newRow("neither maps nor preferences are done") << StepRun{
        "",
        QStringList("The ALTER TABLE RENAME query in revertFromVersion32() failed!  "
                    "The query error was: no such table: workOrderRxMaps") +
            columnStays("enableCloudJobs", "SM_Preferences", rebuildRefused),
        versionUnmoved,
        {}};
}

void Versions32To34Test::version32KeepsTheNextIdentifier()
{
    const char *const nextIdentifier = "SELECT name, seq FROM sqlite_sequence";
    device->sql(files + preferencesAt31 + mapsAt31 + twoMaps);
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);

    migrator.updateToVersion32();
    COMPARE_LINES(device->rows(nextIdentifier), QStringList("'workOrderRxMaps', 7"));
    migrator.revertFromVersion32();
    COMPARE_LINES(device->rows(nextIdentifier), QStringList("'workOrderRxMaps', 7"));
    QCOMPARE(migrator.currentVersion(), 31);
}

void Versions32To34Test::getUpdate32Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    const QByteArray cloudJobs = ";CREATE TABLE SM_Preferences (enableCloudJobs)";
    QTest::newRow("maps follow their file and there are cloud jobs")
        << mapsAt32 + cloudJobs << true;
    QTest::newRow("cloud jobs in other letter case") << mapsAt32 + cloudJobs.toUpper() << true;
    QTest::newRow("maps do not follow their file") << mapsAt31 + cloudJobs << false;
    QTest::newRow("the cascade is written in other letter case")
        << QByteArray(mapsAt32).replace("ON UPDATE CASCADE", "on update cascade") + cloudJobs
        << false;
    QTest::newRow("maps in other letter case")
        << QByteArray(mapsAt32).replace("workOrder", "WorkOrder") + cloudJobs << false;
    QTest::newRow("no maps") << cloudJobs.mid(1) << false;
    QTest::newRow("no cloud jobs") << mapsAt32 + ";CREATE TABLE SM_Preferences (id)" << false;
    QTest::newRow("no preferences") << mapsAt32 << false;
}

void Versions32To34Test::updateToVersion33_data()
{
    QTest::addColumn<StepRun>("run");

    const QString table = "systemControl";
    const QStringList succeeded("Migration to version 33 was successful.");
    const QStringList failed("Migration to version 33 failed");
    const QString derived =
        "CREATE TABLE \"systemControl\" (id INTEGER , brightness INTEGER NOT NULL  DEFAULT 80 , "
        "networkingMode INTEGER DEFAULT 0, apSsid TEXT DEFAULT 'TK-1234567', "
        "apPassword TEXT DEFAULT 'tk629537', PRIMARY KEY(id) )";
    QTest::newRow("the access point takes the place of the wireless switch") << StepRun{
        registered + controlAt32, succeeded, 33, {derived, "1, 90, 0, 'TK-1234567', 'tk629537'"}};
    QTest::newRow("the wireless switch in other letter case goes too") << StepRun{
        registered + QByteArray(controlAt32).replace("wireless", "WIRELESS"),
        succeeded,
        33,
        {derived, "1, 90, 0, 'TK-1234567', 'tk629537'"}};
    QTest::newRow("without a wireless switch the table is rebuilt all the same") << StepRun{
        registered + "CREATE TABLE systemControl (id INTEGER PRIMARY KEY, "
                     "brightness INTEGER NOT NULL DEFAULT 80)",
        succeeded,
        33,
        {derived}};
    QTest::newRow("an access point that is there keeps its values and its defaults") << StepRun{
        registered + controlAt33,
        succeeded,
        33,
        {"CREATE TABLE \"systemControl\" (id INTEGER , "
         "brightness INTEGER NOT NULL  DEFAULT 80 , networkingMode INTEGER DEFAULT 0 , "
         "apSsid TEXT DEFAULT 'TK-1' , apPassword TEXT DEFAULT 'tk2' , "
         "PRIMARY KEY(id) )",
         "1, 90, 2, 'Hof', 'geheim'"}};

    // The first failure stops the step.
    QTest::newRow("no table") << StepRun{
        registered,
        columnStays("wirelessEnabled", table, rebuildRefused) + failed,
        versionUnmoved,
        {}};
    QTest::newRow("the wireless switch belongs to the key: nothing is added") << StepRun{
        "CREATE TABLE systemControl (wirelessEnabled PRIMARY KEY, id)",
        columnStays("wirelessEnabled", table, keyRefused) + failed,
        versionUnmoved,
        {"CREATE TABLE systemControl (wirelessEnabled PRIMARY KEY, id)"}};
    QTest::newRow("the networking mode in other letter case: no access point is added") << StepRun{
        "CREATE TABLE systemControl (id PRIMARY KEY, NetworkingMode, wirelessEnabled)",
        notAdded("networkingMode", table, duplicate("networkingMode")) + failed,
        versionUnmoved,
        {"CREATE TABLE \"systemControl\" (id  , NetworkingMode  , PRIMARY KEY(id) )"}};
    QTest::newRow("the network name in other letter case: no password is added") << StepRun{
        "CREATE TABLE systemControl (id PRIMARY KEY, ApSsid, wirelessEnabled)",
        notAdded("apSsid", table, duplicate("apSsid")) + failed,
        versionUnmoved,
        {"CREATE TABLE \"systemControl\" (id  , ApSsid  , "
         "networkingMode INTEGER DEFAULT 0, PRIMARY KEY(id) )"}};
    QTest::newRow("the password in other letter case") << StepRun{
        "CREATE TABLE systemControl (id PRIMARY KEY, ApPassword, wirelessEnabled)",
        notAdded("apPassword", table, duplicate("apPassword")) + failed,
        versionUnmoved,
        {"CREATE TABLE \"systemControl\" (id  , ApPassword  , "
         "networkingMode INTEGER DEFAULT 0, apSsid TEXT DEFAULT 'TK-', "
         "PRIMARY KEY(id) )"}};
}

void Versions32To34Test::version33DerivesDefaults_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("defaults");

    const auto row = [](const char *name, const QByteArray &values, const QString &defaults) {
        QTest::newRow(name) << registration + "INSERT INTO registrationInfo VALUES" + values
                            << defaults;
    };
    row("the last six digits of the barcode",
        "('94071A', 1234567, 1804629537)",
        "'TK-1234567', 'tk629537'");
    row("a barcode of six digits", "('', 1, 629537)", "'TK-1', 'tk629537'");
    row("a barcode of five digits", "('', 1, 29537)", "'TK-1', 'tk29537'");
    row("a barcode of one digit", "('', 0, 0)", "'TK-0', 'tk0'");
    row("zeros among the last six digits", "('', 1, 1000000042)", "'TK-1', 'tk000042'");
    row("negative numbers", "('', -5, -12345)", "'TK--5', 'tk-12345'");
    row("a negative barcode of more than six characters",
        "('', -5, -1804629537)",
        "'TK--5', 'tk629537'");
    row("the greatest and the smallest 32-bit number",
        "('', 2147483647, -2147483648)",
        "'TK-2147483647', 'tk483648'");
    row("numbers beyond 32 bits keep their lowest 32",
        "('', 4294967297, 3000000000)",
        "'TK-1', 'tk967296'");
    row("NULL", "('', NULL, NULL)", "'TK-0', 'tk0'");
    row("text that is no number", "('', 'O''Neill', '')", "'TK-0', 'tk0'");
    row("text that begins with a number", "('', '12a', '1804629537-1')", "'TK-0', 'tk0'");
    row("text that is a number", "('', '1234567', '1804629537')", "'TK-1234567', 'tk629537'");
    row("of two rows the first one counts",
        "('', 1, 111111), ('', 2, 222222)",
        "'TK-1', 'tk111111'");
    QTest::newRow("no row") << registration << "'TK-', 'tk'";
    QTest::newRow("no table") << QByteArray() << "'TK-', 'tk'";
    QTest::newRow("a table without a barcode")
        << QByteArray("CREATE TABLE registrationInfo (serialNumber);"
                      "INSERT INTO registrationInfo VALUES(1234567)")
        << "'TK-', 'tk'";
}

void Versions32To34Test::version33DerivesDefaults()
{
    QFETCH(QByteArray, before);
    device->sql(before + ";" + controlAt32);
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);
    const QStringList registrationBefore = contents(*device, {"registrationInfo"});

    migrator.updateToVersion33();

    COMPARE_LINES(takeLogLines(*device), QStringList("Migration to version 33 was successful."));
    QCOMPARE(migrator.currentVersion(), 33);
    device->sql("INSERT INTO systemControl(id) VALUES(2)");
    QFETCH(QString, defaults);
    COMPARE_LINES(
        device->rows("SELECT apSsid, apPassword FROM systemControl"),
        QStringList({defaults, defaults}));
    COMPARE_LINES(contents(*device, {"registrationInfo"}), registrationBefore);
}

void Versions32To34Test::revertFromVersion33_data()
{
    QTest::addColumn<StepRun>("run");

    const QString table = "systemControl";
    QTest::newRow("the wireless switch takes the place of the access point, never NULL") << StepRun{
        controlAt33,
        {},
        32,
        {"CREATE TABLE \"systemControl\" (id INTEGER , "
         "brightness INTEGER NOT NULL  DEFAULT 80 , "
         "wirelessEnabled BOOLEAN NOT NULL DEFAULT(0), PRIMARY KEY(id) )",
         "1, 90, 0"}};
    QTest::newRow("without an access point the switch is added all the same") << StepRun{
        "CREATE TABLE systemControl (id INTEGER PRIMARY KEY)",
        {},
        32,
        {"CREATE TABLE \"systemControl\" (id INTEGER , "
         "wirelessEnabled BOOLEAN NOT NULL DEFAULT(0), PRIMARY KEY(id) )"}};

    // The first failure stops the step.
    QTest::newRow("no table") << StepRun{
        "", columnStays("apSsid", table, rebuildRefused), versionUnmoved, {}};
    QTest::newRow("the network name belongs to the key: everything stays") << StepRun{
        "CREATE TABLE systemControl (networkingMode, apPassword, apSsid PRIMARY KEY)",
        columnStays("apSsid", table, keyRefused),
        versionUnmoved,
        {"CREATE TABLE systemControl (networkingMode, apPassword, "
         "apSsid PRIMARY KEY)"}};
    QTest::newRow("the password belongs to the key: only the network name goes") << StepRun{
        "CREATE TABLE systemControl (networkingMode, apPassword PRIMARY KEY, apSsid)",
        columnStays("apPassword", table, keyRefused),
        versionUnmoved,
        {"CREATE TABLE \"systemControl\" (networkingMode  , apPassword  , "
         "PRIMARY KEY(apPassword) )"}};
    QTest::newRow("the networking mode belongs to the key: no switch is added") << StepRun{
        "CREATE TABLE systemControl (id, networkingMode PRIMARY KEY, apPassword, apSsid)",
        columnStays("networkingMode", table, keyRefused),
        versionUnmoved,
        {"CREATE TABLE \"systemControl\" (id  , networkingMode  , "
         "PRIMARY KEY(networkingMode) )"}};
    QTest::newRow("the wireless switch is there already") << StepRun{
        controlAt32,
        {"DatabaseMigrator::addColumn - Failed to add column named wirelessEnabled to "
         "systemControl",
         "DatabaseMigrator::addColumn - duplicate column name: wirelessEnabled Unable "
         "to execute statement"},
        versionUnmoved,
        {"CREATE TABLE \"systemControl\" (id INTEGER , "
         "brightness INTEGER NOT NULL  DEFAULT 80 , wirelessEnabled BOOLEAN DEFAULT 0 , "
         "PRIMARY KEY(id) )",
         "1, 90, 1"}};
}

void Versions32To34Test::getUpdate33Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    QTest::newRow("the access point and no wireless switch")
        << QByteArray("CREATE TABLE systemControl (networkingMode, apSsid, apPassword)") << true;
    QTest::newRow("everything in other letter case")
        << QByteArray("CREATE TABLE SYSTEMCONTROL (NETWORKINGMODE, APSSID, APPASSWORD)") << true;
    QTest::newRow("the wireless switch is there")
        << QByteArray("CREATE TABLE systemControl (networkingMode, apSsid, apPassword, "
                      "wirelessEnabled)")
        << false;
    QTest::newRow("the wireless switch is there in other letter case")
        << QByteArray("CREATE TABLE systemControl (networkingMode, apSsid, apPassword, "
                      "WIRELESSENABLED)")
        << false;
    QTest::newRow("no networking mode")
        << QByteArray("CREATE TABLE systemControl (apSsid, apPassword)") << false;
    QTest::newRow("no network name")
        << QByteArray("CREATE TABLE systemControl (networkingMode, apPassword)") << false;
    QTest::newRow("no password") << QByteArray(
                                        "CREATE TABLE systemControl (networkingMode, apSsid)")
                                 << false;
    QTest::newRow("no table") << QByteArray() << false;
}

void Versions32To34Test::version33TakesVersion30Away()
{
    device->sql(registered + controlAt32);
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);
    QVERIFY(migrator.getUpdate30Applied());

    migrator.updateToVersion33();
    QVERIFY(!migrator.getUpdate30Applied());
    QVERIFY(migrator.getUpdate33Applied());
    const QStringList before = device->dump();

    migrator.updateToVersion30();
    QVERIFY(migrator.getUpdate30Applied());
    QVERIFY(!migrator.getUpdate33Applied());
    migrator.updateToVersion33();

    COMPARE_LINES(
        takeLogLines(*device),
        QStringList(
            {"Migration to version 33 was successful.",
             "Migration to version 30 was successful.",
             "Migration to version 33 was successful."}));
    COMPARE_LINES(device->rows("SELECT * FROM systemControl"), QStringList(before.last()));
    QVERIFY(migrator.getUpdate33Applied());
}

void Versions32To34Test::updateToVersion34_data()
{
    QTest::addColumn<StepRun>("run");

    const QString table = "workOrderRxMaps";
    const QStringList succeeded("Migration to version 34 was successful.");
    const QStringList failed("Migration to version 34 failed");
    QTest::newRow("both rates are added, unknown") << StepRun{
        mapsAt33 + insertMaps + "(3, 'wo1')", succeeded, 34, {mapsAt34, "3, 'wo1', NULL, NULL"}};
    QTest::newRow("rates that are there stay as they are") << StepRun{
        mapsAt34 + insertMaps + "(3, 'wo1', 0.5, 1.25)",
        succeeded,
        34,
        {mapsAt34, "3, 'wo1', 0.5, 1.25"}};
    QTest::newRow("the second rate alone is there") << StepRun{
        "CREATE TABLE workOrderRxMaps (userConvRate REAL)",
        succeeded,
        34,
        {"CREATE TABLE workOrderRxMaps (userConvRate REAL, woConvRate REAL)"}};
    QTest::newRow("the first rate in other letter case: the second one is not added") << StepRun{
        "CREATE TABLE workOrderRxMaps (WoConvRate)",
        notAdded("woConvRate", table, duplicate("woConvRate")) + failed,
        versionUnmoved,
        {"CREATE TABLE workOrderRxMaps (WoConvRate)"}};
    QTest::newRow("the second rate in other letter case") << StepRun{
        "CREATE TABLE workOrderRxMaps (UserConvRate)",
        notAdded("userConvRate", table, duplicate("userConvRate")) + failed,
        versionUnmoved,
        {"CREATE TABLE workOrderRxMaps (UserConvRate, woConvRate REAL)"}};
    QTest::newRow("no table") << StepRun{
        "", notAdded("woConvRate", table, noSuchTable(table)) + failed, versionUnmoved, {}};
}

void Versions32To34Test::revertFromVersion34_data()
{
    QTest::addColumn<StepRun>("run");

    const QString table = "workOrderRxMaps";
    QTest::newRow("both rates go, maps still follow their file") << StepRun{
        mapsAt34 + insertMaps + "(3, 'wo1', 0.5, 1.25), (7, 'wo2', NULL, NULL)",
        {},
        33,
        {mapsRebuilt, "3, 'wo1'", "7, 'wo2'"}};
    QTest::newRow("rates that are not there")
        << StepRun{mapsAt33 + insertMaps + "(3, 'wo1')", {}, 33, {mapsRebuilt, "3, 'wo1'"}};
    QTest::newRow("no table") << StepRun{
        "", columnStays("woConvRate", table, rebuildRefused), versionUnmoved, {}};
    QTest::newRow("the first rate belongs to the key: the second one stays too") << StepRun{
        "CREATE TABLE workOrderRxMaps (woConvRate PRIMARY KEY, userConvRate)",
        columnStays("woConvRate", table, keyRefused),
        versionUnmoved,
        {"CREATE TABLE workOrderRxMaps (woConvRate PRIMARY KEY, userConvRate)"}};
    QTest::newRow("the second rate belongs to the key: the first one goes") << StepRun{
        "CREATE TABLE workOrderRxMaps (id, woConvRate, userConvRate PRIMARY KEY)",
        columnStays("userConvRate", table, keyRefused),
        versionUnmoved,
        {"CREATE TABLE \"workOrderRxMaps\" (id  , userConvRate  , "
         "PRIMARY KEY(userConvRate) )"}};
}

void Versions32To34Test::getUpdate34Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    QTest::newRow("both rates") << mapsAt34 << true;
    QTest::newRow("both rates in other letter case")
        << QByteArray("CREATE TABLE WORKORDERRXMAPS (WOCONVRATE, USERCONVRATE)") << true;
    QTest::newRow("only the first rate")
        << QByteArray("CREATE TABLE workOrderRxMaps (woConvRate)") << false;
    QTest::newRow("only the second rate")
        << QByteArray("CREATE TABLE workOrderRxMaps (userConvRate)") << false;
    QTest::newRow("no table") << QByteArray() << false;
}

void Versions32To34Test::secondRun_data()
{
    QTest::addColumn<int>("version");

    for (const int version : {32, 33, 34}) {
        QTest::addRow("version %d", version) << version;
    }
}

void Versions32To34Test::secondRun()
{
    const QMap<int, Step> updates = {
        {32, &M::updateToVersion32}, {33, &M::updateToVersion33}, {34, &M::updateToVersion34}};
    QFETCH(int, version);
    const QString succeeded = QString("Migration to version %1 was successful.").arg(version);
    const QList<QByteArray> tables = {
        "workOrderRxMaps", "workOrderRxMaps_old", "SM_Preferences", "registrationInfo"};
    device->sql(files + preferencesAt31 + mapsAt31 + twoMaps + registered + controlAt32);
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);

    (migrator.*updates[version])();
    const QStringList afterFirst = contents(*device, tables);
    const QStringList controlAfterFirst = device->rows("SELECT * FROM systemControl");
    (migrator.*updates[version])();

    COMPARE_LINES(takeLogLines(*device), QStringList({succeeded, succeeded}));
    QCOMPARE(migrator.currentVersion(), version);
    COMPARE_LINES(contents(*device, tables), afterFirst);
    COMPARE_LINES(device->rows("SELECT * FROM systemControl"), controlAfterFirst);
}

void Versions32To34Test::closedConnection()
{
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);
    QSqlDatabase::database().close();

    migrator.updateToVersion32();
    migrator.revertFromVersion32();
    migrator.updateToVersion33();
    migrator.revertFromVersion33();
    migrator.updateToVersion34();
    migrator.revertFromVersion34();

    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    COMPARE_LINES(
        takeLogLines(*device),
        notAdded("enableCloudJobs", "SM_Preferences", "") +
            QStringList(
                {"Migration to version 32 failed",
                 "The ALTER TABLE RENAME query in revertFromVersion32() failed!  The query error "
                 "was: "}) +
            columnStays("enableCloudJobs", "SM_Preferences", "") +
            columnStays("wirelessEnabled", "systemControl", "") +
            QStringList("Migration to version 33 failed") +
            columnStays("apSsid", "systemControl", "") +
            notAdded("woConvRate", "workOrderRxMaps", "") +
            QStringList("Migration to version 34 failed") +
            columnStays("woConvRate", "workOrderRxMaps", ""));
    QVERIFY(!migrator.getUpdate32Applied());
    QVERIFY(!migrator.getUpdate33Applied());
    QVERIFY(!migrator.getUpdate34Applied());
}

QTEST_APPLESS_MAIN(Versions32To34Test)
#include "versions_32_to_34_test.moc"

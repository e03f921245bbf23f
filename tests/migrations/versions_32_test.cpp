#include "support/step_test.h"

#include <sqlite3.h>

namespace
{
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
/// One complete row and one with NULL; the identifiers do not follow each other.
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

const QList<QByteArray> mapsAndPreferences = {
    "workOrderRxMaps", "workOrderRxMaps_old", "SM_Preferences"};

/// The common behaviour of the two directions.
struct Direction {
    QString function;
    QByteArray before; ///< the tables that it finds, the maps last
    QByteArray columnsBefore;
    QByteArray columnsAfter;
    QStringList preferencesAfter;
    QStringList successLog;
    QStringList failureLog; ///< its last lines
    int version;
};
const Direction forward = {
    "updateToVersion32",
    files + preferencesAt31 + mapsAt31,
    mapColumnsAt31,
    mapColumnsAt32,
    preferencesWithCloudJobs,
    {"Migration to version 32 was successful."},
    {"Migration to version 32 failed"},
    32};
const Direction backward = {
    "revertFromVersion32",
    files + preferencesAt32 + mapsAt32,
    mapColumnsAt32,
    mapColumnsAt31,
    preferencesRebuilt,
    {},
    {},
    31};

/// The test rows of both directions. Even if the maps fail, the preferences change.
void addRowsOfBothDirections(const Direction &direction)
{
    const QByteArray before = direction.before + twoMaps;
    const QStringList untouched =
        QStringList("CREATE TABLE workOrderRxMaps " + direction.columnsBefore) + rowsBefore;
    const QStringList keptAside = QStringList(renamedAside + direction.columnsBefore) + rowsBefore;
    const QStringList restored = QStringList(renamedBack + direction.columnsBefore) + rowsBefore;
    const QStringList created("CREATE TABLE workOrderRxMaps " + direction.columnsAfter);
    const QByteArray oldTable = "CREATE TABLE workOrderRxMaps_old (id)";
    const QByteArray unreadableMaps =
        QByteArray(direction.columnsBefore)
            .replace("uniqueProdId INTEGER", unreadableColumn("uniqueProdId INTEGER", "id = 7"));
    const QString quotedRow = "8, 'rx8', 'wo1', '/maps/O''Neill.shp', '', '', '', '', 0";
    const QByteArray quoted = insertMaps + "(" + quotedRow.toUtf8() + ");";
    const QStringList notInserted(
        "Database migration failed in " + direction.function +
        "()!  The error was: near \"Neill\": syntax error");
    const auto fails = [&](const char *sentence,
                           const QByteArray &statements,
                           const QStringList &log,
                           const QStringList &maps,
                           const QList<Refusal> &refusals = {}) {
        QTest::newRow(sentence) << StepRun{
            before + statements,
            log + direction.failureLog,
            versionUnmoved,
            maps + direction.preferencesAfter,
            refusals};
    };

    QTest::newRow("the old table cannot be dropped, the step counts as done") << StepRun{
        before,
        tableStays("workOrderRxMaps_old", notAuthorized) + direction.successLog,
        direction.version,
        created + rowsAfter + keptAside + direction.preferencesAfter,
        {{SQLITE_DROP_TABLE, "workOrderRxMaps_old"}}};
    fails(
        "an earlier run left its old table",
        oldTable,
        {"The ALTER TABLE RENAME query in " + direction.function +
         "() failed!  The query error was: there is already another table or index with this "
         "name: workOrderRxMaps_old"},
        untouched + QStringList(oldTable));
    fails(
        "the new table cannot be created: the maps stay in the old one",
        "",
        {"The CREATE TABLE IF NOT EXISTS query in " + direction.function +
         "() failed!  The query error was: not authorized"},
        keptAside,
        {{SQLITE_CREATE_TABLE, "workOrderRxMaps"}});
    fails(
        "the old table cannot be read: the maps stay there",
        "",
        {"SELECT * FROM workOrderRxMaps_old query in " + direction.function +
         "() failed!  The query error was: access to workOrderRxMaps_old.mapName is prohibited"},
        created + keptAside,
        {{SQLITE_READ, "workOrderRxMaps_old", "mapName"}});
    fails(
        "reading the maps stops on an error: the old table is restored",
        makeUnreadable("workOrderRxMaps", "uniqueProdId INTEGER", "id = 7"),
        {"SELECT * FROM workOrderRxMaps_old query in " + direction.function +
         "() failed!  The query error was: " + unreadable},
        {renamedBack + unreadableMaps, rowsBefore[0] + ", 21"});
    fails(
        "a path has a quote: the old table is restored",
        quoted,
        notInserted,
        restored + QStringList(quotedRow));
    const QString quotedName = "8, 'rx8', 'wo1', '/8.shp', '', 'O''Neill', '', '', 0";
    fails(
        "a text has a quote: the old table is restored",
        insertMaps + "(" + quotedName.toUtf8() + ");",
        notInserted,
        restored + QStringList(quotedName));
    fails(
        "after a failed map the new table cannot be dropped: both stay",
        quoted,
        tableStays("workOrderRxMaps", notAuthorized) + notInserted,
        created + rowsAfter + keptAside + QStringList(quotedRow),
        {{SQLITE_DROP_TABLE, "workOrderRxMaps"}});
}
} // namespace

class Versions32Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion32_data();
    void updateToVersion32() { checkStep(&M::updateToVersion32, mapsAndPreferences); }
    void revertFromVersion32_data();
    void revertFromVersion32() { checkStep(&M::revertFromVersion32, mapsAndPreferences); }
    void keepsTheNextIdentifier();
    void secondRun();
    void getUpdate32Applied_data();
    void getUpdate32Applied() { checkProbe(&M::getUpdate32Applied); }
};

void Versions32Test::updateToVersion32_data()
{
    const auto row = addColumns<StepRun>("run");

    const QByteArray before = forward.before;
    const QStringList succeeded = forward.successLog;
    const QStringList failed = forward.failureLog;

    row("maps follow their file, NULL is replaced",
        {before + twoMaps,
         succeeded,
         32,
         QStringList(mapsAt32) + rowsAfter + preferencesWithCloudJobs});
    row("there is no map",
        {before, succeeded, 32, QStringList(mapsAt32) + preferencesWithCloudJobs});
    row("identifiers and products need more than 32 bits, a product is no number",
        {before + insertMaps +
             "(5000000000, 'a', 'wo1', '', '', '', '', '', 6000000000),"
             "(5000000001, 'b', 'wo1', '', '', '', '', '', 'x');",
         succeeded,
         32,
         QStringList(
             {mapsAt32,
              "5000000000, 'a', 'wo1', '', '', '', '', '', 6000000000",
              "5000000001, 'b', 'wo1', '', '', '', '', '', 0"}) +
             preferencesWithCloudJobs});
    row("maps follow their file already, and cloud jobs are on",
        {files + preferencesAt32 + mapsAt32 + twoMaps,
         succeeded,
         32,
         QStringList(mapsAt32) + rowsAfter +
             QStringList({preferencesWithCloudJobs[0], "1, 6.25, 1"})});
    row("columns of a later version are lost",
        {before + twoMaps +
             "ALTER TABLE workOrderRxMaps ADD COLUMN woConvRate REAL;"
             "UPDATE workOrderRxMaps SET woConvRate = 1.5;",
         succeeded,
         32,
         QStringList(mapsAt32) + rowsAfter + preferencesWithCloudJobs});

    row("there is no table: it is created",
        {files + preferencesAt31, succeeded, 32, QStringList(mapsAt32) + preferencesWithCloudJobs});
    row("there is no table, and it cannot be created",
        {files + preferencesAt31,
         failed,
         versionUnmoved,
         preferencesWithCloudJobs,
         {{SQLITE_CREATE_TABLE, "workOrderRxMaps"}}});
    row("the table in another letter case counts as created",
        {files + preferencesAt31 + "CREATE TABLE WorkOrderRxMaps (id)",
         succeeded,
         32,
         preferencesWithCloudJobs});

    row("a map's file is missing: the old table is restored",
        {before + twoMaps + "DELETE FROM files WHERE uuid = 'wo1'",
         QStringList("Database migration failed in updateToVersion32()!  The error was: "
                     "FOREIGN KEY constraint failed") +
             failed,
         versionUnmoved,
         QStringList(renamedBack + mapColumnsAt31) + rowsBefore + preferencesWithCloudJobs});

    row("there are no preferences: the maps still change",
        {files + mapsAt31 + twoMaps,
         notAddedToNothing("enableCloudJobs", "SM_Preferences") + failed,
         versionUnmoved,
         QStringList(mapsAt32) + rowsAfter});
    row("neither maps nor preferences can change",
        {mapsAt31 + ";CREATE TABLE workOrderRxMaps_old (id)",
         QStringList("The ALTER TABLE RENAME query in updateToVersion32() failed!  The query error "
                     "was: there is already another table or index with this name: "
                     "workOrderRxMaps_old") +
             notAddedToNothing("enableCloudJobs", "SM_Preferences") + failed,
         versionUnmoved,
         {mapsAt31, "CREATE TABLE workOrderRxMaps_old (id)"}});
    addRowsOfBothDirections(forward);
    addRowOfClosedConnection(notAdded("enableCloudJobs", "SM_Preferences", "") + failed);
}

void Versions32Test::revertFromVersion32_data()
{
    const auto row = addColumns<StepRun>("run");

    const QByteArray before = backward.before;

    row("maps no longer follow their file, NULL is replaced",
        {before + twoMaps, {}, 31, QStringList(mapsAt31) + rowsAfter + preferencesRebuilt});
    row("maps and preferences are those of version 31",
        {files + preferencesAt31 + mapsAt31 + twoMaps,
         {},
         31,
         QStringList(mapsAt31) + rowsAfter + preferencesRebuilt});

    row("there is no table",
        {preferencesAt32,
         {"The ALTER TABLE RENAME query in revertFromVersion32() failed!  The query "
          "error was: no such table: workOrderRxMaps"},
         versionUnmoved,
         preferencesRebuilt});

    row("there are no preferences: the maps still change",
        {files + mapsAt32 + twoMaps,
         columnStays("enableCloudJobs", "SM_Preferences", rebuildRefused),
         versionUnmoved,
         QStringList(mapsAt31) + rowsAfter});
    row("neither maps nor preferences can change",
        {"",
         QStringList("The ALTER TABLE RENAME query in revertFromVersion32() failed!  "
                     "The query error was: no such table: workOrderRxMaps") +
             columnStays("enableCloudJobs", "SM_Preferences", rebuildRefused),
         versionUnmoved,
         {}});
    addRowsOfBothDirections(backward);
    addRowOfClosedConnection(
        QStringList("The ALTER TABLE RENAME query in revertFromVersion32() failed!  The query "
                    "error was: ") +
        columnStays("enableCloudJobs", "SM_Preferences", ""));
}

void Versions32Test::keepsTheNextIdentifier()
{
    const char *const nextIdentifier = "SELECT name, seq FROM sqlite_sequence";
    device->sql(files + preferencesAt31 + mapsAt31 + twoMaps);
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    migrator.updateToVersion32();
    COMPARE_LINES(device->rows(nextIdentifier), QStringList("'workOrderRxMaps', 7"));
    migrator.revertFromVersion32();
    COMPARE_LINES(device->rows(nextIdentifier), QStringList("'workOrderRxMaps', 7"));
    QCOMPARE(migrator.currentVersion(), 31);
}

void Versions32Test::secondRun()
{
    device->sql(files + preferencesAt31 + mapsAt31 + twoMaps);
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    migrator.updateToVersion32();
    const QStringList afterFirst = device->contents(mapsAndPreferences);

    migrator.updateToVersion32();

    const QString succeeded = "Migration to version 32 was successful.";
    COMPARE_LINES(device->takeLogLines(), QStringList({succeeded, succeeded}));
    QCOMPARE(migrator.currentVersion(), 32);
    COMPARE_LINES(device->contents(mapsAndPreferences), afterFirst);
}

void Versions32Test::getUpdate32Applied_data()
{
    const auto row = addColumns<QByteArray, bool>("before", "applied");

    const QByteArray cloudJobs = ";CREATE TABLE SM_Preferences (enableCloudJobs)";
    row("maps follow their file, there are cloud jobs", mapsAt32 + cloudJobs, true);
    row("cloud jobs in another letter case", mapsAt32 + cloudJobs.toUpper(), true);
    row("maps do not follow their file", mapsAt31 + cloudJobs, false);
    row("the cascade is written in another letter case",
        QByteArray(mapsAt32).replace("ON UPDATE CASCADE", "on update cascade") + cloudJobs,
        false);
    row("maps in another letter case",
        QByteArray(mapsAt32).replace("workOrder", "WorkOrder") + cloudJobs,
        false);
    row("there are no maps", cloudJobs.mid(1), false);
    row("there are no cloud jobs", mapsAt32 + ";CREATE TABLE SM_Preferences (id)", false);
    row("there are no preferences", mapsAt32, false);
}

QTEST_APPLESS_MAIN(Versions32Test)
#include "versions_32_test.moc"

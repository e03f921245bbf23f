#include "support/step_test.h"

#include <sqlite3.h>

namespace
{
const QByteArray version1Columns =
    "(productId varchar(40) primary key, displayName varchar(40), tankCapacity REAL, "
    "machineConfigId INTEGER, maxAchievableRate REAL, timeToApplication REAL, lastAppliedRate REAL, "
    "FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)";
const QByteArray version2Columns =
    "(productId varchar(40), displayName varchar(40), tankCapacity REAL, machineConfigId INTEGER, "
    "maxAchievableRate REAL, timeToApplication REAL, lastAppliedRate REAL, "
    "calibratedInUsUnits BOOLEAN DEFAULT 0, PRIMARY KEY (productId, machineConfigId),"
    "FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)";

const QByteArray create = "CREATE TABLE productControl_productSettings ";
const QByteArray insert = ";INSERT INTO productControl_productSettings VALUES";
const QByteArray version1Table = create + version1Columns;
const QByteArray version2Table = create + version2Columns;
// How SQLite writes the text of a table that was renamed.
const QByteArray renamedAside = "CREATE TABLE \"productControl_productSettings_old\" ";
const QByteArray renamedBack = "CREATE TABLE \"productControl_productSettings\" ";

const QList<QByteArray> settings = {
    "productControl_productSettings", "productControl_productSettings_old"};

/// The common behaviour of the two directions. A row has the values of version 1; in version 2 a
/// flag follows them.
struct Direction {
    QString function;
    QByteArray columnsBefore;
    QByteArray columnsAfter;
    QString flagBefore;
    QString flagAfter;
    QStringList successLog;
    int version;
};
const Direction forward = {
    "updateToVersion2",
    version1Columns,
    version2Columns,
    "",
    ", 0",
    {"Database migration to version 2 completed successfully!"},
    2};
const Direction backward = {
    "revertFromVersion2", version2Columns, version1Columns, ", 1", "", {}, 1};

/// @return the rows with a flag as their last value
QStringList flagged(QStringList rows, const QString &flag)
{
    for (QString &row : rows) {
        row += flag;
    }
    return rows;
}

/// @return statements that make the table of a direction with rows
QByteArray filled(const Direction &direction, const QStringList &rows)
{
    return create + direction.columnsBefore + insert + "(" +
           flagged(rows, direction.flagBefore).join("), (").toUtf8() + ");";
}

void addRowsThatSucceed(const Direction &direction)
{
    const auto row =
        [&](const char *sentence, const QStringList &before, const QStringList &after) {
            QTest::newRow(sentence) << StepRun{
                filled(direction, before),
                direction.successLog,
                direction.version,
                QStringList(create + direction.columnsAfter) + flagged(after, direction.flagAfter)};
        };
    row("every row is copied",
        {"'p1', 'Winterweizen', 1200.5, 1, 40, 0.35, 12.25",
         "'p2', 'Озимая рожь', -3, 2, 0, 1, 2.5"},
        {"'p1', 'Winterweizen', 1200.5, 1, 40.0, 0.35, 12.25",
         "'p2', 'Озимая рожь', -3.0, 2, 0.0, 1.0, 2.5"});
    QTest::newRow("an empty table is created again") << StepRun{
        create + direction.columnsBefore,
        direction.successLog,
        direction.version,
        {create + direction.columnsAfter}};
    row("reals keep six significant digits, ties away from zero",
        {"'p1', '', 1234567.89, 1, 1e-7, 0.00012345678, 123456.4",
         "'p2', '', 100000.5, 1, -100000.5, 200000.5, 1e300"},
        {"'p1', '', 1234570.0, 1, 1e-07, 0.000123457, 123456.0",
         "'p2', '', 100001.0, 1, -100001.0, 200001.0, 1e+300"});
    row("NULL becomes 0 or an empty text",
        {"NULL, NULL, NULL, NULL, NULL, NULL, NULL"},
        {"'', '', 0.0, 0, 0.0, 0.0, 0.0"});
    row("a text that is no number becomes 0",
        {"'p1', '', 'full', 'all', '12 l', '', 'x'"},
        {"'p1', '', 0.0, 0, 0.0, 0.0, 0.0"});
    row("a machine configuration is copied with 64 bits",
        {"'p1', '', 1, 9007199254740993, 2, 3, 4"},
        {"'p1', '', 1.0, 9007199254740993, 2.0, 3.0, 4.0"});
    row("markers in texts are data",
        {"'%2', '%1 %8 %%', 1, 1, 2, 3, 4"},
        {"'%2', '%1 %8 %%', 1.0, 1, 2.0, 3.0, 4.0"});
}

void addRowsThatFail(const Direction &direction)
{
    const QString sameRow = "'p1', 'A', 1.5, 1, 2.5, 3.5, 1234.5678";
    const QByteArray oldTable = "CREATE TABLE productControl_productSettings_old (productId)";
    const auto before = [&](const QString &text) {
        return QStringList(text + direction.columnsBefore);
    };
    const QStringList created(create + direction.columnsAfter);
    const QStringList keptAside =
        before(renamedAside) + QStringList(sameRow + direction.flagBefore);

    QTest::newRow("there is no table") << StepRun{
        "",
        {"The ALTER TABLE RENAME query in " + direction.function +
         "() failed!  The query error was: no such table: productControl_productSettings"},
        versionUnmoved,
        {}};
    QTest::newRow("an earlier run left its old table") << StepRun{
        filled(direction, {sameRow}) + oldTable,
        {"The ALTER TABLE RENAME query in " + direction.function +
         "() failed!  The query error was: there is already another table or index with this "
         "name: productControl_productSettings_old"},
        versionUnmoved,
        before(create) + QStringList{sameRow + direction.flagBefore, oldTable}};
    QTest::newRow("the new table cannot be created: the rows stay in the old one") << StepRun{
        filled(direction, {sameRow}),
        {"The CREATE TABLE IF NOT EXISTS query in " + direction.function +
         "() failed!  The query error was: not authorized"},
        versionUnmoved,
        keptAside,
        {{SQLITE_CREATE_TABLE, "productControl_productSettings"}}};
    QTest::newRow("the old table cannot be read: the rows stay there") << StepRun{
        filled(direction, {sameRow}),
        {"SELECT * FROM productControl_productSettings_old query in " + direction.function +
         "() failed!  The query error was: access to "
         "productControl_productSettings_old.productId is prohibited"},
        versionUnmoved,
        created + keptAside,
        {{SQLITE_READ, "productControl_productSettings_old"}}};

    // A row that cannot be copied: the old table is restored.
    const auto row = [&](const char *sentence, const QString &error, const QStringList &rows) {
        QTest::newRow(sentence) << StepRun{
            filled(direction, rows) + "DELETE FROM MC_MachineConfig WHERE id = 0",
            {"Database migration failed in " + direction.function + "()!  The error was: " + error},
            versionUnmoved,
            before(renamedBack) + flagged(rows, direction.flagBefore)};
    };
    row("a product's name has a quote",
        "near \"Müller\": syntax error",
        {"'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0",
         "'p2', 'O''Müller', 1.0, 1, 2.0, 3.0, 4.0",
         "'p3', 'O''Neill', 1.0, 1, 2.0, 3.0, 4.0"});
    row("an error text is reduced to Latin-1",
        "near \"????????\": syntax error",
        {"'p1', 'O''Кузнецов', 1.0, 1, 2.0, 3.0, 4.0"});
    row("a product's identifier has a quote",
        "near \"1\": syntax error",
        {"'p''1', 'A', 1.0, 1, 2.0, 3.0, 4.0"});
    row("a machine configuration of NULL becomes 0, which does not exist",
        "FOREIGN KEY constraint failed",
        {"'p1', 'A', 1.0, NULL, 2.0, 3.0, 4.0"});
    QTest::newRow("after a failed row the new table cannot be dropped: both stay") << StepRun{
        filled(direction, {sameRow, "'p2', 'O''Neill', 1.0, 1, 2.0, 3.0, 4.0"}),
        tableStays("productControl_productSettings", notAuthorized) +
            QStringList(
                "Database migration failed in " + direction.function +
                "()!  The error was: near \"Neill\": syntax error"),
        versionUnmoved,
        created + QStringList("'p1', 'A', 1.5, 1, 2.5, 3.5, 1234.57" + direction.flagAfter) +
            keptAside +
            QStringList("'p2', 'O''Neill', 1.0, 1, 2.0, 3.0, 4.0" + direction.flagBefore),
        {{SQLITE_DROP_TABLE, "productControl_productSettings"}}};
    QTest::newRow("the old table cannot be dropped, the step counts as done") << StepRun{
        filled(direction, {sameRow}),
        tableStays("productControl_productSettings_old", notAuthorized) + direction.successLog,
        direction.version,
        created + QStringList("'p1', 'A', 1.5, 1, 2.5, 3.5, 1234.57" + direction.flagAfter) +
            keptAside,
        {{SQLITE_DROP_TABLE, "productControl_productSettings_old"}}};
}
} // namespace

class Versions02Test : public StepTest
{
    Q_OBJECT

private slots:
    void init() override;

    void updateToVersion2_data();
    void updateToVersion2() { checkStep(&M::updateToVersion2, settings); }
    void updateToVersion2Fails_data();
    void updateToVersion2Fails() { checkStep(&M::updateToVersion2, settings); }
    void revertFromVersion2_data();
    void revertFromVersion2() { checkStep(&M::revertFromVersion2, settings); }
    void revertFromVersion2Fails_data();
    void revertFromVersion2Fails() { checkStep(&M::revertFromVersion2, settings); }
    void rowsThatCannotBeReadAreNotLost_data();
    void rowsThatCannotBeReadAreNotLost();
    void referencesFollowTheOldTable();
    void getUpdate2Applied_data();
    void getUpdate2Applied() { checkProbe(&M::getUpdate2Applied); }
};

void Versions02Test::init()
{
    StepTest::init();
    device->sql("CREATE TABLE MC_MachineConfig (id INTEGER PRIMARY KEY);"
                "INSERT INTO MC_MachineConfig VALUES(0), (1), (2), (9007199254740993);");
}

void Versions02Test::updateToVersion2_data()
{
    const auto row = addColumns<StepRun>("run");

    addRowsThatSucceed(forward);
    row("a table of the new shape loses its calibration flags",
        {version2Table + insert + "('p1', 'A', 1, 1, 2, 3, 4, 1), ('p1', 'B', 5, 2, 6, 7, 8, 0)",
         forward.successLog,
         2,
         {version2Table,
          "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0, 0",
          "'p1', 'B', 5.0, 2, 6.0, 7.0, 8.0, 0"}});
    row("of rows that become one the last stays",
        {version2Table + insert +
             "('p1', 'A', 1, NULL, 2, 3, 4, 1), ('p1', 'B', 5, NULL, 6, 7, 8, 1)",
         forward.successLog,
         2,
         {version2Table, "'p1', 'B', 5.0, 0, 6.0, 7.0, 8.0, 0"}});
}

void Versions02Test::updateToVersion2Fails_data()
{
    QTest::addColumn<StepRun>("run");

    addRowsThatFail(forward);
    addRowOfClosedConnection({"The ALTER TABLE RENAME query in updateToVersion2() failed!  The "
                              "query error was: "});
}

void Versions02Test::revertFromVersion2_data()
{
    const auto row = addColumns<StepRun>("run");

    addRowsThatSucceed(backward);
    row("every row is copied without its calibration flag",
        {version2Table + insert + "('p1', 'A', 1, 1, 2, 3, 4, 1), ('p2', 'B', 5, 2, 6, 7, 8, 0)",
         {},
         1,
         {version1Table, "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0", "'p2', 'B', 5.0, 2, 6.0, 7.0, 8.0"}});
    row("a table of the old shape is created again",
        {version1Table + insert + "('p1', 'A', 1, 1, 2, 3, 4)",
         {},
         1,
         {version1Table, "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0"}});
    row("of a product's machine configurations the last stays",
        {version2Table + insert +
             "('p1', 'A', 1, 2, 2, 3, 4, 1), ('p2', 'C', 1, 1, 2, 3, 4, 0),"
             "('p1', 'B', 5, 1, 6, 7, 8, 0)",
         {},
         1,
         {version1Table, "'p2', 'C', 1.0, 1, 2.0, 3.0, 4.0", "'p1', 'B', 5.0, 1, 6.0, 7.0, 8.0"}});
}

void Versions02Test::revertFromVersion2Fails_data()
{
    QTest::addColumn<StepRun>("run");

    addRowsThatFail(backward);
    addRowOfClosedConnection({"The ALTER TABLE RENAME query in revertFromVersion2() failed!  The "
                              "query error was: "});
}

void Versions02Test::rowsThatCannotBeReadAreNotLost_data()
{
    const auto row =
        addColumns<Step, QByteArray, QByteArray, QString>("step", "columns", "values", "log");
    row("forward",
        &M::updateToVersion2,
        version1Columns,
        "'p' || n, 'A', 1, 1, 2, 3, 4",
        "SELECT * FROM productControl_productSettings_old query in updateToVersion2() failed!  The query error was: database disk image is malformed");
    row("backward",
        &M::revertFromVersion2,
        version2Columns,
        "'p' || n, 'A', 1, 1, 2, 3, 4, 1",
        "SELECT * FROM productControl_productSettings_old query in revertFromVersion2() failed!  The query error was: database disk image is malformed");
}

void Versions02Test::rowsThatCannotBeReadAreNotLost()
{
    QFETCH(Step, step);
    QFETCH(QByteArray, columns);
    QFETCH(QByteArray, values);
    QFETCH(QString, log);
    device->sql(
        create + columns +
        ";WITH RECURSIVE number(n) AS "
        "(VALUES(1) UNION ALL SELECT n + 1 FROM number WHERE n < 500) "
        "INSERT INTO productControl_productSettings SELECT " +
        values + " FROM number");
    device->overwriteLeaf("productControl_productSettings", 2);
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    (migrator.*step)();

    COMPARE_LINES(device->takeLogLines(), QStringList(log));
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    QCOMPARE(device->createText("productControl_productSettings"), QString(renamedBack + columns));
    QCOMPARE(device->createText("productControl_productSettings_old"), QString());
    COMPARE_LINES(
        device->rows("SELECT productId FROM productControl_productSettings WHERE rowid = 1"),
        QStringList("'p1'"));
}

void Versions02Test::referencesFollowTheOldTable()
{
    device->sql(
        version1Table + insert +
        "('p1', 'A', 1, 1, 2, 3, 4);"
        "CREATE TABLE note (productId REFERENCES productControl_productSettings(productId));"
        "INSERT INTO note VALUES('p1')");
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    migrator.updateToVersion2();

    COMPARE_LINES(
        device->takeLogLines(),
        tableStays(
            "productControl_productSettings_old",
            "FOREIGN KEY constraint failed Unable to fetch row") +
            forward.successLog);
    QCOMPARE(migrator.currentVersion(), 2);
    COMPARE_LINES(
        device->contents(settings + QList<QByteArray>{"note"}),
        QStringList(
            {version2Table,
             "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0, 0",
             renamedAside + version1Columns,
             "'p1', 'A', 1.0, 1, 2.0, 3.0, 4.0",
             "CREATE TABLE note (productId REFERENCES "
             "\"productControl_productSettings_old\"(productId))",
             "'p1'"}));
}

void Versions02Test::getUpdate2Applied_data()
{
    const auto row = addColumns<QByteArray, bool>("before", "applied");
    row("the column is there", version2Table, true);
    row("the column is missing", version1Table, false);
    row("there is no table", "", true);
    row("the column has another letter case", create + "(productId, CalibratedInUSUnits)", false);
    row("the column is the second one", create + "(productId, calibratedInUsUnits)", true);
    row("the column is the first one", create + "(calibratedInUsUnits, productId)", false);
}

QTEST_APPLESS_MAIN(Versions02Test)
#include "versions_02_test.moc"

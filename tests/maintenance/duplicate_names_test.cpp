#include "maintenance/file_rows.h"
#include "support/device_test.h"

namespace
{
const QByteArray growers = "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT);";
const QByteArray farms =
    "CREATE TABLE farms (id INTEGER PRIMARY KEY, displayName TEXT, growerId INTEGER);";
const QByteArray fields =
    "CREATE TABLE fields (id INTEGER PRIMARY KEY, displayName TEXT, farmId INTEGER);";
} // namespace

class DuplicateNamesTest : public DeviceTest
{
    Q_OBJECT

private slots:
    void init() override;

    void renameDuplicateGrowers_data();
    void renameDuplicateGrowers();
    void renameDuplicateFarmsAndFields_data();
    void renameDuplicateFarmsAndFields();
    void secondRunFindsNothingLeft();
    void endsInADamagedTable_data();
    void endsInADamagedTable();
    void endsWhereATriggerAddsRows_data();
    void endsWhereATriggerAddsRows();
    void endsWhereAnIndexReturnsTheRenamedRows();
};

void DuplicateNamesTest::init()
{
    DeviceTest::init();
    device->recordVersion(34);
}

void DuplicateNamesTest::renameDuplicateGrowers_data()
{
    QTest::addColumn<QByteArray>("table");
    QTest::addColumn<QByteArray>("names");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<QString>("log");

    const auto rowOf = [](const char *sentence,
                          const QByteArray &table,
                          const QByteArray &names,
                          const QStringList &expected,
                          const QString &log = QString()) {
        QTest::newRow(sentence) << table << names << expected << log;
    };
    const auto row = [&](const char *sentence,
                         const QByteArray &names,
                         const QStringList &expected,
                         const QString &log = QString()) {
        rowOf(sentence, growers, names, expected, log);
    };

    row("all names are different", "(1, 'Smith'), (2, 'Jones')", {"1, 'Smith'", "2, 'Jones'"});
    row("the second of two gets a number",
        "(1, 'Smith'), (2, 'Smith')",
        {"1, 'Smith'", "2, 'Smith_2'"});
    row("every further equal gets the next number",
        "(1, 'North'), (2, 'North'), (3, 'South'), (4, 'North')",
        {"1, 'North'", "2, 'North_2'", "3, 'South'", "4, 'North_3'"});
    row("the one with the lowest id keeps its name",
        "(4, 'North'), (2, 'North'), (-3, 'North')",
        {"-3, 'North'", "2, 'North_2'", "4, 'North_3'"});
    row("a new name counts as a name in the same run",
        "(1, 'A'), (2, 'A'), (3, 'A_2')",
        {"1, 'A'", "2, 'A_2'", "3, 'A_2_2'"});
    row("a row with the same name as a new name is renamed too",
        "(1, 'A'), (2, 'A'), (3, 'A_2'), (4, 'A_2_2')",
        {"1, 'A'", "2, 'A_2'", "3, 'A_2_2'", "4, 'A_2_2_2'"});
    row("a new name that an earlier row has is renamed at once",
        "(1, 'A_2'), (2, 'A'), (3, 'A')",
        {"1, 'A_2'", "2, 'A'", "3, 'A_2_2'"});
    row("new and old names are numbered together",
        "(1, 'A'), (2, 'A'), (3, 'A_2'), (4, 'A_2')",
        {"1, 'A'", "2, 'A_2'", "3, 'A_2_2'", "4, 'A_2_3'"});
    row("empty names are equal", "(1, ''), (2, ''), (3, '')", {"1, ''", "2, '_2'", "3, '_3'"});
    row("NULL names are not equal", "(1, NULL), (2, NULL)", {"1, NULL", "2, NULL"});
    row("a NULL name finds the empty ones",
        "(1, NULL), (2, ''), (3, '')",
        {"1, NULL", "2, ''", "3, '_2'"});
    row("markers are part of a name",
        "(1, '%1'), (2, '%1'), (3, '%2 of %1'), (4, '%2 of %1'), (5, '100 %'), (6, '100 %')",
        {"1, '%1'", "2, '%1_2'", "3, '%2 of %1'", "4, '%2 of %1_2'", "5, '100 %'", "6, '100 %_2'"});
    row("letters of any script",
        "(1, 'Müller'), (2, 'Müller'), (3, '绿野农场'), (4, '绿野农场')",
        {"1, 'Müller'", "2, 'Müller_2'", "3, '绿野农场'", "4, '绿野农场_2'"});
    row("letter case makes a difference",
        "(1, 'Smith'), (2, 'smith')",
        {"1, 'Smith'", "2, 'smith'"});
    rowOf(
        "letter case makes no difference with NOCASE",
        "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT COLLATE NOCASE);",
        "(1, 'Smith'), (2, 'SMITH'), (3, 'smith_2'), (4, 'Ä'), (5, 'ä')",
        {"1, 'Smith'", "2, 'Smith_2'", "3, 'Smith_2_2'", "4, 'Ä'", "5, 'ä'"});
    row("trailing blanks make a difference", "(1, 'A'), (2, 'A ')", {"1, 'A'", "2, 'A '"});
    rowOf(
        "trailing blanks make no difference with RTRIM",
        "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT COLLATE RTRIM);",
        "(1, 'A  '), (2, 'A'), (3, ' A')",
        {"1, 'A  '", "2, 'A  _2'", "3, ' A'"});
    rowOf(
        "SQLite does not know the column's collation",
        growers + "PRAGMA writable_schema = ON;"
                  "UPDATE sqlite_master SET sql = replace(sql, 'TEXT', 'TEXT COLLATE german') "
                  "WHERE name = 'growers';"
                  "PRAGMA writable_schema = OFF;",
        "(1, 'A'), (2, 'A'), (3, 'B')",
        {"1, 'A'", "2, 'A'", "3, 'B'"},
        "Query for duplicate grower names failed\n"
        "Query for duplicate grower names failed\n"
        "Query for duplicate grower names failed\n");
    row("every grower with a quote in its name fails",
        "(1, 'O''Brien'), (2, 'Smith'), (3, 'O''Brien'), (4, 'Smith')",
        {"1, 'O''Brien'", "2, 'Smith'", "3, 'O''Brien'", "4, 'Smith_2'"},
        "Query for duplicate grower names failed\n"
        "Query for duplicate grower names failed\n");
    row("two quotes are read as one",
        "(1, 'O''Brien'), (2, 'O''Brien'), (3, 'O''''Brien')",
        {"1, 'O''Brien'", "2, 'O''Brien_2'", "3, 'O''''Brien'"},
        "Query for duplicate grower names failed\n"
        "Query for duplicate grower names failed\n");
    // The second condition is false in the updates: '1' is not '1_2'.
    row("a name makes the condition true for every grower",
        "(1, 'x'' OR ''1''=''1'), (2, 'A'), (3, 'A'), (4, 'B')",
        {"1, 'x'' OR ''1''=''1'", "2, '0'", "3, '0_2'", "4, '0_3'"});
    row("a name hides the end of its statements",
        "(1, 'A'' --'), (2, 'A'), (3, 'A')",
        {"1, 'A'", "2, 'A_2'", "3, 'A_3'"});
    row("a NUL in a name ends its statements",
        "(1, CAST(x'412700' AS TEXT)), (2, 'A'), (3, 'A')",
        {"1, 'A'", "2, 'A_2'", "3, 'A_3'"});
    row("a NUL in the middle of a name",
        "(1, 'A'), (2, CAST(x'410042' AS TEXT))",
        {"1, 'A'", QString("2, 'A%1B'").arg(QChar(QChar::Null))},
        "Query for duplicate grower names failed\n");
    row("a BLOB is searched as a text",
        "(1, x'41'), (2, 'A'), (3, 'A'), (4, x'41')",
        {"1, x'41'", "2, 'A'", "3, 'A_2'", "4, x'41'"});
    row("ids have 64 bits",
        "(4294967297, 'A'), (4294967298, 'A'), (9223372036854775807, 'A')",
        {"4294967297, 'A'", "4294967298, 'A_2'", "9223372036854775807, 'A_3'"});
    rowOf(
        "a NULL id is read as 0, which no grower has",
        "CREATE TABLE growers (id INTEGER, displayName TEXT);",
        "(NULL, 'A'), (NULL, 'A')",
        {"NULL, 'A'", "NULL, 'A'"});
    // Each of the two rows renames both.
    rowOf(
        "two growers have the same id",
        "CREATE TABLE growers (id INTEGER, displayName TEXT);",
        "(1, 'A'), (1, 'A')",
        {"1, 'A_2_2'", "1, 'A_2_2'"});
    rowOf(
        "an index decides the order",
        growers + "CREATE INDEX growersByName ON growers (displayName, id DESC);",
        "(1, 'A'), (2, 'A'), (3, 'A')",
        {"1, 'A_3'", "2, 'A_2'", "3, 'A'"});
    rowOf(
        "the table has no row ids",
        "CREATE TABLE growers (id TEXT PRIMARY KEY, displayName TEXT) WITHOUT ROWID;",
        "('2', 'A'), ('10', 'A'), ('x', 'A')",
        {"'10', 'A'", "'2', 'A_2'", "'x', 'A'"});
    rowOf(
        "an update is refused",
        growers + "CREATE TRIGGER refusal BEFORE UPDATE ON growers WHEN OLD.id = 2 "
                  "BEGIN SELECT RAISE(ABORT, 'refused'); END;",
        "(1, 'A'), (2, 'A'), (3, 'A')",
        {"1, 'A'", "2, 'A'", "3, 'A_3'"},
        "Failed to rename grower: A\n"
        "Failed to rename grower: A\n");
    rowOf(
        "updates break a constraint",
        "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT "
        "CHECK (length(displayName) < 5));",
        "(1, 'Anna'), (2, 'Anna'), (3, 'Anna')",
        {"1, 'Anna'", "2, 'Anna'", "3, 'Anna'"},
        "Failed to rename grower: Anna\n"
        "Failed to rename grower: Anna\n"
        "Failed to rename grower: Anna\n"
        "Failed to rename grower: Anna\n"
        "Failed to rename grower: Anna\n"
        "Failed to rename grower: Anna\n");
    rowOf(
        "a trigger changes other growers",
        growers + "CREATE TRIGGER follow AFTER UPDATE ON growers WHEN NEW.displayName = 'A_2' "
                  "BEGIN UPDATE growers SET displayName = 'C' WHERE displayName = 'B'; END;",
        "(1, 'A'), (2, 'A'), (3, 'B'), (4, 'C')",
        {"1, 'A'", "2, 'A_2'", "3, 'C'", "4, 'C_2'"});
    rowOf(
        "a view has the table's name",
        "CREATE TABLE stored (id INTEGER PRIMARY KEY, displayName TEXT);"
        "INSERT INTO stored VALUES (1, 'A'), (2, 'A');"
        "CREATE VIEW growers AS SELECT * FROM stored;"
        "CREATE TRIGGER growersInsert INSTEAD OF INSERT ON growers BEGIN "
        "INSERT INTO stored VALUES (NEW.id, NEW.displayName); END;",
        "(3, 'B')",
        {"1, 'A'", "2, 'A'", "3, 'B'"},
        "Failed to rename grower: A\n"
        "Failed to rename grower: A\n");
}

void DuplicateNamesTest::renameDuplicateGrowers()
{
    QFETCH(QByteArray, table);
    QFETCH(QByteArray, names);
    QFETCH(QStringList, expected);
    QFETCH(QString, log);
    device->sql(table + farms + fields);
    device->sql("INSERT INTO growers (id, displayName) VALUES " + names);
    DatabaseMigrator &migrator = start();

    migrator.renameDuplicateNames();

    QCOMPARE(device->takeLog(), log);
    COMPARE_LINES(device->rows("SELECT id, displayName FROM growers NOT INDEXED"), expected);
}

void DuplicateNamesTest::renameDuplicateFarmsAndFields_data()
{
    QTest::addColumn<QByteArray>("statements");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<QString>("log");

    const QByteArray tables = growers + farms + fields;
    const QByteArray twoGrowers = tables + "INSERT INTO growers VALUES (1, 'Smith'), (2, 'Jones');";
    const QStringList growerRows = {"grower 1, 'Smith'", "grower 2, 'Jones'"};
    const QByteArray twoFarms =
        twoGrowers + "INSERT INTO farms VALUES (1, 'Home', 1), (2, 'Hill', 2);";
    const QStringList farmRows = {"farm 1, 'Home', 1", "farm 2, 'Hill', 2"};
    const auto row = [](const char *sentence,
                        const QByteArray &statements,
                        const QStringList &expected,
                        const QString &log = QString()) {
        QTest::newRow(sentence) << statements << expected << log;
    };

    row("equal farms of one grower are renamed",
        twoGrowers + "INSERT INTO farms VALUES (1, 'Home', 1), (2, 'Home', 1), (3, 'Home', 1);",
        growerRows +
            QStringList{"farm 1, 'Home', 1", "farm 2, 'Home_2', 1", "farm 3, 'Home_3', 1"});
    row("equal farms of two growers keep their names",
        twoGrowers + "INSERT INTO farms VALUES (1, 'Home', 1), (2, 'Home', 2);",
        growerRows + QStringList{"farm 1, 'Home', 1", "farm 2, 'Home', 2"});
    row("farms without a grower are not read",
        twoGrowers + "INSERT INTO farms VALUES (1, 'Home', 7), (2, 'Home', 7), (3, 'Home', NULL), "
                     "(4, 'Home', NULL);",
        growerRows + QStringList{
                         "farm 1, 'Home', 7",
                         "farm 2, 'Home', 7",
                         "farm 3, 'Home', NULL",
                         "farm 4, 'Home', NULL"});
    row("equal fields of one farm are renamed",
        twoFarms + "INSERT INTO fields VALUES (1, 'North', 1), (2, 'North', 1), (3, 'north', 1);",
        growerRows + farmRows +
            QStringList{"field 1, 'North', 1", "field 2, 'North_2', 1", "field 3, 'north', 1"});
    row("equal fields of two farms keep their names",
        twoFarms + "INSERT INTO fields VALUES (1, 'North', 1), (2, 'North', 2);",
        growerRows + farmRows + QStringList{"field 1, 'North', 1", "field 2, 'North', 2"});
    row("fields without a farm, or of a farm without a grower, are not read",
        tables + "INSERT INTO growers VALUES (1, 'Smith');"
                 "INSERT INTO farms VALUES (1, 'Home', 2);"
                 "INSERT INTO fields VALUES (1, 'North', 1), (2, 'North', 1), (3, 'North', 7), "
                 "(4, 'North', 7);",
        {"grower 1, 'Smith'",
         "farm 1, 'Home', 2",
         "field 1, 'North', 1",
         "field 2, 'North', 1",
         "field 3, 'North', 7",
         "field 4, 'North', 7"});
    row("new names of farms and fields count as names in the same run",
        twoGrowers + "INSERT INTO farms VALUES (1, 'A', 1), (2, 'A', 1), (3, 'A_2', 1), "
                     "(4, 'A_2', 2);"
                     "INSERT INTO fields VALUES (1, 'B', 2), (2, 'B', 2), (3, 'B_2', 2), "
                     "(4, 'B_2', 1);",
        growerRows + QStringList{
                         "farm 1, 'A', 1",
                         "farm 2, 'A_2', 1",
                         "farm 3, 'A_2_2', 1",
                         "farm 4, 'A_2', 2",
                         "field 1, 'B', 2",
                         "field 2, 'B_2', 2",
                         "field 3, 'B_2_2', 2",
                         "field 4, 'B_2', 1"});
    row("growers, farms and fields in one pass, with ids of 64 bits",
        tables + "INSERT INTO growers VALUES (4294967297, 'Smith'), (8589934593, 'Smith');"
                 "INSERT INTO farms VALUES (4294967298, 'Home', 8589934593), "
                 "(8589934594, 'Home', 8589934593), (8589934595, 'Home', 1);"
                 "INSERT INTO fields VALUES (1, 'North', 8589934594), (2, 'North', 8589934594), "
                 "(3, 'North', 2);",
        {"grower 4294967297, 'Smith'",
         "grower 8589934593, 'Smith_2'",
         "farm 4294967298, 'Home', 8589934593",
         "farm 8589934594, 'Home_2', 8589934593",
         "farm 8589934595, 'Home', 1",
         "field 1, 'North', 8589934594",
         "field 2, 'North_2', 8589934594",
         "field 3, 'North', 2"});
    row("markers in names of farms and fields are data",
        twoGrowers + "INSERT INTO farms VALUES (1, '%2', 1), (2, '%2', 1);"
                     "INSERT INTO fields VALUES (1, '%1%2', 1), (2, '%1%2', 1);",
        growerRows + QStringList{
                         "farm 1, '%2', 1",
                         "farm 2, '%2_2', 1",
                         "field 1, '%1%2', 1",
                         "field 2, '%1%2_2', 1"});
    // Both growers are read as grower 0; the second one no longer finds equals.
    row("the ids of growers are NULL",
        "CREATE TABLE growers (id INTEGER, displayName TEXT);" + farms + fields +
            "INSERT INTO growers VALUES (NULL, 'A'), (NULL, 'B');"
            "INSERT INTO farms VALUES (1, 'Home', 0), (2, 'Home', 0), (3, 'Home', NULL);",
        {"grower NULL, 'A'",
         "grower NULL, 'B'",
         "farm 1, 'Home', 0",
         "farm 2, 'Home_2', 0",
         "farm 3, 'Home', NULL"});
    row("a reference that is no integer refers to nothing",
        twoGrowers + "INSERT INTO farms VALUES (1, 'Home', 'x'), (2, 'Home', 'x'), "
                     "(3, 'Home', 1.5), (4, 'Home', 1.5), (5, 'Home', '1'), (6, 'Home', 1.0);",
        growerRows + QStringList{
                         "farm 1, 'Home', 'x'",
                         "farm 2, 'Home', 'x'",
                         "farm 3, 'Home', 1.5",
                         "farm 4, 'Home', 1.5",
                         "farm 5, 'Home', 1",
                         "farm 6, 'Home_2', 1"});
    row("after a quote the farms of a grower and the fields of a farm still run",
        tables + "INSERT INTO growers VALUES (1, 'O''Brien');"
                 "INSERT INTO farms VALUES (1, 'Bull''s', 1), (2, 'Home', 1), (3, 'Home', 1);"
                 "INSERT INTO fields VALUES (1, 'Fox''s', 1), (2, 'North', 1), (3, 'North', 1);",
        {"grower 1, 'O''Brien'",
         "farm 1, 'Bull''s', 1",
         "farm 2, 'Home', 1",
         "farm 3, 'Home_2', 1",
         "field 1, 'Fox''s', 1",
         "field 2, 'North', 1",
         "field 3, 'North_2', 1"},
        "Query for duplicate grower names failed\n"
        "Query for duplicate farm names failed\n"
        "Query for duplicate field names failed\n");
    row("updates of farms and fields are refused",
        twoGrowers + "INSERT INTO farms VALUES (1, 'Home', 1), (2, 'Home', 1), (3, 'Hill', 2);"
                     "INSERT INTO fields VALUES (1, 'North', 3), (2, 'North', 3), (3, 'North', 3);"
                     "CREATE TRIGGER farmRefusal BEFORE UPDATE ON farms "
                     "BEGIN SELECT RAISE(ABORT, 'refused'); END;"
                     "CREATE TRIGGER fieldRefusal BEFORE UPDATE ON fields WHEN OLD.id = 2 "
                     "BEGIN SELECT RAISE(ABORT, 'refused'); END;",
        growerRows +
            QStringList{
                "farm 1, 'Home', 1",
                "farm 2, 'Home', 1",
                "farm 3, 'Hill', 2",
                "field 1, 'North', 3",
                "field 2, 'North', 3",
                "field 3, 'North_3', 3"},
        "Failed to rename farm: Home\n"
        "Failed to rename farm: Home\n"
        "Failed to rename field: North\n"
        "Failed to rename field: North\n");
    row("there are no growers: farms are not read",
        farms + fields + "INSERT INTO farms VALUES (1, 'Home', 1), (2, 'Home', 1);",
        {"farm 1, 'Home', 1", "farm 2, 'Home', 1"},
        "Query for grower displaynames failed\n");
    row("growers have no names: farms are not read",
        "CREATE TABLE growers (id INTEGER PRIMARY KEY);" + farms + fields +
            "INSERT INTO growers VALUES (1);"
            "INSERT INTO farms VALUES (1, 'Home', 1), (2, 'Home', 1);",
        {"grower 1", "farm 1, 'Home', 1", "farm 2, 'Home', 1"},
        "Query for grower displaynames failed\n");
    row("there are no farms: growers are still renamed",
        growers + fields + "INSERT INTO growers VALUES (1, 'Smith'), (2, 'Smith');",
        {"grower 1, 'Smith'", "grower 2, 'Smith_2'"},
        "Query for farms of the grower failed\n"
        "Query for farms of the grower failed\n");
    row("farms have no growers: growers are still renamed",
        growers + fields +
            "CREATE TABLE farms (id INTEGER PRIMARY KEY, displayName TEXT);"
            "INSERT INTO growers VALUES (1, 'Smith'), (2, 'Smith');"
            "INSERT INTO farms VALUES (1, 'Home'), (2, 'Home');",
        {"grower 1, 'Smith'", "grower 2, 'Smith_2'", "farm 1, 'Home'", "farm 2, 'Home'"},
        "Query for farms of the grower failed\n"
        "Query for farms of the grower failed\n");
    row("there are no fields: farms are still renamed",
        growers + farms +
            "INSERT INTO growers VALUES (1, 'Smith');"
            "INSERT INTO farms VALUES (1, 'Home', 1), (2, 'Home', 1), (3, 'Hill', 1);",
        {"grower 1, 'Smith'", "farm 1, 'Home', 1", "farm 2, 'Home_2', 1", "farm 3, 'Hill', 1"},
        "Query for fields of the farm failed\n"
        "Query for fields of the farm failed\n"
        "Query for fields of the farm failed\n");
    row("fields have no ids",
        growers + farms +
            "CREATE TABLE fields (displayName TEXT, farmId INTEGER);"
            "INSERT INTO growers VALUES (1, 'Smith');"
            "INSERT INTO farms VALUES (1, 'Home', 1), (2, 'Home', 1);"
            "INSERT INTO fields VALUES ('North', 1), ('North', 2);",
        {"grower 1, 'Smith'",
         "farm 1, 'Home', 1",
         "farm 2, 'Home_2', 1",
         "field 'North', 1",
         "field 'North', 2"},
        "Query for duplicate field names failed\n"
        "Query for duplicate field names failed\n");
}

void DuplicateNamesTest::renameDuplicateFarmsAndFields()
{
    QFETCH(QByteArray, statements);
    QFETCH(QStringList, expected);
    QFETCH(QString, log);
    device->sql(statements);
    DatabaseMigrator &migrator = start();

    migrator.renameDuplicateNames();

    QCOMPARE(device->takeLog(), log);
    QStringList names;
    for (const QByteArray &table : QByteArrayList{"grower", "farm", "field"}) {
        if (migrator.tableExists(table + "s")) {
            names += device->rows("SELECT * FROM " + table + "s")
                         .replaceInStrings(QRegularExpression("^"), table + " ");
        }
    }
    COMPARE_LINES(names, expected);
}

void DuplicateNamesTest::secondRunFindsNothingLeft()
{
    device->sql(growers + farms + fields + files);
    device->sql(
        "INSERT INTO growers VALUES (1, 'A'), (2, 'A'), (3, 'A_2');"
        "INSERT INTO farms VALUES (1, 'B', 2), (2, 'B', 2);"
        "INSERT INTO fields VALUES (1, 'C', 2), (2, 'C', 2);" +
        file("1", "'D'", "1, 2, 3, 4") + file("2", "'D'", "1, 2, 3, 4"));
    DatabaseMigrator &migrator = device->start();
    migrator.renameDuplicateFiles();
    migrator.renameDuplicateNames();
    const QStringList dump = device->dump();
    QVERIFY(dump.contains("3, 'A_2_2'"));
    device->takeLog();

    migrator.renameDuplicateFiles();
    migrator.renameDuplicateNames();

    QCOMPARE(device->takeLog(), QString());
    COMPARE_LINES(device->dump(), dump);
}

/// A page of rows is in the table twice. A rename by an id of the second copy changes the first and
/// sends the walk back to it. With the trigger every row is a suspect.
void DuplicateNamesTest::endsInADamagedTable_data()
{
    const auto row = addColumns<QByteArray, QByteArray>("table", "values");
    row("growers", "growers", "id, displayName) SELECT n, name");
    row("farms of a grower", "farms", "id, displayName, growerId) SELECT n, name, 1");
    row("fields of a farm", "fields", "id, displayName, farmId) SELECT n, name, 1");
    row("files",
        "files",
        "id, displayName, typeId, growerId, farmId, fieldId) SELECT n, name, 3, 1, 1, 1");
}

void DuplicateNamesTest::endsInADamagedTable()
{
    QFETCH(QByteArray, table);
    QFETCH(QByteArray, values);
    device->sql("PRAGMA page_size = 512; VACUUM;");
    device->sql(growers + farms + fields + files);
    device->sql("CREATE TRIGGER noticed AFTER DELETE ON " + table + " BEGIN SELECT 1; END;");
    if (table != "growers") {
        device->sql("INSERT INTO growers VALUES (1, 'Smith');");
    }
    if (table == "fields") {
        device->sql("INSERT INTO farms VALUES (1, 'Home', 1);");
    }
    device->sql(
        "WITH RECURSIVE number(n) AS (VALUES(1) UNION ALL SELECT n + 1 FROM number WHERE n < 150), "
        "named(n, name) AS (SELECT n, CASE WHEN n < 5 THEN 'North' ELSE 'South ' || n END FROM number) "
        "INSERT INTO " +
        table + " (" + values + " FROM named;");
    device->overwriteLeaf(table, 2, 0);
    DatabaseMigrator &migrator = start();

    migrator.renameDuplicateFiles();
    migrator.renameDuplicateNames();

    QCOMPARE(device->takeLog(), QString());
    COMPARE_LINES(
        device->rows("SELECT displayName FROM " + table + " WHERE id IN (1, 2, 3, 4, 150)"),
        QStringList({"'North'", "'North_2'", "'North_3'", "'North_4'", "'South 150'"}));
}

void DuplicateNamesTest::endsWhereATriggerAddsRows_data()
{
    const auto row = addColumns<QByteArray, QStringList>("name", "expected");
    // A walk ends after twice as many rows as there were: in the first case the walk over the
    // growers, in the second the walk over the equals of the first grower.
    row("a trigger adds rows with the new name",
        "new.displayName",
        {"1, 'A'", "2, 'A_2'", "3, 'A_2_2'", "4, 'A_2_2_2'", "5, 'A_2_2_2_2'", "6, 'A_2_2_2_2'"});
    row("a trigger adds rows with the old name",
        "old.displayName",
        {"1, 'A'", "2, 'A_2'", "3, 'A_3'", "4, 'A_4'", "5, 'A'"});
}

/// The added rows would be renamed too, and so on.
void DuplicateNamesTest::endsWhereATriggerAddsRows()
{
    QFETCH(QByteArray, name);
    QFETCH(QStringList, expected);
    device->sql(growers + farms + fields);
    device->sql(
        "INSERT INTO growers VALUES (1, 'A'), (2, 'A');"
        "CREATE TRIGGER renamed AFTER UPDATE ON growers "
        "BEGIN INSERT INTO growers (displayName) VALUES (" +
        name + "); END;");
    DatabaseMigrator &migrator = start();

    migrator.renameDuplicateNames();

    QCOMPARE(device->takeLog(), QString());
    COMPARE_LINES(device->rows("SELECT id, displayName FROM growers"), expected);
}

/// Both rows have the id, so each rename changes both. The index then returns them once more, by their
/// new name, to be renamed again.
void DuplicateNamesTest::endsWhereAnIndexReturnsTheRenamedRows()
{
    device->sql(farms + fields);
    device->sql("CREATE TABLE growers (id INTEGER, displayName TEXT, notes TEXT);"
                "CREATE INDEX named ON growers (displayName, id);"
                "INSERT INTO growers VALUES (1, 'A', NULL), (1, 'A', NULL);");
    DatabaseMigrator &migrator = start();

    migrator.renameDuplicateNames();

    QCOMPARE(device->takeLog(), QString());
    COMPARE_LINES(
        device->rows("SELECT id, displayName FROM growers"),
        QStringList({"1, 'A_2_2_2_2'", "1, 'A_2_2_2_2'"}));
}

QTEST_APPLESS_MAIN(DuplicateNamesTest)
#include "duplicate_names_test.moc"

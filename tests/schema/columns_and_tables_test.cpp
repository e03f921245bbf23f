#include "support/step_test.h"

#include <sqlite3.h>

class ColumnsAndTablesTest : public DeviceTest
{
    Q_OBJECT

private slots:
    void init() override;

    void tableExists_data();
    void tableExists();
    void columnExists_data();
    void columnExists();
    void columnExistsLeavesNothingLocked();
    void getTableInfo_data();
    void getTableInfo();
    void getTableInfoGoesOnAfterAFailure_data();
    void getTableInfoGoesOnAfterAFailure();
    void getTableInfoKeepsNoHalfReadPart();
    void addColumn_data();
    void addColumn();
    void addColumnIfNotExists_data();
    void addColumnIfNotExists();
    void setColumnValue_data();
    void setColumnValue();
    void dropTable_data();
    void dropTable();
};

namespace
{
/// A table's structure as lines, one list on each.
QStringList lines(const TableInfo &info)
{
    return {
        "foreign keys: " + info.foreignKeyColumns.join(", "),
        "names: " + info.columnNames.join(", "),
        "types: " + info.columnTypes.join(", "),
        "not null: " + info.notNullFlags.join(", "),
        "defaults: " + info.defaultValues.join(", "),
        "primary key: " + info.primaryKeyPositions.join(", "),
        info.createText};
}

/// The same structure with all lists on the first line.
QStringList summary(const TableInfo &info)
{
    return {lines(info).mid(0, 6).join("; "), info.createText};
}

const QStringList fieldBefore = {"CREATE TABLE field (id INTEGER, name TEXT)", "1, 'a'"};
const QStringList namesBefore = {"1, 'a'", "2, 'a'", "3, NULL"};
} // namespace

void ColumnsAndTablesTest::init()
{
    DeviceTest::init();
    device->recordVersion(1);
}

void ColumnsAndTablesTest::tableExists_data()
{
    const auto row = addColumns<QString, bool>("table", "exists");
    row("a table", "field", true);
    row("a table without rows", "empty", true);
    row("no table", "missing", false);
    row("a table in another letter case", "Field", false);
    row("a view", "fieldView", false);
    row("an index", "fieldIndex", false);
    row("a trigger", "fieldTrigger", false);
    row("an empty name", "", false);
    row("a quote in the name makes the statement fail", "fie'ld", false);
}

void ColumnsAndTablesTest::tableExists()
{
    QFETCH(QString, table);
    QFETCH(bool, exists);
    device->sql("CREATE TABLE field (id INTEGER, name TEXT);"
                "INSERT INTO field VALUES(1, 'a');"
                "CREATE TABLE empty (id);"
                "CREATE VIEW fieldView AS SELECT * FROM field;"
                "CREATE INDEX fieldIndex ON field(name);"
                "CREATE TRIGGER fieldTrigger AFTER DELETE ON field BEGIN SELECT 1; END;");

    QCOMPARE(start().tableExists(table), exists);
    QCOMPARE(device->takeLog(), QString());
}

void ColumnsAndTablesTest::columnExists_data()
{
    const auto row = addColumns<QString, QString, bool>("table", "column", "exists");
    row("the first column of a table without rows", "empty", "id", true);
    row("the last column of a table without rows", "empty", "Name", true);
    row("a column in another letter case", "empty", "nAME", true);
    row("a column of a table with rows", "field", "name", true);
    row("a table in another letter case", "FIELD", "name", true);
    row("a column of a view", "fieldView", "label", true);
    row("no column", "field", "area", false);
    row("a part of a column's name", "field", "nam", false);
    row("no table", "missing", "id", false);
    row("a name that needs quotes makes the statement fail", "order", "id", false);
}

void ColumnsAndTablesTest::columnExists()
{
    QFETCH(QString, table);
    QFETCH(QString, column);
    QFETCH(bool, exists);
    device->sql("CREATE TABLE field (id INTEGER, name TEXT);"
                "INSERT INTO field VALUES(1, 'a'), (2, 'b');"
                "CREATE TABLE empty (id INTEGER, Name TEXT);"
                "CREATE VIEW fieldView AS SELECT name AS label FROM field;"
                "CREATE TABLE \"order\" (id INTEGER);");

    QCOMPARE(start().columnExists(table, column), exists);
    QCOMPARE(device->takeLog(), QString());
}

void ColumnsAndTablesTest::columnExistsLeavesNothingLocked()
{
    device->sql("CREATE TABLE field (id INTEGER); INSERT INTO field VALUES(1), (2)");
    DatabaseMigrator &migrator = start();

    QVERIFY(migrator.columnExists("field", "id"));
    QVERIFY(migrator.tableExists("field"));
    QVERIFY(migrator.dropTable("field"));
    QCOMPARE(device->takeLog(), QString());
}

void ColumnsAndTablesTest::getTableInfo_data()
{
    const auto row = addColumns<QByteArray, QString, QStringList>("before", "table", "info");
    row("columns in the order of their declaration, the key in its own order",
        "CREATE TABLE field (name varchar(40) NOT NULL, id INTEGER, plain, "
        "area REAL DEFAULT -1.5, Farm TEXT NOT NULL DEFAULT 'none', "
        "made DEFAULT CURRENT_TIMESTAMP, gone TEXT DEFAULT NULL, "
        "text TEXT DEFAULT '', sum INT DEFAULT (1 + 2), PRIMARY KEY (id, name))",
        "field",
        {"foreign keys: ; names: name, id, plain, area, Farm, made, gone, text, sum; "
         "types: varchar(40), INTEGER, , REAL, TEXT, , TEXT, TEXT, INT; "
         "not null: 1, 0, 0, 0, 1, 0, 0, 0, 0; "
         "defaults: , , , -1.5, 'none', CURRENT_TIMESTAMP, NULL, '', 1 + 2; "
         "primary key: 2, 1, 0, 0, 0, 0, 0, 0, 0",
         "CREATE TABLE field (name varchar(40) NOT NULL, id INTEGER, plain, "
         "area REAL DEFAULT -1.5, Farm TEXT NOT NULL DEFAULT 'none', "
         "made DEFAULT CURRENT_TIMESTAMP, gone TEXT DEFAULT NULL, "
         "text TEXT DEFAULT '', sum INT DEFAULT (1 + 2), PRIMARY KEY (id, name))"});
    // The database lists the keys from the last to the first.
    row("a column of two foreign keys is listed twice, a key of two columns with both",
        "CREATE TABLE field (a REFERENCES p(x), b, c, "
        "FOREIGN KEY (b, c) REFERENCES q(y, z), FOREIGN KEY (b) REFERENCES p(x))",
        "field",
        {"foreign keys: b, b, c, a; names: a, b, c; types: , , ; not null: 0, 0, 0; "
         "defaults: , , ; primary key: 0, 0, 0",
         "CREATE TABLE field (a REFERENCES p(x), b, c, "
         "FOREIGN KEY (b, c) REFERENCES q(y, z), FOREIGN KEY (b) REFERENCES p(x))"});
    row("the table's own text, not that of its index, trigger or view",
        "CREATE TABLE field (id INTEGER PRIMARY KEY);"
        "CREATE INDEX fieldIndex ON field(id);"
        "CREATE TRIGGER fieldTrigger AFTER DELETE ON field BEGIN SELECT 1; END;"
        "CREATE VIEW fieldView AS SELECT * FROM field;",
        "field",
        {"foreign keys: ; names: id; types: INTEGER; not null: 0; defaults: ; primary key: 1",
         "CREATE TABLE field (id INTEGER PRIMARY KEY)"});
    row("in another letter case only the CREATE text is missing",
        "CREATE TABLE field (id INTEGER PRIMARY KEY REFERENCES p(x))",
        "Field",
        {"foreign keys: id; names: id; types: INTEGER; not null: 0; defaults: ; primary key: 1",
         ""});
    row("no table", "CREATE TABLE field (id INTEGER)", "missing", summary(TableInfo()));
    row("a quote in the name makes every statement fail",
        "CREATE TABLE field (id INTEGER)",
        "fie'ld",
        summary(TableInfo()));
}

void ColumnsAndTablesTest::getTableInfo()
{
    QFETCH(QByteArray, before);
    QFETCH(QString, table);
    QFETCH(QStringList, info);
    device->sql(before);

    COMPARE_LINES(summary(start().getTableInfo(table)), info);
    QCOMPARE(device->takeLog(), QString());
}

void ColumnsAndTablesTest::getTableInfoGoesOnAfterAFailure_data()
{
    const auto row = addColumns<int, QByteArray, QStringList, QString>(
        "refusedAction", "refusedObject", "info", "error");

    const QString createText = "CREATE TABLE field (id INTEGER NOT NULL REFERENCES p(x))";
    row("the foreign keys cannot be read",
        SQLITE_PRAGMA,
        "foreign_key_list",
        {"foreign keys: ; names: id; types: INTEGER; not null: 1; defaults: ; primary key: 0",
         createText},
        "");
    row("the columns cannot be read",
        SQLITE_PRAGMA,
        "table_info",
        {"foreign keys: id; names: ; types: ; not null: ; defaults: ; primary key: ", createText},
        "");
    row("the text cannot be read",
        SQLITE_READ,
        "sqlite_master",
        {"foreign keys: id; names: id; types: INTEGER; not null: 1; defaults: ; primary key: 0",
         ""},
        "access to sqlite_master.type is prohibited Unable to execute statement");
}

void ColumnsAndTablesTest::getTableInfoGoesOnAfterAFailure()
{
    QFETCH(int, refusedAction);
    QFETCH(QByteArray, refusedObject);
    QFETCH(QStringList, info);
    device->sql("CREATE TABLE field (id INTEGER NOT NULL REFERENCES p(x))");
    DatabaseMigrator &migrator = start();
    device->refuse(refusedAction, refusedObject);

    const TableInfo read = migrator.getTableInfo("field");

    COMPARE_LINES(summary(read), info);
    QTEST(read.readError, "error");
    QCOMPARE(device->takeLog(), QString());
}

void ColumnsAndTablesTest::getTableInfoKeepsNoHalfReadPart()
{
    device->sql("CREATE TABLE field (id INTEGER REFERENCES p(x), name TEXT REFERENCES q(y))");
    DatabaseMigrator &migrator = start();
    const QStringList whole = lines(migrator.getTableInfo("field"));
    const QStringList empty = lines(TableInfo());

    // Interrupts the reading later each time, until it ends before the interruption.
    QMap<QString, int> interruptions;
    QStringList read;
    for (int instructions = 1; read != whole; ++instructions) {
        device->interruptAfter(instructions);
        const TableInfo info = migrator.getTableInfo("field");
        read = lines(info);
        const bool keysMissing = read[0] != whole[0];
        const bool columnsMissing = read[1] != whole[1];
        const bool textMissing = read[6] != whole[6];
        QVERIFY(keysMissing + columnsMissing + textMissing <= 1);
        COMPARE_LINES(
            read,
            (keysMissing ? empty : whole).mid(0, 1) + (columnsMissing ? empty : whole).mid(1, 5) +
                (textMissing ? empty : whole).mid(6));
        if (keysMissing) {
            QCOMPARE(info.readError, QString());
            ++interruptions["keys"];
        } else if (textMissing) {
            QCOMPARE(info.readError, "interrupted Unable to fetch row");
            ++interruptions["text"];
        } else if (columnsMissing) {
            ++interruptions[info.readError];
        }
    }
    // Interrupted before the first column, nothing was read; after it, only a part.
    QCOMPARE(
        interruptions.keys(), QStringList({"", "interrupted Unable to fetch row", "keys", "text"}));
}

void ColumnsAndTablesTest::addColumn_data()
{
    const auto row = addColumns<QStringList, QStringList, QStringList>("arguments", "log", "field");
    row("without a default the column is nullable",
        {"field", "c", "REAL"},
        {},
        {"CREATE TABLE field (id INTEGER, name TEXT, c REAL)", "1, 'a', NULL"});
    row("an empty default counts as none",
        {"field", "c", "REAL", ""},
        {},
        {"CREATE TABLE field (id INTEGER, name TEXT, c REAL)", "1, 'a', NULL"});
    row("with a default the column is NOT NULL, the default has parentheses",
        {"field", "c", "REAL", "0"},
        {},
        {"CREATE TABLE field (id INTEGER, name TEXT, c REAL NOT NULL DEFAULT(0))", "1, 'a', 0.0"});
    row("the type includes a default",
        {"field", "c", "BOOLEAN DEFAULT 1"},
        {},
        {"CREATE TABLE field (id INTEGER, name TEXT, c BOOLEAN DEFAULT 1)", "1, 'a', 1"});
    row("markers in a quoted default text are data",
        {"field", "c", "varchar(40)", "'%1 %2 %3'"},
        {},
        {"CREATE TABLE field (id INTEGER, name TEXT, "
         "c varchar(40) NOT NULL DEFAULT('%1 %2 %3'))",
         "1, 'a', '%1 %2 %3'"});
    row("a default text without quotes is an identifier",
        {"field", "c", "TEXT", "none"},
        newColumnNotAdded(
            "c",
            "field",
            "default value of column [c] is not constant Unable to execute statement"),
        fieldBefore);
    row("the column is there already",
        {"field", "name", "TEXT"},
        addedBefore("name", "field"),
        fieldBefore);
    row("there is no table",
        {"missing", "c", "TEXT", "0"},
        addedToNothing("c", "missing"),
        fieldBefore);
    row("markers in a name are data",
        {"%2", "%1", "TEXT"},
        newColumnNotAdded("%1", "%2", "near \"%\": syntax error Unable to execute statement"),
        fieldBefore);
}

void ColumnsAndTablesTest::addColumn()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, log);
    device->sql("CREATE TABLE field (id INTEGER, name TEXT); INSERT INTO field VALUES(1, 'a');");
    DatabaseMigrator &migrator = start();

    const bool added =
        arguments.size() == 3
            ? migrator.addColumn(arguments[0], arguments[1], arguments[2])
            : migrator.addColumn(arguments[0], arguments[1], arguments[2], arguments[3]);

    QCOMPARE(added, log.isEmpty());
    COMPARE_LINES(device->takeLogLines(), log);
    QTEST(QStringList(device->createText("field")) + device->rows("SELECT * FROM field"), "field");
}

void ColumnsAndTablesTest::addColumnIfNotExists_data()
{
    const auto row = addColumns<QStringList, QStringList, QStringList>("arguments", "log", "field");
    row("without a default",
        {"field", "c", "REAL"},
        {},
        {"CREATE TABLE field (id INTEGER, name TEXT, c REAL)", "1, 'a', NULL"});
    row("an empty default counts as none",
        {"field", "c", "REAL", ""},
        {},
        {"CREATE TABLE field (id INTEGER, name TEXT, c REAL)", "1, 'a', NULL"});
    row("with a default the column is nullable, the default is unchanged",
        {"field", "c", "REAL", "0"},
        {},
        {"CREATE TABLE field (id INTEGER, name TEXT, c REAL DEFAULT 0)", "1, 'a', 0.0"});
    row("the type includes a default",
        {"field", "c", "BOOLEAN DEFAULT 1"},
        {},
        {"CREATE TABLE field (id INTEGER, name TEXT, c BOOLEAN DEFAULT 1)", "1, 'a', 1"});
    row("markers in a quoted default text are data",
        {"field", "c", "varchar(40)", "'%1 %2 %3'"},
        {},
        {"CREATE TABLE field (id INTEGER, name TEXT, c varchar(40) DEFAULT '%1 %2 %3')",
         "1, 'a', '%1 %2 %3'"});
    row("SQLite takes a default word without quotes as a text",
        {"field", "c", "TEXT", "none"},
        {},
        {"CREATE TABLE field (id INTEGER, name TEXT, c TEXT DEFAULT none)", "1, 'a', 'none'"});
    row("a default text without quotes is an expression",
        {"field", "c", "TEXT", "no field"},
        notAdded("c", "field", "near \"field\": syntax error Unable to execute statement"),
        fieldBefore);
    row("the column is there already", {"field", "name", "REAL", "0"}, {}, fieldBefore);
    row("the column is there already in another letter case",
        {"field", "Name", "TEXT"},
        duplicateNotAdded("Name", "field"),
        fieldBefore);
    row("a part of a column's name is another name",
        {"field", "nam", "TEXT"},
        {},
        {"CREATE TABLE field (id INTEGER, name TEXT, nam TEXT)", "1, 'a', NULL"});
    row("there is no table",
        {"missing", "c", "TEXT", "0"},
        notAddedToNothing("c", "missing"),
        fieldBefore);
}

void ColumnsAndTablesTest::addColumnIfNotExists()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, log);
    device->sql("CREATE TABLE field (id INTEGER, name TEXT); INSERT INTO field VALUES(1, 'a');");
    DatabaseMigrator &migrator = start();

    const bool there =
        arguments.size() == 3
            ? migrator.addColumnIfNotExists(arguments[0], arguments[1], arguments[2])
            : migrator.addColumnIfNotExists(arguments[0], arguments[1], arguments[2], arguments[3]);

    QCOMPARE(there, log.isEmpty());
    COMPARE_LINES(device->takeLogLines(), log);
    QTEST(QStringList(device->createText("field")) + device->rows("SELECT * FROM field"), "field");
}

void ColumnsAndTablesTest::setColumnValue_data()
{
    const auto row = addColumns<QStringList, QStringList, QStringList>("arguments", "log", "rows");
    row("without a condition every row changes",
        {"field", "name", "'b'"},
        {},
        {"1, 'b'", "2, 'b'", "3, 'b'"});
    row("an empty condition counts as none",
        {"field", "name", "'b'", ""},
        {},
        {"1, 'b'", "2, 'b'", "3, 'b'"});
    row("only the rows that meet the condition change",
        {"field", "name", "'b'", "id > 1 AND name = 'a'"},
        {},
        {"1, 'a'", "2, 'b'", "3, NULL"});
    row("no row meets the condition", {"field", "name", "'b'", "id = 7"}, {}, namesBefore);
    row("the value is an expression",
        {"field", "name", "name || id", "id < 3"},
        {},
        {"1, 'a1'", "2, 'a2'", "3, NULL"});
    row("markers in values and conditions are data",
        {"field", "name", "'%1 %2 %3'", "'%1' = '%1' AND id = 1"},
        {},
        {"1, '%1 %2 %3'", "2, 'a'", "3, NULL"});
    row("a text without quotes is an identifier",
        {"field", "name", "none", "id = 1"},
        notSet("name", "none", noSuchColumn("none")),
        namesBefore);
    row("there is no column",
        {"field", "area", "1"},
        notSet("area", "1", noSuchColumn("area")),
        namesBefore);
    row("there is no table",
        {"missing", "name", "'%1'"},
        notSet("name", "'%1'", noSuchTable("missing")),
        namesBefore);
    row("markers in a name are data",
        {"\"%3\"", "name", "1"},
        notSet("name", "1", noSuchTable("%3")),
        namesBefore);
    row("the condition is wrong",
        {"field", "name", "'b'", "WHERE id = 1"},
        notSet("name", "'b'", "near \"WHERE\": syntax error Unable to execute statement"),
        namesBefore);
    row("when one row is refused no row changes",
        {"field", "name", "'forbidden'"},
        notSet("name", "'forbidden'", rowRefused),
        namesBefore);
}

void ColumnsAndTablesTest::setColumnValue()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, log);
    device->sql("CREATE TABLE field (id INTEGER, name TEXT);"
                "INSERT INTO field VALUES(1, 'a'), (2, 'a'), (3, NULL);"
                "CREATE TRIGGER guard BEFORE UPDATE ON field WHEN NEW.name = 'forbidden' AND "
                "NEW.id = 3 BEGIN SELECT RAISE(ABORT, 'refused'); END;");
    DatabaseMigrator &migrator = start();

    const bool set =
        arguments.size() == 3
            ? migrator.setColumnValue(arguments[0], arguments[1], arguments[2])
            : migrator.setColumnValue(arguments[0], arguments[1], arguments[2], arguments[3]);

    QCOMPARE(set, log.isEmpty());
    COMPARE_LINES(device->takeLogLines(), log);
    QTEST(device->rows("SELECT * FROM field"), "rows");
}

void ColumnsAndTablesTest::dropTable_data()
{
    const auto row = addColumns<QByteArray, QString, QStringList, QStringList>(
        "before", "table", "log", "schema");

    const QByteArray field = "CREATE TABLE field (id INTEGER PRIMARY KEY)";
    const QByteArray part = "CREATE TABLE part (fieldId REFERENCES field(id))";

    row("the table is dropped with its index and trigger",
        field +
            ";CREATE INDEX fieldIndex ON field(id);"
            "CREATE TRIGGER fieldTrigger AFTER DELETE ON field BEGIN SELECT 1; END;" +
            part,
        "field",
        {},
        {part});
    row("a table in another letter case", field, "FIELD", {}, {});
    row("there is no table", field, "missing", {}, {field});
    row("a view has the name",
        field + ";CREATE VIEW fieldView AS SELECT * FROM field",
        "fieldView",
        viewStays("fieldView"),
        {field, "CREATE VIEW fieldView AS SELECT * FROM field"});
    row("a row of another table refers to it",
        field + ";INSERT INTO field VALUES(1);" + part + ";INSERT INTO part VALUES(1)",
        "field",
        tableStays("field", "FOREIGN KEY constraint failed Unable to fetch row"),
        {field, part});
    row("the name needs quotes",
        "CREATE TABLE \"order\" (id INTEGER)",
        "order",
        tableStays("order", "near \"order\": syntax error Unable to execute statement"),
        {"CREATE TABLE \"order\" (id INTEGER)"});
}

void ColumnsAndTablesTest::dropTable()
{
    QFETCH(QByteArray, before);
    QFETCH(QString, table);
    QFETCH(QStringList, log);
    QFETCH(QStringList, schema);
    const QStringList others = device->schema();
    device->sql(before);
    DatabaseMigrator &migrator = start();

    QCOMPARE(migrator.dropTable(table), log.isEmpty());

    COMPARE_LINES(device->takeLogLines(), log);
    COMPARE_LINES(device->schema(), others + schema);
}

QTEST_APPLESS_MAIN(ColumnsAndTablesTest)
#include "columns_and_tables_test.moc"

#include "support/device_test.h"

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
/// A table's structure as lines, each list on one.
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
} // namespace

void ColumnsAndTablesTest::init()
{
    DeviceTest::init();
    device->recordVersion(1);
}

void ColumnsAndTablesTest::tableExists_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<bool>("exists");

    QTest::newRow("a table") << "field" << true;
    QTest::newRow("a table without rows") << "empty" << true;
    QTest::newRow("no table") << "missing" << false;
    QTest::newRow("a table in another letter case") << "Field" << false;
    QTest::newRow("a view") << "fieldView" << false;
    QTest::newRow("an index") << "fieldIndex" << false;
    QTest::newRow("a trigger") << "fieldTrigger" << false;
    QTest::newRow("an empty name") << "" << false;
    QTest::newRow("a quote in the name makes the statement fail") << "fie'ld" << false;
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
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("column");
    QTest::addColumn<bool>("exists");
    const auto row =
        [](const char *sentence, const QString &table, const QString &column, bool exists) {
            QTest::newRow(sentence) << table << column << exists;
        };

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
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("table");
    QTest::addColumn<QStringList>("info");

    QTest::newRow("columns in the order of their declaration, the key in its own order")
        << QByteArray("CREATE TABLE field (name varchar(40) NOT NULL, id INTEGER, plain, "
                      "area REAL DEFAULT -1.5, Farm TEXT NOT NULL DEFAULT 'none', "
                      "made DEFAULT CURRENT_TIMESTAMP, gone TEXT DEFAULT NULL, "
                      "text TEXT DEFAULT '', sum INT DEFAULT (1 + 2), PRIMARY KEY (id, name))")
        << "field"
        << QStringList(
               {"foreign keys: ",
                "names: name, id, plain, area, Farm, made, gone, text, sum",
                "types: varchar(40), INTEGER, , REAL, TEXT, , TEXT, TEXT, INT",
                "not null: 1, 0, 0, 0, 1, 0, 0, 0, 0",
                "defaults: , , , -1.5, 'none', CURRENT_TIMESTAMP, NULL, '', 1 + 2",
                "primary key: 2, 1, 0, 0, 0, 0, 0, 0, 0",
                "CREATE TABLE field (name varchar(40) NOT NULL, id INTEGER, plain, "
                "area REAL DEFAULT -1.5, Farm TEXT NOT NULL DEFAULT 'none', "
                "made DEFAULT CURRENT_TIMESTAMP, gone TEXT DEFAULT NULL, "
                "text TEXT DEFAULT '', sum INT DEFAULT (1 + 2), PRIMARY KEY (id, name))"});
    // The database lists the keys from the last to the first.
    QTest::newRow("a column of two foreign keys is listed twice, a key of two columns with both")
        << QByteArray("CREATE TABLE field (a REFERENCES p(x), b, c, "
                      "FOREIGN KEY (b, c) REFERENCES q(y, z), FOREIGN KEY (b) REFERENCES p(x))")
        << "field"
        << QStringList(
               {"foreign keys: b, b, c, a",
                "names: a, b, c",
                "types: , , ",
                "not null: 0, 0, 0",
                "defaults: , , ",
                "primary key: 0, 0, 0",
                "CREATE TABLE field (a REFERENCES p(x), b, c, "
                "FOREIGN KEY (b, c) REFERENCES q(y, z), FOREIGN KEY (b) REFERENCES p(x))"});
    QTest::newRow("the table's own text, not that of its index, trigger or view")
        << QByteArray("CREATE TABLE field (id INTEGER PRIMARY KEY);"
                      "CREATE INDEX fieldIndex ON field(id);"
                      "CREATE TRIGGER fieldTrigger AFTER DELETE ON field BEGIN SELECT 1; END;"
                      "CREATE VIEW fieldView AS SELECT * FROM field;")
        << "field"
        << QStringList(
               {"foreign keys: ",
                "names: id",
                "types: INTEGER",
                "not null: 0",
                "defaults: ",
                "primary key: 1",
                "CREATE TABLE field (id INTEGER PRIMARY KEY)"});
    QTest::newRow("in another letter case only the CREATE text is missing")
        << QByteArray("CREATE TABLE field (id INTEGER PRIMARY KEY REFERENCES p(x))") << "Field"
        << QStringList(
               {"foreign keys: id",
                "names: id",
                "types: INTEGER",
                "not null: 0",
                "defaults: ",
                "primary key: 1",
                ""});
    QTest::newRow("no table") << QByteArray("CREATE TABLE field (id INTEGER)") << "missing"
                              << QStringList(
                                     {"foreign keys: ",
                                      "names: ",
                                      "types: ",
                                      "not null: ",
                                      "defaults: ",
                                      "primary key: ",
                                      ""});
    QTest::newRow("a quote in the name makes every statement fail")
        << QByteArray("CREATE TABLE field (id INTEGER)") << "fie'ld"
        << QStringList(
               {"foreign keys: ",
                "names: ",
                "types: ",
                "not null: ",
                "defaults: ",
                "primary key: ",
                ""});
}

void ColumnsAndTablesTest::getTableInfo()
{
    QFETCH(QByteArray, before);
    QFETCH(QString, table);
    QFETCH(QStringList, info);
    device->sql(before);

    COMPARE_LINES(lines(start().getTableInfo(table)), info);
    QCOMPARE(device->takeLog(), QString());
}

void ColumnsAndTablesTest::getTableInfoGoesOnAfterAFailure_data()
{
    QTest::addColumn<int>("refusedAction");
    QTest::addColumn<QByteArray>("refusedObject");
    QTest::addColumn<QStringList>("info");
    QTest::addColumn<QString>("error");

    const QString createText = "CREATE TABLE field (id INTEGER NOT NULL REFERENCES p(x))";
    QTest::newRow("the foreign keys cannot be read")
        << SQLITE_PRAGMA << QByteArray("foreign_key_list")
        << QStringList(
               {"foreign keys: ",
                "names: id",
                "types: INTEGER",
                "not null: 1",
                "defaults: ",
                "primary key: 0",
                createText})
        << QString();
    QTest::newRow("the columns cannot be read") << SQLITE_PRAGMA << QByteArray("table_info")
                                                << QStringList(
                                                       {"foreign keys: id",
                                                        "names: ",
                                                        "types: ",
                                                        "not null: ",
                                                        "defaults: ",
                                                        "primary key: ",
                                                        createText})
                                                << QString();
    QTest::newRow("the text cannot be read")
        << SQLITE_READ << QByteArray("sqlite_master")
        << QStringList(
               {"foreign keys: id",
                "names: id",
                "types: INTEGER",
                "not null: 1",
                "defaults: ",
                "primary key: 0",
                ""})
        << "access to sqlite_master.type is prohibited Unable to execute statement";
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

    COMPARE_LINES(lines(read), info);
    QTEST(read.readError, "error");
    QCOMPARE(device->takeLog(), QString());
}

void ColumnsAndTablesTest::getTableInfoKeepsNoHalfReadPart()
{
    device->sql("CREATE TABLE field (id INTEGER REFERENCES p(x), name TEXT REFERENCES q(y))");
    DatabaseMigrator &migrator = start();
    const QStringList whole = lines(migrator.getTableInfo("field"));
    const QStringList empty = lines(TableInfo());

    // Interrupts the reading at every instruction, until it ends before.
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
    // Before the first column nothing was read; after it only a part.
    QCOMPARE(
        interruptions.keys(), QStringList({"", "interrupted Unable to fetch row", "keys", "text"}));
}

void ColumnsAndTablesTest::addColumn_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QStringList>("field");

    QTest::newRow("without a default the column is nullable")
        << QStringList({"field", "c", "REAL"}) << ""
        << QStringList({"CREATE TABLE field (id INTEGER, name TEXT, c REAL)", "1, 'a', NULL"});
    QTest::newRow("an empty default counts as none")
        << QStringList({"field", "c", "REAL", ""}) << ""
        << QStringList({"CREATE TABLE field (id INTEGER, name TEXT, c REAL)", "1, 'a', NULL"});
    QTest::newRow("with a default the column is NOT NULL, the default has parentheses")
        << QStringList({"field", "c", "REAL", "0"}) << ""
        << QStringList(
               {"CREATE TABLE field (id INTEGER, name TEXT, c REAL NOT NULL DEFAULT(0))",
                "1, 'a', 0.0"});
    QTest::newRow("the type includes a default")
        << QStringList({"field", "c", "BOOLEAN DEFAULT 1"}) << ""
        << QStringList(
               {"CREATE TABLE field (id INTEGER, name TEXT, c BOOLEAN DEFAULT 1)", "1, 'a', 1"});
    QTest::newRow("markers in a quoted default text are data")
        << QStringList({"field", "c", "varchar(40)", "'%1 %2 %3'"}) << ""
        << QStringList(
               {"CREATE TABLE field (id INTEGER, name TEXT, "
                "c varchar(40) NOT NULL DEFAULT('%1 %2 %3'))",
                "1, 'a', '%1 %2 %3'"});
    QTest::newRow("a default text without quotes is an identifier")
        << QStringList({"field", "c", "TEXT", "none"})
        << "DatabaseMigrator::addColumn - Failed to add column named c to field\n"
           "DatabaseMigrator::addColumn - default value of column [c] is not constant "
           "Unable to execute statement\n"
        << QStringList({"CREATE TABLE field (id INTEGER, name TEXT)", "1, 'a'"});
    QTest::newRow("the column is there already")
        << QStringList({"field", "name", "TEXT"})
        << "DatabaseMigrator::addColumn - Failed to add column named name to field\n"
           "DatabaseMigrator::addColumn - duplicate column name: name Unable to execute statement\n"
        << QStringList({"CREATE TABLE field (id INTEGER, name TEXT)", "1, 'a'"});
    QTest::newRow("there is no table")
        << QStringList({"missing", "c", "TEXT", "0"})
        << "DatabaseMigrator::addColumn - Failed to add column named c to missing\n"
           "DatabaseMigrator::addColumn - no such table: missing Unable to execute statement\n"
        << QStringList({"CREATE TABLE field (id INTEGER, name TEXT)", "1, 'a'"});
    QTest::newRow("markers in a name are data")
        << QStringList({"%2", "%1", "TEXT"})
        << "DatabaseMigrator::addColumn - Failed to add column named %1 to %2\n"
           "DatabaseMigrator::addColumn - near \"%\": syntax error Unable to execute statement\n"
        << QStringList({"CREATE TABLE field (id INTEGER, name TEXT)", "1, 'a'"});
}

void ColumnsAndTablesTest::addColumn()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, log);
    device->sql("CREATE TABLE field (id INTEGER, name TEXT); INSERT INTO field VALUES(1, 'a');");
    DatabaseMigrator &migrator = start();

    const bool added =
        arguments.size() == 3
            ? migrator.addColumn(arguments[0], arguments[1], arguments[2])
            : migrator.addColumn(arguments[0], arguments[1], arguments[2], arguments[3]);

    QCOMPARE(added, log.isEmpty());
    QCOMPARE(device->takeLog(), log);
    QTEST(QStringList(device->createText("field")) + device->rows("SELECT * FROM field"), "field");
}

void ColumnsAndTablesTest::addColumnIfNotExists_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QStringList>("field");

    QTest::newRow("without a default")
        << QStringList({"field", "c", "REAL"}) << ""
        << QStringList({"CREATE TABLE field (id INTEGER, name TEXT, c REAL)", "1, 'a', NULL"});
    QTest::newRow("an empty default counts as none")
        << QStringList({"field", "c", "REAL", ""}) << ""
        << QStringList({"CREATE TABLE field (id INTEGER, name TEXT, c REAL)", "1, 'a', NULL"});
    QTest::newRow("with a default the column is nullable, the default is unchanged")
        << QStringList({"field", "c", "REAL", "0"}) << ""
        << QStringList(
               {"CREATE TABLE field (id INTEGER, name TEXT, c REAL DEFAULT 0)", "1, 'a', 0.0"});
    QTest::newRow("the type includes a default")
        << QStringList({"field", "c", "BOOLEAN DEFAULT 1"}) << ""
        << QStringList(
               {"CREATE TABLE field (id INTEGER, name TEXT, c BOOLEAN DEFAULT 1)", "1, 'a', 1"});
    QTest::newRow("markers in a quoted default text are data")
        << QStringList({"field", "c", "varchar(40)", "'%1 %2 %3'"}) << ""
        << QStringList(
               {"CREATE TABLE field (id INTEGER, name TEXT, c varchar(40) DEFAULT '%1 %2 %3')",
                "1, 'a', '%1 %2 %3'"});
    QTest::newRow("SQLite takes a default word without quotes as a text")
        << QStringList({"field", "c", "TEXT", "none"}) << ""
        << QStringList(
               {"CREATE TABLE field (id INTEGER, name TEXT, c TEXT DEFAULT none)",
                "1, 'a', 'none'"});
    QTest::newRow("a default text without quotes is an expression")
        << QStringList({"field", "c", "TEXT", "no field"})
        << "DatabaseMigrator::addColumnIfNotExists - Failed to add column named c to field\n"
           "DatabaseMigrator::addColumnIfNotExists - near \"field\": syntax error "
           "Unable to execute statement\n"
        << QStringList({"CREATE TABLE field (id INTEGER, name TEXT)", "1, 'a'"});
    QTest::newRow("the column is there already")
        << QStringList({"field", "name", "REAL", "0"}) << ""
        << QStringList({"CREATE TABLE field (id INTEGER, name TEXT)", "1, 'a'"});
    QTest::newRow("the column is there already in another letter case")
        << QStringList({"field", "Name", "TEXT"})
        << "DatabaseMigrator::addColumnIfNotExists - Failed to add column named Name to field\n"
           "DatabaseMigrator::addColumnIfNotExists - duplicate column name: Name "
           "Unable to execute statement\n"
        << QStringList({"CREATE TABLE field (id INTEGER, name TEXT)", "1, 'a'"});
    QTest::newRow("a part of a column's name is another name")
        << QStringList({"field", "nam", "TEXT"}) << ""
        << QStringList({"CREATE TABLE field (id INTEGER, name TEXT, nam TEXT)", "1, 'a', NULL"});
    QTest::newRow("there is no table")
        << QStringList({"missing", "c", "TEXT", "0"})
        << "DatabaseMigrator::addColumnIfNotExists - Failed to add column named c to missing\n"
           "DatabaseMigrator::addColumnIfNotExists - no such table: missing "
           "Unable to execute statement\n"
        << QStringList({"CREATE TABLE field (id INTEGER, name TEXT)", "1, 'a'"});
}

void ColumnsAndTablesTest::addColumnIfNotExists()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, log);
    device->sql("CREATE TABLE field (id INTEGER, name TEXT); INSERT INTO field VALUES(1, 'a');");
    DatabaseMigrator &migrator = start();

    const bool there =
        arguments.size() == 3
            ? migrator.addColumnIfNotExists(arguments[0], arguments[1], arguments[2])
            : migrator.addColumnIfNotExists(arguments[0], arguments[1], arguments[2], arguments[3]);

    QCOMPARE(there, log.isEmpty());
    QCOMPARE(device->takeLog(), log);
    QTEST(QStringList(device->createText("field")) + device->rows("SELECT * FROM field"), "field");
}

void ColumnsAndTablesTest::setColumnValue_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QStringList>("rows");

    QTest::newRow("without a condition every row changes")
        << QStringList({"field", "name", "'b'"}) << ""
        << QStringList({"1, 'b'", "2, 'b'", "3, 'b'"});
    QTest::newRow("an empty condition counts as none")
        << QStringList({"field", "name", "'b'", ""}) << ""
        << QStringList({"1, 'b'", "2, 'b'", "3, 'b'"});
    QTest::newRow("only the rows that meet the condition change")
        << QStringList({"field", "name", "'b'", "id > 1 AND name = 'a'"}) << ""
        << QStringList({"1, 'a'", "2, 'b'", "3, NULL"});
    QTest::newRow("no row meets the condition")
        << QStringList({"field", "name", "'b'", "id = 7"}) << ""
        << QStringList({"1, 'a'", "2, 'a'", "3, NULL"});
    QTest::newRow("the value is an expression")
        << QStringList({"field", "name", "name || id", "id < 3"}) << ""
        << QStringList({"1, 'a1'", "2, 'a2'", "3, NULL"});
    QTest::newRow("markers in values and conditions are data")
        << QStringList({"field", "name", "'%1 %2 %3'", "'%1' = '%1' AND id = 1"}) << ""
        << QStringList({"1, '%1 %2 %3'", "2, 'a'", "3, NULL"});
    QTest::newRow("a text without quotes is an identifier")
        << QStringList({"field", "name", "none", "id = 1"})
        << "DatabaseMigrator::setColumnValue - Failed to set column named name to none\n"
           "DatabaseMigrator::setColumnValue - no such column: none Unable to execute statement\n"
        << QStringList({"1, 'a'", "2, 'a'", "3, NULL"});
    QTest::newRow("there is no column")
        << QStringList({"field", "area", "1"})
        << "DatabaseMigrator::setColumnValue - Failed to set column named area to 1\n"
           "DatabaseMigrator::setColumnValue - no such column: area Unable to execute statement\n"
        << QStringList({"1, 'a'", "2, 'a'", "3, NULL"});
    QTest::newRow("there is no table")
        << QStringList({"missing", "name", "'%1'"})
        << "DatabaseMigrator::setColumnValue - Failed to set column named name to '%1'\n"
           "DatabaseMigrator::setColumnValue - no such table: missing Unable to execute statement\n"
        << QStringList({"1, 'a'", "2, 'a'", "3, NULL"});
    QTest::newRow("markers in a name are data")
        << QStringList({"\"%3\"", "name", "1"})
        << "DatabaseMigrator::setColumnValue - Failed to set column named name to 1\n"
           "DatabaseMigrator::setColumnValue - no such table: %3 Unable to execute statement\n"
        << QStringList({"1, 'a'", "2, 'a'", "3, NULL"});
    QTest::newRow("the condition is wrong")
        << QStringList({"field", "name", "'b'", "WHERE id = 1"})
        << "DatabaseMigrator::setColumnValue - Failed to set column named name to 'b'\n"
           "DatabaseMigrator::setColumnValue - near \"WHERE\": syntax error "
           "Unable to execute statement\n"
        << QStringList({"1, 'a'", "2, 'a'", "3, NULL"});
    QTest::newRow("when one row is refused no row changes")
        << QStringList({"field", "name", "'forbidden'"})
        << "DatabaseMigrator::setColumnValue - Failed to set column named name to 'forbidden'\n"
           "DatabaseMigrator::setColumnValue - refused Unable to fetch row\n"
        << QStringList({"1, 'a'", "2, 'a'", "3, NULL"});
}

void ColumnsAndTablesTest::setColumnValue()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, log);
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
    QCOMPARE(device->takeLog(), log);
    QTEST(device->rows("SELECT * FROM field"), "rows");
}

void ColumnsAndTablesTest::dropTable_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QStringList>("schema");

    const QByteArray field = "CREATE TABLE field (id INTEGER PRIMARY KEY)";
    const QByteArray part = "CREATE TABLE part (fieldId REFERENCES field(id))";

    QTest::newRow("the table is dropped with its index and trigger")
        << field +
               ";CREATE INDEX fieldIndex ON field(id);"
               "CREATE TRIGGER fieldTrigger AFTER DELETE ON field BEGIN SELECT 1; END;" +
               part
        << "field"
        << "" << QStringList({part});
    QTest::newRow("a table in another letter case") << field << "FIELD"
                                                    << "" << QStringList();
    QTest::newRow("there is no table") << field << "missing"
                                       << "" << QStringList({field});
    QTest::newRow("a view has the name")
        << field + ";CREATE VIEW fieldView AS SELECT * FROM field"
        << "fieldView"
        << "DatabaseMigrator::dropTable - Failed to drop table named fieldView\n"
           "DatabaseMigrator::dropTable - use DROP VIEW to delete view fieldView "
           "Unable to execute statement\n"
        << QStringList({field, "CREATE VIEW fieldView AS SELECT * FROM field"});
    QTest::newRow("a row of another table refers to it")
        << field + ";INSERT INTO field VALUES(1);" + part + ";INSERT INTO part VALUES(1)"
        << "field"
        << "DatabaseMigrator::dropTable - Failed to drop table named field\n"
           "DatabaseMigrator::dropTable - FOREIGN KEY constraint failed Unable to fetch row\n"
        << QStringList({field, part});
    QTest::newRow("the name needs quotes")
        << QByteArray("CREATE TABLE \"order\" (id INTEGER)") << "order"
        << "DatabaseMigrator::dropTable - Failed to drop table named order\n"
           "DatabaseMigrator::dropTable - near \"order\": syntax error "
           "Unable to execute statement\n"
        << QStringList({"CREATE TABLE \"order\" (id INTEGER)"});
}

void ColumnsAndTablesTest::dropTable()
{
    QFETCH(QByteArray, before);
    QFETCH(QString, table);
    QFETCH(QString, log);
    QFETCH(QStringList, schema);
    const QStringList others = device->schema();
    device->sql(before);
    DatabaseMigrator &migrator = start();

    QCOMPARE(migrator.dropTable(table), log.isEmpty());

    QCOMPARE(device->takeLog(), log);
    COMPARE_LINES(device->schema(), others + schema);
}

QTEST_APPLESS_MAIN(ColumnsAndTablesTest)
#include "columns_and_tables_test.moc"

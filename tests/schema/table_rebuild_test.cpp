#include "schema/statements.h"

#include "support/step_test.h"

#include <sqlite3.h>

namespace
{
const QByteArray tableWithForeignKey = "CREATE TABLE p (x INTEGER PRIMARY KEY);"
                                       "CREATE TABLE t (id INTEGER PRIMARY KEY, kept INT, old INT, "
                                       "FOREIGN KEY(kept) REFERENCES p(x));"
                                       "INSERT INTO t VALUES(1, NULL, 3)";

const QString failure =
    "DatabaseMigrator::dropColumnSaveParameters - Failed to drop column named old to t\n"
    "DatabaseMigrator::dropColumnSaveParameters - %1\n";
} // namespace

class TableRebuildTest : public DeviceTest
{
    Q_OBJECT

private slots:
    void rebuildsTheTable_data();
    void rebuildsTheTable();
    void leavesReferringRowsAlone();
    void fails_data();
    void fails();
    void tableThatCannotBeDropped();
    void structureThatCannotBeRead_data();
    void structureThatCannotBeRead();
    void structureThatIsReadInPart();
    void virtualTableWithoutItsModule();
    void listOfForeignKeysThatCannotBeRead();
    void copyOfAFailedRebuildBlocksTheNext();
    void switchesForeignKeysOn_data();
    void switchesForeignKeysOn();
    void foreignKeysThatStayOnDeleteRows();
};

void TableRebuildTest::rebuildsTheTable_data()
{
    const auto row = addColumns<QByteArray, QString, QStringList>("before", "column", "after");
    row("NOT NULL, a default and the key are kept",
        "CREATE TABLE t (id INTEGER NOT NULL, name TEXT DEFAULT 'x', old INT, "
        "PRIMARY KEY(id));"
        "INSERT INTO t VALUES(2, 'b', 5), (1, NULL, 6), (9007199254740993, x'00ff', 7)",
        "old",
        {"CREATE TABLE \"t\" (id INTEGER NOT NULL  , name TEXT DEFAULT 'x' , PRIMARY KEY(id) )",
         "t",
         "1, NULL",
         "2, 'b'",
         "9007199254740993, x'00ff'"});
    row("the column is found in any letter case",
        "CREATE TABLE t (width REAL, Id INTEGER PRIMARY KEY)",
        "WIDTH",
        {"CREATE TABLE \"t\" (Id INTEGER , PRIMARY KEY(Id) )", "t"});
    row("a longer name with the column's name in it is another column",
        "CREATE TABLE t (id INTEGER PRIMARY KEY, old, older, cold)",
        "old",
        {"CREATE TABLE \"t\" (id INTEGER , older  , cold  , PRIMARY KEY(id) )", "t"});
    row("defaults stay as they are written",
        "CREATE TABLE t (id varchar(40) PRIMARY KEY, a TEXT DEFAULT '', "
        "b REAL DEFAULT -1.50, c TEXT DEFAULT NULL, d DEFAULT CURRENT_TIMESTAMP, "
        "e INTEGER NOT NULL DEFAULT(0), f TEXT DEFAULT 'it''s %1', g TEXT "
        "DEFAULT \"none\", old INT);"
        "INSERT INTO t(id, d) VALUES('k', 'then')",
        "old",
        {"CREATE TABLE \"t\" (id varchar(40) , a TEXT DEFAULT '' , b REAL DEFAULT -1.50 , "
         "c TEXT DEFAULT NULL , d  DEFAULT CURRENT_TIMESTAMP , e INTEGER NOT NULL  DEFAULT 0 , "
         "f TEXT DEFAULT 'it''s %1' , g TEXT DEFAULT \"none\" , PRIMARY KEY(id) )",
         "t",
         "'k', '', -1.5, NULL, 'then', 0, 'it''s %1', 'none'"});
    row("a key of several columns keeps its order",
        "CREATE TABLE t (a INT, old INT, b INT, c INT, PRIMARY KEY(c, a, b));"
        "INSERT INTO t VALUES(1, 2, 3, 4)",
        "old",
        {"CREATE TABLE \"t\" (a INT , b INT , c INT , PRIMARY KEY(c,a,b) )", "t", "1, 3, 4"});
    row("a key that loses its last column keeps the others",
        "CREATE TABLE t (a INT, old INT, PRIMARY KEY(a, old));"
        "INSERT INTO t VALUES(1, 2), (2, 2)",
        "old",
        {"CREATE TABLE \"t\" (a INT , PRIMARY KEY(a) )", "t", "1", "2"});
    row("without the column no other column changes",
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a TEXT); INSERT INTO t VALUES(1, 'x')",
        "old",
        {"CREATE TABLE \"t\" (id INTEGER , a TEXT , PRIMARY KEY(id) )", "t", "1, 'x'"});
    row("constraints on columns, checks and unique constraints are lost",
        "CREATE TABLE p (x INTEGER PRIMARY KEY);"
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a TEXT UNIQUE COLLATE NOCASE, "
        "b INT CHECK (b > 0), c INT REFERENCES p(x), old INT, UNIQUE(a, b), "
        "CHECK(c <> b))",
        "old",
        {"CREATE TABLE p (x INTEGER PRIMARY KEY)",
         "CREATE TABLE \"t\" (id INTEGER , a TEXT , b INT , c INT , PRIMARY KEY(id) )",
         "p",
         "t"});
    row("AUTOINCREMENT and its count are lost",
        "CREATE TABLE t (id INTEGER PRIMARY KEY AUTOINCREMENT, old INT);"
        "INSERT INTO t VALUES(7, 1)",
        "old",
        {"CREATE TABLE sqlite_sequence(name,seq)",
         "CREATE TABLE \"t\" (id INTEGER , PRIMARY KEY(id) )",
         "sqlite_sequence",
         "t",
         "7"});
    row("indexes and triggers of the table are lost, others stay",
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a TEXT, old INT);"
        "CREATE TABLE u (id INTEGER PRIMARY KEY);"
        "CREATE INDEX ta ON t(a); CREATE INDEX ui ON u(id);"
        "CREATE TRIGGER tt AFTER DELETE ON t BEGIN SELECT 1; END;"
        "CREATE TRIGGER ut AFTER DELETE ON u BEGIN SELECT 1; END;",
        "old",
        {"CREATE TABLE u (id INTEGER PRIMARY KEY)",
         "CREATE INDEX ui ON u(id)",
         "CREATE TRIGGER ut AFTER DELETE ON u BEGIN SELECT 1; END",
         "CREATE TABLE \"t\" (id INTEGER , a TEXT , PRIMARY KEY(id) )",
         "u",
         "t"});
    row("foreign key clauses that do not name the column are kept",
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a INT, old INT, "
        "FOREIGN KEY (old) REFERENCES p(x), "
        "FOREIGN KEY (a) REFERENCES q(x) ON DELETE CASCADE, "
        "FOREIGN KEY(a)REFERENCES r(y));"
        "INSERT INTO t VALUES(1, 2, 3)",
        "old",
        {"CREATE TABLE \"t\" (id INTEGER , a INT , PRIMARY KEY(id) , "
         "FOREIGN KEY (a) REFERENCES q(x) ON DELETE CASCADE,FOREIGN KEY(a)REFERENCES r(y))",
         "t",
         "1, 2"});
    row("a foreign key of two columns includes the constraint after it",
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a INT, b INT, old INT, "
        "FOREIGN KEY (a, b) REFERENCES p(x, y), UNIQUE (b))",
        "old",
        {"CREATE TABLE \"t\" (id INTEGER , a INT , b INT , PRIMARY KEY(id) , "
         "FOREIGN KEY (a, b) REFERENCES p(x, y), UNIQUE (b))",
         "t"});
    row("foreign key clauses that contain the column's name are lost",
        "CREATE TABLE t (key INTEGER PRIMARY KEY, fieldId INT, id INT, "
        "FOREIGN KEY (fieldId) REFERENCES p(x))",
        "id",
        {"CREATE TABLE \"t\" (key INTEGER , fieldId INT , PRIMARY KEY(key) )", "t"});
}

void TableRebuildTest::rebuildsTheTable()
{
    QFETCH(QByteArray, before);
    QFETCH(QString, column);
    QFETCH(QStringList, after);
    device->sql(before);
    DatabaseMigrator &migrator = start();

    QVERIFY(migrator.dropColumnSaveParameters("t", column));

    QCOMPARE(device->takeLog(), QString());
    COMPARE_LINES(device->dump(), after);
}

void TableRebuildTest::leavesReferringRowsAlone()
{
    device->sql("CREATE TABLE t (id INTEGER PRIMARY KEY, a INT, old INT, "
                "FOREIGN KEY (a) REFERENCES missing(x));"
                "CREATE TABLE u (tId INT REFERENCES t(id) ON DELETE CASCADE);"
                "INSERT INTO t VALUES(1, 7, 8); INSERT INTO u VALUES(1), (2);");

    QVERIFY(start().dropColumnSaveParameters("t", "old"));

    QCOMPARE(device->takeLog(), QString());
    COMPARE_LINES(
        device->dump(),
        QStringList(
            {"CREATE TABLE u (tId INT REFERENCES t(id) ON DELETE CASCADE)",
             "CREATE TABLE \"t\" (id INTEGER , a INT , PRIMARY KEY(id) , "
             "FOREIGN KEY (a) REFERENCES missing(x))",
             "u",
             "1",
             "2",
             "t",
             "1, 7"}));
}

void TableRebuildTest::fails_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QStringList>("after");

    // If a test row does not say what the database is afterwards, it must not change.
    const auto row = [](const char *sentence,
                        const QByteArray &before,
                        const QString &error,
                        const QStringList &after = {}) {
        QTest::newRow(sentence) << before << error << after;
    };
    row("create: an earlier rebuild left its copy",
        "CREATE TABLE t (id INTEGER PRIMARY KEY, old INT);"
        "INSERT INTO t VALUES(1, 2);"
        "CREATE TABLE t_temp (id INTEGER); INSERT INTO t_temp VALUES(7)",
        copyInTheWay("t"));
    row("create: there is no table", "", rebuildRefused);
    row("create: the table has no primary key",
        "CREATE TABLE t (a INT, old INT); INSERT INTO t VALUES(1, 2)",
        keyRefused);
    row("create: the column is the primary key",
        "CREATE TABLE t (old INTEGER PRIMARY KEY, a INT); INSERT INTO t VALUES(1, 2)",
        keyRefused);
    row("create: the column is the first of two in the key",
        "CREATE TABLE t (a INT, old INT, PRIMARY KEY(old, a))",
        keyRefused);
    row("create: the column is in the middle of the key",
        "CREATE TABLE t (a INT, old INT, b INT, PRIMARY KEY(a, old, b))",
        keyRefused);
    row("create: the column is the first of three in the key",
        "CREATE TABLE t (a INT, old INT, b INT, PRIMARY KEY(old, a, b))",
        "near \",\": syntax error Unable to execute statement");
    row("create: a default in parentheses loses them",
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a INT DEFAULT (1 + 2), old INT)",
        "near \"+\": syntax error Unable to execute statement");
    row("create: a column's name needs quotes",
        "CREATE TABLE t (id INTEGER PRIMARY KEY, \"order\" INT, old INT)",
        "near \"order\": syntax error Unable to execute statement");
    row("create: a table option after a foreign key becomes part of its clause",
        "CREATE TABLE t (id INT PRIMARY KEY, old INT, "
        "FOREIGN KEY (id) REFERENCES p(x)) WITHOUT ROWID",
        "near \")\": syntax error Unable to execute statement");
    row("create: a view of a missing table has the table's name",
        "CREATE VIEW t AS SELECT * FROM gone",
        rebuildRefused);
    row("copy: rows differ only in the column, which was in the key",
        "CREATE TABLE t (a INT, old INT, PRIMARY KEY(a, old));"
        "INSERT INTO t VALUES(3, 1), (4, 1), (4, 2), (5, 1)",
        "UNIQUE constraint failed: t_temp.a Unable to fetch row",
        {"CREATE TABLE t (a INT, old INT, PRIMARY KEY(a, old))",
         "CREATE TABLE t_temp (a INT , PRIMARY KEY(a) )",
         "t",
         "3, 1",
         "4, 1",
         "4, 2",
         "5, 1",
         "t_temp"});
    row("rename: a view names the table",
        "CREATE TABLE t (id INTEGER PRIMARY KEY, old INT);"
        "INSERT INTO t VALUES(1, 2);"
        "CREATE VIEW tv AS SELECT id FROM t",
        "error in view tv: no such table: main.t Unable to fetch row",
        {"CREATE VIEW tv AS SELECT id FROM t",
         "CREATE TABLE t_temp (id INTEGER , PRIMARY KEY(id) )",
         "t_temp",
         "1"});
    row("rename: another table's trigger names the table",
        "CREATE TABLE t (id INTEGER PRIMARY KEY, old INT);"
        "INSERT INTO t VALUES(1, 2);"
        "CREATE TABLE u (id INTEGER);"
        "CREATE TRIGGER ut AFTER DELETE ON u BEGIN DELETE FROM t; END",
        "error in trigger ut: no such table: main.t Unable to fetch row",
        {"CREATE TABLE u (id INTEGER)",
         "CREATE TRIGGER ut AFTER DELETE ON u BEGIN DELETE FROM t; END",
         "CREATE TABLE t_temp (id INTEGER , PRIMARY KEY(id) )",
         "u",
         "t_temp",
         "1"});
}

void TableRebuildTest::fails()
{
    QFETCH(QByteArray, before);
    QFETCH(QString, error);
    QFETCH(QStringList, after);
    device->sql(before);
    const QStringList unchanged = device->dump();
    DatabaseMigrator &migrator = start();

    QVERIFY(!migrator.dropColumnSaveParameters("t", "old"));

    QCOMPARE(device->takeLog(), failure.arg(error));
    COMPARE_LINES(device->dump(), after.isEmpty() ? unchanged : after);
}

void TableRebuildTest::tableThatCannotBeDropped()
{
    device->sql("CREATE TABLE t (id INTEGER PRIMARY KEY, kept INT, old INT);"
                "INSERT INTO t VALUES(1, 2, 3), (4, 5, 6)");
    DatabaseMigrator &migrator = start();
    device->refuse(SQLITE_DROP_TABLE, "t");

    QVERIFY(!migrator.dropColumnSaveParameters("t", "old"));

    QCOMPARE(device->takeLog(), failure.arg(notAuthorized));
    COMPARE_LINES(
        device->dump(),
        QStringList(
            {"CREATE TABLE t (id INTEGER PRIMARY KEY, kept INT, old INT)",
             "CREATE TABLE t_temp (id INTEGER , kept INT , PRIMARY KEY(id) )",
             "t",
             "1, 2, 3",
             "4, 5, 6",
             "t_temp",
             "1, 2",
             "4, 5"}));
}

void TableRebuildTest::structureThatCannotBeRead_data()
{
    const auto row =
        addColumns<int, QByteArray, QByteArray, QString>("action", "object", "part", "error");
    row("no column is read: the create statement fails",
        SQLITE_PRAGMA,
        "table_info",
        "",
        rebuildRefused);
    row("the CREATE text is not read: its foreign keys would be lost",
        SQLITE_READ,
        "sqlite_master",
        "type",
        "access to sqlite_master.type is prohibited Unable to execute statement");
}

void TableRebuildTest::structureThatCannotBeRead()
{
    QFETCH(int, action);
    QFETCH(QByteArray, object);
    QFETCH(QByteArray, part);
    QFETCH(QString, error);
    device->sql(tableWithForeignKey);
    const QStringList unchanged = device->dump();
    DatabaseMigrator &migrator = start();
    device->refuse(action, object, part);

    QVERIFY(!migrator.dropColumnSaveParameters("t", "old"));

    QCOMPARE(device->takeLog(), failure.arg(error));
    COMPARE_LINES(device->dump(), unchanged);
}

void TableRebuildTest::structureThatIsReadInPart()
{
    device->sql(tableWithForeignKey);
    const QStringList unchanged = device->dump();
    DatabaseMigrator &migrator = start();
    TableInfo info;
    int instructions = 0;
    while (info.readError.isEmpty() || !info.columnNames.isEmpty()) {
        device->interruptAfter(++instructions);
        info = migrator.getTableInfo("t");
    }
    device->interruptAfter(instructions);

    QVERIFY(!migrator.dropColumnSaveParameters("t", "old"));

    QCOMPARE(device->takeLog(), failure.arg("interrupted Unable to fetch row"));
    COMPARE_LINES(device->dump(), unchanged);
}

void TableRebuildTest::virtualTableWithoutItsModule()
{
    device->sql("CREATE VIRTUAL TABLE t USING fts5(old)");
    device->sql("PRAGMA writable_schema = ON;"
                "UPDATE sqlite_master SET sql = 'CREATE VIRTUAL TABLE t USING gone(old)' "
                "WHERE name = 't'");
    const QStringList unchanged = device->schema();

    QVERIFY(!start().dropColumnSaveParameters("t", "old"));

    QCOMPARE(device->takeLog(), failure.arg(rebuildRefused));
    COMPARE_LINES(device->schema(), unchanged);
}

void TableRebuildTest::listOfForeignKeysThatCannotBeRead()
{
    device->sql(tableWithForeignKey);
    DatabaseMigrator &migrator = start();
    device->refuse(SQLITE_PRAGMA, "foreign_key_list");

    QVERIFY(migrator.dropColumnSaveParameters("t", "old"));

    QCOMPARE(device->takeLog(), QString());
    COMPARE_LINES(
        device->dump(),
        QStringList(
            {"CREATE TABLE p (x INTEGER PRIMARY KEY)",
             "CREATE TABLE \"t\" (id INTEGER , kept INT , PRIMARY KEY(id) , "
             "FOREIGN KEY(kept) REFERENCES p(x))",
             "p",
             "t",
             "1, NULL"}));
}

void TableRebuildTest::copyOfAFailedRebuildBlocksTheNext()
{
    device->sql("CREATE TABLE t (a INT, old INT, other INT, PRIMARY KEY(a, old));"
                "INSERT INTO t VALUES(4, 1, 0), (4, 2, 0)");
    DatabaseMigrator &migrator = start();
    QVERIFY(!migrator.dropColumnSaveParameters("t", "old"));
    device->takeLog();

    QVERIFY(!migrator.dropColumnSaveParameters("t", "other"));

    QCOMPARE(
        device->takeLog(),
        QString(
            "DatabaseMigrator::dropColumnSaveParameters - Failed to drop column named other to t\n"
            "DatabaseMigrator::dropColumnSaveParameters - table t_temp already exists "
            "Unable to execute statement\n"));
    QVERIFY(migrator.dropTable("t_temp"));
    QVERIFY(migrator.dropColumnSaveParameters("t", "other"));
    QCOMPARE(device->takeLog(), QString());
    COMPARE_LINES(
        device->dump(),
        QStringList(
            {"CREATE TABLE \"t\" (a INT , old INT , PRIMARY KEY(a,old) )", "t", "4, 1", "4, 2"}));
}

void TableRebuildTest::switchesForeignKeysOn_data()
{
    const auto row = addColumns<QString, bool, QString>("table", "rebuilt", "before");
    row("they were off, the table is rebuilt", "t", true, "OFF");
    row("they were off, the rebuild fails", "missing", false, "OFF");
    row("they were on, the table is rebuilt", "t", true, "ON");
    row("they were on, the rebuild fails", "missing", false, "ON");
}

void TableRebuildTest::switchesForeignKeysOn()
{
    QFETCH(QString, table);
    QFETCH(bool, rebuilt);
    QFETCH(QString, before);
    device->sql("CREATE TABLE t (id INTEGER PRIMARY KEY, old INT)");
    DatabaseMigrator &migrator = start();
    QVERIFY(executeQuietly("PRAGMA foreign_keys = " + before));

    QCOMPARE(migrator.dropColumnSaveParameters(table, "old"), rebuilt);

    QCOMPARE(firstValue("PRAGMA foreign_keys").toInt(), 1);
}

void TableRebuildTest::foreignKeysThatStayOnDeleteRows()
{
    device->sql("CREATE TABLE t (id INTEGER PRIMARY KEY, old INT);INSERT INTO t VALUES(1, 2);"
                "CREATE TABLE child (id INTEGER REFERENCES t(id) ON DELETE CASCADE);"
                "INSERT INTO child VALUES(1)");
    DatabaseMigrator &migrator = start();
    device->refuse(SQLITE_PRAGMA, "foreign_keys", "OFF");

    QVERIFY(migrator.dropColumnSaveParameters("t", "old"));

    QCOMPARE(device->takeLog(), QString());
    COMPARE_LINES(device->rows("SELECT * FROM t"), QStringList("1"));
    COMPARE_LINES(device->rows("SELECT * FROM child"), QStringList());
}

QTEST_APPLESS_MAIN(TableRebuildTest)
#include "table_rebuild_test.moc"

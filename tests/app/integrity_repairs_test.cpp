#include "app/integrity_test.h"

namespace
{
const char *const readProductTables =
    "SELECT 'configuration', id, NULL FROM PC_ProductConfig UNION ALL "
    "SELECT 'mix', * FROM PC_MixToProductConfigBridge UNION ALL "
    "SELECT 'variety', * FROM PC_PlanterVarietyToProductConfigBridge UNION ALL "
    "SELECT 'machine', * FROM PC_ProductConfigToMachineConfigBridge";
} // namespace

class IntegrityRepairsTest : public IntegrityTest
{
    Q_OBJECT

private slots:
    void foreignKeysAreRepaired_data();
    void foreignKeysAreRepaired();
    void rowThatIsReadAgainEndsTheRepair();
    void orphanedConfigurationsAreRemoved_data();
    void orphanedConfigurationsAreRemoved();
    void failedRemovalStopsNothing_data();
    void failedRemovalStopsNothing();
};

void IntegrityRepairsTest::foreignKeysAreRepaired_data()
{
    const auto row =
        addColumns<QByteArray, QString, QByteArray, QStringList>("setUp", "log", "query", "rows");
    const QByteArray children = "CREATE TABLE children (id INTEGER PRIMARY KEY, "
                                "parentId INTEGER REFERENCES parents(id));";

    row("a row without its parent is deleted",
        children + "INSERT INTO children VALUES(1, 1), (2, 9), (3, NULL), (4, 9)",
        "",
        "SELECT * FROM children",
        {"1, 1", "3, NULL"});
    row("twenty rows, of which only the first has a parent",
        children + "INSERT INTO children WITH RECURSIVE numbers(n) AS (VALUES(1) UNION ALL "
                   "SELECT n + 1 FROM numbers WHERE n < 20) SELECT n, n FROM numbers",
        "",
        "SELECT * FROM children",
        {"1, 1"});
    row("the parent table is missing: its children cannot be deleted",
        children + "INSERT INTO children VALUES(1, 1), (2, NULL), (3, 9);DROP TABLE parents",
        "no such table: main.parents\nno such table: main.parents\n",
        "SELECT * FROM children",
        {"1, 1", "2, NULL", "3, 9"});
    row("row ids have 64 bits",
        children +
            "INSERT INTO children VALUES(5000000000, 9), (705032704, 1), (-5000000000, 9), "
            "(-705032704, 1), (9223372036854775807, 9), (-9223372036854775808, 9), (-1, 1), (0, 1)",
        "",
        "SELECT * FROM children",
        {"-705032704, 1", "-1, 1", "0, 1", "705032704, 1"});
    row("a table without a key of its own",
        "CREATE TABLE children (name TEXT, parentId INTEGER REFERENCES parents(id));"
        "INSERT INTO children VALUES('a', 1), ('b', 9), ('b', 1)",
        "",
        "SELECT * FROM children",
        {"'a', 1", "'b', 1"});
    row("children of a deleted row follow what their foreign key says",
        children + "CREATE TABLE toys (id INTEGER PRIMARY KEY, childId INTEGER "
                   "REFERENCES children(id) ON DELETE CASCADE);"
                   "CREATE TABLE books (id INTEGER PRIMARY KEY, childId INTEGER "
                   "REFERENCES children(id) ON DELETE SET NULL);"
                   "INSERT INTO children VALUES(1, 1), (2, 9);"
                   "INSERT INTO toys VALUES(1, 1), (2, 2), (3, 2);"
                   "INSERT INTO books VALUES(1, 1), (2, 2)",
        "",
        "SELECT 'child', * FROM children UNION ALL SELECT 'toy', * FROM toys "
        "UNION ALL SELECT 'book', * FROM books",
        {"'child', 1, 1", "'toy', 1, 1", "'book', 1, 1", "'book', 2, NULL"});
    row("rows of the same table are deleted with it, before and after the checked row",
        "CREATE TABLE children (id INTEGER PRIMARY KEY, "
        "parentId INTEGER REFERENCES children(id) ON DELETE CASCADE);"
        "INSERT INTO children VALUES(1, 3), (2, NULL), (3, 9), (4, 3), (5, 4), (6, 9), (7, 2)",
        "",
        "SELECT * FROM children",
        {"2, NULL", "7, 2"});
    row("a row that others refer to stays",
        children +
            "CREATE TABLE toys (id INTEGER PRIMARY KEY, childId INTEGER "
            "REFERENCES children(id));"
            "INSERT INTO children VALUES(1, 9), (2, 9), (3, 9);INSERT INTO toys VALUES(1, 2)",
        "FOREIGN KEY constraint failed\n",
        "SELECT * FROM children",
        {"2, 9"});
    row("a row breaks two foreign keys",
        "CREATE TABLE children (id INTEGER PRIMARY KEY, motherId INTEGER REFERENCES parents(id), "
        "fatherId INTEGER REFERENCES parents(id));"
        "INSERT INTO children VALUES(1, 8, 9), (2, 1, 1), (3, 1, 9)",
        "",
        "SELECT * FROM children",
        {"2, 1, 1"});
    row("rows that break two foreign keys and that others refer to stay",
        "CREATE TABLE children (id INTEGER PRIMARY KEY, motherId INTEGER REFERENCES parents(id), "
        "fatherId INTEGER REFERENCES parents(id));"
        "CREATE TABLE toys (id INTEGER PRIMARY KEY, childId INTEGER REFERENCES children(id));"
        "INSERT INTO children VALUES(1, 8, 9), (2, 8, 1), (3, 8, 9), (4, 8, 9);"
        "INSERT INTO toys VALUES(1, 1), (2, 2), (3, 4)",
        "FOREIGN KEY constraint failed\nFOREIGN KEY constraint failed\n"
        "FOREIGN KEY constraint failed\n"
        "FOREIGN KEY constraint failed\nFOREIGN KEY constraint failed\n",
        "SELECT * FROM children",
        {"1, 8, 9", "2, 8, 1", "4, 8, 9"});
    row("in each of two tables a row that others refer to stays",
        children + "CREATE TABLE boys (id INTEGER PRIMARY KEY, "
                   "parentId INTEGER REFERENCES parents(id));"
                   "CREATE TABLE toys (id INTEGER PRIMARY KEY, childId INTEGER "
                   "REFERENCES children(id), boyId INTEGER REFERENCES boys(id));"
                   "INSERT INTO children VALUES(7, 9);INSERT INTO boys VALUES(5, 9);"
                   "INSERT INTO toys VALUES(1, 7, 5)",
        "FOREIGN KEY constraint failed\nFOREIGN KEY constraint failed\n",
        "SELECT 'child', * FROM children UNION ALL SELECT 'boy', * FROM boys",
        {"'child', 7, 9", "'boy', 5, 9"});
    row("a foreign key of two columns",
        "CREATE TABLE places (x INTEGER, y INTEGER, PRIMARY KEY (x, y));"
        "CREATE TABLE children (id INTEGER PRIMARY KEY, x INTEGER, y INTEGER, "
        "FOREIGN KEY (x, y) REFERENCES places(x, y));"
        "INSERT INTO places VALUES(1, 2);"
        "INSERT INTO children VALUES(1, 1, 2), (2, 2, 1), (3, 2, NULL)",
        "",
        "SELECT * FROM children",
        {"1, 1, 2", "3, 2, NULL"});
    row("a trigger refuses one of three deletions",
        children + "CREATE TRIGGER keep BEFORE DELETE ON children WHEN OLD.id = 2 "
                   "BEGIN SELECT RAISE(ABORT, 'refused'); END;"
                   "INSERT INTO children VALUES(1, 9), (2, 9), (3, 9)",
        "refused\n",
        "SELECT * FROM children",
        {"2, 9"});
    row("rows of a table WITHOUT ROWID stay",
        "CREATE TABLE children (name TEXT PRIMARY KEY, parentId INTEGER REFERENCES parents(id)) "
        "WITHOUT ROWID;"
        "INSERT INTO children VALUES('a', 9), ('b', 1), ('c', 9)",
        "no such column: rowid\nno such column: rowid\n",
        "SELECT * FROM children",
        {"'a', 9", "'b', 1", "'c', 9"});
    row("the row id of a table WITHOUT ROWID reads as 0",
        "CREATE TABLE children (rowid INTEGER PRIMARY KEY, "
        "parentId INTEGER REFERENCES parents(id)) WITHOUT ROWID;"
        "INSERT INTO children VALUES(0, 1), (5, 9)",
        "",
        "SELECT * FROM children",
        {"5, 9"});
    row("a table whose name needs quotes",
        "CREATE TABLE \"dear children\" (id INTEGER PRIMARY KEY, "
        "parentId INTEGER REFERENCES parents(id));"
        "INSERT INTO \"dear children\" VALUES(1, 9)",
        "near \"children\": syntax error\n",
        "SELECT * FROM \"dear children\"",
        {"1, 9"});
    row("a foreign key that does not match its parent makes the whole check fail",
        children + "CREATE TABLE names (name TEXT);"
                   "CREATE TABLE toys (id INTEGER PRIMARY KEY, name TEXT REFERENCES names(name));"
                   "INSERT INTO children VALUES(1, 9);INSERT INTO toys VALUES(1, 'a')",
        "foreign key mismatch - \"toys\" referencing \"names\"\n",
        "SELECT * FROM children",
        {"1, 9"});
}

void IntegrityRepairsTest::foreignKeysAreRepaired()
{
    QFETCH(QByteArray, setUp);
    QFETCH(QString, log);
    QFETCH(QByteArray, query);
    QFETCH(QStringList, rows);
    device->recordVersion(1);
    device->sql("CREATE TABLE parents (id INTEGER PRIMARY KEY); INSERT INTO parents VALUES(1)");
    device->sql(setUp);

    QCOMPARE(check(), log + passed);

    COMPARE_LINES(device->rows(query), rows);
}

void IntegrityRepairsTest::rowThatIsReadAgainEndsTheRepair()
{
    // A toy refers to row 5, which the table has twice. When the second one cannot be deleted, the
    // check goes back to the first.
    device->recordVersion(1);
    device->sql(manyChildren);
    device->sql("CREATE TABLE toys (id INTEGER PRIMARY KEY, "
                "childId INTEGER REFERENCES children(id));"
                "INSERT INTO toys VALUES(1, 5)");
    device->overwriteLeaf("children", 2, 0);

    QCOMPARE(check(), "FOREIGN KEY constraint failed\n" + failed);

    COMPARE_LINES(device->rows("SELECT * FROM toys"), QStringList("1, 5"));
}

void IntegrityRepairsTest::orphanedConfigurationsAreRemoved_data()
{
    const auto row = addColumns<QByteArray, QStringList>("setUp", "rows");
    row("nothing refers to it", "", {});
    row("a mix refers to it",
        "INSERT INTO PC_MixToProductConfigBridge VALUES(7, 1)",
        {"'configuration', 1, NULL", "'mix', 7, 1"});
    row("a planter variety refers to it",
        "INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(7, 1)",
        {"'configuration', 1, NULL", "'variety', 7, 1"});
    row("a machine configuration refers to it",
        "INSERT INTO PC_ProductConfigToMachineConfigBridge VALUES(7, 1)",
        {"'configuration', 1, NULL", "'machine', 7, 1"});
    row("only a row without a mix", "INSERT INTO PC_MixToProductConfigBridge VALUES(NULL, 1)", {});
    row("only a row without a planter variety",
        "INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(NULL, 1)",
        {});
    row("only a row without a machine configuration: that row stays",
        "INSERT INTO PC_ProductConfigToMachineConfigBridge VALUES(NULL, 1)",
        {"'machine', NULL, 1"});
    row("a row without a mix stays beside one with a mix",
        "INSERT INTO PC_MixToProductConfigBridge VALUES(NULL, 1), (7, 1)",
        {"'configuration', 1, NULL", "'mix', NULL, 1", "'mix', 7, 1"});
    row("rows of a configuration that does not exist are deleted",
        "INSERT INTO PC_MixToProductConfigBridge VALUES(7, 1), (7, 9), (NULL, 9);"
        "INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(8, 9), (NULL, 9);"
        "INSERT INTO PC_ProductConfigToMachineConfigBridge VALUES(6, 9), (NULL, 9)",
        {"'configuration', 1, NULL", "'mix', 7, 1", "'machine', 6, 9", "'machine', NULL, 9"});
    row("rows without a configuration stay",
        "INSERT INTO PC_MixToProductConfigBridge VALUES(7, NULL);"
        "INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(8, NULL);"
        "INSERT INTO PC_ProductConfigToMachineConfigBridge VALUES(6, NULL)",
        {"'mix', 7, NULL", "'variety', 8, NULL", "'machine', 6, NULL"});
    row("each configuration is checked by itself",
        "INSERT INTO PC_ProductConfig VALUES(2, 'AHL'), (3, 'Mais'), (4, 'Soja'), (5, 'Raps');"
        "INSERT INTO PC_MixToProductConfigBridge VALUES(7, 2), (NULL, 4);"
        "INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(8, 3), (8, 2), (NULL, 5)",
        {"'configuration', 2, NULL",
         "'configuration', 3, NULL",
         "'mix', 7, 2",
         "'variety', 8, 3",
         "'variety', 8, 2"});
}

void IntegrityRepairsTest::orphanedConfigurationsAreRemoved()
{
    QFETCH(QByteArray, setUp);
    QFETCH(QStringList, rows);
    device->recordVersion(1);
    device->sql("INSERT INTO PC_ProductConfig VALUES(1, 'Kalk')");
    device->sql(setUp);

    QCOMPARE(check(), passed);

    COMPARE_LINES(device->rows(readProductTables), rows);
}

void IntegrityRepairsTest::failedRemovalStopsNothing_data()
{
    const auto row =
        addColumns<QByteArray, QString, QByteArray, QStringList>("setUp", "log", "query", "rows");
    const auto refuse = [](const QByteArray &table) {
        return "CREATE TRIGGER keep" + table + " BEFORE DELETE ON " + table +
               " BEGIN SELECT RAISE(ABORT, 'refused'); END;";
    };

    row("configurations are not removed",
        refuse("PC_ProductConfig"),
        failure1 + "refused\n",
        readProductTables,
        {"'configuration', 1, NULL", "'configuration', 2, NULL", "'mix', 7, 2", "'variety', 8, 2"});
    row("rows of mixes are not removed",
        refuse("PC_MixToProductConfigBridge"),
        failure2 + "refused\n",
        readProductTables,
        {"'configuration', 2, NULL", "'mix', 7, 2", "'mix', 7, 9", "'variety', 8, 2"});
    row("rows of planter varieties are not removed",
        refuse("PC_PlanterVarietyToProductConfigBridge"),
        failure3 + "refused\n",
        readProductTables,
        {"'configuration', 2, NULL", "'mix', 7, 2", "'variety', 8, 2", "'variety', 8, 9"});
    row("none is removed",
        refuse("PC_ProductConfig") + refuse("PC_MixToProductConfigBridge") +
            refuse("PC_PlanterVarietyToProductConfigBridge"),
        everyFailure("refused"),
        readProductTables,
        {"'configuration', 1, NULL",
         "'configuration', 2, NULL",
         "'mix', 7, 2",
         "'mix', 7, 9",
         "'variety', 8, 2",
         "'variety', 8, 9"});
    row("there is no table of configurations",
        "DROP TABLE PC_ProductConfig",
        everyFailure("no such table: PC_ProductConfig"),
        "SELECT * FROM PC_MixToProductConfigBridge",
        {"7, 2", "7, 9"});
    row("there is no table of mixes",
        "DROP TABLE PC_MixToProductConfigBridge",
        failure1 + "no such table: PC_MixToProductConfigBridge\n" + failure2 +
            "no such table: PC_MixToProductConfigBridge\n",
        "SELECT * FROM PC_PlanterVarietyToProductConfigBridge",
        {"8, 2"});
    row("there is no table of planter varieties",
        "DROP TABLE PC_PlanterVarietyToProductConfigBridge",
        failure1 + "no such table: PC_PlanterVarietyToProductConfigBridge\n" + failure3 +
            "no such table: PC_PlanterVarietyToProductConfigBridge\n",
        "SELECT * FROM PC_MixToProductConfigBridge",
        {"7, 2"});
    row("there is no table of machine configurations",
        "DROP TABLE PC_ProductConfigToMachineConfigBridge",
        failure1 + "no such table: PC_ProductConfigToMachineConfigBridge\n",
        "SELECT * FROM PC_ProductConfig",
        {"1, 'Kalk'", "2, 'AHL'"});
}

void IntegrityRepairsTest::failedRemovalStopsNothing()
{
    QFETCH(QByteArray, setUp);
    QFETCH(QString, log);
    QFETCH(QByteArray, query);
    QFETCH(QStringList, rows);
    device->recordVersion(1);
    device->sql("INSERT INTO PC_ProductConfig VALUES(1, 'Kalk'), (2, 'AHL');"
                "INSERT INTO PC_MixToProductConfigBridge VALUES(7, 2), (7, 9);"
                "INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(8, 2), (8, 9)");
    device->sql(setUp);

    QCOMPARE(check(), passed + log);

    COMPARE_LINES(device->rows(query), rows);
}

QTEST_APPLESS_MAIN(IntegrityRepairsTest)
#include "integrity_repairs_test.moc"

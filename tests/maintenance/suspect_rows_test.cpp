#include "maintenance/plain_walk.h"
#include "maintenance/random_database.h"
#include "support/device_test.h"

#include <QSqlDatabase>
#include <QSqlDriver>

#include <sqlite3.h>

namespace
{
sqlite3 *migratorsConnection()
{
    return *static_cast<sqlite3 *const *>(QSqlDatabase::database().driver()->handle().constData());
}

/// A database in memory. It is copied into the migrator's database.
class Template
{
public:
    explicit Template(const QByteArrayList &statements)
    {
        sqlite3_open(":memory:", &m_handle);
        // The migrator's connection does not know this collation.
        sqlite3_create_collation(m_handle, "unknown", SQLITE_UTF8, nullptr, compareLengths);
        for (const QByteArray &statement : statements) {
            sqlite3_exec(m_handle, statement, nullptr, nullptr, nullptr);
        }
    }
    ~Template() { sqlite3_close(m_handle); }
    Template(const Template &) = delete;
    Template &operator=(const Template &) = delete;

    void copy() const
    {
        sqlite3_backup *backup =
            sqlite3_backup_init(migratorsConnection(), "main", m_handle, "main");
        if (sqlite3_backup_step(backup, -1) != SQLITE_DONE ||
            sqlite3_backup_finish(backup) != SQLITE_OK) {
            qFatal("the database cannot be copied: %s", sqlite3_errmsg(migratorsConnection()));
        }
    }

private:
    static int compareLengths(void *, int size, const void *, int otherSize, const void *)
    {
        return size - otherSize;
    }

    sqlite3 *m_handle = nullptr;
};

/// @return every value of a query with its type, byte by byte
QStringList rows(const QByteArray &query)
{
    sqlite3_stmt *statement = nullptr;
    sqlite3_prepare_v2(migratorsConnection(), query, -1, &statement, nullptr);
    QStringList rows;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        QString row = query + ":";
        for (int column = 0; column < sqlite3_column_count(statement); ++column) {
            sqlite3_value *value = sqlite3_column_value(statement, column);
            const int type = sqlite3_value_type(value);
            const QByteArray bytes(
                static_cast<const char *>(sqlite3_value_blob(value)), sqlite3_value_bytes(value));
            row +=
                QString(" %1:%2").arg(type).arg(QString::fromLatin1(bytes.toPercentEncoding(" '")));
        }
        rows << row;
    }
    sqlite3_finalize(statement);
    return rows;
}

QStringList content()
{
    return rows("SELECT * FROM sqlite_master") + rows("SELECT * FROM growers") +
           rows("SELECT * FROM farms") + rows("SELECT * FROM fields") + rows("SELECT * FROM files");
}

/// The tables of the device software that are not there yet.
const char *const missingTables =
    "CREATE TABLE IF NOT EXISTS growers (id INTEGER PRIMARY KEY, displayName TEXT);"
    "CREATE TABLE IF NOT EXISTS farms (id INTEGER PRIMARY KEY, displayName TEXT, growerId INTEGER);"
    "CREATE TABLE IF NOT EXISTS fields (id INTEGER PRIMARY KEY, displayName TEXT, farmId INTEGER);"
    "CREATE TABLE IF NOT EXISTS files (id INTEGER PRIMARY KEY, uuid TEXT, displayName TEXT, "
    "absolutePath TEXT, fileSize INTEGER, typeId INTEGER, created TEXT, growerId INTEGER, "
    "farmId INTEGER, fieldId INTEGER);";

/// @return statements for a number of files, and of fields of one farm, with the same names
QByteArray filesAndFields(int count)
{
    return missingTables +
           QByteArray(
               "INSERT INTO growers VALUES (1, 'Smith'), (2, 'Jones');"
               "INSERT INTO farms VALUES (1, 'Home', 1), (2, 'Home', 2);"
               "WITH RECURSIVE number(n) AS (VALUES(1) UNION ALL SELECT n + 1 FROM number WHERE n < ") +
           QByteArray::number(count) +
           ") INSERT INTO fields SELECT n, 'Field_' || n, 1 FROM number;"
           "INSERT INTO files (id, displayName, typeId, growerId, farmId, fieldId) "
           "SELECT id, displayName, 3, 1, 1, 1 FROM fields;";
}

/// @return statements that rename fields, and the files with the same name
QByteArray giveName(const QByteArray &name, const QByteArray &condition)
{
    return "UPDATE fields SET displayName = " + name + " WHERE " + condition +
           ";UPDATE files SET displayName = " + name + " WHERE " + condition + ";";
}

/// Makes names unique with the plain walk.
/// @return what it logs
QString renamePlainly()
{
    PlainWalk walk;
    walk.renameDuplicateFiles();
    walk.renameDuplicateNames();
    return walk.log;
}

/// Makes names unique with the migrator.
/// @return what it logs
QString renameByMigrator(ScratchDevice &device, DatabaseMigrator &migrator)
{
    device.takeLog();
    migrator.renameDuplicateFiles();
    migrator.renameDuplicateNames();
    return device.takeLog();
}

QList<int> refusedActions;

/// Lets the migrator's connection read everything and change rows, but nothing else.
int allowRowsOnly(void *, int action, const char *, const char *, const char *, const char *)
{
    switch (action) {
    case SQLITE_SELECT:
    case SQLITE_READ:
    case SQLITE_FUNCTION:
    case SQLITE_PRAGMA:
    case SQLITE_UPDATE:
        return SQLITE_OK;
    default:
        refusedActions << action;
        return SQLITE_DENY;
    }
}

int operations = 0;

int countOperations(void *)
{
    ++operations;
    return 0;
}
} // namespace

class SuspectRowsTest : public DeviceTest
{
    Q_OBJECT

private slots:
    void outcomeIsThePlainWalks_data();
    void outcomeIsThePlainWalks();
    void outcomeIsThePlainWalksForOddTables_data();
    void outcomeIsThePlainWalksForOddTables();
    void outcomeIsThePlainWalksForDamagedTables_data();
    void outcomeIsThePlainWalksForDamagedTables();
    void databaseIsNotWrittenWithNothingToDo();
    void nothingIsCreated_data();
    void nothingIsCreated();
    void costGrowsWithTheRows_data();
    void costGrowsWithTheRows();
};

void SuspectRowsTest::outcomeIsThePlainWalks_data()
{
    const int cases = qEnvironmentVariableIsSet("CAMPAIGN") ? 20'000 : 1'000;

    const auto row = addColumns<QByteArray, int>("encoding", "cases");
    row("UTF-8, as on every device", "UTF-8", cases);
    row("UTF-16", "UTF-16le", cases / 10);
}

void SuspectRowsTest::outcomeIsThePlainWalks()
{
    QFETCH(QByteArray, encoding);
    QFETCH(int, cases);
    const QByteArray setEncoding = "PRAGMA encoding = '" + encoding + "'";
    device->sql(setEncoding + "; CREATE TABLE first (id)");
    DatabaseMigrator &migrator = device->start();
    QSqlQuery("PRAGMA synchronous = OFF");
    QSqlQuery("PRAGMA journal_mode = MEMORY");
    QSqlQuery("PRAGMA locking_mode = EXCLUSIVE");

    for (int seed = 1; seed <= cases; ++seed) {
        const QByteArrayList statements = QByteArrayList{setEncoding} + randomDatabase(seed);
        const Template database(statements);
        database.copy();
        const QString expectedLog = renamePlainly();
        const QStringList expected = content() + expectedLog.split('\n');

        database.copy();
        const QString log = renameByMigrator(*device, migrator);
        const QStringList actual = content() + log.split('\n');
        if (actual != expected) {
            qWarning(
                "seed %d\n%s;\n%s",
                seed,
                statements.join(";\n").constData(),
                differenceOf(actual, expected).constData());
            QFAIL("The outcome is not the plain walk's.");
        }
    }
}

void SuspectRowsTest::outcomeIsThePlainWalksForOddTables_data()
{
    const auto row = addColumns<QByteArray, QByteArray>("tables", "rows");
    row("a view of a table with texts and one with integers",
        "CREATE TABLE texts (id INTEGER PRIMARY KEY, displayName TEXT);"
        "CREATE TABLE integers (id INTEGER PRIMARY KEY, displayName INTEGER);"
        "CREATE VIEW growers AS SELECT * FROM texts UNION ALL SELECT * FROM integers;",
        "INSERT INTO texts VALUES (1, '5');"
        "INSERT INTO integers VALUES (2, 5);");
    // Read by position, file 1 looks for the equals of files 2 and 3.
    row("a generated column, which moves the columns after it",
        "CREATE TABLE files (id INTEGER PRIMARY KEY, uuid TEXT, label TEXT AS ('B'), "
        "displayName TEXT, absolutePath TEXT, fileSize INTEGER, typeId INTEGER, created TEXT, "
        "growerId INTEGER, farmId INTEGER, fieldId INTEGER);",
        "INSERT INTO files (id, displayName, fileSize, typeId, created, growerId, farmId, fieldId) "
        "VALUES (1, 'A', 3, 3, '1', 1, 1, 1), (2, 'B', 9, 3, '1', 1, 1, 1), "
        "(3, 'B', 9, 3, '1', 1, 1, 1);");
    row("names are stored as integers, and a BLOB is searched as an integer",
        "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName CHARINT);",
        "INSERT INTO growers VALUES (1, x'2031'), (2, 1), (3, 1);");
    row("names are stored as numbers, and a BLOB is searched as a number",
        "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName NUMERIC);",
        "INSERT INTO growers VALUES (1, x'2031'), (2, 1), (3, 1);");
    row("a BLOB is read as U+FFFE, equal texts are read differently",
        "",
        "INSERT INTO growers VALUES (1, x'EFBFBE'), (2, CAST(x'EFBFBE' AS TEXT)), "
        "(3, CAST(x'EFBFBE' AS TEXT));");
    row("a BLOB is read as U+FFFF, equal texts are read differently",
        "",
        "INSERT INTO growers VALUES (1, x'EFBFBF'), (2, CAST(x'EFBFBF' AS TEXT)), "
        "(3, CAST(x'EFBFBF' AS TEXT));");
    row("types are texts: 3 is not between 1 and 11",
        "CREATE TABLE files (id INTEGER PRIMARY KEY, uuid TEXT, displayName TEXT, "
        "absolutePath TEXT, fileSize INTEGER, typeId TEXT, created TEXT, growerId INTEGER, "
        "farmId INTEGER, fieldId INTEGER);",
        "INSERT INTO files (id, displayName, typeId, growerId, farmId, fieldId) VALUES "
        "(1, 'A', 3, 1, 1, 1), (2, 'A', 3, 1, 1, 1);");
    // Renaming farm 2.5 changes farm 3 instead. Its grower's farm 4 then has an equal.
    row("an id that is no integer is read as the id of another row",
        "CREATE TABLE farms (id INT PRIMARY KEY, displayName TEXT, growerId INTEGER);",
        "INSERT INTO growers VALUES (1, 'C'), (2, 'D');"
        "INSERT INTO farms VALUES (1, 'A', 1), (2.5, 'A', 1), (3, 'B', 2), (4, 'A_2', 2);");
    row("two rows with one id, in a table with another key",
        "CREATE TABLE farms (id INTEGER, displayName TEXT, growerId INTEGER, "
        "rank INTEGER PRIMARY KEY);",
        "INSERT INTO growers VALUES (1, 'C'), (2, 'D');"
        "INSERT INTO farms VALUES (1, 'A', 1, 1), (2, 'A', 1, 2), (2, 'B', 2, 3), "
        "(3, 'A_2', 2, 4);");
    row("a key of texts, of which two are read as 0",
        "CREATE TABLE growers (id TEXT PRIMARY KEY, displayName TEXT);",
        "INSERT INTO growers VALUES ('{a}', 'A'), ('{b}', 'A'), ('3', 'B'), ('4', 'B');");
    row("a key of texts without a row id",
        "CREATE TABLE growers (id TEXT PRIMARY KEY, displayName TEXT) WITHOUT ROWID;",
        "INSERT INTO growers VALUES ('(a)', 'A'), ('(b)', 'A'), ('3', 'B'), ('4', 'B');");
    row("a descending key, which is no row id and may be NULL",
        "CREATE TABLE farms (id INTEGER PRIMARY KEY DESC, displayName TEXT, growerId INTEGER);",
        "INSERT INTO growers VALUES (1, 'C');"
        "INSERT INTO farms VALUES (NULL, 'A', 1), (NULL, 'A', 1), (3, 'B', 1), (4, 'B', 1);");
    // Every row gets a new name, which the index moves to a place that is read later.
    row("an index by name, and a name that finds every row",
        "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT);"
        "CREATE INDEX growersByName ON growers (displayName COLLATE NOCASE);",
        "INSERT INTO growers VALUES (7, '%1'), (14, '%1'), (31, 'x'' OR ''1''=''1');");
    row("a foreign key changes names together with those of another table",
        "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT, notes TEXT, "
        "UNIQUE (displayName, notes));"
        "CREATE TABLE farms (id INTEGER PRIMARY KEY, displayName TEXT, growerId INTEGER, "
        "notes TEXT, FOREIGN KEY (displayName, notes) REFERENCES growers (displayName, notes) "
        "ON UPDATE CASCADE);",
        "INSERT INTO growers VALUES (1, 'A', 'm'), (2, 'A', 'n');"
        "INSERT INTO farms VALUES (1, 'A', 2, 'n'), (2, 'A_2', 2, NULL);");
    row("a trigger changes the names of another table",
        "",
        "CREATE TRIGGER follow AFTER UPDATE ON growers "
        "BEGIN UPDATE farms SET displayName = 'B' WHERE id = 1; END;"
        "INSERT INTO growers VALUES (1, 'A'), (2, 'A');"
        "INSERT INTO farms VALUES (1, 'A', 2), (2, 'B', 2);");
    row("a name of blanks equals an empty one",
        "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT COLLATE RTRIM);",
        "INSERT INTO growers VALUES (1, ''), (2, '  ');");
    // Row 4 gets the name of row 1: from then on it has an equal.
    row("a new name equals that of a row that had no equal",
        "",
        "INSERT INTO growers VALUES (1, 'A_2_2'), (2, 'A'), (3, 'A'), (4, 'A_2');");
    row("a partial index decides on the order of the rows",
        "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT, rank INTEGER);",
        "WITH RECURSIVE number(n) AS (VALUES(1) UNION ALL SELECT n + 1 FROM number WHERE n < 200) "
        "INSERT INTO growers SELECT n, iif(n > 100, 'A' || n, NULL), n FROM number;"
        "UPDATE growers SET displayName = 'A' WHERE id IN (196, 200);"
        "CREATE INDEX growersByRank ON growers (rank DESC) WHERE displayName IS NOT NULL;"
        "ANALYZE;");
}

void SuspectRowsTest::outcomeIsThePlainWalksForOddTables()
{
    QFETCH(QByteArray, tables);
    QFETCH(QByteArray, rows);
    device->recordVersion(34);
    device->sql(tables + missingTables + rows);
    const QByteArray file = device->readFile(device->databasePath);
    device->start();
    const QStringList before = content();
    const QString expectedLog = renamePlainly();
    const QStringList expected = content();
    QVERIFY(expected != before || !expectedLog.isEmpty());
    device->stop();
    device->writeFile(device->databasePath, file);

    const QString log = renameByMigrator(*device, device->start());

    QCOMPARE(log, expectedLog);
    COMPARE_LINES(content(), expected);
}

void SuspectRowsTest::outcomeIsThePlainWalksForDamagedTables_data()
{
    const QByteArray fields = filesAndFields(400) +
                              "UPDATE fields SET displayName = 'O''Brien' WHERE id = 1;"
                              "UPDATE fields SET farmId = 2 WHERE id > 350;";

    QTest::addColumn<QByteArray>("statements");
    QTest::addColumn<QByteArray>("damagedText");
    QTest::addColumn<QString>("log");

    QTest::newRow("the search for equal names reads the damage")
        << fields << QByteArray("Field_300")
        << "Query for duplicate field names failed\n"
           "Query for fields of the farm failed\n";
    // The names are in the index, which does not have all rows of the table.
    QTest::newRow("only the reading of suspects reads the damage")
        << fields + "CREATE INDEX named ON fields (farmId, displayName) "
                    "WHERE displayName IS NOT NULL AND farmId IS NOT NULL;"
        << QByteArray("Field_300")
        << "Query for duplicate field names failed\n"
           "Query for fields of the farm failed\n";
    QTest::newRow("only the row of a suspect is damaged")
        << filesAndFields(4) + giveName("'A'", "id IN (1, 2)") + giveName("'B'", "id IN (3, 4)") +
               "ALTER TABLE files ADD COLUMN notes TEXT;"
               "UPDATE files SET notes = hex(zeroblob(400)) || 'far away' || hex(zeroblob(400)) "
               "WHERE id = 2;"
        << QByteArray("far away") << "Failed to rename file A_2\n";
}

void SuspectRowsTest::outcomeIsThePlainWalksForDamagedTables()
{
    QFETCH(QByteArray, statements);
    QFETCH(QByteArray, damagedText);
    QFETCH(QString, log);
    device->recordVersion(34);
    device->sql("PRAGMA page_size = 512; VACUUM;" + statements);
    QByteArray file = device->readFile(device->databasePath);
    const int damage = file.indexOf(damagedText);
    QVERIFY(damage > 0);
    file.replace(damage / 512 * 512, 512, QByteArray(512, 'x'));
    device->writeFile(device->databasePath, file);
    device->start();
    QCOMPARE(renamePlainly(), log);
    const QStringList expected = content();
    device->stop();
    device->writeFile(device->databasePath, file);

    QCOMPARE(renameByMigrator(*device, device->start()), log);

    COMPARE_LINES(content(), expected);
}

void SuspectRowsTest::databaseIsNotWrittenWithNothingToDo()
{
    device->recordVersion(34);
    device->sql(filesAndFields(100) + giveName("'O''Brien'", "id = 7"));
    DatabaseMigrator &migrator = device->start();
    const QByteArray file = device->readFile(device->databasePath);

    renameByMigrator(*device, migrator);

    QCOMPARE(device->readFile(device->databasePath), file);
}

void SuspectRowsTest::nothingIsCreated_data()
{
    const auto row = addColumns<QByteArray>("statements");
    row("nothing to do", "");
    row("names make statements fail", giveName("'O''Brien'", "id IN (1, 5)"));
    row("names to change", giveName("'A'", "id IN (2, 5, 9)"));
    row("names to change, with an index",
        giveName("'A'", "id IN (2, 5, 9)") + "CREATE INDEX filesByType ON files (typeId);");
    row("names to change, with a trigger",
        giveName("'A'", "id IN (2, 5, 9)") +
            "CREATE TRIGGER idle AFTER UPDATE ON files BEGIN SELECT 1; END;");
}

void SuspectRowsTest::nothingIsCreated()
{
    QFETCH(QByteArray, statements);
    device->recordVersion(34);
    device->sql(filesAndFields(50) + statements);
    DatabaseMigrator &migrator = device->start();
    refusedActions.clear();
    sqlite3_set_authorizer(migratorsConnection(), allowRowsOnly, nullptr);

    renameByMigrator(*device, migrator);

    QCOMPARE(refusedActions, QList<int>());
    for (const QByteArray &table : QByteArrayList{"fields", "files"}) {
        COMPARE_LINES(
            device->rows(
                "SELECT displayName, count(*) FROM " + table +
                " WHERE displayName NOT LIKE '%''%' GROUP BY 1 HAVING count(*) > 1"),
            QStringList());
    }
}

void SuspectRowsTest::costGrowsWithTheRows_data()
{
    const auto row = addColumns<QByteArray>("statements");
    row("nothing to do", "");
    row("one pair", giveName("'A'", "id IN (2, 250)"));
    row("1 in 100", giveName("'Field_' || (id + 1)", "id % 100 = 1"));
    row("a name makes its statement fail", giveName("'O''Brien'", "id = 100"));
    row("a name makes its statement fail, with indexes",
        giveName("'O''Brien'", "id = 100") +
            "CREATE INDEX filesByType ON files (typeId, displayName);"
            "CREATE INDEX filesByField ON files (fieldId);"
            "CREATE INDEX fieldsByFarm ON fields (farmId);");
    row("nothing to do, with triggers",
        "CREATE TRIGGER nothingInFiles AFTER UPDATE ON files BEGIN SELECT 1; END;"
        "CREATE TRIGGER nothingInFields AFTER UPDATE ON fields BEGIN SELECT 1; END;");
    row("a name finds every row", giveName("'x'' OR ''1''=''1'", "id = 100"));
    row("all names are equal", giveName("'A'", "true"));
}

/// Ten times the rows cost at most thirteen times the work; a plain walk would cost a hundred times.
void SuspectRowsTest::costGrowsWithTheRows()
{
    QFETCH(QByteArray, statements);
    QList<int> costs;
    for (const int count : {300, 3000}) {
        init();
        device->recordVersion(34);
        device->sql(filesAndFields(count) + statements);
        DatabaseMigrator &migrator = device->start();
        QSqlQuery("PRAGMA synchronous = OFF");
        operations = 0;
        sqlite3_progress_handler(migratorsConnection(), 1, countOperations, nullptr);

        renameByMigrator(*device, migrator);
        costs << operations;
    }
    QVERIFY2(
        costs[1] <= 13 * costs[0],
        QByteArray::number(costs[0]) + ", then " + QByteArray::number(costs[1]));
}

QTEST_APPLESS_MAIN(SuspectRowsTest)
#include "suspect_rows_test.moc"

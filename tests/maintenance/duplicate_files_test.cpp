#include "maintenance/file_rows.h"
#include "support/device_test.h"

class DuplicateFilesTest : public DeviceTest
{
    Q_OBJECT

private slots:
    void renameDuplicateFiles_data();
    void renameDuplicateFiles();
};

void DuplicateFilesTest::renameDuplicateFiles_data()
{
    QTest::addColumn<QByteArray>("statements");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<QString>("log");

    const auto row = [](const char *sentence,
                        const QByteArray &statements,
                        const QStringList &expected,
                        const QString &log = QString()) {
        QTest::newRow(sentence) << statements << expected << log;
    };

    row("files with equal type, grower, farm, field and name are renamed",
        files + file("1", "'Plan'", "3, 1, 2, 5") + file("2", "'Plan'", "3, 1, 2, 5") +
            file("3", "'Plan'", "3, 1, 2, 5"),
        {"1, 'Plan'", "2, 'Plan_2'", "3, 'Plan_3'"});
    row("files that differ in one of them are not equal",
        files + file("1", "'Plan'", "3, 1, 2, 5") + file("2", "'Plan'", "4, 1, 2, 5") +
            file("3", "'Plan'", "3, 2, 2, 5") + file("4", "'Plan'", "3, 1, 1, 5") +
            file("5", "'Plan'", "3, 1, 2, 6") + file("6", "'plan'", "3, 1, 2, 5"),
        {"1, 'Plan'", "2, 'Plan'", "3, 'Plan'", "4, 'Plan'", "5, 'Plan'", "6, 'plan'"});
    row("only types 1 to 11 are read",
        files + file("1", "'A'", "0, 1, 1, 1") + file("2", "'A'", "0, 1, 1, 1") +
            file("3", "'A'", "1, 1, 1, 1") + file("4", "'A'", "1, 1, 1, 1") +
            file("5", "'A'", "11, 1, 1, 1") + file("6", "'A'", "11, 1, 1, 1") +
            file("7", "'A'", "12, 1, 1, 1") + file("8", "'A'", "12, 1, 1, 1") +
            file("9", "'A'", "-1, 1, 1, 1") + file("10", "'A'", "-1, 1, 1, 1") +
            file("11", "'A'", "NULL, 1, 1, 1") + file("12", "'A'", "NULL, 1, 1, 1"),
        {"1, 'A'",
         "2, 'A'",
         "3, 'A'",
         "4, 'A_2'",
         "5, 'A'",
         "6, 'A_2'",
         "7, 'A'",
         "8, 'A'",
         "9, 'A'",
         "10, 'A'",
         "11, 'A'",
         "12, 'A'"});
    row("a quote in a type that is not read does not fail",
        files + file("1", "'O''Brien'", "0, 1, 1, 1") + file("2", "'O''Brien'", "12, 1, 1, 1"),
        {"1, 'O''Brien'", "2, 'O''Brien'"});
    row("a new name counts as a name in the same run",
        files + file("1", "'A'", "3, 1, 1, 1") + file("2", "'A'", "3, 1, 1, 1") +
            file("3", "'A_2'", "3, 1, 1, 1") + file("4", "'A_2'", "3, 1, 1, 2"),
        {"1, 'A'", "2, 'A_2'", "3, 'A_2_2'", "4, 'A_2'"});
    row("a file without a field has no equals",
        files + file("1", "'A'", "3, 1, 1, NULL") + file("2", "'A'", "3, 1, 1, NULL"),
        {"1, 'A'", "2, 'A'"});
    row("NULL is read as 0 and finds the files of grower 0",
        files + file("1", "'A'", "3, NULL, 1, 1") + file("2", "'A'", "3, 0, 1, 1") +
            file("3", "'A'", "3, 0, 1, 1"),
        {"1, 'A'", "2, 'A'", "3, 'A_2'"});
    row("references have 64 bits",
        files + file("1", "'A'", "3, 4294967297, 1, 1") + file("2", "'A'", "3, 1, 1, 1") +
            file("3", "'A'", "3, 4294967297, 1, 1") +
            file("4", "'A'", "3, -9223372036854775808.0, 1, 1") +
            file("5", "'A'", "3, -9223372036854775808.0, 1, 1"),
        {"1, 'A'", "2, 'A'", "3, 'A_2'", "4, 'A'", "5, 'A_2'"});
    row("markers are part of a name",
        files + file("1", "'%2%3'", "3, 1, 1, 1") + file("2", "'%2%3'", "3, 1, 1, 1"),
        {"1, '%2%3'", "2, '%2%3_2'"});
    row("NULL and empty names",
        files + file("1", "NULL", "3, 1, 1, 1") + file("2", "NULL", "3, 1, 1, 1") +
            file("3", "''", "3, 1, 1, 1") + file("4", "''", "3, 1, 1, 1"),
        {"1, NULL", "2, NULL", "3, ''", "4, '_2'"});
    row("every file with a quote in its name fails",
        files + file("1", "'O''Brien'", "3, 1, 1, 1") + file("2", "'A'", "3, 1, 1, 1") +
            file("3", "'O''Brien'", "3, 1, 1, 1") + file("4", "'A'", "3, 1, 1, 1"),
        {"1, 'O''Brien'", "2, 'A'", "3, 'O''Brien'", "4, 'A_2'"},
        "duplicate file query failed\n"
        "duplicate file query failed\n");
    // The files of type 2 are read first; each line has the name that was refused.
    row("updates are refused in the order of the types",
        files + file("1", "'A'", "5, 1, 1, 1") + file("2", "'A'", "5, 1, 1, 1") +
            file("3", "'B'", "2, 1, 1, 1") + file("4", "'B'", "2, 1, 1, 1") +
            file("5", "'B'", "2, 1, 1, 1") +
            "CREATE TRIGGER refusal BEFORE UPDATE ON files WHEN OLD.id <> 5 "
            "BEGIN SELECT RAISE(ABORT, 'refused'); END;",
        {"1, 'A'", "2, 'A'", "3, 'B'", "4, 'B'", "5, 'B_3'"},
        "Failed to rename file B_2\n"
        "Failed to rename file B_2\n"
        "Failed to rename file A_2\n"
        "Failed to rename file A_2\n");
    row("letter case makes no difference with NOCASE",
        QByteArray(files).replace("displayName TEXT", "displayName TEXT COLLATE NOCASE") +
            file("1", "'Plan'", "3, 1, 1, 1") + file("2", "'PLAN'", "3, 1, 1, 1"),
        {"1, 'Plan'", "2, 'Plan_2'"});
    row("there is no table of files", "CREATE TABLE fileTypes (id INTEGER PRIMARY KEY);", {});
    row("files have no types",
        "CREATE TABLE files (id INTEGER PRIMARY KEY, displayName TEXT);"
        "INSERT INTO files VALUES (1, 'A'), (2, 'A');",
        {"1, 'A'", "2, 'A'"});
    row("files have no growers: every statement fails",
        QByteArray(files).replace("growerId", "ownerId") +
            "INSERT INTO files (id, displayName, typeId) VALUES (1, 'A', 3), (2, 'B', 3);",
        {"1, 'A'", "2, 'B'"},
        "duplicate file query failed\n"
        "duplicate file query failed\n");
    row("a view has the table's name",
        QByteArray(files).replace("TABLE files", "TABLE stored") +
            "CREATE VIEW files AS SELECT * FROM stored;"
            "INSERT INTO stored (id, displayName, typeId, growerId, farmId, fieldId) VALUES "
            "(1, 'A', 3, 1, 1, 1), (2, 'A', 3, 1, 1, 1);",
        {"1, 'A'", "2, 'A'"},
        "Failed to rename file A_2\n"
        "Failed to rename file A_2\n");
    // Position 2 has the path, which is read as the name: file 1 finds files 2 and 3.
    row("another column is in the place of the name",
        "CREATE TABLE files (id INTEGER PRIMARY KEY, displayName TEXT, absolutePath TEXT, "
        "uuid TEXT, fileSize INTEGER, typeId INTEGER, created TEXT, growerId INTEGER, "
        "farmId INTEGER, fieldId INTEGER);"
        "INSERT INTO files (id, displayName, absolutePath, typeId, growerId, farmId, fieldId) VALUES "
        "(1, 'A', 'B', 3, 1, 1, 1), (2, 'B', 'C', 3, 1, 1, 1), (3, 'B', 'D', 3, 1, 1, 1), "
        "(4, 'E', 'F', 3, 1, 1, 1), (5, 'E', 'F', 3, 1, 1, 1);",
        {"1, 'A'", "2, 'B'", "3, 'B_2'", "4, 'E'", "5, 'E'"});
    // File 3 searches for the grower and the farm of files 1 and 2, and they search for those of
    // file 3.
    row("the columns of grower and farm are exchanged",
        "CREATE TABLE files (id INTEGER PRIMARY KEY, uuid TEXT, displayName TEXT, "
        "absolutePath TEXT, fileSize INTEGER, typeId INTEGER, created TEXT, farmId INTEGER, "
        "growerId INTEGER, fieldId INTEGER);" +
            file("1", "'A'", "3, 7, 8, 1") + file("2", "'A'", "3, 7, 8, 1") +
            file("3", "'A'", "3, 8, 7, 1"),
        {"1, 'A'", "2, 'A_2'", "3, 'A'"});
    // Without a column at position 9 every field is read as 0.
    row("the columns end before the field",
        "CREATE TABLE files (id INTEGER PRIMARY KEY, fieldId INTEGER, displayName TEXT, "
        "absolutePath TEXT, fileSize INTEGER, typeId INTEGER, created TEXT, growerId INTEGER, "
        "farmId INTEGER);" +
            file("1", "'A'", "3, 1, 1, 5") + file("2", "'A'", "3, 1, 1, 5") +
            file("3", "'A'", "3, 1, 1, 0") + file("4", "'A'", "3, 1, 1, 0"),
        {"1, 'A'", "2, 'A'", "3, 'A'", "4, 'A_2'"});
}

void DuplicateFilesTest::renameDuplicateFiles()
{
    QFETCH(QByteArray, statements);
    QFETCH(QStringList, expected);
    QFETCH(QString, log);
    device->recordVersion(34);
    device->sql(statements);
    DatabaseMigrator &migrator = start();

    migrator.renameDuplicateFiles();

    QCOMPARE(device->takeLog(), log);
    COMPARE_LINES(
        expected.isEmpty() ? QStringList() : device->rows("SELECT id, displayName FROM files"),
        expected);
}

QTEST_APPLESS_MAIN(DuplicateFilesTest)
#include "duplicate_files_test.moc"

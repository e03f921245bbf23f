#include "support/step_test.h"

#include <QSqlDatabase>

#include <sqlite3.h>

// The work of versions 3 to 10 other than adding a column; for that see added_columns_test.

namespace
{
// The tables of versions 6 to 10, with a row or two in each.
const QByteArray tablesOfVersions6To10 =
    "CREATE TABLE MC_EquipmentSectionGroup (id INTEGER PRIMARY KEY);"
    "CREATE TABLE files (id INTEGER PRIMARY KEY, uuid TEXT, displayName TEXT, absolutePath TEXT);"
    "CREATE TABLE OutgoingFiles (id INTEGER PRIMARY KEY);"
    "CREATE TABLE IncomingFiles (id INTEGER PRIMARY KEY);"
    "CREATE TABLE FileTransferHistory (id INTEGER PRIMARY KEY);"
    "CREATE TABLE systemFiles (id INTEGER PRIMARY KEY);"
    "CREATE TABLE userProfiles (id INTEGER PRIMARY KEY);"
    "CREATE TABLE MC_MachineSystem (id INTEGER PRIMARY KEY, lastUsedConfigId INTEGER);"
    "CREATE TABLE boomCapacity (id INTEGER PRIMARY KEY, machineId INTEGER, sectionGroupName TEXT);"
    "INSERT INTO MC_EquipmentSectionGroup VALUES(1);"
    "INSERT INTO files VALUES(1, NULL, NULL, '/data/userFiles/a.pdf');"
    "INSERT INTO OutgoingFiles VALUES(1);"
    "INSERT INTO IncomingFiles VALUES(1);"
    "INSERT INTO FileTransferHistory VALUES(1);"
    "INSERT INTO systemFiles VALUES(1);"
    "INSERT INTO userProfiles VALUES(1);"
    "INSERT INTO MC_MachineSystem VALUES(1, NULL), (2, 5);"
    "INSERT INTO boomCapacity VALUES(1, 2, 'Boom');";
} // namespace

class Versions03To10Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateThatCannotFillItsColumn_data();
    void updateThatCannotFillItsColumn() { checkStep(); }
    void updateToVersion7_data();
    void updateToVersion7() { checkStep(&M::updateToVersion7); }
    void updateToVersion7GoesInOrder();
    void updateToVersion7EndsInADamagedTable();
    void updateToVersion9_data();
    void updateToVersion9() { checkStep(&M::updateToVersion9); }
    void updateToVersion10_data();
    void updateToVersion10() { checkStep(&M::updateToVersion10); }
    void revertFromVersions6To10_data();
    void revertFromVersions6To10();
    void secondRun_data();
    void secondRun();
    void backFrom10To5AndForwardAgain();
    void probes_data();
    void probes() { checkProbe(); }
};

void Versions03To10Test::updateThatCannotFillItsColumn_data()
{
    const QByteArray groups = "CREATE TABLE MC_EquipmentSectionGroup (id INTEGER PRIMARY KEY";
    const QByteArray profiles = "CREATE TABLE userProfiles (id INTEGER PRIMARY KEY";

    const auto row = addColumns<Step, StepRun>("step", "run");
    row("version 6 succeeds",
        &M::updateToVersion6,
        {groups + ");INSERT INTO MC_EquipmentSectionGroup VALUES(1)",
         {"Database migration to version 6 completed successfully!"},
         6,
         {groups + ", isoNodeName TEXT)", "MC_EquipmentSectionGroup", "1, NULL"},
         {{SQLITE_UPDATE, "MC_EquipmentSectionGroup"}}});
    row("version 8 succeeds",
        &M::updateToVersion8,
        {profiles + ");INSERT INTO userProfiles VALUES(1)",
         {"Database migration to version 8 completed successfully!"},
         8,
         {profiles + ", decimalMark VARCHAR(1))", "userProfiles", "1, NULL"},
         {{SQLITE_UPDATE, "userProfiles"}}});
}

void Versions03To10Test::updateToVersion7_data()
{
    const QByteArray files = "CREATE TABLE files (id INTEGER PRIMARY KEY, uuid TEXT, "
                             "displayName TEXT, absolutePath TEXT, fileSize INTEGER)";
    const QByteArray outgoing = "CREATE TABLE OutgoingFiles (id INTEGER PRIMARY KEY, path TEXT)";
    const QByteArray incoming = "CREATE TABLE IncomingFiles (id INTEGER PRIMARY KEY, path TEXT)";
    const QByteArray history = "CREATE TABLE FileTransferHistory (id INTEGER PRIMARY KEY)";
    const QByteArray system = "CREATE TABLE systemFiles (id INTEGER PRIMARY KEY)";

    const QByteArray oneFile = files + ";INSERT INTO files VALUES(1, '', '', '/userFiles/a', 12);";
    const QByteArray oneOutgoing = outgoing + ";INSERT INTO OutgoingFiles VALUES(1, '/a');";
    const QByteArray oneIncoming = incoming + ";INSERT INTO IncomingFiles VALUES(1, '/b');";
    const QByteArray oneTransfer = history + ";INSERT INTO FileTransferHistory VALUES(1);";
    const QByteArray oneSystemFile = system + ";INSERT INTO systemFiles VALUES(1);";
    const QByteArray transfers = oneOutgoing + oneIncoming + oneTransfer + oneSystemFile;

    const QStringList succeeded = {"Database migration to version 7 completed successfully!"};
    const QStringList tables = {files, outgoing, incoming, history};
    const QString fileMoved = "1, '', '', '/usr/bin/harlo/userFiles/a', 12";
    const QStringList noTransfers = {"OutgoingFiles", "IncomingFiles", "FileTransferHistory"};

    const auto row = addColumns<StepRun>("run");
    row("paths are moved, transfers are deleted, the system files are dropped",
        {files +
             ";INSERT INTO files VALUES"
             "(1, 'u1', 'a', '/data/x/userFiles/a.pdf', 12),"
             "(2, 'u2', 'b', '/mnt/backup/b.pdf', NULL),"
             "(3, 'u3', 'c', 'c.pdf', 0),"
             "(4, NULL, NULL, NULL, NULL),"
             "(5, 'u5', 'e', '/data/userfiles/UserFiles/e.pdf', 5),"
             "(6, 'u6', 'f', '/userFiles/old/userFiles/f.pdf', 6),"
             "(7, 'u7', 'g', '/usr/bin/harlo/userFiles/g.pdf', 7),"
             "(8, 'u8', 'h', 'backupuserFiles.zip', 8),"
             "(9, 'u9', 'Поле № 1', '/data/Süd %2/userFiles/Поле %1 %2 %%.shp', 9),"
             "(-10, 'u10', '', '', 10);" +
             transfers,
         succeeded,
         7,
         tables +
             QStringList{
                 "files",
                 "-10, 'u10', '', '/usr/bin/harlo/', 10",
                 "1, 'u1', 'a', '/usr/bin/harlo/userFiles/a.pdf', 12",
                 "2, 'u2', 'b', '/usr/bin/harlo//mnt/backup/b.pdf', NULL",
                 "3, 'u3', 'c', '/usr/bin/harlo/c.pdf', 0",
                 "4, NULL, NULL, '/usr/bin/harlo/', NULL",
                 "5, 'u5', 'e', '/usr/bin/harlo//data/userfiles/UserFiles/e.pdf', 5",
                 "6, 'u6', 'f', '/usr/bin/harlo/userFiles/old/userFiles/f.pdf', 6",
                 "7, 'u7', 'g', '/usr/bin/harlo/userFiles/g.pdf', 7",
                 "8, 'u8', 'h', '/usr/bin/harlo/userFiles.zip', 8",
                 "9, 'u9', 'Поле № 1', '/usr/bin/harlo/userFiles/Поле %1 %2 %%.shp', 9"} +
             noTransfers});
    row("the tables are empty",
        {files + ";" + outgoing + ";" + incoming + ";" + history + ";" + system,
         succeeded,
         7,
         tables + QStringList("files") + noTransfers});
    row("id and path are read by position and written by name",
        {"CREATE TABLE files (number INTEGER, id INTEGER, absolutePath TEXT, source TEXT);"
         "INSERT INTO files VALUES(1, 2, 'a', '/userFiles/1'), (2, 1, 'b', '/userFiles/2'),"
         "('none', 0, 'c', '/userFiles/3'), (9007199254740993, 9007199254740993, 'd', '/4');" +
             transfers,
         succeeded,
         7,
         QStringList{
             "CREATE TABLE files (number INTEGER, id INTEGER, absolutePath TEXT, source TEXT)",
             outgoing,
             incoming,
             history,
             "files",
             "1, 2, '/usr/bin/harlo/userFiles/2', '/userFiles/1'",
             "2, 1, '/usr/bin/harlo/userFiles/1', '/userFiles/2'",
             "'none', 0, '/usr/bin/harlo/userFiles/3', '/userFiles/3'",
             "9007199254740993, 9007199254740993, '/usr/bin/harlo//4', '/4'"} +
             noTransfers});
    row("a row that was changed earlier in the walk is read as changed",
        {"CREATE TABLE files (id INTEGER, uuid TEXT, displayName TEXT, absolutePath TEXT);"
         "INSERT INTO files VALUES(1, 'u1', 'a', '/userFiles/a'), (1, 'u2', 'b', '/b');" +
             transfers,
         succeeded,
         7,
         QStringList{
             "CREATE TABLE files (id INTEGER, uuid TEXT, displayName TEXT, absolutePath TEXT)",
             outgoing,
             incoming,
             history,
             "files",
             "1, 'u1', 'a', '/usr/bin/harlo/userFiles/a'",
             "1, 'u2', 'b', '/usr/bin/harlo/userFiles/a'"} +
             noTransfers});

    // From here on something fails: the rest is still done, nothing is logged.
    row("a path has a quote",
        {oneFile +
             "INSERT INTO files VALUES"
             "(2, '', '', '/userFiles/O''Neill', NULL), (3, '', '', '/userFiles/c', 0);" +
             transfers,
         {},
         versionUnmoved,
         tables +
             QStringList{
                 "files",
                 fileMoved,
                 "2, '', '', '/userFiles/O''Neill', NULL",
                 "3, '', '', '/usr/bin/harlo/userFiles/c', 0"} +
             noTransfers});
    const QByteArray unreadableFiles = QByteArray(files).replace(
        "fileSize INTEGER", unreadableColumn("fileSize INTEGER", "id = 2"));
    row("reading the files stops on an error",
        {oneFile + "INSERT INTO files VALUES(2, '', '', '/b', 0);" + transfers +
             makeUnreadable("files", "fileSize INTEGER", "id = 2"),
         {},
         versionUnmoved,
         QStringList{unreadableFiles, outgoing, incoming, history, "files", fileMoved + ", 12"} +
             noTransfers});
    row("there is no table of files",
        {transfers,
         {},
         versionUnmoved,
         {outgoing, incoming, history, "OutgoingFiles", "IncomingFiles", "FileTransferHistory"}});
    row("there is no table of outgoing files",
        {oneFile + oneIncoming + oneTransfer + oneSystemFile,
         {},
         versionUnmoved,
         {files, incoming, history, "files", fileMoved, "IncomingFiles", "FileTransferHistory"}});
    row("there is no table of incoming files",
        {oneFile + oneOutgoing + oneTransfer + oneSystemFile,
         {},
         versionUnmoved,
         {files, outgoing, history, "files", fileMoved, "OutgoingFiles", "FileTransferHistory"}});
    row("there is no table of the history",
        {oneFile + oneOutgoing + oneIncoming + oneSystemFile,
         {},
         versionUnmoved,
         {files, outgoing, incoming, "files", fileMoved, "OutgoingFiles", "IncomingFiles"}});
    row("there is no table of system files",
        {oneFile + oneOutgoing + oneIncoming + oneTransfer,
         {},
         versionUnmoved,
         tables + QStringList{"files", fileMoved} + noTransfers});
    row("there is no table at all", {"", {}, versionUnmoved, {}});
    addRowOfClosedConnection({});
}

void Versions03To10Test::updateToVersion7EndsInADamagedTable()
{
    // A page of rows is in the table twice. An update of the second copy sends the walk back to the
    // first.
    device->sql(
        tablesOfVersions6To10 +
        "DELETE FROM files;"
        "WITH RECURSIVE number(n) AS (VALUES(1) UNION ALL SELECT n + 1 FROM number WHERE n < 500) "
        "INSERT INTO files SELECT n, n, n, '/usr/bin/harlo/userFiles/' || n FROM number");
    device->overwriteLeaf("files", 2, 0);
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    migrator.updateToVersion7();

    COMPARE_LINES(device->takeLogLines(), QStringList());
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    COMPARE_LINES(
        device->rows("SELECT absolutePath FROM files WHERE id = 1"),
        QStringList("'/usr/bin/harlo/userFiles/1'"));
    QCOMPARE(device->createText("systemFiles"), QString());
}

void Versions03To10Test::updateToVersion7GoesInOrder()
{
    device->sql(
        tablesOfVersions6To10 +
        "DROP TABLE FileTransferHistory;"
        "CREATE TABLE FileTransferHistory (id INTEGER PRIMARY KEY REFERENCES systemFiles(id));"
        "INSERT INTO FileTransferHistory VALUES(1);"
        "CREATE TABLE changes (what TEXT);"
        "CREATE TRIGGER files AFTER UPDATE ON files BEGIN INSERT INTO changes VALUES('a path'); END;"
        "CREATE TRIGGER outgoing AFTER DELETE ON OutgoingFiles "
        "BEGIN INSERT INTO changes VALUES('an outgoing file'); END;"
        "CREATE TRIGGER incoming AFTER DELETE ON IncomingFiles "
        "BEGIN INSERT INTO changes VALUES('an incoming file'); END;"
        "CREATE TRIGGER history AFTER DELETE ON FileTransferHistory "
        "BEGIN INSERT INTO changes VALUES('the history'); END;");
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    migrator.updateToVersion7();

    COMPARE_LINES(
        device->rows("SELECT * FROM changes"),
        QStringList({"'a path'", "'an outgoing file'", "'an incoming file'", "'the history'"}));
    // The table of system files can be dropped only after the history no longer refers to it.
    QCOMPARE(migrator.currentVersion(), 7);
}

void Versions03To10Test::updateToVersion9_data()
{
    const QByteArray table = "CREATE TABLE MC_MachineSystem (id INTEGER PRIMARY KEY, "
                             "displayName TEXT, lastUsedConfigId INTEGER)";
    const QByteArray job = "CREATE TABLE job (systemId INTEGER REFERENCES MC_MachineSystem(id))";
    const QStringList succeeded = {"Database migration to version 9 completed successfully!"};

    const auto row = addColumns<StepRun>("run");
    row("systems without a last configuration are deleted",
        {table + ";INSERT INTO MC_MachineSystem VALUES"
                 "(1, 'Schlepper 7', 2), (2, 'spare', NULL), (3, NULL, 0), (4, NULL, NULL),"
                 "(5, 'Сеялка', '')",
         succeeded,
         9,
         {table, "MC_MachineSystem", "1, 'Schlepper 7', 2", "3, NULL, 0", "5, 'Сеялка', ''"}});
    row("one of them is referred to: all stay",
        {table + ";INSERT INTO MC_MachineSystem VALUES(1, 'spare', NULL), (2, 'used', NULL);" +
             job + ";INSERT INTO job VALUES(2)",
         succeeded,
         9,
         {table, job, "MC_MachineSystem", "1, 'spare', NULL", "2, 'used', NULL", "job", "2"}});
    row("there is no table", {"", succeeded, 9, {}});
    addRowOfClosedConnection(succeeded, 9);
}

void Versions03To10Test::updateToVersion10_data()
{
    const auto row = addColumns<StepRun>("run");
    row("both columns are dropped, the rows stay",
        {"CREATE TABLE boomCapacity (id INTEGER PRIMARY KEY, machineId INTEGER NOT NULL, "
         "sectionGroupId INTEGER NOT NULL, sectionGroupName TEXT NOT NULL, capacity REAL DEFAULT "
         "0.0, FOREIGN KEY (machineId) REFERENCES MC_Machine(id) ON DELETE CASCADE, FOREIGN KEY "
         "(sectionGroupId) REFERENCES MC_EquipmentSectionGroup(id) ON DELETE CASCADE);"
         "INSERT INTO boomCapacity VALUES(3, 1, 4, 'Hauptgestänge', 9.75), (8, 2, 5, 'Boom', NULL)",
         {"Migration to version 10 was successful."},
         10,
         {"CREATE TABLE \"boomCapacity\" (id INTEGER , sectionGroupId INTEGER NOT NULL  , "
          "capacity REAL DEFAULT 0.0 , PRIMARY KEY(id) , FOREIGN KEY (sectionGroupId) REFERENCES "
          "MC_EquipmentSectionGroup(id) ON DELETE CASCADE)",
          "boomCapacity",
          "3, 4, 9.75",
          "8, 5, NULL"}});
    row("the columns are not there: the table is still rebuilt",
        {"CREATE TABLE boomCapacity (id INTEGER PRIMARY KEY, capacity REAL);"
         "INSERT INTO boomCapacity VALUES(3, 9.75)",
         {"Migration to version 10 was successful."},
         10,
         {"CREATE TABLE \"boomCapacity\" (id INTEGER , capacity REAL , PRIMARY KEY(id) )",
          "boomCapacity",
          "3, 9.75"}});
    row("the machine cannot be dropped: the section group is not tried",
        {"CREATE TABLE boomCapacity (id INTEGER, machineId INTEGER, sectionGroupName TEXT, "
         "PRIMARY KEY(machineId, id));"
         "INSERT INTO boomCapacity VALUES(3, 1, 'Boom')",
         columnStays("machineId", "boomCapacity", keyRefused),
         versionUnmoved,
         {"CREATE TABLE boomCapacity (id INTEGER, machineId INTEGER, sectionGroupName TEXT, "
          "PRIMARY KEY(machineId, id))",
          "boomCapacity",
          "3, 1, 'Boom'"}});
    row("the section group cannot be dropped: the machine is dropped already",
        {"CREATE TABLE boomCapacity (id INTEGER, machineId INTEGER, sectionGroupName TEXT, "
         "PRIMARY KEY(sectionGroupName, id));"
         "INSERT INTO boomCapacity VALUES(3, 1, 'Boom')",
         columnStays("sectionGroupName", "boomCapacity", keyRefused),
         versionUnmoved,
         {"CREATE TABLE \"boomCapacity\" (id INTEGER , sectionGroupName TEXT , "
          "PRIMARY KEY(sectionGroupName,id) )",
          "boomCapacity",
          "3, 'Boom'"}});
    row("there is no table",
        {"", columnStays("machineId", "boomCapacity", rebuildRefused), versionUnmoved, {}});
    addRowOfClosedConnection(columnStays("machineId", "boomCapacity", ""));
}

void Versions03To10Test::revertFromVersions6To10_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<int>("version");
    QTest::addColumn<bool>("open");

    for (const bool open : {true, false}) {
        const auto row = [open](const char *sentence, Step step, int version) {
            QTest::addRow("%s%s", sentence, open ? "" : ", also when the database is not open")
                << step << version << open;
        };
        row("version 6: the column stays", &M::revertFromVersion6, 5);
        row("version 7: nothing is restored", &M::revertFromVersion7, 6);
        row("version 8: the column stays", &M::revertFromVersion8, 7);
        row("version 9: nothing is restored", &M::revertFromVersion9, 8);
        row("version 10: nothing is restored", &M::revertFromVersion10, 9);
    }
}

void Versions03To10Test::revertFromVersions6To10()
{
    QFETCH(Step, step);
    QFETCH(int, version);
    QFETCH(bool, open);
    device->sql(
        tablesOfVersions6To10 + "ALTER TABLE MC_EquipmentSectionGroup ADD COLUMN isoNodeName;"
                                "ALTER TABLE userProfiles ADD COLUMN decimalMark");
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    const QStringList before = device->dump();
    if (!open) {
        QSqlDatabase::database().close();
    }

    (migrator.*step)();

    COMPARE_LINES(device->takeLogLines(), QStringList());
    QCOMPARE(migrator.currentVersion(), version);
    COMPARE_LINES(device->dump(), before);
}

void Versions03To10Test::secondRun_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<int>("version");
    QTest::addColumn<QStringList>("log");

    QTest::newRow("forward, version 7: the table of the system files is missing")
        << Step(&M::updateToVersion7) << 7 << QStringList();
    QTest::newRow("forward, version 9: nothing is left to do")
        << Step(&M::updateToVersion9) << 9
        << QStringList("Database migration to version 9 completed successfully!");
    QTest::newRow("forward, version 10: the table is rebuilt as it is")
        << Step(&M::updateToVersion10) << 10
        << QStringList("Migration to version 10 was successful.");
}

void Versions03To10Test::secondRun()
{
    device->sql(tablesOfVersions6To10);
    checkSecondRun(startAt(versionUnmoved));
}

void Versions03To10Test::backFrom10To5AndForwardAgain()
{
    device->sql(tablesOfVersions6To10);
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    migrator.updateToVersion6();
    migrator.updateToVersion7();
    migrator.updateToVersion8();
    migrator.updateToVersion9();
    migrator.updateToVersion10();
    device->takeLog();
    const QStringList atVersion10 = device->dump();

    migrator.revertFromVersion10();
    migrator.revertFromVersion9();
    migrator.revertFromVersion8();
    migrator.revertFromVersion7();
    migrator.revertFromVersion6();

    COMPARE_LINES(device->takeLogLines(), QStringList());
    QCOMPARE(migrator.currentVersion(), 5);
    COMPARE_LINES(device->dump(), atVersion10);

    migrator.updateToVersion6();
    migrator.updateToVersion7();
    QCOMPARE(migrator.currentVersion(), 6);
    migrator.updateToVersion8();
    migrator.updateToVersion9();
    migrator.updateToVersion10();

    COMPARE_LINES(
        device->takeLogLines(),
        addedBefore("isoNodeName", "MC_EquipmentSectionGroup") +
            QStringList("Database migration to version 6 completed successfully!") +
            addedBefore("decimalMark", "userProfiles") +
            QStringList(
                {"Database migration to version 8 completed successfully!",
                 "Database migration to version 9 completed successfully!",
                 "Migration to version 10 was successful."}));
    QCOMPARE(migrator.currentVersion(), 10);
    COMPARE_LINES(device->dump(), atVersion10);
}

void Versions03To10Test::probes_data()
{
    const Probe probe10 = &M::getUpdate10Applied;

    QTest::addColumn<Probe>("probe");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    QTest::newRow("version 7: always applied")
        << Probe(&M::getUpdate7Applied) << QByteArray() << true;
    QTest::newRow("version 7: applied even before the step")
        << Probe(&M::getUpdate7Applied) << tablesOfVersions6To10 << true;
    QTest::newRow("version 9: always applied")
        << Probe(&M::getUpdate9Applied) << QByteArray() << true;
    QTest::newRow("version 9: applied even before the step")
        << Probe(&M::getUpdate9Applied) << tablesOfVersions6To10 << true;
    QTest::newRow("version 10: there is no table") << probe10 << QByteArray() << true;
    QTest::newRow("version 10: neither column is there")
        << probe10 << QByteArray("CREATE TABLE boomCapacity (id, capacity)") << true;
    QTest::newRow("version 10: both columns are there")
        << probe10
        << QByteArray("CREATE TABLE boomCapacity (id, machineId, sectionGroupName, capacity)")
        << false;
    QTest::newRow("version 10: the machine is there")
        << probe10 << QByteArray("CREATE TABLE boomCapacity (machineId, capacity)") << false;
    QTest::newRow("version 10: the section group is there")
        << probe10 << QByteArray("CREATE TABLE boomCapacity (sectionGroupName, capacity)") << false;
    QTest::newRow("version 10: the columns have another letter case")
        << probe10 << QByteArray("CREATE TABLE boomCapacity (id, MachineId, SectionGroupName)")
        << true;
}

QTEST_APPLESS_MAIN(Versions03To10Test)
#include "versions_03_to_10_test.moc"

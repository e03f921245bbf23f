#include "support/step_test.h"

#include <QSqlDatabase>

#include <sqlite3.h>

// The names of growers, farms and fields; for the ports see versions_25_ports_test.

namespace
{
const QByteArray namesAt24 =
    "CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT NOT NULL, isoName TEXT);"
    "CREATE TABLE farms (id INTEGER PRIMARY KEY, growerId INTEGER, isoName TEXT, "
    "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE);"
    "CREATE TABLE fields (id INTEGER PRIMARY KEY, partfieldCode TEXT, farmId INTEGER, isoName TEXT, "
    "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE);"
    "INSERT INTO growers VALUES(1, 'Müller', 'Mueller'), (2, 'Петров', NULL);"
    "INSERT INTO farms VALUES(1, 2, 'Nord');"
    "INSERT INTO fields VALUES(1, '09-117', 1, 'Am Bach');";
const QByteArray namesAt25 = QByteArray(namesAt24).replace("isoName", "originalName");

// The tables after a rebuild, forward and backward.
const QStringList growersForward = {
    "CREATE TABLE \"growers\" (id INTEGER , displayName TEXT NOT NULL  , originalName TEXT , "
    "PRIMARY KEY(id) )",
    "1, 'Müller', 'Mueller'",
    "2, 'Петров', NULL"};
const QStringList farmsForward = {
    "CREATE TABLE \"farms\" (id INTEGER , growerId INTEGER , originalName TEXT , PRIMARY KEY(id) , "
    "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE)",
    "1, 2, 'Nord'"};
const QStringList fieldsForward = {
    "CREATE TABLE \"fields\" (id INTEGER , partfieldCode TEXT , farmId INTEGER , "
    "originalName TEXT , PRIMARY KEY(id) , "
    "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)",
    "1, '09-117', 1, 'Am Bach'"};
const QStringList growersBackward = {
    "CREATE TABLE \"growers\" (id INTEGER , displayName TEXT NOT NULL  , isoName TEXT , "
    "PRIMARY KEY(id) )",
    "1, 'Müller', 'Mueller'",
    "2, 'Петров', NULL"};
const QStringList farmsBackward = {
    "CREATE TABLE \"farms\" (id INTEGER , growerId INTEGER , isoName TEXT , PRIMARY KEY(id) , "
    "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE)",
    "1, 2, 'Nord'"};
const QString fieldTableBackward =
    "CREATE TABLE \"fields\" (id INTEGER , farmId INTEGER , isoName TEXT , partfieldCode TEXT , "
    "PRIMARY KEY(id) , FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)";
const QStringList fieldsBackward = {fieldTableBackward, "1, 1, 'Am Bach', '09-117'"};

const QString succeeded = "Migration to version 25 was successful.";
const QString failed = "Migration to version 25 FAILED!";

const QList<QByteArray> nameTables = {
    "growers", "growers_temp", "farms", "farms_temp", "fields", "fields_temp"};

/// The lines that the forward step logs if all of its statements fail.
QStringList everyUpdateFailure(QString (*error)(const QString &table), const QString &rebuildError)
{
    return notAdded("originalName", "growers", error("growers")) +
           notSet("originalName", "isoName", error("growers")) +
           notAdded("originalName", "farms", error("farms")) +
           notSet("originalName", "isoName", error("farms")) +
           notAdded("originalName", "fields", error("fields")) +
           notSet("originalName", "isoName", error("fields")) +
           columnStays("isoName", "growers", rebuildError) +
           columnStays("isoName", "farms", rebuildError) +
           columnStays("isoName", "fields", rebuildError) + QStringList(failed);
}

/// The lines that the backward step logs if all of its statements fail.
QStringList everyRevertFailure(QString (*error)(const QString &table), const QString &rebuildError)
{
    return notAdded("isoName", "growers", error("growers")) +
           notAdded("isoName", "farms", error("farms")) +
           notAdded("isoName", "fields", error("fields")) +
           notSet("isoName", "originalName", error("growers")) +
           notSet("isoName", "originalName", error("farms")) +
           notSet("isoName", "originalName", error("fields")) +
           columnStays("originalName", "growers", rebuildError) +
           columnStays("originalName", "farms", rebuildError) +
           columnStays("originalName", "fields", rebuildError) +
           notAdded("partfieldCode_temp", "fields", error("fields")) +
           notSet("partfieldCode_temp", "partfieldCode", error("fields")) +
           columnStays("partfieldCode", "fields", rebuildError) +
           notAdded("partfieldCode", "fields", error("fields")) +
           notSet("partfieldCode", "partfieldCode_temp", error("fields")) +
           columnStays("partfieldCode_temp", "fields", rebuildError);
}

} // namespace

class Versions25Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion25_data();
    void updateToVersion25() { checkStep(&M::updateToVersion25, nameTables); }
    void revertFromVersion25_data();
    void revertFromVersion25() { checkStep(&M::revertFromVersion25, nameTables); }
    void getUpdate25Applied_data();
    void getUpdate25Applied() { checkProbe(&M::getUpdate25Applied); }
    void closedConnectionWithOnBoardPorts();
};

void Versions25Test::updateToVersion25_data()
{
    const auto row = addColumns<StepRun>("run");
    row("original names take the place of ISO names",
        {namesAt24, {succeeded}, 25, growersForward + farmsForward + fieldsForward});
    row("a second time",
        {namesAt25, {succeeded}, 25, growersForward + farmsForward + fieldsForward});
    row("existing original names stay, the ISO names are dropped",
        {namesAt24 + "ALTER TABLE growers ADD COLUMN originalName TEXT;"
                     "UPDATE growers SET originalName = 'Hof ' || id;",
         {succeeded},
         25,
         QStringList({growersForward[0], "1, 'Müller', 'Hof 1'", "2, 'Петров', 'Hof 2'"}) +
             farmsForward + fieldsForward});

    row("original names in another letter case are not seen",
        {namesAt24 + "ALTER TABLE growers ADD COLUMN OriginalName TEXT;",
         duplicateNotAdded("originalName", "growers") + QStringList(failed),
         versionUnmoved,
         QStringList(growersForward).replaceInStrings("originalName", "OriginalName") +
             farmsForward + fieldsForward});
    row("a name cannot be copied and is lost",
        {namesAt24 + refusal("UPDATE ON farms"),
         notSet("originalName", "isoName", rowRefused) + QStringList(failed),
         versionUnmoved,
         growersForward + QStringList({farmsForward[0], "1, 2, NULL"}) + fieldsForward});
    row("there are no ISO names to copy",
        {namesAt24 + "ALTER TABLE fields DROP COLUMN isoName;",
         notSet("originalName", "isoName", noSuchColumn("isoName")) + QStringList(failed),
         versionUnmoved,
         growersForward + farmsForward + QStringList({fieldsForward[0], "1, '09-117', 1, NULL"})});
    row("ISO names of growers cannot be dropped",
        {namesAt24 + "CREATE TABLE growers_temp (id);",
         columnStays("isoName", "growers", copyInTheWay("growers")) + QStringList(failed),
         versionUnmoved,
         QStringList(
             {"CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT NOT NULL, "
              "isoName TEXT, originalName TEXT)",
              "1, 'Müller', 'Mueller', 'Mueller'",
              "2, 'Петров', NULL, NULL",
              "CREATE TABLE growers_temp (id)"}) +
             farmsForward + fieldsForward});
    row("ISO names of farms cannot be dropped",
        {namesAt24 + "CREATE TABLE farms_temp (id);",
         columnStays("isoName", "farms", copyInTheWay("farms")) + QStringList(failed),
         versionUnmoved,
         growersForward +
             QStringList(
                 {"CREATE TABLE farms (id INTEGER PRIMARY KEY, growerId INTEGER, "
                  "isoName TEXT, originalName TEXT, "
                  "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE)",
                  "1, 2, 'Nord', 'Nord'",
                  "CREATE TABLE farms_temp (id)"}) +
             fieldsForward});
    row("ISO names of fields cannot be dropped",
        {namesAt24 + "CREATE TABLE fields_temp (id);",
         columnStays("isoName", "fields", copyInTheWay("fields")) + QStringList(failed),
         versionUnmoved,
         growersForward + farmsForward +
             QStringList(
                 {"CREATE TABLE fields (id INTEGER PRIMARY KEY, partfieldCode TEXT, "
                  "farmId INTEGER, isoName TEXT, originalName TEXT, "
                  "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)",
                  "1, '09-117', 1, 'Am Bach', 'Am Bach'",
                  "CREATE TABLE fields_temp (id)"})});

    row("there is no table: everything is tried",
        {"", everyUpdateFailure(noSuchTable, rebuildRefused), versionUnmoved, {}});
}

void Versions25Test::revertFromVersion25_data()
{
    const auto row = addColumns<StepRun>("run");
    row("ISO names take the place of original names, codes move to the end",
        {namesAt25, {}, 24, growersBackward + farmsBackward + fieldsBackward});
    row("existing ISO names are overwritten",
        {namesAt25 + "ALTER TABLE growers ADD COLUMN isoName TEXT;"
                     "UPDATE growers SET isoName = 'Hof ' || id;",
         {},
         24,
         growersBackward + farmsBackward + fieldsBackward});
    row("codes become texts",
        {namesAt25 + "ALTER TABLE fields DROP COLUMN partfieldCode;"
                     "ALTER TABLE fields ADD COLUMN partfieldCode INTEGER DEFAULT 117;",
         {},
         24,
         growersBackward + farmsBackward +
             QStringList({fieldTableBackward, "1, 1, 'Am Bach', '117'"})});
    row("a second time: there is no original name to copy",
        {namesAt24,
         notSet("isoName", "originalName", noSuchColumn("originalName")) +
             notSet("isoName", "originalName", noSuchColumn("originalName")) +
             notSet("isoName", "originalName", noSuchColumn("originalName")),
         versionUnmoved,
         growersBackward + farmsBackward + fieldsBackward});

    row("ISO names of growers in another letter case",
        {namesAt25 + "ALTER TABLE growers ADD COLUMN IsoName TEXT;",
         duplicateNotAdded("isoName", "growers"),
         versionUnmoved,
         QStringList(growersBackward).replaceInStrings("isoName", "IsoName") + farmsBackward +
             fieldsBackward});
    row("ISO names of farms in another letter case",
        {namesAt25 + "ALTER TABLE farms ADD COLUMN IsoName TEXT;",
         duplicateNotAdded("isoName", "farms"),
         versionUnmoved,
         growersBackward + QStringList(farmsBackward).replaceInStrings("isoName", "IsoName") +
             fieldsBackward});
    row("ISO names of fields in another letter case",
        {namesAt25 + "ALTER TABLE fields ADD COLUMN IsoName TEXT;",
         duplicateNotAdded("isoName", "fields"),
         versionUnmoved,
         growersBackward + farmsBackward +
             QStringList(fieldsBackward).replaceInStrings("isoName", "IsoName")});

    row("names of growers cannot be copied and are lost",
        {namesAt25 + refusal("UPDATE ON growers"),
         notSet("isoName", "originalName", rowRefused),
         versionUnmoved,
         QStringList({growersBackward[0], "1, 'Müller', NULL", "2, 'Петров', NULL"}) +
             farmsBackward + fieldsBackward});
    row("names of farms cannot be copied and are lost",
        {namesAt25 + refusal("UPDATE ON farms"),
         notSet("isoName", "originalName", rowRefused),
         versionUnmoved,
         growersBackward + QStringList({farmsBackward[0], "1, 2, NULL"}) + fieldsBackward});
    row("names of fields cannot be copied and are lost",
        {namesAt25 + refusal("UPDATE ON fields"),
         notSet("isoName", "originalName", rowRefused),
         versionUnmoved,
         growersBackward + farmsBackward +
             QStringList({fieldTableBackward, "1, 1, NULL, '09-117'"})});

    row("original names of growers cannot be dropped",
        {namesAt25 + "CREATE TABLE growers_temp (id);",
         columnStays("originalName", "growers", copyInTheWay("growers")),
         versionUnmoved,
         QStringList(
             {"CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT NOT NULL, "
              "originalName TEXT, isoName TEXT)",
              "1, 'Müller', 'Mueller', 'Mueller'",
              "2, 'Петров', NULL, NULL",
              "CREATE TABLE growers_temp (id)"}) +
             farmsBackward + fieldsBackward});
    row("original names of farms cannot be dropped",
        {namesAt25 + "CREATE TABLE farms_temp (id);",
         columnStays("originalName", "farms", copyInTheWay("farms")),
         versionUnmoved,
         growersBackward +
             QStringList(
                 {"CREATE TABLE farms (id INTEGER PRIMARY KEY, growerId INTEGER, "
                  "originalName TEXT, isoName TEXT, "
                  "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE)",
                  "1, 2, 'Nord', 'Nord'",
                  "CREATE TABLE farms_temp (id)"}) +
             fieldsBackward});

    // The table of fields is rebuilt three times.
    const auto withFields = [](const QByteArray &columnsAndKey, const QByteArray &values) {
        return namesAt25 + "DROP TABLE fields;CREATE TABLE fields (" + columnsAndKey +
               ");INSERT INTO fields VALUES(" + values + ");";
    };
    row("original names of fields cannot be dropped",
        {withFields(
             "id INTEGER, partfieldCode TEXT, originalName TEXT, "
             "PRIMARY KEY (originalName, id)",
             "1, '09-117', 'Am Bach'"),
         columnStays("originalName", "fields", keyRefused),
         versionUnmoved,
         growersBackward + farmsBackward +
             QStringList(
                 {"CREATE TABLE \"fields\" (id INTEGER , originalName TEXT , isoName TEXT , "
                  "partfieldCode TEXT , PRIMARY KEY(originalName,id) )",
                  "1, 'Am Bach', 'Am Bach', '09-117'"})});
    row("an earlier rebuild left its copy of fields: no column of them can be dropped",
        {namesAt25 + "CREATE TABLE fields_temp (id);",
         columnStays("originalName", "fields", copyInTheWay("fields")) +
             columnStays("partfieldCode", "fields", copyInTheWay("fields")) +
             columnStays("partfieldCode_temp", "fields", copyInTheWay("fields")),
         versionUnmoved,
         growersBackward + farmsBackward +
             QStringList(
                 {"CREATE TABLE fields (id INTEGER PRIMARY KEY, partfieldCode TEXT, "
                  "farmId INTEGER, originalName TEXT, isoName TEXT, "
                  "partfieldCode_temp TEXT, "
                  "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)",
                  "1, '09-117', 1, 'Am Bach', 'Am Bach', '09-117'",
                  "CREATE TABLE fields_temp (id)"})});
    row("the codes' temporary column is there in another letter case",
        {namesAt25 + "ALTER TABLE fields ADD COLUMN PartfieldCode_Temp TEXT;",
         duplicateNotAdded("partfieldCode_temp", "fields"),
         versionUnmoved,
         growersBackward + farmsBackward + fieldsBackward});
    row("the codes' temporary column is there with values",
        {namesAt25 + "ALTER TABLE fields ADD COLUMN partfieldCode_temp TEXT DEFAULT 'old';",
         {},
         24,
         growersBackward + farmsBackward + fieldsBackward});
    row("codes cannot be copied to their temporary column and are lost",
        {namesAt25,
         notSet("partfieldCode_temp", "partfieldCode", notAuthorized),
         versionUnmoved,
         growersBackward + farmsBackward +
             QStringList({fieldTableBackward, "1, 1, 'Am Bach', NULL"}),
         {{SQLITE_UPDATE, "fields", "partfieldCode_temp"}}});
    row("there are no codes: their column is still added",
        {namesAt25 + "ALTER TABLE fields DROP COLUMN partfieldCode;",
         notSet("partfieldCode_temp", "partfieldCode", noSuchColumn("partfieldCode")),
         versionUnmoved,
         growersBackward + farmsBackward +
             QStringList({fieldTableBackward, "1, 1, 'Am Bach', NULL"})});
    row("the codes' column cannot be dropped",
        {withFields(
             "id INTEGER, partfieldCode TEXT, originalName TEXT, "
             "PRIMARY KEY (partfieldCode, id)",
             "1, '09-117', 'Am Bach'"),
         columnStays("partfieldCode", "fields", keyRefused),
         versionUnmoved,
         growersBackward + farmsBackward +
             QStringList(
                 {"CREATE TABLE \"fields\" (id INTEGER , partfieldCode TEXT , "
                  "isoName TEXT , PRIMARY KEY(partfieldCode,id) )",
                  "1, '09-117', 'Am Bach'"})});
    row("the codes' column cannot be added again, the codes are lost",
        {namesAt25 + "ALTER TABLE fields ADD COLUMN isoName TEXT;"
                     "ALTER TABLE fields ADD COLUMN partfieldCode_temp TEXT;",
         notAdded("partfieldCode", "fields", notAuthorized) +
             notSet("partfieldCode", "partfieldCode_temp", noSuchColumn("partfieldCode")),
         versionUnmoved,
         growersBackward + farmsBackward +
             QStringList(
                 {"CREATE TABLE \"fields\" (id INTEGER , farmId INTEGER , isoName TEXT , "
                  "PRIMARY KEY(id) , "
                  "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE)",
                  "1, 1, 'Am Bach'"}),
         {{SQLITE_ALTER_TABLE, "main", "fields"}}});
    row("codes cannot be copied back and are lost",
        {namesAt25,
         notSet("partfieldCode", "partfieldCode_temp", notAuthorized),
         versionUnmoved,
         growersBackward + farmsBackward +
             QStringList({fieldTableBackward, "1, 1, 'Am Bach', NULL"}),
         {{SQLITE_UPDATE, "fields", "partfieldCode"}}});
    row("the codes' temporary column cannot be dropped",
        {withFields(
             "id INTEGER, partfieldCode TEXT, partfieldCode_temp TEXT, originalName TEXT, "
             "PRIMARY KEY (partfieldCode_temp, id)",
             "1, '09-117', 'old', 'Am Bach'"),
         columnStays("partfieldCode_temp", "fields", keyRefused),
         versionUnmoved,
         growersBackward + farmsBackward +
             QStringList(
                 {"CREATE TABLE \"fields\" (id INTEGER , partfieldCode_temp TEXT , "
                  "isoName TEXT , partfieldCode TEXT, PRIMARY KEY(partfieldCode_temp,id) )",
                  "1, '09-117', 'Am Bach', '09-117'"})});

    row("there is no table: all fifteen statements are tried",
        {"", everyRevertFailure(noSuchTable, rebuildRefused), versionUnmoved, {}});
}

void Versions25Test::getUpdate25Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    const QByteArray growers = "CREATE TABLE growers (originalName);";
    const QByteArray farms = "CREATE TABLE farms (originalName);";
    const QByteArray fields = "CREATE TABLE fields (originalName);";
    QTest::newRow("all tables have original names") << growers + farms + fields << true;
    QTest::newRow("there is no table") << QByteArray() << true;
    QTest::newRow("only fields are there") << fields << true;
    QTest::newRow("only growers and farms are there") << growers + farms << true;
    QTest::newRow("growers without original names")
        << "CREATE TABLE growers (id);" + farms + fields << false;
    QTest::newRow("farms without original names")
        << growers + "CREATE TABLE farms (id);" + fields << false;
    QTest::newRow("fields without original names")
        << growers + farms + "CREATE TABLE fields (id);" << false;
    QTest::newRow("growers with both names")
        << "CREATE TABLE growers (originalName, isoName);" + farms + fields << false;
    QTest::newRow("farms with both names")
        << growers + "CREATE TABLE farms (originalName, isoName);" + fields << false;
    QTest::newRow("fields with both names")
        << growers + farms + "CREATE TABLE fields (originalName, isoName);" << false;
    QTest::newRow("original names in another letter case")
        << growers + farms + "CREATE TABLE fields (OriginalName);" << false;
    QTest::newRow("ISO names in another letter case are not seen")
        << growers + farms + "CREATE TABLE fields (originalName, IsoName);" << true;
    QTest::newRow("a table in another letter case is not looked at")
        << growers + farms + "CREATE TABLE Fields (id);" << true;
}

void Versions25Test::closedConnectionWithOnBoardPorts()
{
    ScratchDevice::writeFile(ScratchDevice::platformPath, "TORVIKMAX\n");
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    QSqlDatabase::database().close();

    migrator.updateToVersion25();
    migrator.revertFromVersion25();

    COMPARE_LINES(
        device->takeLogLines(), everyUpdateFailure(noText, "") + everyRevertFailure(noText, ""));
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    QVERIFY(migrator.getUpdate25Applied());
}

QTEST_APPLESS_MAIN(Versions25Test)
#include "versions_25_test.moc"

#include "support/step_test.h"

#include <QDir>
#include <QSqlDatabase>

#include <fstream>

#include <sqlite3.h>

namespace
{
// ---- Versions 26 and 28 -------------------------------------------------------------------------

const QByteArray receiversAt25 =
    "CREATE TABLE supportedHarloReceiverSettings (id INTEGER PRIMARY KEY, name TEXT NOT NULL, "
    "glide REAL DEFAULT 0.75)";
const QByteArray receiversAt26 =
    "CREATE TABLE supportedHarloReceiverSettings (id INTEGER PRIMARY KEY, name TEXT NOT NULL, "
    "glide REAL DEFAULT 0.75, ppp_STD_DEV REAL DEFAULT 0.2, terraStar_STD_DEV REAL DEFAULT 0.2, "
    "terraStarL_STD_DEV REAL DEFAULT 0.5)";
const QString receiversRebuilt =
    "CREATE TABLE \"supportedHarloReceiverSettings\" (id INTEGER , name TEXT NOT NULL  , "
    "glide REAL DEFAULT 0.75 , PRIMARY KEY(id) )";
const Columns deviations = {
    {"supportedHarloReceiverSettings", "ppp_STD_DEV"},
    {"supportedHarloReceiverSettings", "terraStar_STD_DEV"},
    {"supportedHarloReceiverSettings", "terraStarL_STD_DEV"},
};

const QByteArray camerasAt27 =
    "CREATE TABLE VideoCaptureConfigurationSetup (id INTEGER PRIMARY KEY, cameraName TEXT)";
const QByteArray camerasAt28 =
    "CREATE TABLE VideoCaptureConfigurationSetup (id INTEGER PRIMARY KEY, cameraName TEXT, "
    "cameraReversePopupEnabled INTEGER DEFAULT 0)";
const QString camerasRebuilt =
    "CREATE TABLE \"VideoCaptureConfigurationSetup\" (id INTEGER , cameraName TEXT , "
    "PRIMARY KEY(id) )";

// ---- Version 27 -------------------------------------------------------------------------------

const QByteArray mixes = "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY);"
                         "CREATE TABLE PC_Ingredient (id INTEGER PRIMARY KEY);"
                         "INSERT INTO PC_Mix VALUES(1), (2);"
                         "INSERT INTO PC_Ingredient VALUES(1), (2);";
const QByteArray bridgeAt26 =
    "CREATE TABLE PC_IngredientToMixBridge (id INTEGER PRIMARY KEY, mixId INTEGER, "
    "productId INTEGER, quantity REAL, rate REAL, displayUnit INTEGER DEFAULT 0)";
const QByteArray bridgeColumnsAt27 =
    "(mixId INTEGER, productId INTEGER, quantity REAL, rate REAL,displayUnit INTEGER DEFAULT 0,"
    "FOREIGN KEY (mixId) REFERENCES PC_Mix(id) ON DELETE CASCADE, "
    "FOREIGN KEY (productId) REFERENCES PC_Ingredient(id) ON DELETE CASCADE, "
    "PRIMARY KEY (mixId, productId) )";
const QByteArray bridgeAside = "CREATE TABLE PC_IngredientToMixBridge_temp " + bridgeColumnsAt27;
const QByteArray bridgeAt27 = "CREATE TABLE \"PC_IngredientToMixBridge\" " + bridgeColumnsAt27;
const QByteArray bridgeRows = ";INSERT INTO PC_IngredientToMixBridge VALUES"
                              "(1, 1, 1, 3.5, 0.25, 2), (2, 1, 2, NULL, NULL, NULL), "
                              "(5, 2, 1, 0, 6.5, 0);";
const QStringList bridgeRowsAt26 = {
    "1, 1, 1, 3.5, 0.25, 2", "2, 1, 2, NULL, NULL, NULL", "5, 2, 1, 0.0, 6.5, 0"};
const QStringList bridgeRowsAt27 = {
    "1, 1, 3.5, 0.25, 2", "1, 2, NULL, NULL, NULL", "2, 1, 0.0, 6.5, 0"};

const QList<QByteArray> bridges = {"PC_IngredientToMixBridge", "PC_IngredientToMixBridge_temp"};

/// Moves the pool directory away for its own lifetime.
class NoPool
{
public:
    NoPool() { QVERIFY(QDir().rename("/usr/bin/harlo", "/usr/bin/away")); }
    ~NoPool() { QVERIFY(QDir().rename("/usr/bin/away", "/usr/bin/harlo")); }
    NoPool(const NoPool &) = delete;
    NoPool &operator=(const NoPool &) = delete;
};
} // namespace

class Versions26To28Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion26_data();
    void updateToVersion26() { checkStep(&M::updateToVersion26); }
    void revertFromVersion26_data();
    void revertFromVersion26() { checkStep(&M::revertFromVersion26); }
    void version26EmptiesThePool_data();
    void version26EmptiesThePool();
    void version26WithoutAPool();

    void updateToVersion27_data();
    void updateToVersion27() { checkStep(&M::updateToVersion27, bridges); }
    void updateToVersion27AfterAHalfDoneOne();
    void revertFromVersion27();
    void revertFromVersion27OnAClosedConnection();
    void getUpdate27Applied_data();
    void getUpdate27Applied() { checkProbe(&M::getUpdate27Applied); }

    void updateToVersion28_data();
    void updateToVersion28() { checkStep(&M::updateToVersion28); }
    void revertFromVersion28_data();
    void revertFromVersion28() { checkStep(&M::revertFromVersion28); }

    void secondRun_data();
    void secondRun() { checkSecondRun(); }
};

void Versions26To28Test::updateToVersion26_data()
{
    const auto row = addColumns<StepRun>("run");

    const QStringList succeeded("Migration to version 26 was successful.");
    const QStringList failed("Migration to version 26 FAILED!");
    row("every receiver gets the three deviations",
        {receiversAt25 + ";INSERT INTO supportedHarloReceiverSettings VALUES"
                         "(1, 'Süd', 0.5), (2, 'Nord', NULL)",
         succeeded,
         26,
         {receiversAt26,
          "supportedHarloReceiverSettings",
          "1, 'Süd', 0.5, 0.2, 0.2, 0.5",
          "2, 'Nord', NULL, 0.2, 0.2, 0.5"}});
    row("existing deviations stay as they are",
        {receiversAt26 + ";INSERT INTO supportedHarloReceiverSettings VALUES"
                         "(1, 'Nord', 0.5, 0.125, NULL, 3)",
         succeeded,
         26,
         {receiversAt26, "supportedHarloReceiverSettings", "1, 'Nord', 0.5, 0.125, NULL, 3.0"}});
    row("there is no table: all three columns are tried",
        {"", forEach(deviations, notAddedToNothing) + failed, versionUnmoved, {}});
    addRowOfClosedConnection(forEach(deviations, notAdded, "") + failed);
    const QString table = "supportedHarloReceiverSettings";
    row("the first deviation is there in another letter case",
        {"CREATE TABLE supportedHarloReceiverSettings (PPP_STD_DEV)",
         duplicateNotAdded("ppp_STD_DEV", table) + failed,
         versionUnmoved,
         {"CREATE TABLE supportedHarloReceiverSettings (PPP_STD_DEV, "
          "terraStar_STD_DEV REAL DEFAULT 0.2, terraStarL_STD_DEV REAL DEFAULT 0.5)",
          table}});
    row("the second deviation is there in another letter case",
        {"CREATE TABLE supportedHarloReceiverSettings (TERRASTAR_STD_DEV)",
         duplicateNotAdded("terraStar_STD_DEV", table) + failed,
         versionUnmoved,
         {"CREATE TABLE supportedHarloReceiverSettings (TERRASTAR_STD_DEV, "
          "ppp_STD_DEV REAL DEFAULT 0.2, terraStarL_STD_DEV REAL DEFAULT 0.5)",
          table}});
    row("the third deviation is there in another letter case",
        {"CREATE TABLE supportedHarloReceiverSettings (TERRASTARL_STD_DEV)",
         duplicateNotAdded("terraStarL_STD_DEV", table) + failed,
         versionUnmoved,
         {"CREATE TABLE supportedHarloReceiverSettings (TERRASTARL_STD_DEV, "
          "ppp_STD_DEV REAL DEFAULT 0.2, terraStar_STD_DEV REAL DEFAULT 0.2)",
          table}});
}

void Versions26To28Test::revertFromVersion26_data()
{
    const auto row = addColumns<StepRun>("run");

    const QString table = "supportedHarloReceiverSettings";
    const QStringList failed("Reverting from version 26 FAILED!!");
    row("the deviations are dropped, the receivers stay",
        {receiversAt26 + ";INSERT INTO supportedHarloReceiverSettings VALUES"
                         "(1, 'Süd', 0.5, 0.125, NULL, 3), (2, 'Nord', NULL, 1, 1, 1)",
         {},
         25,
         {receiversRebuilt, table, "1, 'Süd', 0.5", "2, 'Nord', NULL"}});
    row("the deviations are not there", {receiversAt25, {}, 25, {receiversRebuilt, table}});
    row("there is no table: all three columns are tried",
        {"", forEach(deviations, columnStays, rebuildRefused) + failed, versionUnmoved, {}});
    addRowOfClosedConnection(forEach(deviations, columnStays, "") + failed);
    const QStringList columns = {"ppp_STD_DEV", "terraStar_STD_DEV", "terraStarL_STD_DEV"};
    for (const QString &kept : columns) {
        QTest::addRow("%s belongs to the primary key, the others are dropped", qPrintable(kept))
            << StepRun{
                   QString("CREATE TABLE supportedHarloReceiverSettings (id INTEGER, %1 REAL, "
                           "PRIMARY KEY (%2, id));INSERT INTO supportedHarloReceiverSettings "
                           "VALUES(1, 1.5, 2.5, 3.5)")
                       .arg(columns.join(" REAL, "), kept)
                       .toUtf8(),
                   columnStays(kept, table, keyRefused) + failed,
                   versionUnmoved,
                   {QString(
                        "CREATE TABLE \"supportedHarloReceiverSettings\" (id INTEGER , %1 REAL , "
                        "PRIMARY KEY(%1,id) )")
                        .arg(kept),
                    table,
                    QString("1, %1.5").arg(columns.indexOf(kept) + 1)}};
    }
}

void Versions26To28Test::version26EmptiesThePool_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<int>("version");
    QTest::addColumn<bool>("open");

    const Step update = &M::updateToVersion26;
    const Step revert = &M::revertFromVersion26;
    QTest::newRow("forward") << update << receiversAt25 << 26 << true;
    QTest::newRow("forward, also when no column was added")
        << update << QByteArray() << versionUnmoved << true;
    QTest::newRow("forward, also when the database is not open")
        << update << receiversAt25 << versionUnmoved << false;
    QTest::newRow("backward") << revert << receiversAt26 << 25 << true;
    QTest::newRow("backward, also when no column was dropped")
        << revert << QByteArray() << versionUnmoved << true;
    QTest::newRow("backward, also when the database is not open")
        << revert << receiversAt26 << versionUnmoved << false;
}

void Versions26To28Test::version26EmptiesThePool()
{
    QFETCH(Step, step);
    QFETCH(QByteArray, before);
    QFETCH(int, version);
    QFETCH(bool, open);
    device->sql(before);
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    if (!open) {
        QSqlDatabase::database().close();
    }
    const QString pool = ScratchDevice::poolPath + "/";
    const std::string notUtf8 = "/usr/bin/harlo/pool/\xff.iop";
    const QStringList removed = {"a.iop", "B.IOP", "c d.Iop", "e.iop.iop"};
    const QStringList kept = {".hidden.iop", ".iop", "f.iop.bak", "g.iopx", "hiop", "iop"};
    for (const QString &file : removed + kept) {
        ScratchDevice::writeFile(pool + file, "content");
    }
    // Qt is not used here: in the locale "C" it cannot write such a name.
    QVERIFY((std::ofstream("/usr/bin/harlo/pool/Übersicht.iop") << "content").good());
    QVERIFY((std::ofstream(notUtf8) << "content").good());
    ScratchDevice::writeFile(pool + "directory.iop/inside.iop", "content");
    ScratchDevice::writeFile(pool + "directory/inside.iop", "content");
    ScratchDevice::writeFile("/app/target", "content");
    QVERIFY(QFile::link("/app/target", pool + "link.iop"));
    QVERIFY(QFile::link("/app", pool + "linkToDirectory.iop"));

    (migrator.*step)();

    QCOMPARE(migrator.currentVersion(), version);
    COMPARE_LINES(
        QDir(pool).entryList(
            QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name),
        QStringList(
            {".hidden.iop",
             ".iop",
             "directory",
             "directory.iop",
             "f.iop.bak",
             "g.iopx",
             "hiop",
             "iop",
             "linkToDirectory.iop"}));
    QVERIFY(!std::ifstream(notUtf8).good());
    QVERIFY(QFile::exists(pool + "directory/inside.iop"));
    QVERIFY(QFile::exists(pool + "directory.iop/inside.iop"));
    QVERIFY(QFile::exists("/app/target"));
}

void Versions26To28Test::version26WithoutAPool()
{
    device->sql(receiversAt25);
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    const NoPool noPool;
    QVERIFY(!QFile::exists(ScratchDevice::poolPath));

    migrator.updateToVersion26();
    QCOMPARE(migrator.currentVersion(), 26);
    migrator.revertFromVersion26();
    QCOMPARE(migrator.currentVersion(), 25);

    COMPARE_LINES(device->takeLogLines(), QStringList("Migration to version 26 was successful."));
}

void Versions26To28Test::updateToVersion27_data()
{
    const auto row = addColumns<StepRun>("run");

    const QStringList succeeded("Migration to version 27 was successful.");
    const QStringList failed("Migration to version 27 FAILED!");
    const QByteArray bridge = mixes + bridgeAt26 + bridgeRows;
    row("the ingredients of a mix get their primary key",
        {bridge, succeeded, 27, QStringList(bridgeAt27) + bridgeRowsAt27});
    row("the table has a key of two columns: nothing happens",
        {"CREATE TABLE PC_IngredientToMixBridge (a, b, PRIMARY KEY (b, a));"
         "CREATE TABLE PC_IngredientToMixBridge_temp (a)",
         succeeded,
         27,
         {"CREATE TABLE PC_IngredientToMixBridge (a, b, PRIMARY KEY (b, a))",
          "CREATE TABLE PC_IngredientToMixBridge_temp (a)"}});
    row("an earlier run left an empty copy: it is filled",
        {bridge + bridgeAside, succeeded, 27, QStringList(bridgeAt27) + bridgeRowsAt27});

    row("the copy cannot be created: the rest runs, no table is left",
        {bridge,
         failed,
         versionUnmoved,
         {},
         {{SQLITE_CREATE_TABLE, "PC_IngredientToMixBridge_temp"}}});
    row("an ingredient is twice in a mix: the rest runs, the rows are lost",
        {bridge + "INSERT INTO PC_IngredientToMixBridge VALUES(6, 2, 1, 9, 9, 9)",
         failed,
         versionUnmoved,
         {bridgeAt27}});
    row("the mix of a row is missing: the rest runs, the rows are lost",
        {bridge + "DELETE FROM PC_Mix WHERE id = 2", failed, versionUnmoved, {bridgeAt27}});
    row("an earlier run left another copy: it replaces the table",
        {bridge + "CREATE TABLE PC_IngredientToMixBridge_temp (a);"
                  "INSERT INTO PC_IngredientToMixBridge_temp VALUES(7)",
         failed,
         versionUnmoved,
         {"CREATE TABLE \"PC_IngredientToMixBridge\" (a)", "7"}});
    row("there is no table: an empty one is created",
        {mixes, failed, versionUnmoved, {bridgeAt27}});
    row("the table cannot be dropped: table and copy are left",
        {bridge,
         failed,
         versionUnmoved,
         QStringList(bridgeAt26) + bridgeRowsAt26 + QStringList(bridgeAside) + bridgeRowsAt27,
         {{SQLITE_DROP_TABLE, "PC_IngredientToMixBridge"}}});
    row("the copy cannot be renamed: only the copy is left",
        {bridge,
         failed,
         versionUnmoved,
         QStringList(bridgeAside) + bridgeRowsAt27,
         {{SQLITE_ALTER_TABLE, "main", "PC_IngredientToMixBridge_temp"}}});
    addRowOfClosedConnection(failed);
}

void Versions26To28Test::updateToVersion27AfterAHalfDoneOne()
{
    device->sql(mixes + bridgeAt26 + bridgeRows);
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    device->refuse(SQLITE_DROP_TABLE, "PC_IngredientToMixBridge");
    migrator.updateToVersion27();
    device->allowAll();

    // The copy is filled already: the rows cannot be copied again, the copy replaces the table.
    migrator.updateToVersion27();
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    COMPARE_LINES(device->contents(bridges), QStringList(bridgeAt27) + bridgeRowsAt27);

    migrator.updateToVersion27();
    QCOMPARE(migrator.currentVersion(), 27);
    COMPARE_LINES(device->contents(bridges), QStringList(bridgeAt27) + bridgeRowsAt27);
    COMPARE_LINES(
        device->takeLogLines(),
        QStringList(
            {"Migration to version 27 FAILED!",
             "Migration to version 27 FAILED!",
             "Migration to version 27 was successful."}));
}

void Versions26To28Test::revertFromVersion27()
{
    device->sql(
        mixes + QByteArray(bridgeAt27) +
        ";INSERT INTO PC_IngredientToMixBridge VALUES(1, 1, 3.5, 0.25, 2)");
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    const QStringList before = device->dump();

    migrator.revertFromVersion27();

    COMPARE_LINES(device->takeLogLines(), QStringList());
    QCOMPARE(migrator.currentVersion(), 26);
    COMPARE_LINES(device->dump(), before);
    QVERIFY(migrator.getUpdate27Applied());
}

void Versions26To28Test::revertFromVersion27OnAClosedConnection()
{
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    QSqlDatabase::database().close();

    migrator.revertFromVersion27();

    COMPARE_LINES(device->takeLogLines(), QStringList());
    QCOMPARE(migrator.currentVersion(), 26);
}

void Versions26To28Test::getUpdate27Applied_data()
{
    const auto row = addColumns<QByteArray, bool>("before", "applied");
    row("a key of two columns",
        "CREATE TABLE PC_IngredientToMixBridge (a, b, c, PRIMARY KEY (c, a))",
        true);
    row("a key of two columns, the table in another letter case",
        "CREATE TABLE PC_INGREDIENTTOMIXBRIDGE (a, b, PRIMARY KEY (a, b))",
        true);
    row("a key of one column", "CREATE TABLE PC_IngredientToMixBridge (a PRIMARY KEY, b)", false);
    row("a key of three columns",
        "CREATE TABLE PC_IngredientToMixBridge (a, b, c, PRIMARY KEY (a, b, c))",
        false);
    row("no key", "CREATE TABLE PC_IngredientToMixBridge (a, b)", false);
    row("a view", "CREATE VIEW PC_IngredientToMixBridge AS SELECT 1 AS a, 2 AS b", false);
    row("there is no table", "", false);
}

void Versions26To28Test::updateToVersion28_data()
{
    const auto row = addColumns<StepRun>("run");

    const QString table = "VideoCaptureConfigurationSetup";
    const QString column = "cameraReversePopupEnabled";
    const QStringList succeeded("Migration to version 28 was successful.");
    const QStringList failed("Migration to version 28 FAILED!");
    row("every camera gets the switch, switched off",
        {camerasAt27 + ";INSERT INTO VideoCaptureConfigurationSetup VALUES(1, 'Säschar')",
         succeeded,
         28,
         {camerasAt28, table, "1, 'Säschar', 0"}});
    row("an existing switch stays as it is",
        {camerasAt28 + ";INSERT INTO VideoCaptureConfigurationSetup VALUES(1, 'Heck', 1)",
         succeeded,
         28,
         {camerasAt28, table, "1, 'Heck', 1"}});
    row("the switch is there in another letter case",
        {"CREATE TABLE VideoCaptureConfigurationSetup (CameraReversePopupEnabled)",
         duplicateNotAdded(column, table) + failed,
         versionUnmoved,
         {"CREATE TABLE VideoCaptureConfigurationSetup (CameraReversePopupEnabled)", table}});
    row("there is no table", {"", notAddedToNothing(column, table) + failed, versionUnmoved, {}});
    addRowOfClosedConnection(notAdded(column, table, "") + failed);
}

void Versions26To28Test::revertFromVersion28_data()
{
    const auto row = addColumns<StepRun>("run");

    const QString table = "VideoCaptureConfigurationSetup";
    const QString column = "cameraReversePopupEnabled";
    const QStringList succeeded("Reverting from version 28 was successful.");
    const QStringList failed("Reverting from version 28 FAILED!!");
    row("the switch is dropped, the cameras stay",
        {camerasAt28 + ";INSERT INTO VideoCaptureConfigurationSetup VALUES(1, 'Heck', 1)",
         succeeded,
         27,
         {camerasRebuilt, table, "1, 'Heck'"}});
    row("the switch is not there", {camerasAt27, succeeded, 27, {camerasRebuilt, table}});
    row("there is no table",
        {"", columnStays(column, table, rebuildRefused) + failed, versionUnmoved, {}});
    addRowOfClosedConnection(columnStays(column, table, "") + failed);
}

void Versions26To28Test::secondRun_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<int>("version");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<QByteArray>("before");

    QTest::newRow("version 26")
        << Step(&M::updateToVersion26) << 26
        << QStringList("Migration to version 26 was successful.")
        << receiversAt25 + ";INSERT INTO supportedHarloReceiverSettings VALUES(1, 'Nord', 0.5)";
    QTest::newRow("version 27") << Step(&M::updateToVersion27) << 27
                                << QStringList("Migration to version 27 was successful.")
                                << mixes + bridgeAt26 + bridgeRows;
    QTest::newRow("version 28")
        << Step(&M::updateToVersion28) << 28
        << QStringList("Migration to version 28 was successful.")
        << camerasAt27 + ";INSERT INTO VideoCaptureConfigurationSetup VALUES(1, 'Heck')";
}

QTEST_APPLESS_MAIN(Versions26To28Test)
#include "versions_26_to_28_test.moc"

#include "support/step_test.h"

#include <QDir>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QSet>

#include <fstream>

#include <sqlite3.h>

namespace
{
using M = DatabaseMigrator;

/// SQLite's answer to what a test refuses.
const QString notAuthorized = "not authorized Unable to execute statement";

// ---- Versions 26, 28 and 30 -------------------------------------------------------------------

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
const QStringList deviations = {"ppp_STD_DEV", "terraStar_STD_DEV", "terraStarL_STD_DEV"};

const QByteArray camerasAt27 =
    "CREATE TABLE VideoCaptureConfigurationSetup (id INTEGER PRIMARY KEY, cameraName TEXT)";
const QByteArray camerasAt28 =
    "CREATE TABLE VideoCaptureConfigurationSetup (id INTEGER PRIMARY KEY, cameraName TEXT, "
    "cameraReversePopupEnabled INTEGER DEFAULT 0)";
const QString camerasRebuilt =
    "CREATE TABLE \"VideoCaptureConfigurationSetup\" (id INTEGER , cameraName TEXT , "
    "PRIMARY KEY(id) )";

const QByteArray controlAt29 =
    "CREATE TABLE systemControl (id INTEGER PRIMARY KEY, timeZone TEXT NOT NULL DEFAULT 'UTC')";
const QByteArray controlAt30 =
    "CREATE TABLE systemControl (id INTEGER PRIMARY KEY, timeZone TEXT NOT NULL DEFAULT 'UTC', "
    "wirelessEnabled BOOLEAN DEFAULT 0)";
const QString controlRebuilt =
    "CREATE TABLE \"systemControl\" (id INTEGER , timeZone TEXT NOT NULL  DEFAULT 'UTC' , "
    "PRIMARY KEY(id) )";

QString duplicate(const QString &column)
{
    return "duplicate column name: " + column + " Unable to execute statement";
}

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

QStringList bridges(ScratchDevice &device)
{
    return contents(device, {"PC_IngredientToMixBridge", "PC_IngredientToMixBridge_temp"});
}

// ---- Version 29 -------------------------------------------------------------------------------

const QByteArray reverseSenseAt28 =
    "CREATE TABLE reverseSenseSettings (mc_sqlId INTEGER PRIMARY KEY NOT NULL,"
    "enableRemoteReverseSense INTEGER NOT NULL,"
    "overrideRemoteReverseSenseDefaultDirection INTEGER NOT NULL)";
const QByteArray reverseSenseAt29 =
    "CREATE TABLE reverseSenseSettings (mc_sqlId INTEGER PRIMARY KEY NOT NULL,"
    "enableHardwiredReverseSense INTEGER NOT NULL,"
    "overrideHardwiredReverseSenseDefaultDirection INTEGER NOT NULL)";
const QByteArray reverseSenseRows = ";INSERT INTO reverseSenseSettings VALUES(1, 1, 0), (8, 0, 1);";
const QByteArray reverseSenseLeftOver = "CREATE TABLE reverseSenseSettings_temp (mc_sqlId);";

/// @return a table's CREATE text as it is after a rename
QByteArray renamed(const QByteArray &createText, const QByteArray &name)
{
    return "CREATE TABLE \"" + name + "\" " + createText.mid(createText.indexOf('('));
}

// ---- Version 31 -------------------------------------------------------------------------------

const QList<QByteArray> identifiedTables = {"PC_Carrier", "PC_Mix", "PC_PlanterVariety"};
const QMap<int, QString> defaultCarriers = {
    {1, "6925f16e-e25c-4768-bc50-8885c4baaa8f"},
    {2, "6f5e4750-b686-4d5a-ac6f-0dc2e3099b34"},
    {3, "0cdc8424-a0a6-4b01-aa23-8a6fe777f9db"},
    {4, "b502fba8-3905-4e80-a9e4-25656ee30ac2"},
    {5, "f036f28b-08cc-46c2-bfa7-1622ccc13636"},
    {6, "a35c4042-30d1-4c80-9f89-350805a41ed1"},
    {8, "9457de07-8236-4840-81d8-e8c9011c0f56"},
};
/// A version 4 identifier in braces, in lower case.
const QRegularExpression randomIdentifier(
    "\\{[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}\\}");

const QByteArray carriersAt30 = "CREATE TABLE PC_Carrier (id INTEGER PRIMARY KEY);";
const QByteArray mixesAt30 = "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY);";
const QByteArray varietiesAt30 = "CREATE TABLE PC_PlanterVariety (id INTEGER PRIMARY KEY);";
const QByteArray tablesAt30 = carriersAt30 + mixesAt30 + varietiesAt30;
const QByteArray tablesAt31 = "CREATE TABLE PC_Carrier (id INTEGER PRIMARY KEY, uuid TEXT);"
                              "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY, uuid TEXT);"
                              "CREATE TABLE PC_PlanterVariety (id INTEGER PRIMARY KEY, uuid TEXT);";
const QString carriersAt31 = "CREATE TABLE PC_Carrier (id INTEGER PRIMARY KEY, uuid TEXT)";
const QString mixesAt31 = "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY, uuid TEXT)";
const QString varietiesAt31 = "CREATE TABLE PC_PlanterVariety (id INTEGER PRIMARY KEY, uuid TEXT)";

/// @return the tables with identifiers, each random one as '{random}'
QStringList identified(ScratchDevice &device)
{
    return contents(device, identifiedTables)
        .replaceInStrings(QRegularExpression("'" + randomIdentifier.pattern() + "'"), "'{random}'");
}

QByteArray refusalOfUpdates(const QByteArray &event)
{
    return "CREATE TRIGGER refusal BEFORE UPDATE ON " + event +
           " BEGIN SELECT RAISE(ABORT, 'refused'); END;";
}

/// The pool directory is taken away while this lives.
class NoPool
{
public:
    NoPool() { QVERIFY(QDir().rename("/usr/bin/harlo", "/usr/bin/away")); }
    ~NoPool() { QVERIFY(QDir().rename("/usr/bin/away", "/usr/bin/harlo")); }
    NoPool(const NoPool &) = delete;
    NoPool &operator=(const NoPool &) = delete;
};
} // namespace

class Versions26To31Test : public QObject
{
    Q_OBJECT

private slots:
    void init() { device = std::make_unique<ScratchDevice>(); }
    void cleanup() { device.reset(); }

    void updateToVersion26_data();
    void updateToVersion26() { checkStep(*device, &M::updateToVersion26); }
    void revertFromVersion26_data();
    void revertFromVersion26() { checkStep(*device, &M::revertFromVersion26); }
    void version26EmptiesThePool_data();
    void version26EmptiesThePool();
    void version26WithoutAPool();

    void updateToVersion27_data();
    void updateToVersion27() { checkStep(*device, &M::updateToVersion27, bridges); }
    void updateToVersion27AfterAHalfDoneOne();
    void revertFromVersion27();
    void getUpdate27Applied_data();
    void getUpdate27Applied() { checkProbe(*device, &M::getUpdate27Applied); }

    void updateToVersion28_data();
    void updateToVersion28() { checkStep(*device, &M::updateToVersion28); }
    void revertFromVersion28_data();
    void revertFromVersion28() { checkStep(*device, &M::revertFromVersion28); }

    void updateToVersion29_data();
    void updateToVersion29() { checkStep(*device, &M::updateToVersion29); }
    void revertFromVersion29_data();
    void revertFromVersion29() { checkStep(*device, &M::revertFromVersion29); }

    void updateToVersion30_data();
    void updateToVersion30() { checkStep(*device, &M::updateToVersion30); }
    void revertFromVersion30_data();
    void revertFromVersion30() { checkStep(*device, &M::revertFromVersion30); }

    void updateToVersion31_data();
    void updateToVersion31() { checkStep(*device, &M::updateToVersion31, identified); }
    void updateToVersion31DrawsIdentifiers();
    void revertFromVersion31_data();
    void revertFromVersion31() { checkStep(*device, &M::revertFromVersion31); }

    void probesOfColumns_data();
    void probesOfColumns();
    void secondRun_data();
    void secondRun();
    void closedConnection();

private:
    std::unique_ptr<ScratchDevice> device;
};

void Versions26To31Test::updateToVersion26_data()
{
    QTest::addColumn<StepRun>("run");

    const QStringList succeeded("Migration to version 26 was successful.");
    const QStringList failed("Migration to version 26 FAILED!");
    QTest::newRow("every receiver gets the three deviations") << StepRun{
        receiversAt25 + ";INSERT INTO supportedHarloReceiverSettings VALUES"
                        "(1, 'Süd', 0.5), (2, 'Nord', NULL)",
        succeeded,
        26,
        {receiversAt26,
         "supportedHarloReceiverSettings",
         "1, 'Süd', 0.5, 0.2, 0.2, 0.5",
         "2, 'Nord', NULL, 0.2, 0.2, 0.5"}};
    QTest::newRow("deviations that are there stay as they are") << StepRun{
        receiversAt26 + ";INSERT INTO supportedHarloReceiverSettings VALUES"
                        "(1, 'Nord', 0.5, 0.125, NULL, 3)",
        succeeded,
        26,
        {receiversAt26, "supportedHarloReceiverSettings", "1, 'Nord', 0.5, 0.125, NULL, 3.0"}};
    const QString table = "supportedHarloReceiverSettings";
    QTest::newRow("without the table all three are tried") << StepRun{
        "",
        notAdded(deviations[0], table, noSuchTable(table)) +
            notAdded(deviations[1], table, noSuchTable(table)) +
            notAdded(deviations[2], table, noSuchTable(table)) + failed,
        versionUnmoved,
        {}};
    QTest::newRow("the first one is there in other letter case") << StepRun{
        "CREATE TABLE supportedHarloReceiverSettings (PPP_STD_DEV)",
        notAdded("ppp_STD_DEV", table, duplicate("ppp_STD_DEV")) + failed,
        versionUnmoved,
        {"CREATE TABLE supportedHarloReceiverSettings (PPP_STD_DEV, "
         "terraStar_STD_DEV REAL DEFAULT 0.2, terraStarL_STD_DEV REAL DEFAULT 0.5)",
         table}};
    QTest::newRow("the second one is there in other letter case") << StepRun{
        "CREATE TABLE supportedHarloReceiverSettings (TERRASTAR_STD_DEV)",
        notAdded("terraStar_STD_DEV", table, duplicate("terraStar_STD_DEV")) + failed,
        versionUnmoved,
        {"CREATE TABLE supportedHarloReceiverSettings (TERRASTAR_STD_DEV, "
         "ppp_STD_DEV REAL DEFAULT 0.2, terraStarL_STD_DEV REAL DEFAULT 0.5)",
         table}};
    QTest::newRow("the third one is there in other letter case") << StepRun{
        "CREATE TABLE supportedHarloReceiverSettings (TERRASTARL_STD_DEV)",
        notAdded("terraStarL_STD_DEV", table, duplicate("terraStarL_STD_DEV")) + failed,
        versionUnmoved,
        {"CREATE TABLE supportedHarloReceiverSettings (TERRASTARL_STD_DEV, "
         "ppp_STD_DEV REAL DEFAULT 0.2, terraStar_STD_DEV REAL DEFAULT 0.2)",
         table}};
}

void Versions26To31Test::revertFromVersion26_data()
{
    QTest::addColumn<StepRun>("run");

    const QString table = "supportedHarloReceiverSettings";
    const QStringList failed("Reverting from version 26 FAILED!!");
    QTest::newRow("the deviations go, the receivers stay") << StepRun{
        receiversAt26 + ";INSERT INTO supportedHarloReceiverSettings VALUES"
                        "(1, 'Süd', 0.5, 0.125, NULL, 3), (2, 'Nord', NULL, 1, 1, 1)",
        {},
        25,
        {receiversRebuilt, table, "1, 'Süd', 0.5", "2, 'Nord', NULL"}};
    QTest::newRow("deviations that are not there")
        << StepRun{receiversAt25, {}, 25, {receiversRebuilt, table}};
    QTest::newRow("without the table all three are tried") << StepRun{
        "",
        columnStays(deviations[0], table, rebuildRefused) +
            columnStays(deviations[1], table, rebuildRefused) +
            columnStays(deviations[2], table, rebuildRefused) + failed,
        versionUnmoved,
        {}};
    for (const QString &kept : deviations) {
        QTest::addRow("%s belongs to the key, the others go", qPrintable(kept)) << StepRun{
            QString("CREATE TABLE supportedHarloReceiverSettings (id INTEGER, %1 REAL, "
                    "PRIMARY KEY (%2, id));INSERT INTO supportedHarloReceiverSettings "
                    "VALUES(1, 1.5, 2.5, 3.5)")
                .arg(deviations.join(" REAL, "), kept)
                .toUtf8(),
            columnStays(kept, table, keyRefused) + failed,
            versionUnmoved,
            {QString("CREATE TABLE \"supportedHarloReceiverSettings\" (id INTEGER , %1 REAL , "
                     "PRIMARY KEY(%1,id) )")
                 .arg(kept),
             table,
             QString("1, %1.5").arg(deviations.indexOf(kept) + 1)}};
    }
}

void Versions26To31Test::version26EmptiesThePool_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("forward");
    QTest::addColumn<int>("version");

    QTest::newRow("forward") << receiversAt25 << true << 26;
    QTest::newRow("forward, also when no column was added")
        << QByteArray() << true << versionUnmoved;
    QTest::newRow("backward") << receiversAt26 << false << 25;
    QTest::newRow("backward, also when no column went") << QByteArray() << false << versionUnmoved;
}

void Versions26To31Test::version26EmptiesThePool()
{
    QFETCH(QByteArray, before);
    QFETCH(bool, forward);
    QFETCH(int, version);
    device->sql(before);
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);
    const QString pool = ScratchDevice::poolPath + "/";
    const std::string notUtf8 = "/usr/bin/harlo/pool/\xff.iop";
    const QStringList goes = {"a.iop", "B.IOP", "c d.Iop", "e.iop.iop"};
    const QStringList stays = {".hidden.iop", ".iop", "f.iop.bak", "g.iopx", "hiop", "iop"};
    for (const QString &file : goes + stays) {
        ScratchDevice::writeFile(pool + file, "content");
    }
    // Not through the toolkit: in the locale "C" it cannot write such a name.
    QVERIFY((std::ofstream("/usr/bin/harlo/pool/Übersicht.iop") << "content").good());
    QVERIFY((std::ofstream(notUtf8) << "content").good());
    ScratchDevice::writeFile(pool + "directory.iop/inside.iop", "content");
    ScratchDevice::writeFile(pool + "directory/inside.iop", "content");
    ScratchDevice::writeFile("/app/target", "content");
    QVERIFY(QFile::link("/app/target", pool + "link.iop"));
    QVERIFY(QFile::link("/app", pool + "linkToDirectory.iop"));

    forward ? migrator.updateToVersion26() : migrator.revertFromVersion26();

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

void Versions26To31Test::version26WithoutAPool()
{
    device->sql(receiversAt25);
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);
    const NoPool noPool;
    QVERIFY(!QFile::exists(ScratchDevice::poolPath));

    migrator.updateToVersion26();
    QCOMPARE(migrator.currentVersion(), 26);
    migrator.revertFromVersion26();
    QCOMPARE(migrator.currentVersion(), 25);

    COMPARE_LINES(takeLogLines(*device), QStringList("Migration to version 26 was successful."));
}

void Versions26To31Test::updateToVersion27_data()
{
    QTest::addColumn<StepRun>("run");

    const QStringList succeeded("Migration to version 27 was successful.");
    const QStringList failed("Migration to version 27 FAILED!");
    const QByteArray bridge = mixes + bridgeAt26 + bridgeRows;
    QTest::newRow("the ingredients of a mix get their key")
        << StepRun{bridge, succeeded, 27, QStringList(bridgeAt27) + bridgeRowsAt27};
    QTest::newRow("with a key of two columns nothing happens") << StepRun{
        "CREATE TABLE PC_IngredientToMixBridge (a, b, PRIMARY KEY (b, a));"
        "CREATE TABLE PC_IngredientToMixBridge_temp (a)",
        succeeded,
        27,
        {"CREATE TABLE PC_IngredientToMixBridge (a, b, PRIMARY KEY (b, a))",
         "CREATE TABLE PC_IngredientToMixBridge_temp (a)"}};
    QTest::newRow("an empty copy left behind is filled")
        << StepRun{bridge + bridgeAside, succeeded, 27, QStringList(bridgeAt27) + bridgeRowsAt27};

    QTest::newRow("the copy cannot be created: the rest runs, nothing remains") << StepRun{
        bridge,
        failed,
        versionUnmoved,
        {},
        {{SQLITE_CREATE_TABLE, "PC_IngredientToMixBridge_temp"}}};
    QTest::newRow("an ingredient stands twice in a mix: the rest runs, the rows are lost")
        << StepRun{
               bridge + "INSERT INTO PC_IngredientToMixBridge VALUES(6, 2, 1, 9, 9, 9)",
               failed,
               versionUnmoved,
               {bridgeAt27}};
    QTest::newRow("a row's mix is missing: the rest runs, the rows are lost") << StepRun{
        bridge + "DELETE FROM PC_Mix WHERE id = 2", failed, versionUnmoved, {bridgeAt27}};
    QTest::newRow("another copy left behind takes the table's place") << StepRun{
        bridge + "CREATE TABLE PC_IngredientToMixBridge_temp (a);"
                 "INSERT INTO PC_IngredientToMixBridge_temp VALUES(7)",
        failed,
        versionUnmoved,
        {"CREATE TABLE \"PC_IngredientToMixBridge\" (a)", "7"}};
    QTest::newRow("no table: an empty one is made all the same")
        << StepRun{mixes, failed, versionUnmoved, {bridgeAt27}};
    QTest::newRow("the table cannot be dropped: both remain") << StepRun{
        bridge,
        failed,
        versionUnmoved,
        QStringList(bridgeAt26) + bridgeRowsAt26 + QStringList(bridgeAside) + bridgeRowsAt27,
        {{SQLITE_DROP_TABLE, "PC_IngredientToMixBridge"}}};
    QTest::newRow("the copy cannot be renamed: it alone remains") << StepRun{
        bridge,
        failed,
        versionUnmoved,
        QStringList(bridgeAside) + bridgeRowsAt27,
        {{SQLITE_ALTER_TABLE, "main", "PC_IngredientToMixBridge_temp"}}};
}

void Versions26To31Test::updateToVersion27AfterAHalfDoneOne()
{
    device->sql(mixes + bridgeAt26 + bridgeRows);
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);
    device->refuse(SQLITE_DROP_TABLE, "PC_IngredientToMixBridge");
    migrator.updateToVersion27();
    device->allowAll();

    // The copy is there and filled: the rows cannot be copied again, the table is exchanged.
    migrator.updateToVersion27();
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    COMPARE_LINES(bridges(*device), QStringList(bridgeAt27) + bridgeRowsAt27);

    migrator.updateToVersion27();
    QCOMPARE(migrator.currentVersion(), 27);
    COMPARE_LINES(bridges(*device), QStringList(bridgeAt27) + bridgeRowsAt27);
    COMPARE_LINES(
        takeLogLines(*device),
        QStringList(
            {"Migration to version 27 FAILED!",
             "Migration to version 27 FAILED!",
             "Migration to version 27 was successful."}));
}

void Versions26To31Test::revertFromVersion27()
{
    device->sql(
        mixes + QByteArray(bridgeAt27) +
        ";INSERT INTO PC_IngredientToMixBridge VALUES(1, 1, 3.5, 0.25, 2)");
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);
    const QStringList before = device->dump();

    migrator.revertFromVersion27();

    COMPARE_LINES(takeLogLines(*device), QStringList());
    QCOMPARE(migrator.currentVersion(), 26);
    COMPARE_LINES(device->dump(), before);
    QVERIFY(migrator.getUpdate27Applied());
}

void Versions26To31Test::getUpdate27Applied_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    QTest::newRow("a key of two columns")
        << QByteArray("CREATE TABLE PC_IngredientToMixBridge (a, b, c, PRIMARY KEY (c, a))")
        << true;
    QTest::newRow("a key of two columns, the table in other letter case")
        << QByteArray("CREATE TABLE PC_INGREDIENTTOMIXBRIDGE (a, b, PRIMARY KEY (a, b))") << true;
    QTest::newRow("a key of one column")
        << QByteArray("CREATE TABLE PC_IngredientToMixBridge (a PRIMARY KEY, b)") << false;
    QTest::newRow("a key of three columns")
        << QByteArray("CREATE TABLE PC_IngredientToMixBridge (a, b, c, PRIMARY KEY (a, b, c))")
        << false;
    QTest::newRow("no key") << QByteArray("CREATE TABLE PC_IngredientToMixBridge (a, b)") << false;
    QTest::newRow("a view") << QByteArray(
                                   "CREATE VIEW PC_IngredientToMixBridge AS SELECT 1 AS a, 2 AS b")
                            << false;
    QTest::newRow("no table") << QByteArray() << false;
}

void Versions26To31Test::updateToVersion28_data()
{
    QTest::addColumn<StepRun>("run");

    const QString table = "VideoCaptureConfigurationSetup";
    const QString column = "cameraReversePopupEnabled";
    const QStringList succeeded("Migration to version 28 was successful.");
    const QStringList failed("Migration to version 28 FAILED!");
    QTest::newRow("every camera gets the switch, off") << StepRun{
        camerasAt27 + ";INSERT INTO VideoCaptureConfigurationSetup VALUES(1, 'Säschar')",
        succeeded,
        28,
        {camerasAt28, table, "1, 'Säschar', 0"}};
    QTest::newRow("a switch that is there stays as it is") << StepRun{
        camerasAt28 + ";INSERT INTO VideoCaptureConfigurationSetup VALUES(1, 'Heck', 1)",
        succeeded,
        28,
        {camerasAt28, table, "1, 'Heck', 1"}};
    QTest::newRow("the switch is there in other letter case") << StepRun{
        "CREATE TABLE VideoCaptureConfigurationSetup (CameraReversePopupEnabled)",
        notAdded(column, table, duplicate(column)) + failed,
        versionUnmoved,
        {"CREATE TABLE VideoCaptureConfigurationSetup (CameraReversePopupEnabled)", table}};
    QTest::newRow("no table") << StepRun{
        "", notAdded(column, table, noSuchTable(table)) + failed, versionUnmoved, {}};
}

void Versions26To31Test::revertFromVersion28_data()
{
    QTest::addColumn<StepRun>("run");

    const QString table = "VideoCaptureConfigurationSetup";
    const QString column = "cameraReversePopupEnabled";
    const QStringList succeeded("Reverting from version 28 was successful.");
    const QStringList failed("Reverting from version 28 FAILED!!");
    QTest::newRow("the switch goes, the cameras stay") << StepRun{
        camerasAt28 + ";INSERT INTO VideoCaptureConfigurationSetup VALUES(1, 'Heck', 1)",
        succeeded,
        27,
        {camerasRebuilt, table, "1, 'Heck'"}};
    QTest::newRow("a switch that is not there")
        << StepRun{camerasAt27, succeeded, 27, {camerasRebuilt, table}};
    QTest::newRow("no table") << StepRun{
        "", columnStays(column, table, rebuildRefused) + failed, versionUnmoved, {}};
}

void Versions26To31Test::updateToVersion29_data()
{
    QTest::addColumn<StepRun>("run");

    // Every path ends like this.
    const QStringList succeeded("Migration to version 29 was successful.");
    const QString table = "reverseSenseSettings";
    const QString aside = "reverseSenseSettings_temp";
    const QByteArray filled = reverseSenseAt28 + reverseSenseRows;
    const QStringList rows = {"1, 1, 0", "8, 0, 1"};

    QTest::newRow("the columns are hardwired ones then, the rows stay")
        << StepRun{filled, succeeded, 29, QStringList({reverseSenseAt29, table}) + rows};
    QTest::newRow("hardwired columns that are there stay as they are") << StepRun{
        reverseSenseAt29 + reverseSenseRows + reverseSenseLeftOver,
        succeeded,
        29,
        QStringList(
            {reverseSenseAt29, "CREATE TABLE reverseSenseSettings_temp (mc_sqlId)", table}) +
            rows + QStringList(aside)};
    QTest::newRow("the temporary table cannot be dropped, the step counts as done") << StepRun{
        filled,
        tableStays(aside, notAuthorized) + succeeded,
        29,
        QStringList(
            {renamed(reverseSenseAt28, "reverseSenseSettings_temp"), reverseSenseAt29, aside}) +
            rows + QStringList(table) + rows,
        {{SQLITE_DROP_TABLE, "reverseSenseSettings_temp"}}};

    const QStringList notMoved(
        "Could not rename table to reverseSenseSettings_temp. Dropping temp table to allow Mirel "
        "to create new empty table.");
    QTest::newRow("no table") << StepRun{"", notMoved + succeeded, 29, {}};
    QTest::newRow("no table, only a temporary one: it goes")
        << StepRun{reverseSenseLeftOver, notMoved + succeeded, 29, {}};
    QTest::newRow("a temporary table is in the way: both go")
        << StepRun{filled + reverseSenseLeftOver, notMoved + succeeded, 29, {}};
    QTest::newRow("a temporary table is in the way and the table cannot be dropped") << StepRun{
        filled + reverseSenseLeftOver,
        notMoved + tableStays(table, notAuthorized) + succeeded,
        29,
        QStringList({reverseSenseAt28, table}) + rows,
        {{SQLITE_DROP_TABLE, "reverseSenseSettings"}}};
    QTest::newRow("a temporary table is in the way and cannot be dropped") << StepRun{
        filled + reverseSenseLeftOver,
        notMoved + tableStays(aside, notAuthorized) + succeeded,
        29,
        {"CREATE TABLE reverseSenseSettings_temp (mc_sqlId)", aside},
        {{SQLITE_DROP_TABLE, "reverseSenseSettings_temp"}}};
    QTest::newRow("a view in the table's place cannot be moved and stays") << StepRun{
        "CREATE VIEW reverseSenseSettings AS SELECT 1 AS mc_sqlId",
        notMoved +
            tableStays(
                table,
                "use DROP VIEW to delete view reverseSenseSettings Unable to execute "
                "statement") +
            succeeded,
        29,
        {"CREATE VIEW reverseSenseSettings AS SELECT 1 AS mc_sqlId"}};

    QTest::newRow("the new table cannot be created: the old one is moved back") << StepRun{
        filled,
        succeeded,
        29,
        QStringList({renamed(reverseSenseAt28, "reverseSenseSettings"), table}) + rows,
        {{SQLITE_CREATE_TABLE, "reverseSenseSettings"}}};
    const QStringList notMovedBack(
        "Could not rename table back to reverseSenseSettings while attempting to clean up upgrade "
        "failure. Dropping temp table to allow Mirel to create new empty table.");
    QTest::newRow("nor can the old one be moved back: it goes") << StepRun{
        filled,
        notMovedBack + succeeded,
        29,
        {},
        {{SQLITE_CREATE_TABLE, "reverseSenseSettings"},
         {SQLITE_ALTER_TABLE, "main", "reverseSenseSettings_temp"}}};
    QTest::newRow("nor can the old one be moved back or dropped") << StepRun{
        filled,
        notMovedBack + tableStays(aside, notAuthorized) + succeeded,
        29,
        QStringList({renamed(reverseSenseAt28, "reverseSenseSettings_temp"), aside}) + rows,
        {{SQLITE_CREATE_TABLE, "reverseSenseSettings"},
         {SQLITE_ALTER_TABLE, "main", "reverseSenseSettings_temp"},
         {SQLITE_DROP_TABLE, "reverseSenseSettings_temp"}}};

    const QByteArray nullable =
        "CREATE TABLE reverseSenseSettings (mc_sqlId, enableRemoteReverseSense, "
        "overrideRemoteReverseSenseDefaultDirection);"
        "INSERT INTO reverseSenseSettings VALUES(1, 1, 0), (8, NULL, 1);";
    const QStringList notCopied(
        "Failed inserting data from reverseSenseSettings_temp into new reverseSenseSettings.  "
        "Error was NOT NULL constraint failed: reverseSenseSettings.enableHardwiredReverseSense");
    QTest::newRow("a row cannot be copied: both tables go")
        << StepRun{nullable, notCopied + succeeded, 29, {}};
    QTest::newRow("a row cannot be copied and the new table cannot be dropped") << StepRun{
        nullable,
        tableStays(table, notAuthorized) + notCopied + succeeded,
        29,
        {reverseSenseAt29, table},
        {{SQLITE_DROP_TABLE, "reverseSenseSettings"}}};
    QTest::newRow("a row cannot be copied and the old table cannot be dropped") << StepRun{
        nullable,
        notCopied + tableStays(aside, notAuthorized) + succeeded,
        29,
        {"CREATE TABLE \"reverseSenseSettings_temp\" (mc_sqlId, "
         "enableRemoteReverseSense, overrideRemoteReverseSenseDefaultDirection)",
         aside,
         "1, 1, 0",
         "8, NULL, 1"},
        {{SQLITE_DROP_TABLE, "reverseSenseSettings_temp"}}};
    QTest::newRow("only the first column is hardwired: both tables go") << StepRun{
        "CREATE TABLE reverseSenseSettings (mc_sqlId, enableHardwiredReverseSense, "
        "overrideRemoteReverseSenseDefaultDirection)",
        QStringList("Failed inserting data from reverseSenseSettings_temp into new "
                    "reverseSenseSettings.  Error was no such column: "
                    "enableRemoteReverseSense") +
            succeeded,
        29,
        {}};
    QTest::newRow("only the second column is hardwired: both tables go") << StepRun{
        "CREATE TABLE reverseSenseSettings (mc_sqlId, enableRemoteReverseSense, "
        "overrideHardwiredReverseSenseDefaultDirection)",
        QStringList("Failed inserting data from reverseSenseSettings_temp into new "
                    "reverseSenseSettings.  Error was no such column: "
                    "overrideRemoteReverseSenseDefaultDirection") +
            succeeded,
        29,
        {}};
}

void Versions26To31Test::revertFromVersion29_data()
{
    QTest::addColumn<StepRun>("run");

    const QStringList succeeded("Reverting from version 29 was successful.");
    const QStringList failed("Reverting from version 29 FAILED!!");
    const QString table = "reverseSenseSettings";
    const QString aside = "reverseSenseSettings_temp";
    const QByteArray filled = reverseSenseAt29 + reverseSenseRows;
    const QStringList rows = {"1, 1, 0", "8, 0, 1"};

    QTest::newRow("the columns are remote ones then, the rows stay")
        << StepRun{filled, succeeded, 28, QStringList({reverseSenseAt28, table}) + rows};
    QTest::newRow("the temporary table cannot be dropped, the step counts as done") << StepRun{
        filled,
        tableStays(aside, notAuthorized) + succeeded,
        28,
        QStringList(
            {renamed(reverseSenseAt29, "reverseSenseSettings_temp"), reverseSenseAt28, aside}) +
            rows + QStringList(table) + rows,
        {{SQLITE_DROP_TABLE, "reverseSenseSettings_temp"}}};

    const QStringList notMoved(
        "Could not rename table to reverseSenseSettings_temp. Attempting to drop both tables to "
        "allow Mirel to create new empty table.");
    QTest::newRow("no table") << StepRun{"", notMoved + failed, versionUnmoved, {}};
    QTest::newRow("a temporary table is in the way: both go")
        << StepRun{filled + reverseSenseLeftOver, notMoved + failed, versionUnmoved, {}};
    QTest::newRow("a temporary table is in the way and neither can be dropped") << StepRun{
        filled + reverseSenseLeftOver,
        notMoved + tableStays(table, notAuthorized) + tableStays(aside, notAuthorized) + failed,
        versionUnmoved,
        QStringList(
            {reverseSenseAt29, "CREATE TABLE reverseSenseSettings_temp (mc_sqlId)", table}) +
            rows + QStringList(aside),
        {{SQLITE_DROP_TABLE, ""}}};

    QTest::newRow("the new table cannot be created: the old one is moved back") << StepRun{
        filled,
        failed,
        versionUnmoved,
        QStringList({renamed(reverseSenseAt29, "reverseSenseSettings"), table}) + rows,
        {{SQLITE_CREATE_TABLE, "reverseSenseSettings"}}};
    const QStringList notMovedBack(
        "Could not rename table back to reverseSenseSettings while attempting to clean up revert "
        "failure. Dropping temp table to allow Mirel to create new empty table.");
    QTest::newRow("nor can the old one be moved back: it goes") << StepRun{
        filled,
        notMovedBack + failed,
        versionUnmoved,
        {},
        {{SQLITE_CREATE_TABLE, "reverseSenseSettings"},
         {SQLITE_ALTER_TABLE, "main", "reverseSenseSettings_temp"}}};
    QTest::newRow("nor can the old one be moved back or dropped") << StepRun{
        filled,
        notMovedBack + tableStays(aside, notAuthorized) + failed,
        versionUnmoved,
        QStringList({renamed(reverseSenseAt29, "reverseSenseSettings_temp"), aside}) + rows,
        {{SQLITE_CREATE_TABLE, "reverseSenseSettings"},
         {SQLITE_ALTER_TABLE, "main", "reverseSenseSettings_temp"},
         {SQLITE_DROP_TABLE, "reverseSenseSettings_temp"}}};

    const QStringList notCopied(
        "Failed inserting data from reverseSenseSettings_temp into new reverseSenseSettings");
    QTest::newRow("the columns are remote ones already: both tables go")
        << StepRun{reverseSenseAt28 + reverseSenseRows, notCopied + failed, versionUnmoved, {}};
    QTest::newRow("no row can be copied and no table dropped") << StepRun{
        reverseSenseAt28 + reverseSenseRows,
        tableStays(table, notAuthorized) + notCopied + tableStays(aside, notAuthorized) + failed,
        versionUnmoved,
        QStringList(
            {renamed(reverseSenseAt28, "reverseSenseSettings_temp"), reverseSenseAt28, aside}) +
            rows + QStringList(table),
        {{SQLITE_DROP_TABLE, ""}}};
}

void Versions26To31Test::updateToVersion30_data()
{
    QTest::addColumn<StepRun>("run");

    const QString column = "wirelessEnabled";
    const QStringList succeeded("Migration to version 30 was successful.");
    const QStringList failed("Migration to version 30 FAILED!");
    QTest::newRow("the wireless switch is added, off") << StepRun{
        controlAt29 + ";INSERT INTO systemControl VALUES(1, 'Europe/Berlin')",
        succeeded,
        30,
        {controlAt30, "systemControl", "1, 'Europe/Berlin', 0"}};
    QTest::newRow("a switch that is there stays as it is") << StepRun{
        controlAt30 + ";INSERT INTO systemControl VALUES(1, 'UTC', 1)",
        succeeded,
        30,
        {controlAt30, "systemControl", "1, 'UTC', 1"}};
    QTest::newRow("the switch is there in other letter case") << StepRun{
        "CREATE TABLE systemControl (WirelessEnabled)",
        notAdded(column, "systemControl", duplicate(column)) + failed,
        versionUnmoved,
        {"CREATE TABLE systemControl (WirelessEnabled)", "systemControl"}};
    QTest::newRow("no table") << StepRun{
        "",
        notAdded(column, "systemControl", noSuchTable("systemControl")) + failed,
        versionUnmoved,
        {}};
}

void Versions26To31Test::revertFromVersion30_data()
{
    QTest::addColumn<StepRun>("run");

    QTest::newRow("the wireless switch goes") << StepRun{
        controlAt30 + ";INSERT INTO systemControl VALUES(1, 'Europe/Berlin', 1)",
        {},
        29,
        {controlRebuilt, "systemControl", "1, 'Europe/Berlin'"}};
    QTest::newRow("a switch that is not there")
        << StepRun{controlAt29, {}, 29, {controlRebuilt, "systemControl"}};
    QTest::newRow("no table") << StepRun{
        "", columnStays("wirelessEnabled", "systemControl", rebuildRefused), versionUnmoved, {}};
    QTest::newRow("a view of something that is gone has the table's name") << StepRun{
        "CREATE VIEW systemControl AS SELECT * FROM gone",
        columnStays("wirelessEnabled", "systemControl", rebuildRefused),
        versionUnmoved,
        {"CREATE VIEW systemControl AS SELECT * FROM gone"}};
}

void Versions26To31Test::updateToVersion31_data()
{
    QTest::addColumn<StepRun>("run");

    const QStringList succeeded("Migration to version 31 was successful.");
    const QStringList notSynched(
        "Migration to version 31 FAILED! Failed to synch default carrier uuids");
    const QByteArray oneRowEach = "INSERT INTO PC_Carrier(id) VALUES(9);"
                                  "INSERT INTO PC_Mix(id) VALUES(1);"
                                  "INSERT INTO PC_PlanterVariety(id) VALUES(1);";
    const QStringList carriers = {carriersAt31, "9, '{random}'"};
    const QStringList mixes = {mixesAt31, "1, '{random}'"};
    const QStringList varieties = {varietiesAt31, "1, '{random}'"};

    QTest::newRow("every row gets an identifier, the default carriers theirs") << StepRun{
        tablesAt30 + "INSERT INTO PC_Carrier VALUES(1), (2), (3), (4), (5), (6), (7), (8), (9);"
                     "INSERT INTO PC_Mix VALUES(1), (8);"
                     "INSERT INTO PC_PlanterVariety VALUES(-1);",
        succeeded,
        31,
        {carriersAt31,
         "1, '6925f16e-e25c-4768-bc50-8885c4baaa8f'",
         "2, '6f5e4750-b686-4d5a-ac6f-0dc2e3099b34'",
         "3, '0cdc8424-a0a6-4b01-aa23-8a6fe777f9db'",
         "4, 'b502fba8-3905-4e80-a9e4-25656ee30ac2'",
         "5, 'f036f28b-08cc-46c2-bfa7-1622ccc13636'",
         "6, 'a35c4042-30d1-4c80-9f89-350805a41ed1'",
         "7, '{random}'",
         "8, '9457de07-8236-4840-81d8-e8c9011c0f56'",
         "9, '{random}'",
         mixesAt31,
         "1, '{random}'",
         "8, '{random}'",
         varietiesAt31,
         "-1, '{random}'"}};
    QTest::newRow("identifiers that are there stay, but not the default carriers'") << StepRun{
        tablesAt31 + "INSERT INTO PC_Carrier VALUES(1, 'a'), (2, 'b'), (3, ''), (4, 'd'), "
                     "(5, 'e'), (6, '{f}'), (7, 'g'), (8, 'h'), (9, '');"
                     "INSERT INTO PC_Mix VALUES(1, 'j'), (2, NULL);"
                     "INSERT INTO PC_PlanterVariety VALUES(1, NULL), (2, 'k');",
        succeeded,
        31,
        {carriersAt31,
         "1, '6925f16e-e25c-4768-bc50-8885c4baaa8f'",
         "2, '6f5e4750-b686-4d5a-ac6f-0dc2e3099b34'",
         "3, '0cdc8424-a0a6-4b01-aa23-8a6fe777f9db'",
         "4, 'b502fba8-3905-4e80-a9e4-25656ee30ac2'",
         "5, 'f036f28b-08cc-46c2-bfa7-1622ccc13636'",
         "6, 'a35c4042-30d1-4c80-9f89-350805a41ed1'",
         "7, 'g'",
         "8, '9457de07-8236-4840-81d8-e8c9011c0f56'",
         "9, ''",
         mixesAt31,
         "1, 'j'",
         "2, '{random}'",
         varietiesAt31,
         "1, '{random}'",
         "2, 'k'"}};
    QTest::newRow("empty tables") << StepRun{
        tablesAt30, succeeded, 31, {carriersAt31, mixesAt31, varietiesAt31}};
    QTest::newRow("a row without an id stays without an identifier") << StepRun{
        carriersAt30 + "CREATE TABLE PC_Mix (id TEXT, uuid TEXT);" + varietiesAt30 +
            "INSERT INTO PC_Mix VALUES(NULL, NULL), ('m''1', NULL);",
        succeeded,
        31,
        {carriersAt31,
         "CREATE TABLE PC_Mix (id TEXT, uuid TEXT)",
         "NULL, NULL",
         "'m''1', '{random}'",
         varietiesAt31}};

    // What the addition and the reading of rows answer is not looked at.
    QTest::newRow("the column is there in other letter case") << StepRun{
        carriersAt30 + "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY, UUID TEXT);" + varietiesAt30 +
            oneRowEach,
        notAdded("uuid", "PC_Mix", duplicate("uuid")) + succeeded,
        31,
        carriers +
            QStringList(
                {"CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY, UUID TEXT)", "1, '{random}'"}) +
            varieties};
    QTest::newRow("no column can be added to the mixes: the step succeeds without it") << StepRun{
        tablesAt30 + oneRowEach,
        notAdded("uuid", "PC_Mix", notAuthorized) + succeeded,
        31,
        carriers + QStringList({"CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY)", "1"}) + varieties,
        {{SQLITE_ALTER_TABLE, "main", "PC_Mix"}}};
    QTest::newRow("the mixes without an identifier cannot be read: they stay so") << StepRun{
        tablesAt31 + oneRowEach,
        succeeded,
        31,
        carriers + QStringList({mixesAt31, "1, NULL"}) + varieties,
        {{SQLITE_READ, "PC_Mix", "uuid"}}};
    QTest::newRow("no mixes: the step succeeds without them") << StepRun{
        carriersAt30 + varietiesAt30,
        notAdded("uuid", "PC_Mix", noSuchTable("PC_Mix")) + succeeded,
        31,
        {carriersAt31, varietiesAt31}};
    QTest::newRow("no planter varieties: the step succeeds without them") << StepRun{
        carriersAt30 + mixesAt30,
        notAdded("uuid", "PC_PlanterVariety", noSuchTable("PC_PlanterVariety")) + succeeded,
        31,
        {carriersAt31, mixesAt31}};
    QTest::newRow("no carriers: the other tables are done, the defaults fail") << StepRun{
        mixesAt30 + varietiesAt30 +
            "INSERT INTO PC_Mix VALUES(1);"
            "INSERT INTO PC_PlanterVariety VALUES(1);",
        notAdded("uuid", "PC_Carrier", noSuchTable("PC_Carrier")) + notSynched,
        versionUnmoved,
        mixes + varieties};
    QTest::newRow("no table") << StepRun{
        "",
        notAdded("uuid", "PC_Carrier", noSuchTable("PC_Carrier")) +
            notAdded("uuid", "PC_Mix", noSuchTable("PC_Mix")) +
            notAdded("uuid", "PC_PlanterVariety", noSuchTable("PC_PlanterVariety")) + notSynched,
        versionUnmoved,
        {}};

    // A batch that fails stops the step.
    const QByteArray rows = "INSERT INTO PC_Carrier VALUES(1), (9);"
                            "INSERT INTO PC_Mix VALUES(1), (2), (3);"
                            "INSERT INTO PC_PlanterVariety VALUES(1), (2);";
    const QStringList randomCarriers = {carriersAt31, "1, '{random}'", "9, '{random}'"};
    QTest::newRow("the carriers cannot be filled: the rest stays as it was") << StepRun{
        tablesAt30 + rows + refusalOfUpdates("PC_Carrier"),
        {"Migration to version 31 FAILED! Failed to add and populate PC_Carrier uuid "
         "column"},
        versionUnmoved,
        {carriersAt31,
         "1, NULL",
         "9, NULL",
         "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY)",
         "1",
         "2",
         "3",
         "CREATE TABLE PC_PlanterVariety (id INTEGER PRIMARY KEY)",
         "1",
         "2"}};
    QTest::newRow("the second mix cannot be filled: the default carriers stay random") << StepRun{
        tablesAt30 + rows + refusalOfUpdates("PC_Mix WHEN OLD.id = 2"),
        {"Migration to version 31 FAILED! Failed to add and populate PC_Mix uuid "
         "column"},
        versionUnmoved,
        randomCarriers + QStringList(
                             {mixesAt31,
                              "1, '{random}'",
                              "2, NULL",
                              "3, NULL",
                              "CREATE TABLE PC_PlanterVariety (id INTEGER PRIMARY KEY)",
                              "1",
                              "2"})};
    QTest::newRow("the last variety cannot be filled: the default carriers stay random") << StepRun{
        tablesAt30 + rows + refusalOfUpdates("PC_PlanterVariety WHEN OLD.id = 2"),
        {"Migration to version 31 FAILED! Failed to add and populate PC_PlanterVariety "
         "uuid column"},
        versionUnmoved,
        randomCarriers + QStringList(
                             {mixesAt31,
                              "1, '{random}'",
                              "2, '{random}'",
                              "3, '{random}'",
                              varietiesAt31,
                              "1, '{random}'",
                              "2, NULL"})};

    // Each of the seven defaults runs, whatever became of the others.
    for (auto refused = defaultCarriers.begin(); refused != defaultCarriers.end(); ++refused) {
        QStringList after(carriersAt31);
        for (auto carrier = defaultCarriers.begin(); carrier != defaultCarriers.end(); ++carrier) {
            after << QString("%1, '%2'")
                         .arg(
                             QString::number(carrier.key()),
                             carrier.key() == refused.key() ? "{random}" : carrier.value());
        }
        QTest::addRow("default carrier %d cannot be set, the others are", refused.key()) << StepRun{
            tablesAt30 +
                "INSERT INTO PC_Carrier VALUES(1), (2), (3), (4), (5), (6), "
                "(8);" +
                refusalOfUpdates("PC_Carrier WHEN NEW.uuid = '" + refused->toUtf8() + "'"),
            notSynched,
            versionUnmoved,
            after + QStringList({mixesAt31, varietiesAt31})};
    }
}

void Versions26To31Test::updateToVersion31DrawsIdentifiers()
{
    device->sql(tablesAt30 + "INSERT INTO PC_Carrier VALUES(7), (9), (10);");
    device->sql("WITH RECURSIVE ids(id) AS (SELECT 1 UNION ALL SELECT id + 1 FROM ids LIMIT 300)"
                "INSERT INTO PC_Mix SELECT id FROM ids");
    device->sql("INSERT INTO PC_PlanterVariety SELECT id FROM PC_Mix");
    QStringList identifiers;
    for (int run = 0; run < 2; ++run) {
        DatabaseMigrator &migrator = startAt(*device, 30);
        migrator.updateToVersion31();
        identifiers << device->rows("SELECT uuid FROM PC_Carrier UNION ALL SELECT uuid FROM PC_Mix "
                                    "UNION ALL SELECT uuid FROM PC_PlanterVariety");
        migrator.revertFromVersion31();
        QCOMPARE(migrator.currentVersion(), 30);
    }

    QCOMPARE(identifiers.size(), 2 * 603);
    for (const QString &identifier : identifiers) {
        QVERIFY2(
            QRegularExpression("^'" + randomIdentifier.pattern() + "'$")
                .match(identifier)
                .hasMatch(),
            qPrintable(identifier));
        QCOMPARE(identifier.size(), 2 + 38);
    }
    QCOMPARE(QSet<QString>(identifiers.begin(), identifiers.end()).size(), 2 * 603);
}

void Versions26To31Test::revertFromVersion31_data()
{
    QTest::addColumn<StepRun>("run");

    const QStringList names = {"PC_Carrier", "PC_Mix", "PC_PlanterVariety"};
    const QString rebuilt = "CREATE TABLE \"%1\" (id INTEGER , PRIMARY KEY(id) )";
    QTest::newRow("the identifiers go, the rows stay") << StepRun{
        tablesAt31 + "INSERT INTO PC_Carrier VALUES(1, 'a'), (2, NULL);"
                     "INSERT INTO PC_Mix VALUES(3, 'b');"
                     "INSERT INTO PC_PlanterVariety VALUES(4, 'c');",
        {},
        30,
        {rebuilt.arg(names[0]),
         rebuilt.arg(names[1]),
         rebuilt.arg(names[2]),
         names[0],
         "1",
         "2",
         names[1],
         "3",
         names[2],
         "4"}};
    QTest::newRow("identifiers that are not there") << StepRun{
        tablesAt30,
        {},
        30,
        {rebuilt.arg(names[0]),
         rebuilt.arg(names[1]),
         rebuilt.arg(names[2]),
         names[0],
         names[1],
         names[2]}};
    QTest::newRow("without the tables all three are tried") << StepRun{
        "",
        columnStays("uuid", names[0], rebuildRefused) +
            columnStays("uuid", names[1], rebuildRefused) +
            columnStays("uuid", names[2], rebuildRefused),
        versionUnmoved,
        {}};
    for (const QString &missing : names) {
        QByteArray before;
        QStringList schema;
        QStringList others;
        for (const QString &name : names) {
            if (name != missing) {
                before += "CREATE TABLE " + name.toUtf8() + " (id INTEGER PRIMARY KEY, uuid TEXT);";
                schema << rebuilt.arg(name);
                others << name;
            }
        }
        QTest::addRow("without %s the others lose theirs", qPrintable(missing)) << StepRun{
            before, columnStays("uuid", missing, rebuildRefused), versionUnmoved, schema + others};
    }
}

void Versions26To31Test::probesOfColumns_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    const QMap<int, QMap<QByteArray, QList<QByteArray>>> columns = {
        {26,
         {{"supportedHarloReceiverSettings",
           {"ppp_STD_DEV", "terraStar_STD_DEV", "terraStarL_STD_DEV"}}}},
        {28, {{"VideoCaptureConfigurationSetup", {"cameraReversePopupEnabled"}}}},
        {29,
         {{"reverseSenseSettings",
           {"enableHardwiredReverseSense", "overrideHardwiredReverseSenseDefaultDirection"}}}},
        {30, {{"systemControl", {"wirelessEnabled"}}}},
        {31, {{"PC_Carrier", {"uuid"}}, {"PC_Mix", {"uuid"}}, {"PC_PlanterVariety", {"uuid"}}}},
    };
    for (auto version = columns.begin(); version != columns.end(); ++version) {
        QByteArray all;
        for (auto table = version->begin(); table != version->end(); ++table) {
            all += "CREATE TABLE " + table.key() + " (id, " + table->join(", ") + ");";
        }
        QTest::addRow("%d: all columns", version.key()) << version.key() << all << true;
        QTest::addRow("%d: all columns in other letter case", version.key())
            << version.key() << all.toUpper() << true;
        QTest::addRow("%d: no table", version.key()) << version.key() << QByteArray() << false;
        for (auto table = version->begin(); table != version->end(); ++table) {
            for (const QByteArray &column : *table) {
                QTest::addRow(
                    "%d: %s.%s is missing",
                    version.key(),
                    table.key().constData(),
                    column.constData())
                    << version.key()
                    << all + "ALTER TABLE " + table.key() + " DROP COLUMN " + column << false;
            }
            QTest::addRow("%d: %s is missing", version.key(), table.key().constData())
                << version.key() << all + "DROP TABLE " + table.key() << false;
        }
    }
}

void Versions26To31Test::probesOfColumns()
{
    const QMap<int, Probe> probes = {
        {26, &M::getUpdate26Applied},
        {28, &M::getUpdate28Applied},
        {29, &M::getUpdate29Applied},
        {30, &M::getUpdate30Applied},
        {31, &M::getUpdate31Applied}};
    QFETCH(int, version);
    checkProbe(*device, probes[version]);
}

void Versions26To31Test::secondRun_data()
{
    QTest::addColumn<int>("version");

    for (const int version : {26, 27, 28, 29, 30, 31}) {
        QTest::addRow("version %d", version) << version;
    }
}

void Versions26To31Test::secondRun()
{
    const QMap<int, Step> updates = {
        {26, &M::updateToVersion26},
        {27, &M::updateToVersion27},
        {28, &M::updateToVersion28},
        {29, &M::updateToVersion29},
        {30, &M::updateToVersion30},
        {31, &M::updateToVersion31}};
    QFETCH(int, version);
    const QString succeeded = QString("Migration to version %1 was successful.").arg(version);
    device->sql(
        receiversAt25 + ";" + mixes + bridgeAt26 + bridgeRows + camerasAt27 + ";" +
        reverseSenseAt28 + reverseSenseRows + controlAt29 + ";" + carriersAt30 + varietiesAt30 +
        "INSERT INTO supportedHarloReceiverSettings VALUES(1, 'Nord', 0.5);"
        "INSERT INTO VideoCaptureConfigurationSetup VALUES(1, 'Heck');"
        "INSERT INTO systemControl VALUES(1, 'UTC');"
        "INSERT INTO PC_Carrier VALUES(1), (9);");
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);
    const QStringList before = device->dump();

    (migrator.*updates[version])();
    const QStringList afterFirst = device->dump();
    QVERIFY(afterFirst != before);
    (migrator.*updates[version])();

    COMPARE_LINES(takeLogLines(*device), QStringList({succeeded, succeeded}));
    QCOMPARE(migrator.currentVersion(), version);
    COMPARE_LINES(device->dump(), afterFirst);
}

void Versions26To31Test::closedConnection()
{
    DatabaseMigrator &migrator = startAt(*device, versionUnmoved);
    QSqlDatabase::database().close();
    const QString pooled = ScratchDevice::poolPath + "/a.iop";
    const QString receivers = "supportedHarloReceiverSettings";

    ScratchDevice::writeFile(pooled, "content");
    migrator.updateToVersion26();
    QVERIFY(!QFile::exists(pooled));
    ScratchDevice::writeFile(pooled, "content");
    migrator.revertFromVersion26();
    QVERIFY(!QFile::exists(pooled));
    migrator.updateToVersion27();
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    migrator.revertFromVersion27();
    QCOMPARE(migrator.currentVersion(), 26);
    migrator.updateToVersion28();
    migrator.revertFromVersion28();
    QCOMPARE(migrator.currentVersion(), 26);
    migrator.updateToVersion29();
    QCOMPARE(migrator.currentVersion(), 29);
    migrator.revertFromVersion29();
    migrator.updateToVersion30();
    migrator.revertFromVersion30();
    migrator.updateToVersion31();
    migrator.revertFromVersion31();
    QCOMPARE(migrator.currentVersion(), 29);

    COMPARE_LINES(
        takeLogLines(*device),
        notAdded(deviations[0], receivers, "") + notAdded(deviations[1], receivers, "") +
            notAdded(deviations[2], receivers, "") +
            QStringList("Migration to version 26 FAILED!") +
            columnStays(deviations[0], receivers, "") + columnStays(deviations[1], receivers, "") +
            columnStays(deviations[2], receivers, "") +
            QStringList({"Reverting from version 26 FAILED!!", "Migration to version 27 FAILED!"}) +
            notAdded("cameraReversePopupEnabled", "VideoCaptureConfigurationSetup", "") +
            QStringList("Migration to version 28 FAILED!") +
            columnStays("cameraReversePopupEnabled", "VideoCaptureConfigurationSetup", "") +
            QStringList(
                {"Reverting from version 28 FAILED!!",
                 "Could not rename table to reverseSenseSettings_temp. Dropping temp table to "
                 "allow Mirel to create new empty table."}) +
            tableStays("reverseSenseSettings", "") + tableStays("reverseSenseSettings_temp", "") +
            QStringList(
                {"Migration to version 29 was successful.",
                 "Could not rename table to reverseSenseSettings_temp. Attempting to drop both "
                 "tables to allow Mirel to create new empty table."}) +
            tableStays("reverseSenseSettings", "") + tableStays("reverseSenseSettings_temp", "") +
            QStringList("Reverting from version 29 FAILED!!") +
            notAdded("wirelessEnabled", "systemControl", "") +
            QStringList("Migration to version 30 FAILED!") +
            columnStays("wirelessEnabled", "systemControl", "") +
            notAdded("uuid", "PC_Carrier", "") +
            QStringList("Migration to version 31 FAILED! Failed to add and populate PC_Carrier "
                        "uuid column") +
            columnStays("uuid", "PC_Carrier", "") + columnStays("uuid", "PC_Mix", "") +
            columnStays("uuid", "PC_PlanterVariety", ""));
    QVERIFY(!migrator.getUpdate26Applied());
    QVERIFY(!migrator.getUpdate27Applied());
    QVERIFY(!migrator.getUpdate28Applied());
    QVERIFY(!migrator.getUpdate29Applied());
    QVERIFY(!migrator.getUpdate30Applied());
    QVERIFY(!migrator.getUpdate31Applied());
}

QTEST_APPLESS_MAIN(Versions26To31Test)
#include "versions_26_to_31_test.moc"

#include "support/step_test.h"

namespace
{
// ---- Version 33 -------------------------------------------------------------------------------

const QByteArray controlAt32 =
    "CREATE TABLE systemControl (id INTEGER PRIMARY KEY, brightness INTEGER NOT NULL DEFAULT 80, "
    "wirelessEnabled BOOLEAN DEFAULT 0);"
    "INSERT INTO systemControl VALUES(1, 90, 1);";
const QByteArray controlAt33 =
    "CREATE TABLE systemControl (id INTEGER PRIMARY KEY, brightness INTEGER NOT NULL DEFAULT 80, "
    "networkingMode INTEGER DEFAULT 0, apSsid TEXT DEFAULT 'TK-1', apPassword TEXT DEFAULT 'tk2');"
    "INSERT INTO systemControl VALUES(1, 90, 2, 'Hof', 'geheim');";
const QByteArray registration =
    "CREATE TABLE registrationInfo (partNumber TEXT, serialNumber, barcode);";
const QByteArray registered =
    registration + "INSERT INTO registrationInfo VALUES('94071A', 1234567, 1804629537);";
const QList<QByteArray> control = {"systemControl"};

// ---- Version 34 -------------------------------------------------------------------------------

const QByteArray mapsAt34 =
    "CREATE TABLE workOrderRxMaps (id INTEGER PRIMARY KEY AUTOINCREMENT, woUuid TEXT NOT NULL, "
    "woConvRate REAL, userConvRate REAL, "
    "FOREIGN KEY(woUuid) REFERENCES files(uuid) ON UPDATE CASCADE ON DELETE CASCADE )";
const QByteArray mapsAt33 =
    "CREATE TABLE workOrderRxMaps (id INTEGER PRIMARY KEY AUTOINCREMENT, woUuid TEXT NOT NULL, "
    "FOREIGN KEY(woUuid) REFERENCES files(uuid) ON UPDATE CASCADE ON DELETE CASCADE )";
const QString mapsRebuilt =
    "CREATE TABLE \"workOrderRxMaps\" (id INTEGER , woUuid TEXT NOT NULL  , PRIMARY KEY(id) , "
    "FOREIGN KEY(woUuid) REFERENCES files(uuid) ON UPDATE CASCADE ON DELETE CASCADE )";
const QByteArray insertMaps = ";INSERT INTO workOrderRxMaps VALUES";
const QList<QByteArray> maps = {"workOrderRxMaps"};
} // namespace

class Versions33To34Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion33_data();
    void updateToVersion33() { checkStep(&M::updateToVersion33, control); }
    void version33DerivesDefaults_data();
    void version33DerivesDefaults();
    void revertFromVersion33_data();
    void revertFromVersion33() { checkStep(&M::revertFromVersion33, control); }
    void getUpdate33Applied_data();
    void getUpdate33Applied() { checkProbe(&M::getUpdate33Applied); }
    void version33TakesVersion30Away();

    void updateToVersion34_data();
    void updateToVersion34() { checkStep(&M::updateToVersion34, maps); }
    void revertFromVersion34_data();
    void revertFromVersion34() { checkStep(&M::revertFromVersion34, maps); }
    void getUpdate34Applied_data();
    void getUpdate34Applied() { checkProbe(&M::getUpdate34Applied); }

    void secondRun();
};

void Versions33To34Test::updateToVersion33_data()
{
    const auto row = addColumns<StepRun>("run");

    const QString table = "systemControl";
    const QStringList succeeded("Migration to version 33 was successful.");
    const QStringList failed("Migration to version 33 failed");
    const QString derived =
        "CREATE TABLE \"systemControl\" (id INTEGER , brightness INTEGER NOT NULL  DEFAULT 80 , "
        "networkingMode INTEGER DEFAULT 0, apSsid TEXT DEFAULT 'TK-1234567', "
        "apPassword TEXT DEFAULT 'tk629537', PRIMARY KEY(id) )";
    row("the access point replaces the wireless switch",
        {registered + controlAt32, succeeded, 33, {derived, "1, 90, 0, 'TK-1234567', 'tk629537'"}});
    row("a wireless switch in another letter case is dropped too",
        {registered + QByteArray(controlAt32).replace("wireless", "WIRELESS"),
         succeeded,
         33,
         {derived, "1, 90, 0, 'TK-1234567', 'tk629537'"}});
    row("there is no wireless switch: the table is still rebuilt",
        {registered + "CREATE TABLE systemControl (id INTEGER PRIMARY KEY, "
                      "brightness INTEGER NOT NULL DEFAULT 80)",
         succeeded,
         33,
         {derived}});
    row("an existing access point keeps its values and its defaults",
        {registered + controlAt33,
         succeeded,
         33,
         {"CREATE TABLE \"systemControl\" (id INTEGER , "
          "brightness INTEGER NOT NULL  DEFAULT 80 , networkingMode INTEGER DEFAULT 0 , "
          "apSsid TEXT DEFAULT 'TK-1' , apPassword TEXT DEFAULT 'tk2' , "
          "PRIMARY KEY(id) )",
          "1, 90, 2, 'Hof', 'geheim'"}});

    // The first failure stops the step.
    row("there is no table",
        {registered,
         columnStays("wirelessEnabled", table, rebuildRefused) + failed,
         versionUnmoved,
         {}});
    row("the wireless switch belongs to the primary key: nothing is added",
        {"CREATE TABLE systemControl (wirelessEnabled PRIMARY KEY, id)",
         columnStays("wirelessEnabled", table, keyRefused) + failed,
         versionUnmoved,
         {"CREATE TABLE systemControl (wirelessEnabled PRIMARY KEY, id)"}});
    row("the networking mode in another letter case: no access point is added",
        {"CREATE TABLE systemControl (id PRIMARY KEY, NetworkingMode, wirelessEnabled)",
         duplicateNotAdded("networkingMode", table) + failed,
         versionUnmoved,
         {"CREATE TABLE \"systemControl\" (id  , NetworkingMode  , PRIMARY KEY(id) )"}});
    row("the network name in another letter case: no password is added",
        {"CREATE TABLE systemControl (id PRIMARY KEY, ApSsid, wirelessEnabled)",
         duplicateNotAdded("apSsid", table) + failed,
         versionUnmoved,
         {"CREATE TABLE \"systemControl\" (id  , ApSsid  , "
          "networkingMode INTEGER DEFAULT 0, PRIMARY KEY(id) )"}});
    row("the password in another letter case",
        {"CREATE TABLE systemControl (id PRIMARY KEY, ApPassword, wirelessEnabled)",
         duplicateNotAdded("apPassword", table) + failed,
         versionUnmoved,
         {"CREATE TABLE \"systemControl\" (id  , ApPassword  , "
          "networkingMode INTEGER DEFAULT 0, apSsid TEXT DEFAULT 'TK-', "
          "PRIMARY KEY(id) )"}});
    addRowOfClosedConnection(columnStays("wirelessEnabled", table, "") + failed);
}

void Versions33To34Test::version33DerivesDefaults_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("defaults");

    const auto row = [](const char *name, const QByteArray &values, const QString &defaults) {
        QTest::newRow(name) << registration + "INSERT INTO registrationInfo VALUES" + values
                            << defaults;
    };
    row("the last six digits of the barcode",
        "('94071A', 1234567, 1804629537)",
        "'TK-1234567', 'tk629537'");
    row("a barcode of six digits", "('', 1, 629537)", "'TK-1', 'tk629537'");
    row("a barcode of five digits", "('', 1, 29537)", "'TK-1', 'tk29537'");
    row("a barcode of one digit", "('', 0, 0)", "'TK-0', 'tk0'");
    row("zeros among the last six digits", "('', 1, 1000000042)", "'TK-1', 'tk000042'");
    row("negative numbers", "('', -5, -12345)", "'TK--5', 'tk-12345'");
    row("a negative barcode of more than six characters",
        "('', -5, -1804629537)",
        "'TK--5', 'tk629537'");
    row("the greatest and the smallest 32-bit number",
        "('', 2147483647, -2147483648)",
        "'TK-2147483647', 'tk483648'");
    row("of longer numbers the lowest 32 bits are kept",
        "('', 4294967297, 3000000000)",
        "'TK-1', 'tk967296'");
    row("NULL", "('', NULL, NULL)", "'TK-0', 'tk0'");
    row("text that is no number", "('', 'O''Neill', '')", "'TK-0', 'tk0'");
    row("text that begins with a number", "('', '12a', '1804629537-1')", "'TK-0', 'tk0'");
    row("text that is a number", "('', '1234567', '1804629537')", "'TK-1234567', 'tk629537'");
    row("of two rows the first one counts",
        "('', 1, 111111), ('', 2, 222222)",
        "'TK-1', 'tk111111'");
    QTest::newRow("there is no row") << registration << "'TK-', 'tk'";
    QTest::newRow("there is no table") << QByteArray() << "'TK-', 'tk'";
    QTest::newRow("a table without a barcode")
        << QByteArray("CREATE TABLE registrationInfo (serialNumber);"
                      "INSERT INTO registrationInfo VALUES(1234567)")
        << "'TK-', 'tk'";
}

void Versions33To34Test::version33DerivesDefaults()
{
    QFETCH(QByteArray, before);
    device->sql(before + ";" + controlAt32);
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    const QStringList registrationBefore = device->contents({"registrationInfo"});

    migrator.updateToVersion33();

    COMPARE_LINES(device->takeLogLines(), QStringList("Migration to version 33 was successful."));
    QCOMPARE(migrator.currentVersion(), 33);
    device->sql("INSERT INTO systemControl(id) VALUES(2)");
    QFETCH(QString, defaults);
    COMPARE_LINES(
        device->rows("SELECT apSsid, apPassword FROM systemControl"),
        QStringList({defaults, defaults}));
    COMPARE_LINES(device->contents({"registrationInfo"}), registrationBefore);
}

void Versions33To34Test::revertFromVersion33_data()
{
    const auto row = addColumns<StepRun>("run");

    const QString table = "systemControl";
    row("the wireless switch replaces the access point and cannot be NULL",
        {controlAt33,
         {},
         32,
         {"CREATE TABLE \"systemControl\" (id INTEGER , "
          "brightness INTEGER NOT NULL  DEFAULT 80 , "
          "wirelessEnabled BOOLEAN NOT NULL DEFAULT(0), PRIMARY KEY(id) )",
          "1, 90, 0"}});
    row("there is no access point: the switch is still added",
        {"CREATE TABLE systemControl (id INTEGER PRIMARY KEY)",
         {},
         32,
         {"CREATE TABLE \"systemControl\" (id INTEGER , "
          "wirelessEnabled BOOLEAN NOT NULL DEFAULT(0), PRIMARY KEY(id) )"}});

    // The first failure stops the step.
    row("there is no table",
        {"", columnStays("apSsid", table, rebuildRefused), versionUnmoved, {}});
    row("the network name belongs to the primary key: everything stays",
        {"CREATE TABLE systemControl (networkingMode, apPassword, apSsid PRIMARY KEY)",
         columnStays("apSsid", table, keyRefused),
         versionUnmoved,
         {"CREATE TABLE systemControl (networkingMode, apPassword, "
          "apSsid PRIMARY KEY)"}});
    row("the password belongs to the primary key: only the network name is dropped",
        {"CREATE TABLE systemControl (networkingMode, apPassword PRIMARY KEY, apSsid)",
         columnStays("apPassword", table, keyRefused),
         versionUnmoved,
         {"CREATE TABLE \"systemControl\" (networkingMode  , apPassword  , "
          "PRIMARY KEY(apPassword) )"}});
    row("the networking mode belongs to the primary key: no switch is added",
        {"CREATE TABLE systemControl (id, networkingMode PRIMARY KEY, apPassword, apSsid)",
         columnStays("networkingMode", table, keyRefused),
         versionUnmoved,
         {"CREATE TABLE \"systemControl\" (id  , networkingMode  , "
          "PRIMARY KEY(networkingMode) )"}});
    row("the wireless switch is there already",
        {controlAt32,
         addedBefore("wirelessEnabled", table),
         versionUnmoved,
         {"CREATE TABLE \"systemControl\" (id INTEGER , "
          "brightness INTEGER NOT NULL  DEFAULT 80 , wirelessEnabled BOOLEAN DEFAULT 0 , "
          "PRIMARY KEY(id) )",
          "1, 90, 1"}});
    addRowOfClosedConnection(columnStays("apSsid", table, ""));
}

void Versions33To34Test::getUpdate33Applied_data()
{
    const auto row = addColumns<QByteArray, bool>("before", "applied");
    row("the access point and no wireless switch",
        "CREATE TABLE systemControl (networkingMode, apSsid, apPassword)",
        true);
    row("everything in another letter case",
        "CREATE TABLE SYSTEMCONTROL (NETWORKINGMODE, APSSID, APPASSWORD)",
        true);
    row("the wireless switch is there",
        "CREATE TABLE systemControl (networkingMode, apSsid, apPassword, "
        "wirelessEnabled)",
        false);
    row("the wireless switch is there in another letter case",
        "CREATE TABLE systemControl (networkingMode, apSsid, apPassword, "
        "WIRELESSENABLED)",
        false);
    row("no networking mode", "CREATE TABLE systemControl (apSsid, apPassword)", false);
    row("no network name", "CREATE TABLE systemControl (networkingMode, apPassword)", false);
    row("no password", "CREATE TABLE systemControl (networkingMode, apSsid)", false);
    row("there is no table", "", false);
}

void Versions33To34Test::version33TakesVersion30Away()
{
    device->sql(registered + controlAt32);
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    QVERIFY(migrator.getUpdate30Applied());

    migrator.updateToVersion33();
    QVERIFY(!migrator.getUpdate30Applied());
    QVERIFY(migrator.getUpdate33Applied());
    const QStringList before = device->dump();

    migrator.updateToVersion30();
    QVERIFY(migrator.getUpdate30Applied());
    QVERIFY(!migrator.getUpdate33Applied());
    migrator.updateToVersion33();

    COMPARE_LINES(
        device->takeLogLines(),
        QStringList(
            {"Migration to version 33 was successful.",
             "Migration to version 30 was successful.",
             "Migration to version 33 was successful."}));
    COMPARE_LINES(device->rows("SELECT * FROM systemControl"), QStringList(before.last()));
    QVERIFY(migrator.getUpdate33Applied());
}

void Versions33To34Test::updateToVersion34_data()
{
    const auto row = addColumns<StepRun>("run");

    const QString table = "workOrderRxMaps";
    const QStringList succeeded("Migration to version 34 was successful.");
    const QStringList failed("Migration to version 34 failed");
    row("both rates are added as NULL",
        {mapsAt33 + insertMaps + "(3, 'wo1')", succeeded, 34, {mapsAt34, "3, 'wo1', NULL, NULL"}});
    row("existing rates stay as they are",
        {mapsAt34 + insertMaps + "(3, 'wo1', 0.5, 1.25)",
         succeeded,
         34,
         {mapsAt34, "3, 'wo1', 0.5, 1.25"}});
    row("only the second rate is there",
        {"CREATE TABLE workOrderRxMaps (userConvRate REAL)",
         succeeded,
         34,
         {"CREATE TABLE workOrderRxMaps (userConvRate REAL, woConvRate REAL)"}});
    row("the first rate in another letter case: the second one is not added",
        {"CREATE TABLE workOrderRxMaps (WoConvRate)",
         duplicateNotAdded("woConvRate", table) + failed,
         versionUnmoved,
         {"CREATE TABLE workOrderRxMaps (WoConvRate)"}});
    row("the second rate in another letter case",
        {"CREATE TABLE workOrderRxMaps (UserConvRate)",
         duplicateNotAdded("userConvRate", table) + failed,
         versionUnmoved,
         {"CREATE TABLE workOrderRxMaps (UserConvRate, woConvRate REAL)"}});
    row("there is no table",
        {"", notAddedToNothing("woConvRate", table) + failed, versionUnmoved, {}});
    addRowOfClosedConnection(notAdded("woConvRate", table, "") + failed);
}

void Versions33To34Test::revertFromVersion34_data()
{
    const auto row = addColumns<StepRun>("run");

    const QString table = "workOrderRxMaps";
    row("both rates are dropped, maps still follow their file",
        {mapsAt34 + insertMaps + "(3, 'wo1', 0.5, 1.25), (7, 'wo2', NULL, NULL)",
         {},
         33,
         {mapsRebuilt, "3, 'wo1'", "7, 'wo2'"}});
    row("the rates are not there",
        {mapsAt33 + insertMaps + "(3, 'wo1')", {}, 33, {mapsRebuilt, "3, 'wo1'"}});
    row("there is no table",
        {"", columnStays("woConvRate", table, rebuildRefused), versionUnmoved, {}});
    row("the first rate belongs to the primary key: the second one stays too",
        {"CREATE TABLE workOrderRxMaps (woConvRate PRIMARY KEY, userConvRate)",
         columnStays("woConvRate", table, keyRefused),
         versionUnmoved,
         {"CREATE TABLE workOrderRxMaps (woConvRate PRIMARY KEY, userConvRate)"}});
    row("the second rate belongs to the primary key: the first one is dropped",
        {"CREATE TABLE workOrderRxMaps (id, woConvRate, userConvRate PRIMARY KEY)",
         columnStays("userConvRate", table, keyRefused),
         versionUnmoved,
         {"CREATE TABLE \"workOrderRxMaps\" (id  , userConvRate  , "
          "PRIMARY KEY(userConvRate) )"}});
    addRowOfClosedConnection(columnStays("woConvRate", table, ""));
}

void Versions33To34Test::getUpdate34Applied_data()
{
    const auto row = addColumns<QByteArray, bool>("before", "applied");
    row("both rates", mapsAt34, true);
    row("both rates in another letter case",
        "CREATE TABLE WORKORDERRXMAPS (WOCONVRATE, USERCONVRATE)",
        true);
    row("only the first rate", "CREATE TABLE workOrderRxMaps (woConvRate)", false);
    row("only the second rate", "CREATE TABLE workOrderRxMaps (userConvRate)", false);
    row("there is no table", "", false);
}

void Versions33To34Test::secondRun()
{
    device->sql(registered + controlAt32 + mapsAt33);
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    migrator.updateToVersion33();
    migrator.updateToVersion34();
    const QStringList controlAfterFirst = device->rows("SELECT * FROM systemControl");
    const QStringList mapsAfterFirst = device->contents(maps);

    migrator.updateToVersion33();
    migrator.updateToVersion34();

    const QStringList succeeded = {
        "Migration to version 33 was successful.", "Migration to version 34 was successful."};
    COMPARE_LINES(device->takeLogLines(), succeeded + succeeded);
    QCOMPARE(migrator.currentVersion(), 34);
    // The second rebuild changes the CREATE text of systemControl.
    COMPARE_LINES(device->rows("SELECT * FROM systemControl"), controlAfterFirst);
    COMPARE_LINES(device->contents(maps), mapsAfterFirst);
}

QTEST_APPLESS_MAIN(Versions33To34Test)
#include "versions_33_to_34_test.moc"

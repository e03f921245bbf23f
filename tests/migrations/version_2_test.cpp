#include "support/scratch_device.h"

#include <QtTest>

#include <sqlite3.h>

namespace
{
const char *const version1Table =
    "CREATE TABLE productControl_productSettings (productId varchar(40) primary key, displayName "
    "varchar(40), tankCapacity REAL, machineConfigId INTEGER, maxAchievableRate REAL, "
    "timeToApplication REAL, lastAppliedRate REAL, FOREIGN KEY (machineConfigId) REFERENCES "
    "MC_MachineConfig(id) ON DELETE CASCADE)";
const char *const version2Table =
    "CREATE TABLE productControl_productSettings (productId varchar(40), displayName varchar(40), "
    "tankCapacity REAL, machineConfigId INTEGER, maxAchievableRate REAL, timeToApplication REAL, "
    "lastAppliedRate REAL, calibratedInUsUnits BOOLEAN DEFAULT 0, PRIMARY KEY (productId, "
    "machineConfigId),FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE "
    "CASCADE)";
const char *const readSettings = "SELECT * FROM productControl_productSettings";
} // namespace

class Version2Test : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void forwardCopiesEveryRow();

private:
    std::unique_ptr<ScratchDevice> device;
};

void Version2Test::init()
{
    device = std::make_unique<ScratchDevice>();
    device->recordVersion(1);
    device->sql("CREATE TABLE MC_MachineConfig (id INTEGER PRIMARY KEY);"
                "INSERT INTO MC_MachineConfig VALUES(1), (2);");
}

void Version2Test::cleanup()
{
    device.reset();
}

void Version2Test::forwardCopiesEveryRow()
{
    device->sql(version1Table);
    device->sql("INSERT INTO productControl_productSettings VALUES"
                "('p1', 'Winterweizen', 1200.5, 1, 40, 0.35, 12.25),"
                "('p2', 'Озимая рожь', 1234567.89, 2, 1e-7, 0.00012345678, 2.5);");
    DatabaseMigrator &migrator = device->start();
    device->takeLog();

    migrator.updateToVersion2();

    QCOMPARE(
        device->takeLog(), QString("Database migration to version 2 completed successfully!\n"));
    QCOMPARE(migrator.currentVersion(), 2);
    QCOMPARE(device->createText("productControl_productSettings"), QString(version2Table));
    COMPARE_LINES(
        device->rows(readSettings),
        QStringList(
            {"'p1', 'Winterweizen', 1200.5, 1, 40.0, 0.35, 12.25, 0",
             "'p2', 'Озимая рожь', 1234570.0, 2, 1e-07, 0.000123457, 2.5, 0"}));
    QCOMPARE(device->createText("productControl_productSettings_old"), QString());
}

QTEST_APPLESS_MAIN(Version2Test)
#include "version_2_test.moc"

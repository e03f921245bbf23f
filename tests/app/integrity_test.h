#pragma once

#include "support/device_test.h"

// The parts that the tests of the integrity check and of its repairs share.

inline const QByteArray productTables =
    "CREATE TABLE PC_ProductConfig (id INTEGER PRIMARY KEY, displayName TEXT);"
    "CREATE TABLE PC_MixToProductConfigBridge (mixId INTEGER, productConfigId INTEGER);"
    "CREATE TABLE PC_PlanterVarietyToProductConfigBridge (varietyId INTEGER, "
    "productConfigId INTEGER);"
    "CREATE TABLE PC_ProductConfigToMachineConfigBridge (machineConfigId INTEGER, "
    "activeProductConfigId INTEGER);";

/// A page holds about forty rows. The rows 5 and 400 are broken.
inline const QByteArray manyChildren =
    "CREATE TABLE parents (id INTEGER PRIMARY KEY);INSERT INTO parents VALUES(1);"
    "CREATE TABLE children (id INTEGER PRIMARY KEY, parentId INTEGER REFERENCES parents(id), "
    "notes TEXT);"
    "INSERT INTO children WITH RECURSIVE numbers(n) AS (VALUES(1) UNION ALL "
    "SELECT n + 1 FROM numbers WHERE n < 500) "
    "SELECT n, CASE WHEN n IN (5, 400) THEN 9 ELSE 1 END, hex(zeroblob(50)) FROM numbers;";

inline const QString passed = "Integrity check passed.\n";
inline const QString failed = "Integrity check FAILED! Integrity check results...\n";
inline const QString failure1 =
    "Failure 1 while removing extraneous product config data. Error was: ";
inline const QString failure2 =
    "Failure 2 while removing extraneous product config data. Error was: ";
inline const QString failure3 =
    "Failure 3 while removing extraneous product config data. Error was: ";

/// The three failure lines of a database where every statement has the same error.
inline QString everyFailure(const QString &error)
{
    return failure1 + error + "\n" + failure2 + error + "\n" + failure3 + error + "\n";
}

/// A test program on a device with the tables of the products.
class IntegrityTest : public DeviceTest
{
protected:
    void init() override
    {
        DeviceTest::init();
        device->sql(productTables);
    }

    /// Runs the check and returns what it logged.
    QString check()
    {
        DatabaseMigrator &migrator = start();
        migrator.checkDatabaseIntegrity();
        return device->takeLog();
    }
};

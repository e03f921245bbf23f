#include "guard/run_log.h"

#include <QtTest>

namespace
{
const QByteArray opening = "\n*****Beginning database migration from version: 24 to version: 26\n"
                           "Integrity check passed.\n";
const QByteArray closing = "\n*****Updating version in DB to: 26 with software version: 4.2.0\n";
const QByteArray success25 = "Migration to version 25 was successful.\n";
const QByteArray success26 = "Migration to version 26 was successful.\n";
} // namespace

class RunLogTest : public QObject
{
    Q_OBJECT

private slots:
    void findsFailedSteps_data();
    void findsFailedSteps();
    void findsLackOfRoom_data();
    void findsLackOfRoom();
    void knowsTheLinesThatCloseAStep_data();
    void knowsTheLinesThatCloseAStep();
    void knowsAWholeLog();
};

void RunLogTest::findsFailedSteps_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<bool>("failed");

    const QByteArray walk = opening + success25 + success26 + closing;
    QTest::newRow("every step has succeeded") << walk << 24 << 26 << false;
    QTest::newRow("a step says so")
        << opening + success25 + "Migration to version 26 FAILED!\n" + closing << 24 << 26 << true;
    QTest::newRow("a step without a line of its own")
        << opening + success26 + closing << 24 << 26 << true;
    QTest::newRow("the toolkit says so")
        << opening +
               "DatabaseMigrator::dropColumnSaveParameters - Failed to drop column named a\n" +
               success25 + success26 + closing
        << 24 << 26 << true;
    QTest::newRow("a step is applied again and fails")
        << opening + "Corruption detected: applying update to db for version 21\n" +
               "Migration to version 21 FAILED!\n" + success25 + success26 + closing
        << 24 << 26 << true;
    QTest::newRow("damage is no step's")
        << opening + "Failure 1 while removing extraneous product config data. Error was: x\n" +
               success25 + success26 + closing
        << 24 << 26 << false;
    QTest::newRow("reference data are no step's")
        << walk + "UNIQUE constraint failed: PC_Ingredient.id Unable to fetch row\n"
        << 24 << 26 << false;
    QTest::newRow("a failure at start-up is no step's")
        << "DatabaseMigrator::addColumnIfNotExists - Failed to add column named MirelVersion\n" +
               walk
        << 24 << 26 << false;
    QTest::newRow("there is no step to version 1")
        << opening + "Database migration to version 2 completed successfully!\n"
        << 0 << 2 << false;
    QTest::newRow("nothing to walk") << opening << 26 << 26 << false;
    QTest::newRow("a way back without lines") << opening + closing << 26 << 24 << false;
    QTest::newRow("a way back that says so")
        << opening + "Reverting from version 26 FAILED!!\n" + closing << 26 << 24 << true;
    QTest::newRow("a way back that cannot create a table")
        << opening + "Failed to create preferredGpsSolutions table.\n" + closing << 26 << 20
        << true;
    QTest::newRow("a table that could not be put back")
        << opening + "Could not rename table back to reverseSenseSettings while attempting\n" +
               closing
        << 28 << 29 << true;
    QTest::newRow("a log without anything") << QByteArray() << 24 << 26 << true;
}

void RunLogTest::findsFailedSteps()
{
    QFETCH(QByteArray, text);
    QFETCH(int, from);
    QFETCH(int, to);
    QTEST(runLog::hasFailedStep(text, from, to), "failed");
}

void RunLogTest::findsLackOfRoom_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<bool>("tells");

    QTest::newRow("full") << QByteArray("database or disk is full Unable to fetch row") << true;
    QTest::newRow("failing") << QByteArray("disk I/O error") << true;
    QTest::newRow("memory") << QByteArray("out of memory Unable to execute statement") << true;
    QTest::newRow("something else") << QByteArray("no such table: languages") << false;
    QTest::newRow("nothing") << QByteArray() << false;
}

void RunLogTest::findsLackOfRoom()
{
    QFETCH(QByteArray, line);
    QTEST(runLog::tellsOfLackOfRoom(line), "tells");
}

void RunLogTest::knowsTheLinesThatCloseAStep_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<bool>("closes");

    QTest::newRow("forward") << QByteArray("Migration to version 26 was successful.") << true;
    QTest::newRow("one of the first") << QByteArray("Database migration to version 2 completed "
                                                    "successfully!")
                                      << true;
    QTest::newRow("failed") << QByteArray("Migration to version 33 failed") << true;
    QTest::newRow("back") << QByteArray("Reverting from version 29 was successful.") << true;
    QTest::newRow("the beginning of a run")
        << QByteArray("*****Beginning database migration from version: 1 to version: 34") << false;
    QTest::newRow("the end of one") << QByteArray("*****Updating version in DB to: 34") << false;
    QTest::newRow("a part of a step")
        << QByteArray("DatabaseMigrator::addColumn - Failed to add column named a to b") << false;
    QTest::newRow("nothing") << QByteArray() << false;
}

void RunLogTest::knowsTheLinesThatCloseAStep()
{
    QFETCH(QByteArray, line);
    QTEST(runLog::closesAStep(line), "closes");
}

void RunLogTest::knowsAWholeLog()
{
    QVERIFY(runLog::isWhole(opening));
    QVERIFY(!runLog::isWhole(opening.chopped(1)));
    QVERIFY(!runLog::isWhole(QByteArray()));
}

QTEST_APPLESS_MAIN(RunLogTest)
#include "run_log_test.moc"

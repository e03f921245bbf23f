#include "guard/run_log.h"

#include <QtTest>

class RunLogTest : public QObject
{
    Q_OBJECT

private slots:
    void findsLackOfRoom_data();
    void findsLackOfRoom();
    void knowsTheLinesThatCloseAStep_data();
    void knowsTheLinesThatCloseAStep();
    void knowsAWholeLog();
};

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
    const QByteArray text = "Integrity check passed.\n";
    QVERIFY(runLog::isWhole(text));
    QVERIFY(!runLog::isWhole(text.chopped(1)));
    QVERIFY(!runLog::isWhole(QByteArray()));
}

QTEST_APPLESS_MAIN(RunLogTest)
#include "run_log_test.moc"

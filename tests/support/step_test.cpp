#include "support/step_test.h"

#include <QSqlDatabase>
#include <QSqlQuery>

DatabaseMigrator &StepTest::startAt(int version)
{
    device->recordVersion(version);
    DatabaseMigrator &migrator = device->start();
    QSqlQuery("PRAGMA synchronous = OFF");
    QSqlQuery("PRAGMA journal_mode = MEMORY");
    device->sql("DROP TABLE tableVersion");
    device->takeLog();
    return migrator;
}

void StepTest::checkStep(
    Step step, const std::function<QStringList()> &read, const QList<QByteArray> &untouched)
{
    QFETCH(StepRun, run);
    device->sql(run.before);
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    for (const Refusal &refusal : run.refusals) {
        device->refuse(refusal.action, refusal.object, refusal.part);
    }
    if (run.connection == Connection::Closed) {
        QSqlDatabase::database().close();
    }
    const QStringList untouchedBefore = device->contents(untouched);

    (migrator.*step)();

    COMPARE_LINES(device->takeLogLines(), run.log);
    QCOMPARE(migrator.currentVersion(), run.version);
    COMPARE_LINES(read(), run.after);
    COMPARE_LINES(device->contents(untouched), untouchedBefore);
}

void StepTest::checkStep(
    Step step, const QList<QByteArray> &tables, const QList<QByteArray> &untouched)
{
    checkStep(
        step,
        [&] { return tables.isEmpty() ? device->dump() : device->contents(tables); },
        untouched);
}

void StepTest::checkStep()
{
    QFETCH(Step, step);
    checkStep(step);
}

void StepTest::checkSecondRun(DatabaseMigrator &migrator)
{
    QFETCH(Step, step);
    QFETCH(int, version);
    QFETCH(QStringList, log);
    const QStringList before = device->dump();
    (migrator.*step)();
    QCOMPARE(migrator.currentVersion(), version);
    device->takeLog();
    const QStringList afterFirst = device->dump();
    QVERIFY(afterFirst != before);

    (migrator.*step)();

    COMPARE_LINES(device->takeLogLines(), log);
    QCOMPARE(migrator.currentVersion(), version);
    COMPARE_LINES(device->dump(), afterFirst);
}

void StepTest::checkSecondRun()
{
    QFETCH(QByteArray, before);
    device->sql(before);
    checkSecondRun(startAt(versionUnmoved));
}

void StepTest::checkProbe(Probe probe)
{
    QFETCH(QByteArray, before);
    device->sql(before);
    const DatabaseMigrator &migrator = startAt(versionUnmoved);
    const QStringList dumpBefore = device->dump();

    QTEST((migrator.*probe)(), "applied");

    COMPARE_LINES(device->takeLogLines(), QStringList());
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    COMPARE_LINES(device->dump(), dumpBefore);
}

void StepTest::checkProbe()
{
    QFETCH(Probe, probe);
    checkProbe(probe);
}

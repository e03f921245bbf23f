// The catalogue's table is local to this source, so the test includes it. The undefined-behaviour
// sanitizer does not allow pointers to members to be compared at compile time, so the test
// compares.
#include "app/registry.cpp" // NOLINT(bugprone-suspicious-include)
#include "support/step_test.h"

#include <QSqlDatabase>

class RegistryTest : public StepTest
{
    Q_OBJECT

private slots:
    void everyOperationIsListedOnce();
    void probesOnAClosedConnection_data();
    void probesOnAClosedConnection();
};

void RegistryTest::everyOperationIsListedOnce()
{
    QList<Step> steps;
    QList<Probe> probes;
    for (const Entry &entry : catalogue) {
        for (const auto step : {entry.update, entry.revert}) {
            QVERIFY2(!steps.contains(step), QByteArray::number(entry.version));
            steps << step;
        }
        QVERIFY2(!probes.contains(entry.applied), QByteArray::number(entry.version));
        probes << entry.applied;
    }
}

void RegistryTest::probesOnAClosedConnection_data()
{
    QTest::addColumn<Probe>("probe");
    QTest::addColumn<bool>("applied");

    // Where a table is missing these versions have nothing to repair, or their probe looks at
    // nothing.
    const QSet<int> applied = {2, 7, 9, 10, 11, 14, 16, 17, 22, 24, 25};
    for (const Entry &entry : catalogue) {
        QTest::addRow("version %d", entry.version)
            << Probe(entry.applied) << applied.contains(entry.version);
    }
}

void RegistryTest::probesOnAClosedConnection()
{
    QFETCH(Probe, probe);
    const DatabaseMigrator &migrator = startAt(versionUnmoved);
    QSqlDatabase::database().close();

    QTEST((migrator.*probe)(), "applied");

    COMPARE_LINES(device->takeLogLines(), QStringList());
}

QTEST_APPLESS_MAIN(RegistryTest)
#include "registry_test.moc"

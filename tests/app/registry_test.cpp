// The catalogue's table is local to the source. Pointers to members cannot be compared at compile time
// under the undefined-behaviour sanitizer, so this test does it.
#include "app/registry.cpp" // NOLINT(bugprone-suspicious-include)

#include <QtTest>

class RegistryTest : public QObject
{
    Q_OBJECT

private slots:
    void everyOperationIsListedOnce();
};

void RegistryTest::everyOperationIsListedOnce()
{
    QList<void (M::*)()> steps;
    QList<bool (M::*)() const> probes;
    for (const Entry &entry : catalogue) {
        for (const auto step : {entry.update, entry.revert}) {
            QVERIFY2(!steps.contains(step), QByteArray::number(entry.version));
            steps << step;
        }
        QVERIFY2(!probes.contains(entry.applied), QByteArray::number(entry.version));
        probes << entry.applied;
    }
}

QTEST_APPLESS_MAIN(RegistryTest)
#include "registry_test.moc"

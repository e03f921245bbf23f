#include "schema/statements.h"

#include "support/scratch_device.h"

#include <QtTest>

class StatementsTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void executeRunsOneStatement();
    void queryOnlyWalksForward();
    void firstValue_data();
    void firstValue();
    void firstValueLeavesNothingLocked();
    void allSucceeded();
    void allSucceededEvaluatesEverything();

private:
    std::unique_ptr<ScratchDevice> device;
};

void StatementsTest::init()
{
    device = std::make_unique<ScratchDevice>();
    device->sql("CREATE TABLE field (id INTEGER, name TEXT);"
                "INSERT INTO field VALUES(9007199254740993, 'Größe'), (2, NULL)");
    device->start();
}

void StatementsTest::cleanup()
{
    device.reset();
}

void StatementsTest::executeRunsOneStatement()
{
    QVERIFY(execute("DELETE FROM field WHERE id = 2"));
    QVERIFY(!execute("DELETE FROM missing"));

    COMPARE_LINES(device->rows("SELECT * FROM field"), QStringList("9007199254740993, 'Größe'"));
}

void StatementsTest::queryOnlyWalksForward()
{
    QSqlQuery query = forwardOnlyQuery();

    QVERIFY(query.isForwardOnly());
    QVERIFY(query.exec("SELECT id FROM field"));
}

void StatementsTest::firstValue_data()
{
    QTest::addColumn<QString>("sql");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("column 0 of the first row")
        << "SELECT name, id FROM field ORDER BY id DESC" << QVariant("Größe");
    QTest::newRow("64 bits") << "SELECT max(id) FROM field"
                             << QVariant(qlonglong{9007199254740993});
    QTest::newRow("no row") << "SELECT id FROM field WHERE id = 7" << QVariant();
    QTest::newRow("a failure") << "SELECT id FROM missing" << QVariant();
}

void StatementsTest::firstValue()
{
    QFETCH(QString, sql);

    QTEST(::firstValue(sql), "value");
}

void StatementsTest::firstValueLeavesNothingLocked()
{
    ::firstValue("SELECT id FROM field");

    QVERIFY(execute("DROP TABLE field"));
}

void StatementsTest::allSucceeded()
{
    QVERIFY(::allSucceeded({}));
    QVERIFY(::allSucceeded({true}));
    QVERIFY(::allSucceeded({true, true, true}));
    QVERIFY(!::allSucceeded({false, true, true}));
    QVERIFY(!::allSucceeded({true, true, false}));
}

void StatementsTest::allSucceededEvaluatesEverything()
{
    QVERIFY(!::allSucceeded({
        execute("DELETE FROM missing"),
        execute("INSERT INTO field VALUES(3, 'a')"),
        execute("UPDATE field SET name = 'b' WHERE id = 3"),
    }));

    COMPARE_LINES(
        device->rows("SELECT * FROM field"),
        QStringList({"9007199254740993, 'Größe'", "2, NULL", "3, 'b'"}));
}

QTEST_APPLESS_MAIN(StatementsTest)
#include "statements_test.moc"

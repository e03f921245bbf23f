#include "schema/statements.h"

#include "support/device_test.h"

#include <QSqlError>

class StatementsTest : public DeviceTest
{
    Q_OBJECT

private slots:
    void init() override;

    void executeQuietlyRunsOneStatement();
    void queryOnlyWalksForward();
    void countRows_data();
    void countRows();
    void executeWithBindsValues();
    void firstValue_data();
    void firstValue();
    void firstValueLeavesNothingLocked();
    void allSucceeded();
    void allSucceededEvaluatesEverything();
};

void StatementsTest::init()
{
    DeviceTest::init();
    device->sql("CREATE TABLE field (id INTEGER, name TEXT);"
                "INSERT INTO field VALUES(9007199254740993, 'Größe'), (2, NULL)");
    device->start();
}

void StatementsTest::executeQuietlyRunsOneStatement()
{
    QVERIFY(executeQuietly("DELETE FROM field WHERE id = 2"));
    QVERIFY(!executeQuietly("DELETE FROM missing"));

    COMPARE_LINES(device->rows("SELECT * FROM field"), QStringList("9007199254740993, 'Größe'"));
}

void StatementsTest::queryOnlyWalksForward()
{
    QSqlQuery query = forwardOnlyQuery();

    QVERIFY(query.isForwardOnly());
    QVERIFY(query.exec("SELECT id FROM field"));
}

void StatementsTest::countRows_data()
{
    const auto row = addColumns<QString, int>("select", "rows");
    row("every row", "SELECT id FROM field", 2);
    row("the rows with a value", "SELECT id FROM field WHERE name = :name", 1);
    row("there is no row", "SELECT id FROM field WHERE id < 0", 0);
    row("only the rows before one that cannot be read",
        "SELECT abs(CASE id WHEN 2 THEN -9223372036854775807 - 1 END) FROM field",
        1);
    row("there is no table", "SELECT id FROM missing", 0);
}

void StatementsTest::countRows()
{
    QFETCH(QString, select);

    QTEST(static_cast<int>(::countRows(select, {{":name", "Größe"}})), "rows");
}

void StatementsTest::executeWithBindsValues()
{
    QSqlQuery query;

    QVERIFY(executeWith(
        query, "INSERT INTO field VALUES(:id, :name)", {{":name", "it's"}, {":id", 3}}));
    QVERIFY(!executeWith(query, "INSERT INTO missing VALUES(:id)", {{":id", 4}}));
    QCOMPARE(query.lastError().databaseText(), QString("no such table: missing"));
    COMPARE_LINES(device->rows("SELECT * FROM field WHERE id = 3"), QStringList("3, 'it''s'"));
}

void StatementsTest::firstValue_data()
{
    const auto row = addColumns<QString, QVariant>("sql", "value");
    row("the first column of the first row",
        "SELECT name, id FROM field ORDER BY id DESC",
        QVariant("Größe"));
    row("a value of 64 bits", "SELECT max(id) FROM field", QVariant(qlonglong{9007199254740993}));
    row("there is no row", "SELECT id FROM field WHERE id = 7", QVariant());
    row("the statement fails", "SELECT id FROM missing", QVariant());
}

void StatementsTest::firstValue()
{
    QFETCH(QString, sql);

    QTEST(::firstValue(sql), "value");
}

void StatementsTest::firstValueLeavesNothingLocked()
{
    ::firstValue("SELECT id FROM field");

    QVERIFY(executeQuietly("DROP TABLE field"));
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
        executeQuietly("DELETE FROM missing"),
        executeQuietly("INSERT INTO field VALUES(3, 'a')"),
        executeQuietly("UPDATE field SET name = 'b' WHERE id = 3"),
    }));

    COMPARE_LINES(
        device->rows("SELECT * FROM field"),
        QStringList({"9007199254740993, 'Größe'", "2, NULL", "3, 'b'"}));
}

QTEST_APPLESS_MAIN(StatementsTest)
#include "statements_test.moc"

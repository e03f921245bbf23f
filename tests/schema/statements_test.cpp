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
    void countRows_data();
    void countRows();
    void limitedWalk_data();
    void limitedWalk();
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

void StatementsTest::countRows_data()
{
    QTest::addColumn<QString>("select");
    QTest::addColumn<int>("rows");

    QTest::newRow("every row") << "SELECT id FROM field" << 2;
    QTest::newRow("those of a value") << "SELECT id FROM field WHERE name = :name" << 1;
    QTest::newRow("no row") << "SELECT id FROM field WHERE id < 0" << 0;
    QTest::newRow("until one cannot be read")
        << "SELECT abs(CASE id WHEN 2 THEN -9223372036854775807 - 1 END) FROM field" << 1;
    QTest::newRow("no table") << "SELECT id FROM missing" << 0;
}

void StatementsTest::countRows()
{
    QFETCH(QString, select);

    QTEST(static_cast<int>(::countRows(select, {{":name", "Größe"}})), "rows");
}

void StatementsTest::limitedWalk_data()
{
    QTest::addColumn<QString>("select");
    QTest::addColumn<int>("rowsAdded");
    QTest::addColumn<int>("rowsMet");
    QTest::addColumn<bool>("toTheEnd");

    const int few = LimitedWalk::uncountedRows;
    const QString all = "SELECT id FROM field";
    const QString some = "SELECT id FROM field WHERE id > :least";
    QTest::newRow("no row") << all + " WHERE id < 0" << 0 << 0 << true;
    QTest::newRow("every row") << all << 0 << 2 << true;
    QTest::newRow("no table") << "SELECT id FROM missing" << 0 << 0 << false;
    QTest::newRow("a row that cannot be read")
        << "SELECT abs(CASE id WHEN 2 THEN -9223372036854775807 - 1 END) FROM field" << 0 << 1
        << false;
    // When they are counted, a row less has been added than were met.
    QTest::newRow("as many as are allowed") << all << 3 * few << 3 * few + 2 << true;
    QTest::newRow("one more") << all << 3 * few + 1 << 3 * few + 2 << false;
    QTest::newRow("those of a value are counted") << some << 4 * few << 3 * few << false;
}

void StatementsTest::limitedWalk()
{
    QFETCH(QString, select);
    QFETCH(int, rowsAdded);
    LimitedWalk rows;
    QVERIFY(rows.isForwardOnly());
    execute("BEGIN");
    rows.prepare(select);
    rows.bindValue(":least", 2);
    rows.exec();

    int rowsMet = 0;
    while (rows.next()) {
        if (++rowsMet <= rowsAdded) {
            execute("INSERT INTO field VALUES(7, 'new')");
        }
    }

    QTEST(rowsMet, "rowsMet");
    QTEST(readToTheEnd(rows), "toTheEnd");
    QVERIFY(!rows.next());
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

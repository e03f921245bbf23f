#include "schema/limited_walk.h"

#include "schema/statements.h"
#include "support/device_test.h"
#include "support/peak_memory.h"

class LimitedWalkTest : public DeviceTest
{
    Q_OBJECT

private slots:
    void init() override;

    void endsAtTheLimit_data();
    void endsAtTheLimit();
    void startsAgainWithEveryStatement();
    void returnsTheDatabaseText();
    void locksNothingWhenFinished();
    void keepsNoRowsInMemory();
};

void LimitedWalkTest::init()
{
    DeviceTest::init();
    device->sql("CREATE TABLE field (id INTEGER, name TEXT);"
                "INSERT INTO field VALUES(1, 'Größe'), (2, NULL)");
    device->start();
}

void LimitedWalkTest::endsAtTheLimit_data()
{
    QTest::addColumn<QString>("select");
    QTest::addColumn<QStringList>("least");
    QTest::addColumn<int>("rowsAdded");
    QTest::addColumn<int>("rowsRead");
    QTest::addColumn<bool>("toTheEnd");

    const int few = LimitedWalk::uncountedRows;
    const int growth = LimitedWalk::growth;
    const QString all = "SELECT id FROM field";
    const QString some = "SELECT id FROM field WHERE id > :least";
    // When the rows are counted, the table has the first two, and one for each row read except the
    // last.
    const int limit = few + growth * (few + 1);
    QTest::newRow("there is no row") << all + " WHERE id < 0" << QStringList() << 0 << 0 << true;
    QTest::newRow("every row is read") << all << QStringList() << 0 << 2 << true;
    QTest::newRow("there is no table")
        << "SELECT id FROM missing" << QStringList() << 0 << 0 << false;
    QTest::newRow("a row that cannot be read")
        << "SELECT abs(CASE id WHEN 2 THEN -9223372036854775807 - 1 END) FROM field"
        << QStringList() << 0 << 1 << false;
    QTest::newRow("as many rows as are allowed")
        << all << QStringList() << limit - 2 << limit << true;
    QTest::newRow("one row more than allowed")
        << all << QStringList() << limit - 1 << limit << false;
    QTest::newRow("only rows with the bound value are counted")
        << some << QStringList("1") << 2 * limit << few + growth * few << false;
}

void LimitedWalkTest::endsAtTheLimit()
{
    QFETCH(QString, select);
    QFETCH(QStringList, least);
    QFETCH(int, rowsAdded);
    LimitedWalk rows;
    executeQuietly("BEGIN");
    rows.exec(
        select,
        least.isEmpty() ? QMap<QString, QVariant>()
                        : QMap<QString, QVariant>({{":least", least[0].toInt()}}));

    int rowsRead = 0;
    while (rows.next()) {
        if (++rowsRead <= rowsAdded) {
            executeQuietly("INSERT INTO field VALUES(7, 'new')");
        }
    }

    QTEST(rowsRead, "rowsRead");
    QTEST(rows.readToTheEnd(), "toTheEnd");
    QVERIFY(!rows.next());
}

void LimitedWalkTest::startsAgainWithEveryStatement()
{
    LimitedWalk rows;
    QVERIFY(!rows.exec("SELECT id FROM missing"));
    QVERIFY(!rows.readToTheEnd());

    QVERIFY(rows.exec("SELECT name FROM field WHERE id = :id", {{":id", 1}}));

    QVERIFY(rows.next());
    QCOMPARE(rows.value(0).toString(), QString("Größe"));
    QVERIFY(!rows.next());
    QVERIFY(rows.readToTheEnd());
}

void LimitedWalkTest::returnsTheDatabaseText()
{
    LimitedWalk rows;
    QVERIFY(rows.exec("SELECT id FROM field"));
    QCOMPARE(rows.databaseText(), QString());

    QVERIFY(!rows.exec("SELECT id FROM missing"));

    QCOMPARE(rows.databaseText(), QString("no such table: missing"));
}

void LimitedWalkTest::locksNothingWhenFinished()
{
    LimitedWalk rows;
    QVERIFY(rows.exec("SELECT id FROM field"));
    QVERIFY(rows.next());
    QVERIFY(!executeQuietly("DROP TABLE field"));

    rows.finish();

    QVERIFY(executeQuietly("DROP TABLE field"));
}

/// The rows have 1,000 characters each. If they were kept, they would take 200 MB.
void LimitedWalkTest::keepsNoRowsInMemory()
{
    LimitedWalk rows;
    const PeakMemory memory;
    QVERIFY(rows.exec("WITH RECURSIVE number(n) AS (VALUES(1) UNION ALL SELECT n + 1 FROM number) "
                      "SELECT printf('%01000d', n) FROM number LIMIT 100000"));

    int rowsRead = 0;
    while (rows.next()) {
        ++rowsRead;
    }

    QCOMPARE(rowsRead, 100000);
    QVERIFY2(memory.growth() < 10'000'000, QByteArray::number(memory.growth()));
}

QTEST_APPLESS_MAIN(LimitedWalkTest)
#include "limited_walk_test.moc"

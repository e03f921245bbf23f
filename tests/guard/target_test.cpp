#include "guard/target.h"

#include <QTemporaryDir>
#include <QtTest>

class TargetTest : public QObject
{
    Q_OBJECT

private slots:
    void parsesTarget_data();
    void parsesTarget();
    void readsTarget();
};

void TargetTest::parsesTarget_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("version"); // 0: none

    QTest::newRow("digits") << QByteArray("34") << 34;
    QTest::newRow("white space around") << QByteArray(" \t34\r\n") << 34;
    QTest::newRow("leading zeros") << QByteArray("00000000000034") << 34;
    QTest::newRow("the smallest") << QByteArray("1") << 1;
    QTest::newRow("the largest") << QByteArray("999999") << 999999;
    QTest::newRow("zero") << QByteArray("0") << 0;
    QTest::newRow("too large") << QByteArray("1000000") << 0;
    QTest::newRow("what would be 0 in 32 bits") << QByteArray("4294967296") << 0;
    QTest::newRow("what would be 1 in 32 bits") << QByteArray("4294967297") << 0;
    QTest::newRow("beyond 32 bits") << QByteArray("99999999999") << 0;
    QTest::newRow("a sign") << QByteArray("+34") << 0;
    QTest::newRow("a minus") << QByteArray("-34") << 0;
    QTest::newRow("nothing") << QByteArray() << 0;
    QTest::newRow("white space alone") << QByteArray(" \n") << 0;
    QTest::newRow("two numbers") << QByteArray("34\n35") << 0;
    QTest::newRow("a point") << QByteArray("34.0") << 0;
    QTest::newRow("hexadecimal") << QByteArray("0x22") << 0;
    QTest::newRow("full-width digits") << QByteArray("\xef\xbc\x93\xef\xbc\x94") << 0;
    QTest::newRow("Arabic digits") << QByteArray("\xd9\xa3\xd9\xa4") << 0;
    QTest::newRow("a NUL") << QByteArray("34\0", 3) << 0;
}

void TargetTest::parsesTarget()
{
    QFETCH(QByteArray, text);
    QFETCH(int, version);
    QCOMPARE(parseTarget(text).value_or(0), version);
}

void TargetTest::readsTarget()
{
    const QTemporaryDir directory;
    QFile file(directory.filePath("schemaversion.txt"));
    QVERIFY(!readTarget(file.fileName()));
    QVERIFY(!readTarget(directory.path()));

    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("34\n");
    file.close();
    QCOMPARE(readTarget(file.fileName()).value_or(0), 34);

    QVERIFY(file.open(QIODevice::Append));
    file.write(QByteArray(5000, ' '));
    file.close();
    QVERIFY2(!readTarget(file.fileName()), "a file of that length holds something else");
}

QTEST_APPLESS_MAIN(TargetTest)
#include "target_test.moc"

#include "guard/recorded_version.h"

#include <QTemporaryDir>
#include <QtTest>

class RecordedVersionTest : public QObject
{
    Q_OBJECT

private slots:
    void recordedVersion_data();
    void recordedVersion();
    void isUnknownWhereReadingFails();
};

void RecordedVersionTest::recordedVersion_data()
{
    QTest::addColumn<QByteArray>("sql");
    QTest::addColumn<QString>("text");

    const QByteArray table = "CREATE TABLE tableVersion (tableName TEXT, version INTEGER);";
    QTest::newRow("a version") << table + "INSERT INTO tableVersion VALUES('mainSqlDb', 34)"
                               << "34";
    QTest::newRow("a number of more than 32 bits")
        << table + "INSERT INTO tableVersion VALUES('mainSqlDb', 4294967330)"
        << "4294967330";
    QTest::newRow("the version of another table")
        << table + "INSERT INTO tableVersion VALUES('another', 34)"
        << "no version";
    QTest::newRow("NULL") << table + "INSERT INTO tableVersion VALUES('mainSqlDb', NULL)"
                          << "no version";
    QTest::newRow("no row") << table << "no version";
    QTest::newRow("no table") << QByteArray() << "no version";
    QTest::newRow("no such column") << QByteArray("CREATE TABLE tableVersion (a)") << "no version";
}

void RecordedVersionTest::recordedVersion()
{
    QFETCH(QByteArray, sql);
    QFETCH(QString, text);
    SqliteConnection connection;
    QCOMPARE(connection.open(":memory:", SQLITE_OPEN_READWRITE), SQLITE_OK);
    QCOMPARE(connection.run(sql.constData()), SQLITE_OK);

    const RecordedVersion version = ::recordedVersion(connection);
    QVERIFY(version.isKnown);
    QCOMPARE(versionText(version), text);
    QCOMPARE(version.is(34), text == "34");
}

void RecordedVersionTest::isUnknownWhereReadingFails()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("database.sqlite");
    SqliteConnection other;
    QCOMPARE(other.open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE), SQLITE_OK);
    QCOMPARE(other.run("CREATE TABLE tableVersion (tableName, version)"), SQLITE_OK);
    QCOMPARE(other.run("BEGIN EXCLUSIVE"), SQLITE_OK);

    SqliteConnection locked;
    QCOMPARE(locked.open(path, SQLITE_OPEN_READWRITE), SQLITE_OK);
    QVERIFY(!::recordedVersion(locked).isKnown);
    QCOMPARE(versionText(::recordedVersion(locked)), QString("unknown"));

    SqliteConnection missing;
    missing.open(directory.filePath("no/such/file"), SQLITE_OPEN_READWRITE);
    QVERIFY(!::recordedVersion(missing).isKnown);
}

QTEST_GUILESS_MAIN(RecordedVersionTest)
#include "recorded_version_test.moc"

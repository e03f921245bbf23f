#include "support/device_test.h"
#include "support/encodings.h"
#include "support/peak_memory.h"

#include <QElapsedTimer>

namespace
{
const char *const machinesPath = "/app/refMachines.sql";
const char *const productsPath = "/app/refProducts.sql";

const char *const readMakers = "SELECT * FROM makers";

const char *const noStatement = "No query Unable to fetch row\n";
} // namespace

class ReferenceScriptsTest : public DeviceTest
{
    Q_OBJECT

private slots:
    void init() override;

    void statementsRunOneByOne_data();
    void statementsRunOneByOne();
    void scriptIsUtf8InEveryLocale();
    void linesAreReadWhole_data();
    void linesAreReadWhole();
    void scriptThatCannotBeReadIsSkipped_data();
    void scriptThatCannotBeReadIsSkipped();
    void machinesComeBeforeProducts();
    void missingMachinesDoNotStopProducts();
    void memoryIsThatOfTheLongestStatement_data();
    void memoryIsThatOfTheLongestStatement();
    void timeGrowsWithTheLinesOfAStatement();
};

void ReferenceScriptsTest::init()
{
    DeviceTest::init();
    device->recordVersion(1);
    device->sql("CREATE TABLE makers (id INTEGER PRIMARY KEY, name TEXT, "
                "ownerId INTEGER REFERENCES makers(id))");
}

void ReferenceScriptsTest::statementsRunOneByOne_data()
{
    const auto row = addColumns<QByteArray, QString, QStringList>("script", "log", "rows");
    row("the empty remainder of an empty file is executed", "", "\n", {});
    row("an empty line does not end the script", "\n\n", "\n", {});
    row("a blank remainder fails with a text of the driver", "  \n\t", noStatement, {});
    row("two statements on one line and an empty remainder",
        "INSERT INTO makers VALUES(1,'Ost',NULL);INSERT INTO makers VALUES(2,'West',NULL);",
        "\n",
        {"1, 'Ost', NULL", "2, 'West', NULL"});
    row("a line feed after the last semicolon adds nothing",
        "INSERT INTO makers VALUES(1,'Ost',NULL);\n",
        "\n",
        {"1, 'Ost', NULL"});
    row("a remainder without a semicolon runs too",
        "INSERT INTO makers VALUES(1,'Ost',NULL);\nINSERT INTO makers VALUES(2,'West',NULL)",
        "",
        {"1, 'Ost', NULL", "2, 'West', NULL"});
    row("the remainder fails",
        "INSERT INTO makers VALUES(1,'Ost')",
        "table makers has 3 columns but 2 values were supplied Unable to execute statement\n",
        {});
    row("a statement over several lines with blanks at their ends",
        "INSERT INTO makers \nVALUES(1,\n\n'Ost',\n NULL)\n;\n",
        "\n",
        {"1, 'Ost', NULL"});
    row("lines are joined without a blank",
        "INSERT INTO makers\nVALUES(1,'Ost',NULL);",
        "near \"1\": syntax error Unable to execute statement\n\n",
        {});
    row("a literal over two lines loses its line feed",
        "INSERT INTO makers VALUES(1,'O\nst',NULL);",
        "\n",
        {"1, 'Ost', NULL"});
    row("a semicolon in a literal ends the statement",
        "INSERT INTO makers VALUES(1,'O;st',NULL);",
        "unrecognized token: \"'O\" Unable to execute statement\n"
        "near \"st\": syntax error Unable to execute statement\n\n",
        {});
    row("empty pieces are executed like any other piece",
        ";;INSERT INTO makers VALUES(1,'Ost',NULL);;",
        "\n\n\n\n",
        {"1, 'Ost', NULL"});
    row("a blank piece is executed too", " ;", QString(noStatement) + "\n", {});
    row("after a failure the next statements run",
        "INSERT INTO makers VALUES(1,'Ost',NULL);INSERT INTO makers VALUES(1,'West',NULL);\n"
        "INSERT INTO owners VALUES(1);\n"
        "INSERT INTO makers VALUES(3,'Süd',NULL);",
        "UNIQUE constraint failed: makers.id Unable to fetch row\n"
        "no such table: owners Unable to execute statement\n\n",
        {"1, 'Ost', NULL", "3, 'Süd', NULL"});
    row("a comment hides the lines that are joined to it",
        "-- the makers\nINSERT INTO makers VALUES(1,'Ost',NULL);\n"
        "/* more */\nINSERT INTO makers VALUES(2,'West',NULL);",
        QString(noStatement) + "\n",
        {"2, 'West', NULL"});
    row("a semicolon ends a comment",
        "-- makers; INSERT INTO makers VALUES(1,'Ost',NULL);",
        QString(noStatement) + "\n",
        {"1, 'Ost', NULL"});
    row("CR LF ends a line",
        "INSERT INTO makers \r\nVALUES(1,'Ost',NULL);\r\nINSERT INTO makers VALUES(2,'We\r\nst',NULL);\r\n",
        "\n",
        {"1, 'Ost', NULL", "2, 'West', NULL"});
    row("CR alone ends a line",
        "INSERT INTO makers VALUES(1,'O\rst',NULL);",
        "\n",
        {"1, 'Ost', NULL"});
    row("a byte order mark is not part of the text",
        "\xef\xbb\xbfINSERT INTO makers VALUES(1,'Ost',NULL);",
        "\n",
        {"1, 'Ost', NULL"});
    row("names of all languages",
        "INSERT INTO makers VALUES(1,'Müller',NULL);INSERT INTO makers VALUES(2,'播种机 🚜',NULL);",
        "\n",
        {"1, 'Müller', NULL", "2, '播种机 🚜', NULL"});
    row("bytes that are not UTF-8 are replaced",
        "INSERT INTO makers VALUES(1,'M\xfcller',NULL);",
        "\n",
        {"1, 'M\xef\xbf\xbdller', NULL"});
    for (const QByteArray encoding : {"UTF-16LE", "UTF-16BE", "UTF-32LE", "UTF-32BE"}) {
        row("a byte order mark tells the encoding: " + encoding,
            encodedWithMark(
                encoding,
                "INSERT INTO makers\r\n VALUES(1,'Moč',NULL);\nINSERT INTO makers VALUES(2,'ഁ',NULL);\n"),
            "\n",
            {"1, 'Moč', NULL", "2, 'ഁ', NULL"});
    }
    row("UTF-16 without a byte order mark is read as UTF-8",
        encodedWithMark("UTF-16LE", "SELECT 1").mid(2),
        "near \"S\": syntax error Unable to execute statement\n",
        {});
    row("percent signs are data",
        "INSERT INTO makers VALUES(1,'%1 %2',NULL);",
        "\n",
        {"1, '%1 %2', NULL"});
    row("a NUL ends its statement",
        QByteArrayLiteral("INSERT INTO makers VALUES(1,'Ost',NULL)\0 garbage;"
                          "INSERT INTO makers VALUES(2,'W\0est',NULL);"),
        "unrecognized token: \"'W\" Unable to execute statement\n\n",
        {"1, 'Ost', NULL"});
    row("the rows of a query are ignored",
        "SELECT * FROM makers;SELECT owner FROM makers;",
        "no such column: owner Unable to execute statement\n\n",
        {});
    row("a transaction, with a statement in it that fails",
        "BEGIN;\nINSERT INTO makers VALUES(1,'Ost',NULL);\nINSERT INTO makers VALUES(1,'West',NULL);\n"
        "COMMIT;\nCOMMIT;",
        "UNIQUE constraint failed: makers.id Unable to fetch row\n"
        "cannot commit - no transaction is active Unable to fetch row\n\n",
        {"1, 'Ost', NULL"});
    row("a transaction that is rolled back",
        "BEGIN;INSERT INTO makers VALUES(1,'Ost',NULL);ROLLBACK;",
        "\n",
        {});
    row("a transaction without an end is lost with the connection",
        "INSERT INTO makers VALUES(1,'Ost',NULL);BEGIN;INSERT INTO makers VALUES(2,'West',NULL);",
        "\n",
        {"1, 'Ost', NULL"});
    row("foreign keys are on",
        "INSERT INTO makers VALUES(1,'Ost',9);",
        "FOREIGN KEY constraint failed Unable to fetch row\n\n",
        {});
    row("a pragma changes the connection",
        "PRAGMA foreign_keys = OFF;INSERT INTO makers VALUES(1,'Ost',9);",
        "\n",
        {"1, 'Ost', 9"});
    row("the body of a trigger is split at each semicolon",
        "CREATE TRIGGER shout AFTER INSERT ON makers BEGIN UPDATE makers SET name = upper(name); END;\n"
        "INSERT INTO makers VALUES(1,'Ost',NULL);",
        "incomplete input Unable to execute statement\n"
        "cannot commit - no transaction is active Unable to fetch row\n\n",
        {"1, 'Ost', NULL"});
}

void ReferenceScriptsTest::statementsRunOneByOne()
{
    QFETCH(QByteArray, script);
    device->writeFile(machinesPath, script);
    DatabaseMigrator &migrator = start();

    migrator.runSqlScript(machinesPath);

    QTEST(device->takeLog(), "log");
    device->stop();
    QFETCH(QStringList, rows);
    COMPARE_LINES(device->rows(readMakers), rows);
}

void ReferenceScriptsTest::scriptIsUtf8InEveryLocale()
{
    QTextCodec *const codec = QTextCodec::codecForLocale();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    device->writeFile(machinesPath, "INSERT INTO makers VALUES(1,'Müller',NULL)");

    device->start().runSqlScript(machinesPath);

    QTextCodec::setCodecForLocale(codec);
    COMPARE_LINES(device->rows(readMakers), QStringList({"1, 'Müller', NULL"}));
}

void ReferenceScriptsTest::linesAreReadWhole_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<QByteArray>("lineEnd");

    for (const int length : {65535, 65536, 65537, 131071, 131072, 131073, 200000}) {
        const QByteArray characters = QByteArray::number(length) + " characters";
        QTest::addRow("%s", characters.constData()) << length << QByteArray("\n");
        QTest::addRow("%s, CRLF", characters.constData()) << length << QByteArray("\r\n");
    }
}

void ReferenceScriptsTest::linesAreReadWhole()
{
    QFETCH(int, length);
    QFETCH(QByteArray, lineEnd);
    // Four bytes, two UTF-16 units: one piece of the line ends between them.
    const QByteArray wide = "🚜";
    QByteArray line = "INSERT INTO makers VALUES(1,'x";
    const int units = length - line.size() - 8;
    line += wide.repeated(units / 2) + QByteArray("x").repeated(units % 2) + "',NULL);";
    device->writeFile(
        machinesPath, line + lineEnd + "INSERT INTO makers VALUES(2,'West',NULL);" + lineEnd);
    DatabaseMigrator &migrator = start();

    migrator.runSqlScript(machinesPath);

    QCOMPARE(QString::fromUtf8(line).size(), length);
    QCOMPARE(device->takeLog(), QString("\n"));
    COMPARE_LINES(
        device->rows(readMakers),
        QStringList({"1, '" + line.mid(29).chopped(8) + "', NULL", "2, 'West', NULL"}));
}

void ReferenceScriptsTest::scriptThatCannotBeReadIsSkipped_data()
{
    const auto row = addColumns<QString>("path");
    row("the file is missing", "/app/refMachines.sql");
    row("the path is a directory", "/app/databases");
    row("the path is empty", "");
}

void ReferenceScriptsTest::scriptThatCannotBeReadIsSkipped()
{
    QFETCH(QString, path);
    DatabaseMigrator &migrator = start();

    migrator.runSqlScript(path);

    QCOMPARE(device->takeLog(), QString());
}

void ReferenceScriptsTest::machinesComeBeforeProducts()
{
    device->writeFile(machinesPath, "INSERT INTO makers VALUES(1,'Ost',NULL);");
    device->writeFile(productsPath, "INSERT INTO makers VALUES(2,'West',1)");
    DatabaseMigrator &migrator = start({"1"});

    migrator.runMigration();

    QCOMPARE(
        device->takeLog(),
        QString("Integrity check passed.\n"
                "Failure 1 while removing extraneous product config data. Error was: "
                "no such table: PC_ProductConfig\n"
                "Failure 2 while removing extraneous product config data. Error was: "
                "no such table: PC_MixToProductConfigBridge\n"
                "Failure 3 while removing extraneous product config data. Error was: "
                "no such table: PC_PlanterVarietyToProductConfigBridge\n"
                "\n"
                "Query for grower displaynames failed\n"));
    COMPARE_LINES(device->rows(readMakers), QStringList({"1, 'Ost', NULL", "2, 'West', 1"}));
}

void ReferenceScriptsTest::missingMachinesDoNotStopProducts()
{
    device->writeFile(productsPath, "INSERT INTO makers VALUES(2,'West',NULL)");
    DatabaseMigrator &migrator = device->start({"1"});

    migrator.runMigration();

    COMPARE_LINES(device->rows(readMakers), QStringList({"2, 'West', NULL"}));
}

void ReferenceScriptsTest::memoryIsThatOfTheLongestStatement_data()
{
    const auto row = addColumns<QByteArray>("separator");
    row("a statement on each line", "\n");
    row("the whole script on one line", "");
}

void ReferenceScriptsTest::memoryIsThatOfTheLongestStatement()
{
    QFETCH(QByteArray, separator);
    const int megabytes = qEnvironmentVariableIsSet("CAMPAIGN") ? 50 : 8;
    const QByteArray statement = "SELECT '" + QByteArray(1000, 'x') + "';" + separator;
    device->writeFile(
        machinesPath,
        statement.repeated(megabytes * 1024 * 1024 / statement.size()) +
            "INSERT INTO makers VALUES(1,'Ost',NULL)");
    DatabaseMigrator &migrator = start();
    const PeakMemory memory;

    migrator.runSqlScript(machinesPath);

    QVERIFY2(memory.growth() < 4 * 1024 * 1024, QByteArray::number(memory.growth()));
    QCOMPARE(device->takeLog(), QString());
    COMPARE_LINES(device->rows(readMakers), QStringList({"1, 'Ost', NULL"}));
}

void ReferenceScriptsTest::timeGrowsWithTheLinesOfAStatement()
{
    const int lines = 400000;
    device->writeFile(
        machinesPath,
        "INSERT INTO makers VALUES(1,'" + QByteArray("some words\n").repeated(lines) + "',NULL);");
    DatabaseMigrator &migrator = device->start();
    QElapsedTimer time;
    time.start();

    migrator.runSqlScript(machinesPath);

    // This takes at most a second. Searching the whole statement at every line would take minutes.
    QVERIFY2(time.elapsed() < 20000, QByteArray::number(time.elapsed()));
    COMPARE_LINES(
        device->rows("SELECT id, length(name), ownerId FROM makers"),
        QStringList({"1, 4000000, NULL"}));
}

QTEST_APPLESS_MAIN(ReferenceScriptsTest)
#include "reference_scripts_test.moc"

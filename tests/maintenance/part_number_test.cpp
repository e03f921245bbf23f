#include "support/device_test.h"
#include "support/peak_memory.h"

#include <QDir>
#include <QElapsedTimer>
#include <QSqlDatabase>

#include <sys/stat.h>

namespace
{
const char *const readNumbers = "SELECT * FROM registrationInfo";

/// The registration file of field computer 2.
QByteArray registration(const QByteArray &partNumber, const QByteArray &id = "2")
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<LVData>\n  <PartNumber>" + partNumber +
           "</PartNumber>\n  <fieldComputerId>" + id + "</fieldComputerId>\n</LVData>\n";
}
} // namespace

class PartNumberTest : public DeviceTest
{
    Q_OBJECT

private slots:
    void init() override;

    void fileIsRead_data();
    void fileIsRead();
    void numberIsCopied_data();
    void numberIsCopied();
    void idOfAnEarlierFileIsKept();
    void missingFileIsNoFailure();
    void directoryIsNoFile();
    void pipeIsNoFile();
    void linkIsFollowed();
    void hugeFileIsNotRead();
    void closedDatabaseIsNoFailure();

private:
    void checkThatNothingIsCopied(bool open = true);
};

void PartNumberTest::init()
{
    DeviceTest::init();
    device->recordVersion(1);
    device->sql("CREATE TABLE registrationInfo (fieldComputerId INTEGER PRIMARY KEY, "
                "partNumber TEXT);"
                "INSERT INTO registrationInfo VALUES(1, '1000A'), (2, '2000B'), (3, NULL)");
}

void PartNumberTest::fileIsRead_data()
{
    const auto row = addColumns<QByteArray, QString>("content", "partNumber");
    row("number and suffix",
        "<LVData><PartNumber>94071</PartNumber><PartNumberSuffix>-A</PartNumberSuffix></LVData>",
        "94071-A");
    row("the suffix comes first",
        "<LVData><PartNumberSuffix>-A</PartNumberSuffix><PartNumber>94071</PartNumber></LVData>",
        "94071-A");
    row("no suffix", "<LVData><PartNumber>94071</PartNumber></LVData>", "94071");
    row("only a suffix", "<LVData><PartNumberSuffix>-A</PartNumberSuffix></LVData>", "-A");
    row("lower case",
        "<LVData><partnumber>94071</partnumber><partnumbersuffix>-A</partnumbersuffix></LVData>",
        "94071-A");
    row("upper case",
        "<LVData><PARTNUMBER>94071</PARTNUMBER><PARTNUMBERSUFFIX>-A</PARTNUMBERSUFFIX></LVData>",
        "94071-A");
    row("other elements",
        "<LVData><Part>1</Part><PartNumber>94071</PartNumber><PartNumbers>2</PartNumbers></LVData>",
        "94071");
    row("an element twice: the last one counts",
        "<LVData><PartNumber>1</PartNumber><PARTNUMBER>2</PARTNUMBER>"
        "<PartNumberSuffix>A</PartNumberSuffix><PartNumberSuffix>B</PartNumberSuffix></LVData>",
        "2B");
    row("an element twice: the last one is empty",
        "<LVData><PartNumber>94071</PartNumber><PartNumber/></LVData>",
        "");
    row("elements at a deeper level do not count",
        "<LVData><Device><PartNumber>1</PartNumber></Device><PartNumber>2</PartNumber>"
        "<Device><PartNumber>3</PartNumber></Device></LVData>",
        "2");
    row("an attribute is not a number", "<LVData PartNumber='94071'/>", "");
    row("text of the document element is not a number", "<LVData>94071</LVData>", "");
    row("an element within the number",
        "<LVData><PartNumber>940<b>7</b>1</PartNumber></LVData>",
        "94071");
    row("blanks belong to number and suffix",
        "<LVData><PartNumber> 94071\n</PartNumber><PartNumberSuffix> A </PartNumberSuffix></LVData>",
        " 94071\n A ");
    row("only blanks count as nothing", "<LVData><PartNumber> \n </PartNumber></LVData>", "");
    row("CDATA", "<LVData><PartNumber><![CDATA[940<7>&1]]>A</PartNumber></LVData>", "940<7>&1A");
    row("entities of XML itself",
        "<LVData><PartNumber>&lt;9&amp;4&gt;&quot;0&apos;&#55;&#x31;</PartNumber></LVData>",
        "<9&4>\"0'71");
    row("entities of the file",
        "<!DOCTYPE LVData [<!ENTITY series \"940\"><!ENTITY model \"&series;71\">]>"
        "<LVData><PartNumber>&model;-&series;</PartNumber></LVData>",
        "94071-940");
    row("an entity that is not declared", "<LVData><PartNumber>9&a;4</PartNumber></LVData>", "94");
    row("comments and instructions within a text",
        "<LVData><PartNumber>94<!-- the series -->0<?page break?>71</PartNumber></LVData>",
        "94071");
    row("comments and instructions around it all",
        "<?xml version='1.0'?><!-- a --><?b c?><LVData><!-- d --><PartNumber>94071</PartNumber>"
        "</LVData><!-- e -->\n",
        "94071");
    row("the document element in lower case",
        "<lvdata><PartNumber>94071</PartNumber></lvdata>",
        "");
    row("another document element", "<Data><PartNumber>94071</PartNumber></Data>", "");
    row("the document element one level deeper",
        "<Data><LVData><PartNumber>94071</PartNumber></LVData></Data>",
        "");
    row("a default namespace",
        "<LVData xmlns='urn:data'><PartNumber>94071</PartNumber></LVData>",
        "94071");
    row("prefixes belong to the names",
        "<LVData xmlns:d='urn:data'><PartNumber>1</PartNumber><d:PartNumber>2</d:PartNumber></LVData>",
        "1");
    row("a prefix of the document element",
        "<d:LVData xmlns:d='urn:data'><PartNumber>94071</PartNumber></d:LVData>",
        "");
    row("empty", "", "");
    row("no XML", "94071", "");
    row("an element without an end", "<LVData><PartNumber>94071</PartNumber>", "");
    row("elements that overlap", "<LVData><PartNumber>94071</LVData></PartNumber>", "");
    row("two document elements", "<LVData><PartNumber>94071</PartNumber></LVData><LVData/>", "");
    row("text after the document", "<LVData><PartNumber>94071</PartNumber></LVData>94071", "");
    row("an ampersand alone", "<LVData><PartNumber>9&4</PartNumber></LVData>", "");
    row("UTF-8 with a byte order mark",
        "\xef\xbb\xbf<LVData><PartNumber>94071Ä</PartNumber></LVData>",
        "94071Ä");
    row("ISO-8859-1",
        "<?xml version='1.0' encoding='ISO-8859-1'?><LVData><PartNumber>\xc4</PartNumber></LVData>",
        "Ä");
    row("bytes that are not UTF-8",
        "<LVData><PartNumber>9\xc4\xff</PartNumber></LVData>",
        "9\xef\xbf\xbd\xef\xbf\xbd");
    row("UTF-16 with a byte order mark",
        QTextCodec::codecForName("UTF-16")->fromUnicode(
            "<LVData><PartNumber>94071Ä</PartNumber></LVData>"),
        "94071Ä");
}

void PartNumberTest::fileIsRead()
{
    QFETCH(QByteArray, content);
    device->writeFile(ScratchDevice::registrationPath, content);
    DatabaseMigrator &migrator = start();

    const QString partNumber = migrator.readRegistrationPartNumber(ScratchDevice::registrationPath);

    QTEST(partNumber, "partNumber");
    QCOMPARE(device->takeLog(), QString());
}

void PartNumberTest::numberIsCopied_data()
{
    const auto row = addColumns<QByteArray, QByteArray, QStringList>("content", "setUp", "rows");
    const QStringList asBefore = {"1, '1000A'", "2, '2000B'", "3, NULL"};

    row("only the file's field computer gets it",
        registration("94071A"),
        "",
        {"1, '1000A'", "2, '94071A'", "3, NULL"});
    row("the number of the first row is compared, even if it is another field computer's",
        registration("1000A"),
        "",
        asBefore);
    row("letter case is no difference", registration("1000a"), "", asBefore);
    row("its own row is not compared",
        registration("2000b"),
        "",
        {"1, '1000A'", "2, '2000b'", "3, NULL"});
    row("the stored number is NULL",
        registration("94071A"),
        "DELETE FROM registrationInfo WHERE fieldComputerId = 1;"
        "UPDATE registrationInfo SET partNumber = NULL",
        {"2, '94071A'", "3, NULL"});
    row("the stored number is an integer",
        registration("1000"),
        "DROP TABLE registrationInfo;"
        "CREATE TABLE registrationInfo (fieldComputerId INTEGER PRIMARY KEY, partNumber INTEGER);"
        "INSERT INTO registrationInfo VALUES(1, 1000), (2, 2000)",
        {"1, 1000", "2, 2000"});
    row("there is no row", registration("94071A"), "DELETE FROM registrationInfo", {});
    row("the field computer does not exist", registration("94071A", "4"), "", asBefore);
    row("the number is empty", registration(""), "", asBefore);
    row("there is no id of a field computer",
        "<LVData><PartNumber>94071A</PartNumber></LVData>",
        "",
        asBefore);
    row("the id is empty", registration("94071A", ""), "", asBefore);
    row("an id that is no number", registration("94071A", "two"), "", asBefore);
    row("an id with blanks",
        registration("94071A", " 2\n"),
        "",
        {"1, '1000A'", "2, '94071A'", "3, NULL"});
    row("an id becomes part of the statement unchanged",
        registration("94071A", "1 + 1"),
        "",
        {"1, '1000A'", "2, '94071A'", "3, NULL"});
    row("the id in another spelling, twice",
        "<LVData><FIELDCOMPUTERID>1</FIELDCOMPUTERID><PartNumber>94071A</PartNumber>"
        "<fieldcomputerid>3</fieldcomputerid></LVData>",
        "",
        {"1, '1000A'", "2, '2000B'", "3, '94071A'"});
    row("more than one statement",
        registration("94071A", "2; DELETE FROM registrationInfo"),
        "",
        asBefore);
    row("a quote in the number", registration("94071'A"), "", asBefore);
    row("percent signs in the number",
        registration("%1%2"),
        "",
        {"1, '1000A'", "2, '%1%2'", "3, NULL"});
    row("a number of all languages",
        registration("Größe 播种"),
        "",
        {"1, '1000A'", "2, 'Größe 播种'", "3, NULL"});
    row("the file cannot be parsed",
        "<LVData><PartNumber>94071A</PartNumber><fieldComputerId>2</fieldComputerId>",
        "",
        asBefore);
    row("a trigger refuses the update",
        registration("94071A"),
        "CREATE TRIGGER refuse BEFORE UPDATE ON registrationInfo "
        "BEGIN SELECT RAISE(ABORT, 'refused'); END",
        asBefore);
    row("the table is a view",
        registration("94071A"),
        "ALTER TABLE registrationInfo RENAME TO numbers;"
        "CREATE VIEW registrationInfo AS SELECT * FROM numbers",
        asBefore);
}

void PartNumberTest::numberIsCopied()
{
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, setUp);
    device->writeFile(ScratchDevice::registrationPath, content);
    device->sql(setUp);
    DatabaseMigrator &migrator = start();

    migrator.syncPartNumber();

    QCOMPARE(device->takeLog(), QString());
    QFETCH(QStringList, rows);
    COMPARE_LINES(device->rows(readNumbers), rows);
}

void PartNumberTest::idOfAnEarlierFileIsKept()
{
    device->writeFile("/Harlo/earlier.xml", registration("1"));
    device->writeFile(
        ScratchDevice::registrationPath, "<LVData><PartNumber>94071A</PartNumber></LVData>");
    DatabaseMigrator &migrator = device->start();
    migrator.readRegistrationPartNumber("/Harlo/earlier.xml");

    migrator.syncPartNumber();

    COMPARE_LINES(device->rows(readNumbers), QStringList({"1, '1000A'", "2, '94071A'", "3, NULL"}));
}

/// @param open whether the database is open
void PartNumberTest::checkThatNothingIsCopied(bool open)
{
    const QStringList before = device->dump();
    DatabaseMigrator &migrator = start();
    if (!open) {
        QSqlDatabase::database().close();
    }

    migrator.syncPartNumber();

    QCOMPARE(device->takeLog(), QString());
    COMPARE_LINES(device->dump(), before);
}

void PartNumberTest::missingFileIsNoFailure()
{
    checkThatNothingIsCopied();
    const QString path = ScratchDevice::registrationPath;
    QCOMPARE(device->migrator().readRegistrationPartNumber(path), QString());
    QCOMPARE(device->takeLog(), QString());
}

void PartNumberTest::directoryIsNoFile()
{
    QDir().mkdir(ScratchDevice::registrationPath);
    checkThatNothingIsCopied();
    const QString path = ScratchDevice::registrationPath;
    QCOMPARE(device->migrator().readRegistrationPartNumber(path), QString());
    QCOMPARE(device->takeLog(), QString());
}

void PartNumberTest::pipeIsNoFile()
{
    // No process writes into it, so opening it would wait forever.
    QCOMPARE(mkfifo(ScratchDevice::registrationPath.toUtf8(), 0600), 0);
    checkThatNothingIsCopied();
}

void PartNumberTest::linkIsFollowed()
{
    device->writeFile("/Harlo/registration/2.xml", registration("94071A"));
    QVERIFY(QFile::link("/Harlo/registration/2.xml", ScratchDevice::registrationPath));
    DatabaseMigrator &migrator = device->start();

    migrator.syncPartNumber();

    COMPARE_LINES(device->rows(readNumbers), QStringList({"1, '1000A'", "2, '94071A'", "3, NULL"}));
}

void PartNumberTest::hugeFileIsNotRead()
{
    const int elements = 38 * 1024 * 1024 / 8;
    device->writeFile(
        ScratchDevice::registrationPath,
        registration("94071A").replace(
            "</LVData>", QByteArray("<a>x</a>").repeated(elements) + "</LVData>"));
    const PeakMemory memory;
    QElapsedTimer time;
    time.start();

    checkThatNothingIsCopied();

    QVERIFY2(time.elapsed() < 2000, QByteArray::number(time.elapsed()));
    QVERIFY2(memory.growth() < 16 * 1024 * 1024, QByteArray::number(memory.growth()));
}

void PartNumberTest::closedDatabaseIsNoFailure()
{
    device->writeFile(ScratchDevice::registrationPath, registration("94071A"));
    checkThatNothingIsCopied(false);
}

QTEST_APPLESS_MAIN(PartNumberTest)
#include "part_number_test.moc"

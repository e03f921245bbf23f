#include "maintenance/registration_file.h"
#include "support/peak_memory.h"
#include "support/rows.h"

#include <QElapsedTimer>
#include <QTextCodec>

#include <sys/resource.h>

namespace
{
/// @return what the parser reads from a file: the name of its document element, the names of its
/// children in brackets, and its text; empty if the file counts as one that cannot be parsed
QString summary(const QDomDocument &document)
{
    const QDomElement root = document.documentElement();
    QStringList children;
    for (QDomElement child = root.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        children << child.tagName();
    }
    return root.isNull() ? QString()
                         : root.tagName() + "(" + children.join(" ") + "): " + root.text();
}

QByteArray number(const QByteArray &text)
{
    return "<LVData><PartNumber>" + text + "</PartNumber></LVData>";
}

QByteArray nested(int depth, const QByteArray &text)
{
    return "<LVData>" + QByteArray("<a>").repeated(depth) + text +
           QByteArray("</a>").repeated(depth) + "</LVData>";
}

/// A file with entities.
QByteArray declaring(const QByteArray &declarations, const QByteArray &content)
{
    return "<!DOCTYPE LVData [" + declarations + "]>" + content;
}

QByteArray entity(const QByteArray &name, const QByteArray &value)
{
    return "<!ENTITY " + name + " '" + value + "'>";
}

/// @return `count` pieces, with "#" replaced by a number from 0
QByteArray numbered(int count, const QByteArray &piece)
{
    QByteArray result;
    for (int i = 0; i < count; ++i) {
        result += QByteArray(piece).replace('#', QByteArray::number(i));
    }
    return result;
}

/// A file with one large entity in its text. 62,382 characters and 14 uses make 16 times 62,500
/// characters: for the file itself, the declaration and the uses.
QByteArray withEntityOf(int characters, int uses)
{
    return declaring(
        entity("a", QByteArray(characters, 'x')), number(QByteArray("&a;").repeated(uses)));
}

QByteArray encoded(const char *codec, const QString &text)
{
    return QTextCodec::codecForName(codec)->fromUnicode(text);
}

QByteArray declared(const QByteArray &encoding)
{
    return "<?xml version='1.0' encoding='" + encoding + "'?>";
}

/// Fills a file up to the longest that is parsed.
QByteArray filled(const QByteArray &start, const QByteArray &piece, const QByteArray &end)
{
    const int room = 65536 - start.size() - end.size();
    return start + piece.repeated(room / piece.size()) + end;
}
} // namespace

/// Ordinary files, and files that could make the parser fail. Each must be parsed quickly, in far
/// less than 64 MB and on a stack of 8 MB.
class RegistrationFileTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void ordinaryFileIsParsed_data();
    void ordinaryFileIsParsed();
    void fileWithinTheBoundsIsParsed_data();
    void fileWithinTheBoundsIsParsed();
    void absurdFileIsNotParsed_data();
    void absurdFileIsNotParsed();
    void strangeFileDoesNoHarm_data();
    void strangeFileDoesNoHarm();

private:
    void parse(const QByteArray &content);

    QString parsed;
};

void RegistrationFileTest::parse(const QByteArray &content)
{
    const PeakMemory memory;
    QElapsedTimer time;
    time.start();

    parsed = summary(parseRegistration(content));

    QVERIFY2(time.elapsed() < 2000, QByteArray::number(time.elapsed()));
    QVERIFY2(memory.growth() < 16 * 1024 * 1024, QByteArray::number(memory.growth()));
}

void RegistrationFileTest::initTestCase()
{
    rlimit stack = {};
    getrlimit(RLIMIT_STACK, &stack);
    stack.rlim_cur = 8192 * 1024;
    QCOMPARE(setrlimit(RLIMIT_STACK, &stack), 0);
}

void RegistrationFileTest::ordinaryFileIsParsed_data()
{
    const auto row = addColumns<QByteArray, QString>("content", "expected");
    row("no more than it takes", number("94071A"), "LVData(PartNumber): 94071A");
    row("a DOCTYPE",
        "<!DOCTYPE LVData SYSTEM 'registration.dtd' [<!ELEMENT LVData (PartNumber, (a | b)*)>]>" +
            number("94071A"),
        "LVData(PartNumber): 94071A");
    row("a few entities",
        declaring(
            entity("maker", "T &amp; K") + entity("series", "94071"), number("&series;-&maker;")),
        "LVData(PartNumber): 94071-T & K");
    row("an entity made of another",
        declaring(entity("a", "94") + entity("b", "&a;071"), number("&b;A")),
        "LVData(PartNumber): 94071A");
    row("an entity that holds an element",
        declaring(entity("part", "<PartNumber>94071A</PartNumber>"), "<LVData>&part;</LVData>"),
        "LVData(PartNumber): 94071A");
    row("a parameter entity",
        declaring("<!ENTITY % more '<!ENTITY a \"94071A\">'>%more;", number("&a;")),
        "LVData(PartNumber): 94071A");
    row("an external entity is left out",
        declaring("<!ENTITY a SYSTEM '/dev/zero'>", number("94&a;071A")),
        "LVData(PartNumber): 94071A");
    row("UTF-8 with a byte order mark",
        "\xef\xbb\xbf" + number("94071Ä"),
        "LVData(PartNumber): 94071Ä");
    row("UTF-16 with a byte order mark",
        encoded("UTF-16", number("94071Ä")),
        "LVData(PartNumber): 94071Ä");
    row("UTF-16 without a byte order mark",
        encoded("UTF-16BE", number("94071Ä")),
        "LVData(PartNumber): 94071Ä");
    row("declared as ISO-8859-1",
        declared("ISO-8859-1") + number("94071\xc4"),
        "LVData(PartNumber): 94071Ä");
    row("declared as UTF-7",
        declared("UTF-7") + "+ADw-LVData+AD4-94071+AMQ-+ADw-/LVData+AD4-",
        "LVData(): 94071Ä");
    row("bytes that are not UTF-8", number("94071\xc4"), "LVData(PartNumber): 94071\xef\xbf\xbd");
    row("an unknown encoding",
        declared("X-UNKNOWN") + number("94071Ä"),
        "LVData(PartNumber): 94071Ä");
}

void RegistrationFileTest::ordinaryFileIsParsed()
{
    QFETCH(QByteArray, content);

    parse(content);

    QTEST(parsed, "expected");
}

void RegistrationFileTest::fileWithinTheBoundsIsParsed_data()
{
    const auto row = addColumns<QByteArray, QString>("content", "expected");
    row("the longest file", filled(number("94071A"), " ", ""), "LVData(PartNumber): 94071A");
    row("as many tags as there may be",
        "<LVData>" + QByteArray("<a/>").repeated(4094) + "</LVData>",
        "LVData(" + QString("a ").repeated(4093) + "a): ");
    row("2,047 nested elements with a large text",
        nested(2046, QByteArray(40000, 'x')),
        "LVData(a): " + QString(40000, 'x'));
    row("4,000 nested groups of a content model",
        declaring(
            "<!ELEMENT a " + QByteArray(4000, '(') + "b" + QByteArray(4000, ')') + ">",
            number("94071A")),
        "LVData(PartNumber): 94071A");
    row("6,000 attributes", "<LVData" + numbered(6000, " a#=''") + "/>", "LVData(): ");
    row("a large entity that makes as many characters as there may be",
        withEntityOf(62382, 14),
        "LVData(PartNumber): " + QString(14 * 62382, 'x'));
    row("a large entity in an attribute",
        declaring(
            entity("a", QByteArray(62382, 'x')),
            "<LVData a='" + QByteArray("&a;").repeated(14) + "'/>"),
        "LVData(): ");
    row("a small entity, 450 times",
        withEntityOf(10, 450),
        "LVData(PartNumber): " + QString(4500, 'x'));
    row("an entity of 60 elements, 60 times",
        declaring(
            entity("a", QByteArray("<b/>").repeated(60)),
            "<LVData>" + QByteArray("&a;").repeated(60) + "</LVData>"),
        "LVData(" + QString("b ").repeated(3599) + "b): ");
    row("60 entities", declaring(numbered(60, entity("a#", "")), "<LVData/>"), "LVData(): ");
    row("10,000 ampersands that are no entities",
        number(QByteArray("&amp;").repeated(10000)),
        "LVData(PartNumber): " + QString(10000, '&'));
}

void RegistrationFileTest::fileWithinTheBoundsIsParsed()
{
    QFETCH(QByteArray, content);

    parse(content);

    QTEST(parsed, "expected");
}

void RegistrationFileTest::absurdFileIsNotParsed_data()
{
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("one byte too long") << filled(number("94071A"), " ", "") + " ";
    QTest::newRow("one tag too many")
        << "<LVData>" + QByteArray("<a/>").repeated(4095) + "</LVData>";
    QTest::newRow("a large entity that is a character too long") << withEntityOf(62383, 14);
    // This makes 101 times 9,901 characters.
    QTest::newRow("an entity that makes a character too many") << withEntityOf(9528, 99);
    QTest::newRow("30,000 nested elements") << nested(30000, "");
    QTest::newRow("4,000 nested elements") << nested(4000, "");
    QTest::newRow("10,000 empty elements")
        << "<LVData>" + QByteArray("<a/>").repeated(10000) + "</LVData>";
    QTest::newRow("nested elements in UTF-16") << encoded("UTF-16", nested(4000, ""));
    QTest::newRow("nested elements in UTF-16 without a byte order mark")
        << encoded("UTF-16LE", nested(4000, ""));
    QTest::newRow("nested elements that UTF-7 hides")
        << declared("UTF-7") + "<LVData>" + QByteArray("+ADw-a+AD4-").repeated(2500) +
               QByteArray("+ADw-/a+AD4-").repeated(2500) + "</LVData>";
    QTest::newRow("nested elements in EBCDIC")
        << encoded("IBM037", declared("IBM037") + nested(4000, ""));
    QTest::newRow("nested elements in EBCDIC after a readable declaration")
        << declared("IBM037") + encoded("IBM037", nested(4000, ""));
    QTest::newRow("30,000 nested groups of a content model") << declaring(
        "<!ELEMENT a " + QByteArray(30000, '(') + "b" + QByteArray(30000, ')') + ">",
        number("94071A"));
    QTest::newRow("65,000 nested groups of a content model without an end")
        << "<!DOCTYPE LVData [<!ELEMENT a " + QByteArray(65490, '(');
    QTest::newRow("a large entity, 1,000 times in a text") << withEntityOf(30000, 1000);
    QTest::newRow("a large entity, 1,000 times in an attribute") << declaring(
        entity("a", QByteArray(30000, 'x')),
        "<LVData a='" + QByteArray("&a;").repeated(1000) + "'/>");
    QTest::newRow("an entity of 100 elements, 1,000 times") << declaring(
        entity("a", QByteArray("<b/>").repeated(100)),
        "<LVData>" + QByteArray("&a;").repeated(1000) + "</LVData>");
    QTest::newRow("nested elements from an entity") << declaring(
        entity("a", QByteArray("<b>").repeated(100)), number(QByteArray("&a;").repeated(50)));
    QTest::newRow("a large parameter entity, 1,000 times") << declaring(
        "<!ENTITY % a '" + QByteArray(30000, ' ') + "'>" + QByteArray("%a;").repeated(1000),
        number("94071A"));
    QTest::newRow("entities made of entities, a million characters") << declaring(
        entity("a", "xxxxxxxxxx") + entity("b", QByteArray("&a;").repeated(10)) +
            entity("c", QByteArray("&b;").repeated(10)) +
            entity("d", QByteArray("&c;").repeated(10)) +
            entity("e", QByteArray("&d;").repeated(10)) +
            entity("f", QByteArray("&e;").repeated(10)),
        number("&f;"));
    QTest::newRow("an entity made of itself")
        << declaring(entity("a", "&b;") + entity("b", "&a;"), number("&a;"));
    QTest::newRow("3,000 entities")
        << declaring(numbered(3000, entity("a#", "")), number("94071A"));
}

void RegistrationFileTest::absurdFileIsNotParsed()
{
    QFETCH(QByteArray, content);

    parse(content);

    QCOMPARE(parsed, QString());
}

void RegistrationFileTest::strangeFileDoesNoHarm_data()
{
    const auto row = addColumns<QByteArray>("content");
    row("4,096 nested elements without an end", "<LVData>" + QByteArray("<a b=''>").repeated(4095));
    for (const char *piece :
         {"<a>", "<?a?>", "<!---->", "&amp;", "&#65;", "]]>", ">", "&", "<", "'", "\xff", "\xfe"}) {
        QTest::addRow("full of %s", piece) << filled("<LVData>", piece, "</LVData>");
        QTest::addRow("only %s", piece) << filled("", piece, "");
    }
    for (const char *piece : {"%a;", "(", "[", "<!ELEMENT a (", "<!ATTLIST a b (c|d) #IMPLIED>"}) {
        QTest::addRow("a DOCTYPE full of %s", piece)
            << filled("<!DOCTYPE LVData [", piece, "]><LVData/>");
    }
}

void RegistrationFileTest::strangeFileDoesNoHarm()
{
    QFETCH(QByteArray, content);

    parse(content);
}

QTEST_APPLESS_MAIN(RegistrationFileTest)
#include "registration_file_test.moc"

#include "app/database_migrator.h"
#include "fuzz/fuzzer.h"
#include "fuzz/lone_migrator.h"
#include "maintenance/registration_file.h"

#include <QElapsedTimer>
#include <QXmlStreamReader>

#include <algorithm>
#include <optional>

namespace
{
constexpr int longestFile = 65'536;
constexpr int mostCharacters = 1'000'000;

bool isBlank(const QStringRef &text)
{
    return text.trimmed().isEmpty();
}

/// The text that another parser reads. Both parsers accept mistakes, but not the same ones. So it
/// returns nothing where they may disagree: in everything but elements, attributes and ASCII text.
std::optional<QString> partNumberOf(const QByteArray &content)
{
    const bool isPlain = std::all_of(content.begin(), content.end(), [](char c) {
        return (c >= ' ' && c < 0x7f && c != '&') || c == '\n';
    });
    if (!isPlain || content.contains("<!") || content.contains("<?") || content.count('<') > 4000 ||
        content.size() > longestFile) {
        return std::nullopt;
    }
    QXmlStreamReader xml(content);
    xml.setNamespaceProcessing(false);
    QMap<QString, QString> texts;
    QString text;
    bool isRegistration = false;
    int depth = 0;
    while (!xml.atEnd()) {
        switch (xml.readNext()) {
        case QXmlStreamReader::StartElement:
            ++depth;
            if (depth == 1) {
                isRegistration = xml.qualifiedName() == "LVData";
            } else if (depth == 2) {
                text.clear();
            }
            break;
        case QXmlStreamReader::Characters:
            if (!isBlank(xml.text())) {
                text += xml.text();
            }
            break;
        case QXmlStreamReader::EndElement:
            if (depth == 2) {
                texts[xml.qualifiedName().toString().toLower()] = text;
            }
            --depth;
            break;
        default:
            break;
        }
    }
    if (xml.hasError()) {
        return std::nullopt;
    }
    return isRegistration ? texts["partnumber"] + texts["partnumbersuffix"] : QString();
}
} // namespace

void fuzz(const QByteArray &input)
{
    static const MemoryFile file("registration.xml");
    file.write(input);
    const std::optional<QString> expected = partNumberOf(input);
    QElapsedTimer time;
    time.start();

    const QString partNumber = migrator().readRegistrationPartNumber(file.path());

    require(time.elapsed() < 5000, "reading takes no time");
    require(partNumber.size() <= mostCharacters, "a file makes no more characters than it may");
    require(
        partNumber.isEmpty() || input.size() <= longestFile,
        "nothing is read from a file that is too long");
    require(
        !expected || partNumber == *expected, "a plain file is read as another parser reads it");
    require(
        !partNumber.isEmpty() == !migrator().readRegistrationPartNumber(file.path()).isEmpty(),
        "reading again reads the same");
}

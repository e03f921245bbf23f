#include "maintenance/registration_file.h"

#include <QString>
#include <QXmlInputSource>

namespace
{
constexpr qint64 mostTags = 4'096;
constexpr qint64 mostCharacters = 1'000'000;

/// Decodes an XML file as the parser does, by its byte order mark or its declared encoding.
QString decoded(const QByteArray &content)
{
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    QXmlInputSource source;
    source.setData(content);
    return source.data();
    QT_WARNING_POP
}

bool isAbsurd(const QString &xml)
{
    // A "(" counts as a tag: the parser recurses into the groups of a content model as well.
    const qint64 tags = xml.count('<') + xml.count('(');
    // Every reference to a declared entity could repeat the whole file, and the parser looks for
    // every entity in every other one. It limits entities made of other entities itself.
    const qint64 declarations = xml.count("<!ENTITY");
    const qint64 references = declarations > 0 ? xml.count('&') + xml.count('%') : 0;
    const qint64 repetitions = 1 + declarations + references;
    return tags * repetitions > mostTags || xml.size() * repetitions > mostCharacters;
}
} // namespace

QDomDocument parseRegistration(const QByteArray &content)
{
    QDomDocument document;
    if (content.size() >= registrationBytesRead) {
        return document;
    }
    const QString xml = decoded(content);
    if (isAbsurd(xml) || !document.setContent(xml, false)) {
        return QDomDocument();
    }
    return document;
}

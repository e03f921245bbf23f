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
    // Every reference to a declared entity could repeat the whole file; an entity that is made of
    // others is kept short by the parser itself.
    const qint64 references = xml.contains("<!ENTITY") ? xml.count('&') + xml.count('%') : 0;
    return xml.count('<') * (1 + references) > mostTags ||
           xml.size() * (1 + references) > mostCharacters;
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

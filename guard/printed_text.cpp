#include "guard/printed_text.h"
#include "guard/limits.h"

#include <QVector>

QString printedText(const QByteArray &text)
{
    // A character has at most four bytes, so a text of megabytes need not be decoded whole.
    const QString decoded =
        QString::fromUtf8(text.constData(), qMin(text.size(), 4 * (limits::printedCharacters + 1)));
    const QVector<uint> characters = decoded.toUcs4();
    QString printed;
    for (const uint character : characters.mid(0, limits::printedCharacters)) {
        if (character == '\\') {
            printed += "\\\\";
        } else if (QChar::isPrint(character)) {
            printed += QString::fromUcs4(&character, 1);
        } else {
            printed += QString("\\u%1").arg(character, 4, 16, QChar('0'));
        }
    }
    return characters.size() > limits::printedCharacters ? printed + "..." : printed;
}

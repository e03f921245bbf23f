#pragma once

#include <QByteArray>
#include <QString>
#include <QTextCodec>

/// @param encoding a name such as "UTF-16LE"
/// @return a text in this encoding, with its byte order mark
inline QByteArray encodedWithMark(const QByteArray &encoding, const QString &text)
{
    return QTextCodec::codecForName(encoding)->fromUnicode(text);
}

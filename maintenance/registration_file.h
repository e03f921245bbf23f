#pragma once

#include <QByteArray>
#include <QDomDocument>

/// Parses the device's registration file. What no registration file looks like counts as one that
/// cannot be parsed, because it could exhaust the memory or the stack of the parser: more than
/// 65,536 bytes, more than 4,096 tags (a "(" of a content model is as bad as one), or so many
/// entities and references to them that they could make as many tags or a million characters of it.
/// @param content the file's bytes
/// @return the document, empty when it cannot be parsed
QDomDocument parseRegistration(const QByteArray &content);

/// The bytes of a registration file that are looked at: one more than the longest file has.
constexpr qint64 registrationBytesRead = 65'536 + 1;

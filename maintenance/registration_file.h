#pragma once

#include <QByteArray>
#include <QDomDocument>

/// Parses the device's registration file. A file that could exhaust the parser's memory or stack
/// counts as one that cannot be parsed. The limits are far above any registration file: 65,536 bytes,
/// 4,096 tags (a "(" of a content model counts as one), and entities that could make as many tags or
/// a million characters when they are replaced.
/// @param content the file's bytes
/// @return the document, empty when it cannot be parsed
QDomDocument parseRegistration(const QByteArray &content);

/// The number of bytes read of a registration file: one more than the longest valid file.
constexpr qint64 registrationBytesRead = 65'536 + 1;

#pragma once

#include <QByteArray>
#include <QString>

/// A name or value from a database in printable form: it fits on one line and has no characters
/// that control a terminal. "..." marks a cut.
/// @param text UTF-8; any bytes may be in it
QString printedText(const QByteArray &text);

#pragma once

#include <QByteArray>
#include <QString>

/// A name or a value out of a database as it is printed: on one line, not longer than a line, and
/// without what a terminal would obey. What is left out is told by "...".
/// @param text UTF-8; anything may be in it
QString printedText(const QByteArray &text);

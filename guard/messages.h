#pragma once

#include <QByteArray>
#include <QString>

/// Writes a line to standard error, with the guard's name before it.
void tell(const QByteArray &text);
inline void tell(const QString &text)
{
    tell(text.toUtf8());
}

#pragma once

#include <QByteArray>
#include <QString>

/// @return the user's word for a table, such as "mixes" for PC_Mix; the table's own name, printable,
/// where the list in table_words.cpp has none
QString wordForTable(const QByteArray &table);

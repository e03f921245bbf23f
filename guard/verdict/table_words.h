#pragma once

#include <QByteArray>
#include <QString>

/// @return the user's word for a table, such as "mixes" for PC_Mix; without one in table_words.cpp,
/// the table's name in printable form
QString wordForTable(const QByteArray &table);

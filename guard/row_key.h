#pragma once

#include <QByteArray>
#include <QByteArrayList>

#include <sqlite3.h>

/// Adds the SQL function row_key to a connection. Two rows have the same key when all their values
/// have the same storage class and the same bytes.
/// @return an SQLite result code
int addRowKey(sqlite3 *connection);

/// @param values SQL expressions, at least one
/// @return the SQL expression for the key of a row with these values: 32 bytes
QByteArray rowKeyOf(const QByteArrayList &values);

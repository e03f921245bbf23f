#pragma once

#include <QString>
#include <QStringList>

/// Tells which rows of a database another one would take away and bring back.
/// @param current the device's database; only read, under SQLite's own locks
/// @param other a database at rest
/// @return a line for every table that differs
QStringList rowChanges(const QString &current, const QString &other);

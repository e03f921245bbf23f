#pragma once

#include <QString>
#include <QStringList>

/// Lists what another database would take away, change and bring back: the rows of each table, by
/// their keys, and the names of other objects. Names and keys are printed with printedText().
/// @param current the device's database, at rest
/// @param other a database at rest
/// @return a line for every table, object and kind of setting that differs; empty when none does
QStringList rowChanges(const QString &current, const QString &other);

#pragma once

#include "guard/rehearsal.h"

#include <QJsonObject>
#include <QStringList>

/// What is told of a rehearsal.
namespace rehearsalReport
{
/// @param withRows whether paths, names, keys and values of the device's rows, and its log, may be in it
/// @return docs/rehearsal.schema.json describes it
QJsonObject toJson(const Rehearsal &rehearsal, bool withRows);

/// @param named whether the database is named: there are several
/// @return a line on how the run would end; for one database also a sentence for every finding that
/// counts
QStringList lines(const Rehearsal &rehearsal, bool named);
} // namespace rehearsalReport

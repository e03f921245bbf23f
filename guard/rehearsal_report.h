#pragma once

#include "guard/rehearsal.h"

#include <QJsonObject>
#include <QStringList>

/// The reports on a rehearsal.
namespace rehearsalReport
{
/// @param withRows whether the report may have paths, the log, and names, keys and values of rows
/// @return docs/rehearsal.schema.json describes it
QJsonObject toJson(const Rehearsal &rehearsal, bool withRows);

/// @param named whether the line names the database, because there are several
/// @return a line on how the run would end; for one database also a sentence for every finding that
/// counts, and what was assumed
QStringList lines(const Rehearsal &rehearsal, bool named);
} // namespace rehearsalReport

#pragma once

#include "guard/device_paths.h"
#include "guard/run_record.h"

/// Reasons not to start the program at all.
namespace refusals
{
/// The reason of endIfNewer().
extern const char *const newerThanProgram;

/// @return true for a version that the installed program does not know; false also when nobody can
/// tell
bool isNewerThanProgram(const DevicePaths &device, const RecordedVersion &version);

/// Ends a run whose database is newer than the program. Such a program walks nothing, records the
/// newer version with the older software, and adds back what a newer step took.
/// @param record has the version before
/// @return whether it has ended
bool endIfNewer(const DevicePaths &device, RunRecord *record);

/// Ends a run where the SQLite library takes texts in double quotes for names of columns. Steps of
/// the program then fail, or write NULL and say that they were successful.
/// @return whether it has ended
bool endIfLibraryIsUnfit(RunRecord *record);
} // namespace refusals

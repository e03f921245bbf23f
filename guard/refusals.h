#pragma once

#include "guard/device_paths.h"
#include "guard/run_record.h"

/// Reasons not to start the program at all.
namespace refusals
{
/// The reason of endIfNewer().
extern const char *const newerThanProgram;

/// @return true when the version is newer than any that the installed program knows; false also
/// when the guard cannot tell
bool isNewerThanProgram(const DevicePaths &device, const RecordedVersion &version);

/// Ends a run whose database is newer than the program. That program would walk nothing, record the
/// newer version with the older software, and add back what a newer step took.
/// @param record already has the version before
/// @return whether it ended the run
bool endIfNewer(const DevicePaths &device, RunRecord *record);

/// Ends a run if the SQLite library lacks what the guard needs, or refuses texts in double quotes (it
/// takes them for names of columns). In the first case the guard could not see what a run has lost.
/// In the second, steps of the program fail, or write NULL and report success.
/// @return whether it ended the run
bool endIfLibraryIsUnfit(RunRecord *record);

/// Ends a restore if the SQLite library lacks what the guard needs.
/// @return whether it ended the restore
bool endIfLibraryLacksNeeds(RunRecord *record);
} // namespace refusals

#pragma once

#include "guard/migration.h"
#include "guard/run_note.h"
#include "guard/staging.h"
#include "guard/wait_budget.h"

#include <optional>

/// The input of a try.
struct GuardedTask {
    const DevicePaths &device;
    const MigrationOptions &options;
    const std::optional<RunNote> &earlier; ///< the note that an earlier run has left
    bool mayReplaceKept;                   ///< the kept database of before is no longer needed
    bool followsCutDirectRun;              ///< an earlier direct run was cut
};

/// How one try ended.
struct GuardedEnd {
    enum class Next {
        Done,        ///< the record says how it ended
        CopyAgain,   ///< another process has written since the copy was made
        StageOnDisk, ///< there is too little room in memory
        NoRoom,      ///< there is too little room on the disk; the record's detail says for what
        RunDirectly  ///< guarding is impossible; the record's reason says why
    };
    Next next = Next::Done;
    RunRecord record;

    /// True when the note is no longer needed. A note that stays is for the next run: it names
    /// files to delete in the pool, a failure to be careful about, or a commit whose end is not
    /// known.
    bool noteIsDone = false;
    bool earlierIsSettled = false; ///< what an earlier run left is settled
    bool directoryChanged = false; ///< a database beside the real one was renamed or removed
    std::optional<qint64>
        mostTaken; ///< bytes that the program took in staging, if it ran to its end
};

/// Runs the program on a copy and brings the result into the real database.
/// @param place where the copy is
/// @param budget time to wait for the locks of others
GuardedEnd runGuarded(const GuardedTask &task, Staging::Place place, WaitBudget &budget);

#pragma once

#include "guard/migration.h"
#include "guard/run_note.h"
#include "guard/staging.h"
#include "guard/wait_budget.h"

#include <optional>

/// What a try works with.
struct GuardedTask {
    const DevicePaths &device;
    const MigrationOptions &options;
    const std::optional<RunNote> &earlier; ///< the note that an earlier run has left
    bool mayReplaceKept;                   ///< the kept database of before is not needed any more
};

/// What one try has come to.
struct GuardedEnd {
    enum class Next {
        Done,        ///< the record says how it ended
        CopyAgain,   ///< somebody else has written since the copy was made
        StageOnDisk, ///< memory has too little room
        NoRoom,      ///< the disk has too little room; the record's detail says for what
        RunDirectly  ///< guarding is impossible; the record's reason says why
    };
    Next next = Next::Done;
    RunRecord record;

    /// True when nothing of a note matters any more. A note that stays is for the next run: files to
    /// delete in the pool, a failure to be careful about, or a commit whose end is not known.
    bool noteIsDone = false;
    bool earlierIsSettled = false; ///< what an earlier run has left is in order
    bool directoryChanged = false; ///< a database beside the real one has got its name or gone
    std::optional<qint64>
        mostTaken; ///< bytes that the program took in staging, if it ran to its end
};

/// Runs the program on a copy and brings the result into the real database.
/// @param place where the copy is
/// @param budget for the locks of others
GuardedEnd runGuarded(const GuardedTask &task, Staging::Place place, WaitBudget &budget);

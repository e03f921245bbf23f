#pragma once

#include "guard/device_paths.h"
#include "guard/staging.h"

#include <QByteArray>

/// One run of the unchanged program.
struct ProgramRun {
    enum class End {
        Whole,        ///< it ended by itself, and had all the room that it needed
        NeverStarted, ///< bubblewrap could not make its place
        LackOfRoom,   ///< staging was nearly full, or the log tells of it: maybe half a result
        Broken        ///< a signal, another exit status than 0, or a log that is not whole
    };
    End end = End::NeverStarted;
    QByteArray log; ///< what the run logged
    qint64 mostTaken =
        0; ///< the most bytes that it was seen to take in staging; 0 for a direct run
};

/// Runs the program where it sees the staged database in the place of the real one, and the staged
/// pool in the place of the real one. It dies with this process.
/// @param target passed on in decimal
/// @param reserve bytes that have to stay free in staging
ProgramRun runOnStaging(
    const DevicePaths &device, const Staging &staging, int target, qint64 reserve);

/// Runs the program on the real database, as without a guard.
/// @return LackOfRoom is never told
ProgramRun runDirectly(const DevicePaths &device, int target);

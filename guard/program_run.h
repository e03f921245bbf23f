#pragma once

#include "guard/device_paths.h"
#include "guard/staging.h"

#include <QByteArray>

/// One run of the unchanged program.
struct ProgramRun {
    enum class End {
        Whole,        ///< it ended by itself and had enough room
        NeverStarted, ///< bubblewrap could not make the sandbox
        LackOfRoom,   ///< staging was nearly full, or the log says so: maybe half a result
        Broken        ///< a signal, another exit status than 0, or a log that is not whole
    };
    End end = End::NeverStarted;
    QByteArray log; ///< the text that the run logged
    qint64 mostTaken =
        0; ///< the most bytes that it was measured to take in staging; 0 for a direct run
};

/// Runs the program with the staged database and the staged pool mounted over the real ones. It dies
/// with this process.
/// @param target the version to migrate to
/// @param reserve bytes that have to stay free in staging
ProgramRun runOnStaging(
    const DevicePaths &device, const Staging &staging, int target, qint64 reserve);

/// Runs the program on the real database, as without a guard.
/// @return how it ended; never LackOfRoom
ProgramRun runDirectly(const DevicePaths &device, int target);

#include "guard/program_run.h"
#include "guard/bubblewrap.h"
#include "guard/limits.h"
#include "guard/log_follower.h"
#include "guard/run_log.h"
#include "guard/sizing.h"

#include <QFileInfo>

#include <algorithm>

namespace
{
const char *const temporaryDirectory = "/temporary";

QStringList sandboxArguments(const DevicePaths &device, const Staging &staging, int target)
{
    // Inside, the staged directory is at the real one's place, and so is its part for temporary
    // files.
    const QString temporary = device.databases + temporaryDirectory;
    QStringList arguments = {"--die-with-parent", "--dev-bind", "/", "/"};
    if (!device.pool.isEmpty()) {
        arguments += {"--bind", staging.pool(), device.pool};
    }
    arguments += {"--bind", staging.databases(), device.databases};
    arguments += {"--setenv", "TMPDIR", temporary, "--setenv", "SQLITE_TMPDIR", temporary};
    arguments << "--" << device.program << QString::number(target);
    return arguments;
}

ProgramRun::End endOf(const Bubblewrap::End &end, const QByteArray &log)
{
    if (!end.programStarted) {
        return end.killed ? ProgramRun::End::Broken : ProgramRun::End::NeverStarted;
    }
    return end.exitCode == 0 && runLog::isWhole(log) ? ProgramRun::End::Whole
                                                     : ProgramRun::End::Broken;
}
} // namespace

ProgramRun runOnStaging(
    const DevicePaths &device, const Staging &staging, int target, qint64 reserve)
{
    LogFollower log(staging.log());
    const qint64 freeAtStart = sizing::freeRoom(staging.directory());
    Bubblewrap sandbox;
    if (!sandbox.start(sandboxArguments(device, staging, target))) {
        return {ProgramRun::End::NeverStarted, QByteArray()};
    }
    bool hadRoom = true;
    qint64 leastFree = freeAtStart;
    const auto lookAtStaging = [&] {
        const qint64 free = sizing::freeRoom(staging.directory());
        leastFree = std::min(leastFree, free);
        hadRoom = hadRoom && free >= reserve;
        log.readOn();
    };
    while (hadRoom && !sandbox.waitForEnd(limits::watchInterval)) {
        lookAtStaging();
    }
    const Bubblewrap::End end = sandbox.end();
    lookAtStaging();
    if (!hadRoom || log.toldOfLackOfRoom()) {
        return {ProgramRun::End::LackOfRoom, log.text(), freeAtStart - leastFree};
    }
    const bool databaseIsThere = QFileInfo(staging.database()).size() > 0;
    const ProgramRun::End judged = endOf(end, log.text());
    const bool lost = judged == ProgramRun::End::Whole && !databaseIsThere;
    return {lost ? ProgramRun::End::Broken : judged, log.text(), freeAtStart - leastFree};
}

ProgramRun runDirectly(const DevicePaths &device, int target)
{
    LogFollower log(device.log);
    log.skipToEnd();
    ChildProcess program;
    ChildProcess::Options options;
    // Without the guard nobody would hold the lock for it.
    options.diesWithParent = true;
    if (!program.start(device.program, {QString::number(target)}, options)) {
        return {ProgramRun::End::NeverStarted, QByteArray()};
    }
    while (!program.waitForEnd(limits::watchInterval)) {
        log.readOn();
    }
    log.readOn();
    const bool whole = !program.wasKilled() && program.exitCode() == 0;
    return {whole ? ProgramRun::End::Whole : ProgramRun::End::Broken, log.text()};
}

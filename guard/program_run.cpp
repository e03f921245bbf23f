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

/// The program dies with this process.
QStringList inView(const ProgramView &view, const QStringList &binds, int target)
{
    return QStringList{"--die-with-parent"} + view.root + binds +
           QStringList{"--", view.program, QString::number(target)};
}

QStringList stagedBinds(const ProgramView &view, const Staging &staging)
{
    // Inside, the staged directory is at the path of the real one, with its directory for temporary
    // files.
    const QString temporary = view.databases + temporaryDirectory;
    QStringList arguments;
    if (!view.pool.isEmpty()) {
        arguments += {"--bind", staging.pool(), view.pool};
    }
    arguments += {"--bind", staging.databases(), view.databases};
    arguments += {"--setenv", "TMPDIR", temporary, "--setenv", "SQLITE_TMPDIR", temporary};
    return arguments;
}

/// A direct run in a rehearsal: in its own root, on the copy in place of the real database.
ProgramRun runInView(const DevicePaths &device, int target, LogFollower &log)
{
    Bubblewrap sandbox;
    const bool started = sandbox.start(inView(device.view, {}, target));
    while (started && !sandbox.waitForEnd(limits::watchInterval)) {
        log.readOn();
    }
    const Bubblewrap::End end = sandbox.end();
    log.readOn();
    if (!end.programStarted && !end.killed) {
        return {ProgramRun::End::NeverStarted, QByteArray()};
    }
    const bool whole = end.exitCode == 0;
    return {whole ? ProgramRun::End::Whole : ProgramRun::End::Broken, log.text()};
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
    const ProgramView &view = device.view;
    if (!sandbox.start(inView(view, stagedBinds(view, staging), target))) {
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
    if (!device.view.isDevice) {
        return runInView(device, target, log);
    }
    ChildProcess program;
    ChildProcess::Options options;
    // If the guard ended first, the program would run without the lock.
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

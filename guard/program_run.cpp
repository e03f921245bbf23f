#include "guard/program_run.h"
#include "guard/bubblewrap.h"
#include "guard/limits.h"
#include "guard/log_follower.h"
#include "guard/run_log.h"
#include "guard/sizing.h"

#include <QFileInfo>

#include <algorithm>
#include <csignal>
#include <sys/prctl.h>

namespace
{
const char *const temporaryDirectory = "/temporary";

QStringList sandboxArguments(const DevicePaths &device, const Staging &staging, int target)
{
    // Inside, the staged directory is at the real one's place, and so is its part for temporary
    // files.
    const QString temporary = device.databases + temporaryDirectory;
    QStringList arguments = {"--dev-bind", "/", "/"};
    if (!device.pool.isEmpty()) {
        arguments += {"--bind", staging.pool(), device.pool};
    }
    arguments += {"--bind", staging.databases(), device.databases};
    arguments += {"--setenv", "TMPDIR", temporary, "--setenv", "SQLITE_TMPDIR", temporary};
    arguments << "--" << device.program << QString::number(target);
    return arguments;
}

/// A program that dies with the guard: nobody would hold the lock for it.
class Program : public QProcess
{
protected:
    void setupChildProcess() override { prctl(PR_SET_PDEATHSIG, SIGKILL); }
};

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
    if (!sandbox.startSandbox(sandboxArguments(device, staging, target))) {
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
    while (!sandbox.waitForFinished(limits::watchInterval)) {
        lookAtStaging();
        if (!hadRoom) {
            sandbox.kill();
            sandbox.waitForFinished(-1);
            break;
        }
    }
    lookAtStaging();
    if (!hadRoom || log.toldOfLackOfRoom()) {
        return {ProgramRun::End::LackOfRoom, log.text(), freeAtStart - leastFree};
    }
    const bool databaseIsThere = QFileInfo(staging.database()).size() > 0;
    const ProgramRun::End end = endOf(sandbox.end(), log.text());
    const bool lost = end == ProgramRun::End::Whole && !databaseIsThere;
    return {lost ? ProgramRun::End::Broken : end, log.text(), freeAtStart - leastFree};
}

ProgramRun runDirectly(const DevicePaths &device, int target)
{
    LogFollower log(device.log);
    log.skipToEnd();
    Program program;
    program.setProcessChannelMode(QProcess::ForwardedChannels);
    program.setStandardInputFile(QProcess::nullDevice());
    program.start(device.program, {QString::number(target)});
    if (!program.waitForStarted(-1)) {
        return {ProgramRun::End::NeverStarted, QByteArray()};
    }
    while (!program.waitForFinished(limits::watchInterval)) {
        log.readOn();
    }
    log.readOn();
    const bool whole = program.exitStatus() == QProcess::NormalExit && program.exitCode() == 0;
    return {whole ? ProgramRun::End::Whole : ProgramRun::End::Broken, log.text()};
}

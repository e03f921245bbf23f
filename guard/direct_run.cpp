#include "guard/direct_run.h"
#include "guard/program_run.h"
#include "guard/real_database.h"

#include <QDateTime>
#include <QFileInfo>

namespace
{
std::optional<int> versionOf(const QString &database)
{
    if (!QFileInfo(database).isFile()) {
        return std::nullopt;
    }
    WaitBudget noWaiting(0);
    RealDatabase real(database, noWaiting);
    real.open();
    return recordedVersion(real.connection());
}

/// What tells that a file was written to, without reading it.
QString stampOf(const QString &file)
{
    const QFileInfo info(file);
    return QString("%1 %2").arg(info.size()).arg(info.lastModified().toMSecsSinceEpoch());
}
} // namespace

void runUnguarded(const DevicePaths &device, int target, RunRecord *record)
{
    // The program may make the database.
    const bool isMissing = device.database.isEmpty() && !device.databases.isEmpty();
    const QString database = isMissing ? device.databases + "/" + databaseName : device.database;
    const QString before = stampOf(database);
    if (!record->from) {
        record->from = versionOf(database);
    }
    const ProgramRun run = runDirectly(device, target);
    if (run.end == ProgramRun::End::NeverStarted) {
        record->to = record->from;
        record->status = Status::NothingChanged;
        record->reason = "program-broken";
        record->detail = "the program cannot be started";
        return;
    }
    if (run.end == ProgramRun::End::Broken) {
        record->reason = "program-broken";
        record->detail = "the program did not end by itself";
    }
    record->to = versionOf(database);
    record->changed = stampOf(database) != before;
    const bool nothingToLose = record->reason == "no-database" && run.end == ProgramRun::End::Whole;
    record->status = nothingToLose ? Status::Success : Status::LookAtIt;
}

#include "guard/direct_run.h"
#include "guard/program_run.h"
#include "guard/real_database.h"

#include <QDateTime>
#include <QFileInfo>

namespace
{
/// What tells that files were written to, without reading them.
QString stampOf(const QString &database)
{
    QString stamp;
    // SQLite's files are where the link leads.
    const QString resolved = QFileInfo(database).canonicalFilePath();
    for (const QString &path : {resolved, resolved + "-wal"}) {
        const QFileInfo file(path);
        if (file.exists()) {
            stamp += QString("%1 %2 %3;")
                         .arg(path)
                         .arg(file.size())
                         .arg(file.lastModified().toMSecsSinceEpoch());
        }
    }
    return stamp;
}

RecordedVersion versionOf(const QString &database)
{
    if (!QFileInfo(database).isFile()) {
        RecordedVersion none;
        none.isKnown = true;
        return none;
    }
    WaitBudget noWaiting(0);
    RealDatabase real(database, noWaiting);
    // Where it cannot be opened the version cannot be read either.
    real.open();
    return recordedVersion(real.connection());
}
} // namespace

void runUnguarded(const DevicePaths &device, int target, RunRecord *record)
{
    const QString before = stampOf(device.databaseEntry);
    if (!record->from.isKnown) {
        record->from = versionOf(device.databaseEntry);
    }
    const ProgramRun run = runDirectly(device, target);
    if (run.end == ProgramRun::End::NeverStarted) {
        record->endUnchanged("program-broken", "the program cannot be started");
        return;
    }
    if (run.end == ProgramRun::End::Broken) {
        record->reason = "program-broken";
        record->detail = "the program did not end by itself";
    }
    record->to = versionOf(device.databaseEntry);
    record->changed = stampOf(device.databaseEntry) != before;
    const bool nothingToLose = record->reason == "no-database" && run.end == ProgramRun::End::Whole;
    record->status = nothingToLose ? Status::Success : Status::LookAtIt;
}

#include "guard/direct_run.h"
#include "guard/known_versions.h"
#include "guard/program_run.h"
#include "guard/real_database.h"
#include "guard/refusals.h"
#include "guard/result_verdict.h"

#include <QDateTime>
#include <QFileInfo>

namespace
{
/// A text that changes when the files are written to; the files are not read.
QString stampOf(const QString &database)
{
    QString stamp;
    // SQLite's files are beside the target of the link.
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
    // If it cannot be opened, reading the version fails too.
    real.open();
    return recordedVersion(real.connection());
}

/// @return the names, folded; nothing when they cannot be read
std::optional<QSet<QByteArray>> tablesOf(const QString &database)
{
    if (!QFileInfo(database).isFile()) {
        return std::nullopt;
    }
    WaitBudget noWaiting(0);
    RealDatabase real(database, noWaiting);
    real.open();
    return tableNames(real.connection());
}
} // namespace

void runUnguarded(
    const DevicePaths &device, const MigrationOptions &options, LastMigration *lastMigration,
    RunRecord *record)
{
    const QString before = stampOf(device.databaseEntry);
    if (!record->from.isKnown) {
        record->from = versionOf(device.databaseEntry);
    }
    if (refusals::endIfNewer(device, record)) {
        return;
    }
    const std::optional<QSet<QByteArray>> tablesBefore = tablesOf(device.databaseEntry);
    if (lastMigration != nullptr) {
        record->newestKnown = newestKnownVersion(device.knownVersions);
        lastMigration->announceDirectRun(*record);
    }
    record->measured.begin();
    const ProgramRun run = runDirectly(device, options.target);
    record->measured.endPart("program");
    if (run.end == ProgramRun::End::NeverStarted) {
        record->endUnchanged("program-broken", "the program cannot be started");
        return;
    }
    const QString whyDirect = record->reason;
    record->to = versionOf(device.databaseEntry);
    record->changed = stampOf(device.databaseEntry) != before;
    record->verdict = judgeDirectRun(device, options, *record, {whyDirect, run.log, tablesBefore});
    const bool isBroken = run.end == ProgramRun::End::Broken;
    if (isBroken) {
        record->reason = "program-broken";
        record->detail = "the program did not end by itself";
    }
    const bool isInOrder = !isBroken && record->verdict->counting() == 0;
    record->status = isInOrder ? Status::Success : Status::LookAtIt;
}

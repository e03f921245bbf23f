#include "guard/guarded_run.h"
#include "guard/commit.h"
#include "guard/comparison.h"
#include "guard/device_log.h"
#include "guard/durable_file.h"
#include "guard/earlier_run.h"
#include "guard/limits.h"
#include "guard/mending.h"
#include "guard/messages.h"
#include "guard/program_run.h"
#include "guard/real_database.h"
#include "guard/refusals.h"
#include "guard/result_verdict.h"
#include "guard/sizing.h"
#include "guard/staging_place.h"

#include <QFileInfo>

namespace
{
using Place = Staging::Place;
using Next = GuardedEnd::Next;
using FailureKind = DatabaseFailure::Kind;

RecordedVersion versionOfStaged(const QString &database)
{
    SqliteConnection connection;
    connection.open(database, SQLITE_OPEN_READWRITE);
    return recordedVersion(connection);
}

/// A run that fell back keeps the newer database there, perhaps with the work of a season. It stays
/// until a program is installed that knows its version.
bool keepsNewerDatabase(const DevicePaths &device)
{
    SqliteConnection connection;
    connection.openAtRest(device.kept);
    return refusals::isNewerThanProgram(device, recordedVersion(connection));
}

/// One try, from the copy to the commit.
class GuardedTry
{
public:
    GuardedTry(const GuardedTask &task, Place place, WaitBudget &budget)
        : m_task(task), m_place(place), m_size(sizing::measure(task.device.database)),
          m_database(task.device.database, budget)
    {
        m_end.record.target = task.options.target;
        m_end.record.followsCutDirectRun = task.followsCutDirectRun;
    }

    GuardedEnd run()
    {
        m_end.next = copy();
        return m_end;
    }

private:
    // Each stage does its part and then calls the next one.
    Next copy();
    std::optional<Next> mend(const Staging &staging);
    Next runProgram(const Staging &staging);
    Next accept(const Staging &staging, const QByteArray &log);
    Next commit(const Staging &staging, const QByteArray &log);

    Next endUnchanged(const QString &reason, const QString &detail = QString());
    Next endWith(const DatabaseFailure &failure, const QString &step);
    Next directly(const QString &reason, const QString &detail);
    Next withoutStaging(const QString &detail);
    Next withoutComparison(const QString &detail);
    Next endOfReading(const DatabaseFailure &failure);

    void settleEarlierRun(const Staging &staging);
    void noteFailure();

    const GuardedTask &m_task;
    const Place m_place;
    const sizing::Database m_size;
    RealDatabase m_database;
    QByteArrayList m_poolFiles;
    MendingResult m_mending;
    RunNote m_note;
    GuardedEnd m_end;
};

Next GuardedTry::copy()
{
    m_end.record.measured.begin();
    const StagingPlace where = stagingPlace(m_task.device, m_task.options, m_place);
    if (sizing::freeRoom(where.parent) < sizing::stagingRoom(m_size, m_task.options.mend)) {
        return withoutStaging("for staging");
    }
    Staging staging(where.directory, m_place);
    if (!staging.prepare()) {
        return withoutStaging("no directory for staging");
    }
    const TemporaryFilesIn temporaryFiles(staging.temporary());

    if (const RealDatabase::Failure failure = m_database.open()) {
        return endOfReading(*failure);
    }
    if (const RealDatabase::Failure failure = m_database.copyTo(staging.original())) {
        return failure->kind == FailureKind::NoRoom ? withoutStaging(failure->text)
                                                    : endOfReading(*failure);
    }
    settleEarlierRun(staging);
    m_end.record.from = versionOfStaged(staging.original());
    if (!m_end.record.from.isKnown) {
        return withoutComparison("the version before cannot be read");
    }
    if (refusals::endIfNewer(m_task.device, &m_end.record)) {
        m_end.noteIsDone = m_end.earlierIsSettled;
        return Next::Done;
    }
    const std::optional<QByteArrayList> poolFiles =
        stagedPool::fill(m_task.device.pool, staging.pool());
    if (!poolFiles ||
        durable::copy(staging.original(), staging.database(), durable::Ownership(), false) != 0) {
        return withoutStaging("for staging");
    }
    if (m_task.options.mend) {
        if (const std::optional<Next> end = mend(staging)) {
            return *end;
        }
    }
    if (sizing::freeRoom(staging.directory()) < sizing::roomForProgram(m_size)) {
        return withoutStaging("for staging");
    }
    m_poolFiles = *poolFiles;
    m_end.record.measured.noteBytes("before", QFileInfo(staging.original()).size());
    m_end.record.staging = m_place == Place::Memory ? "memory" : "disk";
    return runProgram(staging);
}

/// Only the disk or the memory can fail here. The run then ends, because mending cannot repair
/// later what a step does while the copy is still there.
/// @return nothing when the program may run
std::optional<Next> GuardedTry::mend(const Staging &staging)
{
    m_mending = mendCopies(staging.database(), VersionTable(m_task.device.knownVersions));
    if (!m_mending.error.isEmpty()) {
        return m_place == Place::Memory ? withoutStaging("for mending")
                                        : endUnchanged("mending-failed", m_mending.error);
    }
    const bool isCopied =
        !m_mending.changed() ||
        durable::copy(staging.database(), staging.mended(), durable::Ownership(), false) == 0;
    return isCopied ? std::nullopt : std::optional<Next>(withoutStaging("for staging"));
}

Next GuardedTry::runProgram(const Staging &staging)
{
    m_note.stagedOnDisk = m_place == Place::Disk;
    if (m_task.earlier && m_task.earlier->failed) {
        m_note.runsInARow = m_task.earlier->runsInARow + 1;
    }
    if (const int error = m_note.write(m_task.device.note, false)) {
        // On a disk that is full or failing, the program must not run without the guard.
        const DatabaseFailure failure = systemFailure(error, "note of the run");
        return failure.kind == FailureKind::NotWritable ? directly("not-writable", failure.text)
                                                        : endWith(failure, "commit-failed");
    }
    m_end.record.measured.endPart("copy");
    const ProgramRun run =
        runOnStaging(m_task.device, staging, m_task.options.target, sizing::reserve(m_size));
    m_end.record.measured.endPart("program");
    switch (run.end) {
    case ProgramRun::End::NeverStarted:
        return directly("no-namespaces", QString());
    case ProgramRun::End::LackOfRoom:
        return withoutStaging("while the program ran");
    case ProgramRun::End::Broken:
        noteFailure();
        return endUnchanged("program-broken", "the program did not end by itself");
    case ProgramRun::End::Whole:
        break;
    }
    m_end.mostTaken = run.mostTaken;
    m_end.noteIsDone = m_end.earlierIsSettled;
    return accept(staging, run.log);
}

Next GuardedTry::accept(const Staging &staging, const QByteArray &log)
{
    RunRecord &record = m_end.record;
    const DatabaseDifferences differences =
        compareDatabases(staging.original(), staging.database());
    if (!differences.readError.isEmpty()) {
        return withoutComparison(differences.readError);
    }
    // The result is compared with the mended copy, so all differences come from the program.
    const QString given = m_mending.changed() ? staging.mended() : staging.original();
    const DatabaseDifferences doneByProgram =
        m_mending.changed() ? compareDatabases(given, staging.database()) : differences;
    if (!doneByProgram.readError.isEmpty()) {
        return withoutComparison(doneByProgram.readError);
    }
    record.to = versionOfStaged(staging.database());
    if (!record.to.isKnown) {
        return withoutComparison("the version after cannot be read");
    }
    const StagedResult result = {
        given,
        staging.database(),
        staging.temporary(),
        log,
        m_mending.mendings,
        m_end.mostTaken.value_or(0)};
    const Verdict verdict =
        judgeResult(m_task.device, m_task.options, record, result, doneByProgram);
    record.measured.endPart("comparison");
    record.measured.noteBytes("after", QFileInfo(staging.database()).size());
    record.measured.noteBytes("log", log.size());
    if (verdict.lackedRoom) {
        return withoutStaging("for the verdict");
    }
    if (m_task.options.seeResult) {
        m_task.options.seeResult(result);
    }
    if (differences.isEmpty()) {
        // A log that cannot be written is not a failure; the program does the same.
        DeviceLog(m_task.device.log).append(log, false);
        const QByteArrayList deleted = stagedPool::deletedFiles(m_poolFiles, staging.pool());
        if (!stagedPool::deleteFiles(m_task.device.pool, deleted)) {
            tell(QString("a file of the pool could not be deleted"));
        }
        record.judgedBy(verdict, Status::NothingChanged);
        return Next::Done;
    }
    record.changed = true;
    record.judgedBy(verdict, Status::LookAtIt);
    if (m_task.options.strict && record.status == Status::LookAtIt) {
        return endUnchanged(record.reason, "thrown away");
    }
    const bool otherLayout =
        differences.settings.contains("page_size") || differences.settings.contains("journal_mode");
    if (m_database.hasWriteAheadLog() && otherLayout) {
        // SQLite's backup interface refuses such a result, and would do so at every start.
        return directly("layout-changed", differences.settings.join(", "));
    }
    return commit(staging, log);
}

Next GuardedTry::commit(const Staging &staging, const QByteArray &log)
{
    RunRecord &record = m_end.record;
    const bool keep = m_task.options.keepDatabase && m_task.mayReplaceKept &&
                      record.from != record.to && !keepsNewerDatabase(m_task.device);
    m_note.poolFiles += stagedPool::deletedFiles(m_poolFiles, staging.pool());
    AcceptedResult result = {staging.original(), staging.database(), log, keep, m_note};
    bool hasRoom = hasRoomToCommit(m_task.device, m_size, result);
    if (result.keep && !hasRoom) {
        tell(QString("no room to keep the database of before"));
        result.keep = false;
        hasRoom = hasRoomToCommit(m_task.device, m_size, result);
    }
    if (!hasRoom) {
        record.detail = "for the commit";
        record.verdict.reset();
        return Next::NoRoom;
    }
    const CommitEnd end = commitResult(m_database, m_task.device, result);
    record.measured.endPart("commit");
    record.kept = end.kept;
    if (record.kept) {
        record.verdict->noteKept();
    }
    m_end.directoryChanged = m_end.directoryChanged || end.kept;
    m_end.noteIsDone = end.poolIsSettled;
    return end.failure ? endWith(*end.failure, "commit-failed") : Next::Done;
}

Next GuardedTry::endUnchanged(const QString &reason, const QString &detail)
{
    m_end.record.endUnchanged(reason, detail);
    return Next::Done;
}

Next GuardedTry::endWith(const DatabaseFailure &failure, const QString &step)
{
    m_end.record.endWith(failure, step);
    if (!m_end.record.changed) {
        // The verdict is on a result that was not committed.
        m_end.record.verdict.reset();
    }
    switch (failure.kind) {
    case FailureKind::Written:
        return Next::CopyAgain;
    case FailureKind::Locked:
    case FailureKind::Replaced:
    case FailureKind::NotFlushed:
        break;
    case FailureKind::Unknown:
        // The next run finds out from the note and from the database that may be kept.
        m_end.noteIsDone = false;
        break;
    default:
        noteFailure();
    }
    return Next::Done;
}

Next GuardedTry::directly(const QString &reason, const QString &detail)
{
    m_end.record.reason = reason;
    m_end.record.detail = detail;
    m_end.record.verdict.reset();
    return Next::RunDirectly;
}

Next GuardedTry::withoutStaging(const QString &detail)
{
    m_end.record.detail = detail;
    return m_place == Place::Memory ? Next::StageOnDisk : Next::NoRoom;
}

/// The memory that was too little for reading the copies also holds them.
Next GuardedTry::withoutComparison(const QString &detail)
{
    return m_place == Place::Memory ? withoutStaging("for the comparison")
                                    : endUnchanged("comparison-failed", detail);
}

/// If the disk of the database is full or failing, the program is not run on it directly.
Next GuardedTry::endOfReading(const DatabaseFailure &failure)
{
    switch (failure.kind) {
    case FailureKind::NotWritable:
        return directly("not-writable", failure.text);
    case FailureKind::Damaged:
        return directly("not-copied", failure.text);
    default:
        m_end.record.endWith(failure, "copy-failed");
        return Next::Done;
    }
}

void GuardedTry::settleEarlierRun(const Staging &staging)
{
    m_end.earlierIsSettled = settlePool(m_task.device, m_task.earlier, m_database.schemaCookie());
    if (!m_end.earlierIsSettled) {
        // The next run tries again.
        m_note.poolFiles = m_task.earlier->poolFiles;
        m_note.schemaCookie = m_task.earlier->schemaCookie;
    }
    m_end.directoryChanged = settleKeptDatabases(m_task.device, staging.original());
}

void GuardedTry::noteFailure()
{
    RunNote failed = m_note;
    failed.failed = true;
    failed.poolFiles.clear();
    failed.schemaCookie = -1;
    if (const int error = failed.write(m_task.device.note, false)) {
        // The note from the start of this run remains. It says the same, except after a power cut.
        tell("the failure could not be noted: " + systemText(error));
    }
    m_end.noteIsDone = false;
}
} // namespace

GuardedEnd runGuarded(const GuardedTask &task, Staging::Place place, WaitBudget &budget)
{
    return GuardedTry(task, place, budget).run();
}

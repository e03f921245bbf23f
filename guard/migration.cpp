#include "guard/migration.h"
#include "guard/bubblewrap.h"
#include "guard/direct_run.h"
#include "guard/directory_lock.h"
#include "guard/durable_file.h"
#include "guard/earlier_run.h"
#include "guard/guarded_run.h"
#include "guard/known_versions.h"
#include "guard/last_migration.h"
#include "guard/limits.h"
#include "guard/messages.h"
#include "guard/real_database.h"
#include "guard/refusals.h"
#include "guard/restoration.h"
#include "guard/sizing.h"
#include "guard/staging_place.h"

#include <QFile>
#include <QFileInfo>

namespace
{
using Place = Staging::Place;
using Next = GuardedEnd::Next;

/// One run, from the lock to the record of how it ended.
class Migration
{
public:
    Migration(const DevicePaths &device, const MigrationOptions &options)
        : m_device(device), m_options(options), m_budget(options.waitSeconds)
    {
        startRecord();
    }

    RunRecord run();

private:
    void startRecord();
    void readLastMigration();
    void recordEnd();
    void tryOnce();
    bool fallBackToKept();
    void noteFallBack(const RunRecord &newer);
    QString whyNotGuarded() const;
    void tryGuarded();
    bool hasRoomForDirectRun() const;
    void runDirectly();
    void settleBeforeDirectRun();
    void directly(const QString &reason, const QString &detail = QString());
    RunRecord unguarded(const QString &reason);

    DevicePaths m_device; ///< looked up again under the lock
    const MigrationOptions &m_options;
    WaitBudget m_budget;
    std::optional<RunNote> m_earlier;
    std::optional<LastMigration> m_lastMigration; ///< read under the lock, if there can be one
    GuardedEnd m_end;
};

RunRecord Migration::run()
{
    if (m_device.databases.isEmpty()) {
        return unguarded("no-databases-directory");
    }
    DirectoryLock lock;
    switch (lock.take(m_device.databases, m_budget)) {
    case DirectoryLock::Result::Taken:
        break;
    case DirectoryLock::Result::HeldByAnother:
        m_end.record.endUnchanged("locked", "another guard is at work");
        return m_end.record;
    case DirectoryLock::Result::Failed:
        m_end.record.endUnchanged("no-lock", "the directory of the databases cannot be locked now");
        return m_end.record;
    case DirectoryLock::Result::Impossible:
        return unguarded("no-lock");
    }
    // The guard that had the lock may have made the database.
    const bool hadDatabase = !m_device.database.isEmpty();
    m_device.placeDatabases(m_device.databases);
    if (!hadDatabase && !m_device.database.isEmpty()) {
        // Without a database this guard has not prepared a place for staging.
        m_end.record.endUnchanged("locked", "another guard has made the database");
        return m_end.record;
    }
    // A run or a restore that was cut may have left these files.
    removeLeftStaging(m_device, m_options);
    for (const QString &file :
         {m_device.copy,
          durable::unfinishedName(m_device.note),
          durable::unfinishedName(m_device.lastMigration)}) {
        // If one cannot be removed, the next file with its name replaces it.
        QFile::remove(file);
    }
    readLastMigration();
    if (!refusals::endIfLibraryIsUnfit(&m_end.record)) {
        m_earlier = RunNote::read(m_device.note);
        tryOnce();
        const RunRecord newer = m_end.record;
        if (m_options.fallBack && newer.reason == refusals::newerThanProgram && fallBackToKept()) {
            m_earlier = RunNote::read(m_device.note);
            tryOnce();
            noteFallBack(newer);
        }
    }
    recordEnd();
    return m_end.record;
}

void Migration::readLastMigration()
{
    m_lastMigration.emplace(m_device.lastMigration);
    startRecord();
}

void Migration::recordEnd()
{
    m_end.record.newestKnown = newestKnownVersion(m_device.knownVersions);
    if (!m_lastMigration->record(m_end.record, m_end.directoryChanged)) {
        tell(QString("lastMigration.json could not be written"));
    }
}

void Migration::startRecord()
{
    m_end.record.target = m_options.target;
    m_end.record.followsCutDirectRun = m_lastMigration && m_lastMigration->directRunWasCut();
}

/// One try, guarded or directly.
void Migration::tryOnce()
{
    const QString reason = whyNotGuarded();
    if (reason.isEmpty()) {
        tryGuarded();
    } else {
        directly(reason);
    }
    if (m_end.next == Next::NoRoom) {
        if (hasRoomForDirectRun()) {
            directly("no-room", m_end.record.detail);
        } else {
            m_end.record.endUnchanged("no-room", m_end.record.detail);
            m_end.noteIsDone = m_end.earlierIsSettled;
            m_end.next = Next::Done;
        }
    }
    if (m_end.next == Next::RunDirectly) {
        runDirectly();
    }
    if (m_end.noteIsDone) {
        // If the note cannot be removed, the next run is more careful than it has to be.
        QFile::remove(m_device.note);
    }
}

/// @return true when the kept database is now the real one; if false, the record says why
bool Migration::fallBackToKept()
{
    const int newest = newestKnownVersion(m_device.knownVersions).value_or(0);
    const RunRecord fallen = fallBack(m_device, newest, m_budget);
    m_end.directoryChanged = true;
    const bool nothingToFallBackTo =
        fallen.reason == "nothing-kept" || fallen.reason == "kept-damaged";
    if (nothingToFallBackTo) {
        m_end.record.detail =
            fallen.reason + (fallen.detail.isEmpty() ? QString() : ": " + fallen.detail);
        return false;
    }
    if (fallen.status != Status::Success) {
        const std::optional<Verdict> verdict = m_end.record.verdict;
        m_end.record = fallen;
        m_end.record.command = "run";
        m_end.record.verdict = verdict;
        startRecord();
        return false;
    }
    tell(QString("the database is newer than the program: the kept one of before is back"));
    m_end = GuardedEnd();
    m_end.directoryChanged = true;
    startRecord();
    return true;
}

/// The record shows the fall-back and the run after it as one run.
void Migration::noteFallBack(const RunRecord &newer)
{
    m_end.directoryChanged = true;
    RunRecord &record = m_end.record;
    if (record.status == Status::NothingChanged) {
        record.status = Status::LookAtIt;
        record.to = record.endIsKnown ? record.from : RecordedVersion();
    }
    record.from = newer.from;
    record.changed = true;
    record.kept = true;
    Verdict verdict = record.verdict.value_or(Verdict());
    verdict.target = m_options.target;
    Finding finding = newer.verdict->findings.first();
    // The caller has asked to fall back, so this finding is accepted.
    finding.accepted = true;
    verdict.findings << finding;
    record.verdict = verdict;
}

/// @return the reason, empty when a guarded run can be tried
QString Migration::whyNotGuarded() const
{
    if (m_device.databaseLinkIsBroken) {
        return "database-link-broken";
    }
    if (m_device.database.isEmpty()) {
        return "no-database";
    }
    if (!QFileInfo(m_device.database).isFile()) {
        return "not-copied";
    }
    if (bubblewrapPath().isEmpty()) {
        return "no-bubblewrap";
    }
    if (m_options.noNamespaces) {
        // The program could not be started in a sandbox, so nothing is copied to the disk for it at
        // every start.
        return "no-namespaces";
    }
    // After a run that died, the next one is staged on the disk. If that one dies too, staging may
    // be the reason.
    const bool failedTwice =
        m_earlier && m_earlier->stagedOnDisk && m_earlier->failed && m_earlier->runsInARow > 1;
    return failedTwice && !m_options.strict && hasRoomForDirectRun() ? "earlier-runs-failed" : "";
}

void Migration::tryGuarded()
{
    const GuardedTask task = {
        m_device,
        m_options,
        m_earlier,
        m_lastMigration->databaseInOrder() || !QFileInfo::exists(m_device.kept),
        m_lastMigration->directRunWasCut()};
    Place place = m_options.memoryStaging.isEmpty() || m_earlier ? Place::Disk : Place::Memory;
    for (int copies = 0; copies < limits::mostCopies;) {
        const bool directoryChanged = m_end.directoryChanged;
        m_end = runGuarded(task, place, m_budget);
        m_end.directoryChanged = m_end.directoryChanged || directoryChanged;
        if (m_end.next == Next::StageOnDisk) {
            tell(QString("not enough room in memory, staging on the disk"));
            place = Place::Disk;
        } else if (m_end.next == Next::CopyAgain) {
            tell(QString("another program has written to the database"));
            ++copies;
        } else {
            return;
        }
    }
}

/// Call it only after staging is removed: staging may have been on the same disk.
bool Migration::hasRoomForDirectRun() const
{
    const sizing::Database size = sizing::measure(m_device.database);
    return sizing::freeRoom(QFileInfo(m_device.database).absolutePath()) >=
           sizing::roomForDirectRun(size, m_end.mostTaken);
}

void Migration::directly(const QString &reason, const QString &detail)
{
    m_end.next = Next::RunDirectly;
    m_end.record.reason = reason;
    m_end.record.detail = detail;
}

void Migration::runDirectly()
{
    RunRecord &record = m_end.record;
    m_end.noteIsDone = m_end.noteIsDone || m_end.earlierIsSettled;
    if (m_options.strict) {
        record.endUnchanged(record.reason, record.detail);
        return;
    }
    if (!m_end.earlierIsSettled) {
        settleBeforeDirectRun();
    }
    if (m_options.mend) {
        tell(QString("nothing is mended: the program runs on the real database"));
    }
    record.guarded = false;
    record.staging.clear();
    runUnguarded(m_device, m_options, m_lastMigration ? &*m_lastMigration : nullptr, &record);
    // The note's counter is of no use after this run, because the program changes it; so the note
    // is done.
    m_end.noteIsDone = true;
}

/// Only the note says which files of the pool a cut run still had to delete.
void Migration::settleBeforeDirectRun()
{
    if (!m_earlier || m_earlier->poolFiles.isEmpty()) {
        return;
    }
    WaitBudget noWaiting(0);
    RealDatabase database(m_device.database, noWaiting);
    database.open();
    if (const std::optional<qint64> schemaCookie = database.readSchemaCookie()) {
        // A file that stays is reported; nothing can be done about it after a direct run.
        settlePool(m_device, m_earlier, *schemaCookie);
    }
    // The program changes the counter. If it is then cut, the next run would take that for the
    // noted commit, and delete the files.
    QFile::remove(m_device.note);
    durable::flushDirectory(m_device.databases);
}

/// A run without a lock. Without a directory for databases there is no place for a record.
RunRecord Migration::unguarded(const QString &reason)
{
    const bool hasPlace = !m_device.databases.isEmpty();
    if (hasPlace) {
        readLastMigration();
    }
    if (!refusals::endIfLibraryIsUnfit(&m_end.record)) {
        directly(reason);
        runDirectly();
    }
    if (hasPlace) {
        recordEnd();
    }
    return m_end.record;
}
} // namespace

RunRecord migrate(const DevicePaths &device, const MigrationOptions &options)
{
    return Migration(device, options).run();
}

#include "guard/migration.h"
#include "guard/attempt.h"
#include "guard/bubblewrap.h"
#include "guard/commit.h"
#include "guard/comparison.h"
#include "guard/device_log.h"
#include "guard/direct_run.h"
#include "guard/directory_lock.h"
#include "guard/kept_database.h"
#include "guard/limits.h"
#include "guard/messages.h"
#include "guard/program_run.h"
#include "guard/real_database.h"
#include "guard/run_log.h"
#include "guard/sizing.h"
#include "guard/staging.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

#include <cerrno>

namespace
{
using Place = Staging::Place;
using FailureKind = DatabaseFailure::Kind;

std::optional<int> versionOfStaged(const QString &database)
{
    SqliteConnection connection;
    connection.open(database, SQLITE_OPEN_READWRITE);
    return recordedVersion(connection);
}

/// SQLite's temporary files are in this directory while this object lives.
class TemporaryFilesIn
{
public:
    explicit TemporaryFilesIn(const QString &directory)
    {
        qputenv(variable, QFile::encodeName(directory));
    }
    ~TemporaryFilesIn() { m_before.isNull() ? qunsetenv(variable) : qputenv(variable, m_before); }
    Q_DISABLE_COPY(TemporaryFilesIn)

private:
    static constexpr const char *variable = "SQLITE_TMPDIR";
    QByteArray m_before = qgetenv(variable);
};

/// One run, from the lock to the record of how it ended.
class Migration
{
public:
    Migration(const DevicePaths &device, const MigrationOptions &options);

    RunRecord run();

private:
    /// What one try has come to.
    enum class Try { Ended, WrittenMeanwhile, StageOnDisk, RunDirectly };

    Try runLocked();
    Try runGuarded();
    Try tryOnce(Place place);
    Try runProgram(RealDatabase &database, const Staging &staging);
    Try accept(RealDatabase &database, const Staging &staging, const QByteArray &log);
    Try commit(RealDatabase &database, const Staging &staging, const QByteArray &log);

    Try withoutStaging(Place place, const QString &detail);
    Try directly(const QString &reason, const QString &detail = QString());
    Try nothingChanged(const QString &reason, const QString &detail = QString());
    Try takeCopyFailure(const DatabaseFailure &failure, Place place);
    Try takeCommitFailure(const DatabaseFailure &failure);

    void settleEarlierRun(const RealDatabase &database, const Staging &staging);
    bool hasRoomToCommit(Place place);
    bool versionChanges() const { return m_record.from != m_record.to; }
    QString stagingParent(Place place) const;
    void noteFailure();

    const DevicePaths &m_device;
    const MigrationOptions &m_options;
    WaitBudget m_budget;
    DirectoryLock m_lock;
    std::optional<Attempt> m_earlier;
    Attempt m_attempt;
    QByteArrayList m_poolFiles;
    sizing::Database m_size;
    bool m_databaseInOrder = true;
    bool m_keep = false;
    bool m_noteStays = false;
    bool m_flushDirectory = false;
    RunRecord m_record;
};

Migration::Migration(const DevicePaths &device, const MigrationOptions &options)
    : m_device(device), m_options(options), m_budget(options.waitSeconds)
{
    m_record.target = options.target;
}

RunRecord Migration::run()
{
    if (m_device.databases.isEmpty()) {
        if (directly("no-database") == Try::RunDirectly) {
            runUnguarded(m_device, m_options.target, &m_record);
        }
        return m_record;
    }
    switch (m_lock.take(m_device.databases, m_budget)) {
    case DirectoryLock::Result::Taken:
        break;
    case DirectoryLock::Result::HeldByAnother:
        nothingChanged("locked", "another guard is at work");
        return m_record;
    case DirectoryLock::Result::Impossible:
        if (directly("no-lock") == Try::RunDirectly) {
            runUnguarded(m_device, m_options.target, &m_record);
        }
        return m_record;
    }
    LastMigration lastMigration(m_device.lastMigration);
    m_databaseInOrder = lastMigration.databaseInOrder();
    Staging::remove(m_device.staging);
    QFile::remove(m_device.copy);
    if (runLocked() == Try::RunDirectly) {
        runUnguarded(m_device, m_options.target, &m_record);
        // The program has deleted in the pool what it wanted to.
        m_noteStays = false;
    }
    if (!m_noteStays) {
        QFile::remove(m_device.attempt);
    }
    if (!lastMigration.record(m_record, m_flushDirectory)) {
        tell(QString("lastMigration.json could not be written"));
    }
    return m_record;
}

Migration::Try Migration::runLocked()
{
    m_earlier = Attempt::read(m_device.attempt);
    // What is left to delete in the pool is known from this note alone.
    m_noteStays = m_earlier && !m_earlier->poolFiles.isEmpty();
    if (m_device.database.isEmpty()) {
        return directly("no-database");
    }
    if (!QFileInfo(m_device.database).isFile()) {
        return directly("not-copied", "not a file");
    }
    if (bubblewrapPath().isEmpty()) {
        return directly("no-bubblewrap");
    }
    if (m_options.noNamespaces) {
        // Nothing is copied to the disk at every start for a program that could not be started then.
        return directly("no-namespaces");
    }
    return runGuarded();
}

Migration::Try Migration::runGuarded()
{
    // After a run that died the next one is staged on the disk; if that one dies too, staging may be
    // the reason.
    const bool failedOnDisk = m_earlier && m_earlier->stagedOnDisk && m_earlier->failed;
    if (failedOnDisk && m_earlier->runsInARow > 1 && !m_options.strict) {
        return directly("earlier-runs-failed");
    }
    Place place = m_options.memoryStaging.isEmpty() || m_earlier ? Place::Disk : Place::Memory;
    for (int copies = 0; copies < limits::mostCopies;) {
        const Try result = tryOnce(place);
        if (result == Try::StageOnDisk) {
            tell(QString("not enough room in memory, staging on the disk"));
            place = Place::Disk;
        } else if (result == Try::WrittenMeanwhile) {
            tell(QString("somebody else has written to the database"));
            ++copies;
        } else {
            return result;
        }
    }
    return nothingChanged("written-meanwhile");
}

Migration::Try Migration::tryOnce(Place place)
{
    m_record = RunRecord();
    m_record.target = m_options.target;
    m_size = sizing::measure(m_device.database);
    const QString parent = stagingParent(place);
    if (sizing::freeRoom(parent) < sizing::stagingRoom(m_size)) {
        return withoutStaging(place, "for staging");
    }
    // In memory that is this run's own, the root of the file system is the directory itself.
    const bool ownMemory = place == Place::Memory && m_options.stagingParent.isEmpty();
    const QByteArray name =
        QCryptographicHash::hash(m_device.databases.toUtf8(), QCryptographicHash::Sha1).toHex();
    QString directory = m_device.staging;
    if (ownMemory) {
        directory = parent;
    } else if (!m_options.stagingParent.isEmpty() && parent == m_options.stagingParent) {
        directory = parent + "/migration-guard." + name;
    }
    Staging staging(directory, place);
    if (!staging.prepare()) {
        return withoutStaging(place, "no directory for staging");
    }
    const TemporaryFilesIn temporaryFiles(staging.temporary());

    RealDatabase database(m_device.database, m_budget);
    RealDatabase::Failure failure = database.open();
    if (!failure) {
        failure = database.copyTo(staging.original());
    }
    if (failure) {
        return takeCopyFailure(*failure, place);
    }
    settleEarlierRun(database, staging);
    m_record.from = versionOfStaged(staging.original());

    const std::optional<QByteArrayList> poolFiles = stagedPool::fill(m_device.pool, staging.pool());
    if (!poolFiles ||
        durable::copy(staging.original(), staging.database(), durable::Ownership(), false) != 0 ||
        sizing::freeRoom(staging.directory()) < sizing::roomForProgram(m_size)) {
        return withoutStaging(place, "for staging");
    }
    m_poolFiles = *poolFiles;
    if (!hasRoomToCommit(place)) {
        return directly("no-room", "for the commit");
    }
    m_record.staging = place == Place::Memory ? "memory" : "disk";
    return runProgram(database, staging);
}

Migration::Try Migration::runProgram(RealDatabase &database, const Staging &staging)
{
    m_attempt = Attempt();
    m_attempt.stagedOnDisk = staging.place() == Place::Disk;
    if (m_earlier && m_earlier->failed) {
        m_attempt.runsInARow = m_earlier->runsInARow + 1;
    }
    const int error = m_attempt.write(m_device.attempt, false);
    if (error == EROFS || error == EACCES || error == EPERM || error == EEXIST) {
        return directly("not-writable", "beside the database");
    }
    if (error != 0) {
        // A disk that is full or fails is no place for a program without a guard.
        const bool noRoom = error == ENOSPC || error == EDQUOT;
        return nothingChanged(noRoom ? "no-room" : "commit-failed", "note of the run");
    }
    const ProgramRun run =
        runOnStaging(m_device, staging, m_options.target, sizing::reserve(m_size));
    switch (run.end) {
    case ProgramRun::End::NeverStarted:
        return directly("no-namespaces");
    case ProgramRun::End::LackOfRoom:
        return withoutStaging(staging.place(), "while the program ran");
    case ProgramRun::End::Broken:
        noteFailure();
        return nothingChanged("program-broken", "the program did not end by itself");
    case ProgramRun::End::Whole:
        break;
    }
    return accept(database, staging, run.log);
}

Migration::Try Migration::accept(
    RealDatabase &database, const Staging &staging, const QByteArray &log)
{
    const DatabaseDifferences differences =
        compareDatabases(staging.original(), staging.database());
    if (!differences.readError.isEmpty()) {
        return nothingChanged("comparison-failed", differences.readError);
    }
    m_record.to = versionOfStaged(staging.database());
    m_record.changed = !differences.isEmpty();
    const bool targetReached = m_record.to == m_record.target;
    if (!m_record.changed) {
        DeviceLog(m_device.log).append(log, false);
        stagedPool::deleteFiles(
            m_device.pool, stagedPool::deletedFiles(m_poolFiles, staging.pool()));
        return targetReached ? Try::Ended : nothingChanged("target-missed");
    }
    if (!targetReached) {
        m_record.status = Status::LookAtIt;
        m_record.reason = "target-missed";
    } else if (runLog::hasFailedStep(log, m_record.from.value_or(0), m_options.target)) {
        m_record.status = Status::LookAtIt;
        m_record.reason = "step-failed";
    }
    if (m_options.strict && m_record.status == Status::LookAtIt) {
        return nothingChanged(m_record.reason, "thrown away");
    }
    const bool otherLayout =
        differences.settings.contains("page_size") || differences.settings.contains("journal_mode");
    if (database.hasWriteAheadLog() && otherLayout) {
        // SQLite's backup interface refuses it, and would at every start.
        return directly("layout-changed", differences.settings.join(", "));
    }
    return commit(database, staging, log);
}

Migration::Try Migration::commit(
    RealDatabase &database, const Staging &staging, const QByteArray &log)
{
    m_attempt.poolFiles = stagedPool::deletedFiles(m_poolFiles, staging.pool());
    const bool keep = m_keep && versionChanges();
    const CommitEnd end = commitResult(
        database, m_device, {staging.original(), staging.database(), log, keep, m_attempt});
    m_record.kept = end.kept;
    m_flushDirectory = m_flushDirectory || end.kept;
    m_noteStays = !end.poolIsSettled;
    if (!end.failure) {
        return Try::Ended;
    }
    const bool unknown = end.failure->kind == FailureKind::Unknown;
    if (end.failure->kind != FailureKind::NotFlushed && !unknown) {
        return takeCommitFailure(*end.failure);
    }
    // The next run finds out, from the note and from the database that may be kept.
    m_noteStays = m_noteStays || unknown;
    m_record.status = Status::LookAtIt;
    m_record.reason = unknown ? "commit-unknown" : "not-flushed";
    m_record.detail = end.failure->text;
    return Try::Ended;
}

Migration::Try Migration::withoutStaging(Place place, const QString &detail)
{
    return place == Place::Memory ? Try::StageOnDisk : directly("no-room", detail);
}

Migration::Try Migration::directly(const QString &reason, const QString &detail)
{
    if (m_options.strict) {
        return nothingChanged(reason, detail);
    }
    m_record.guarded = false;
    m_record.staging.clear();
    m_record.reason = reason;
    m_record.detail = detail;
    return Try::RunDirectly;
}

Migration::Try Migration::nothingChanged(const QString &reason, const QString &detail)
{
    m_record.status = Status::NothingChanged;
    m_record.changed = false;
    m_record.kept = false;
    m_record.to = m_record.from;
    m_record.reason = reason;
    m_record.detail = detail;
    return Try::Ended;
}

Migration::Try Migration::takeCopyFailure(const DatabaseFailure &failure, Place place)
{
    switch (failure.kind) {
    case FailureKind::Locked:
        return nothingChanged("locked", failure.text);
    case FailureKind::Replaced:
        return nothingChanged("replaced", failure.text);
    case FailureKind::NoRoom:
        return withoutStaging(place, failure.text);
    case FailureKind::NotWritable:
        return directly("not-writable", failure.text);
    default:
        return directly("not-copied", failure.text);
    }
}

Migration::Try Migration::takeCommitFailure(const DatabaseFailure &failure)
{
    switch (failure.kind) {
    case FailureKind::Written:
        return Try::WrittenMeanwhile;
    case FailureKind::Locked:
        return nothingChanged("locked", failure.text);
    case FailureKind::Replaced:
        return nothingChanged("replaced", failure.text);
    case FailureKind::NoRoom:
        noteFailure();
        return nothingChanged("no-room", failure.text);
    default:
        noteFailure();
        return nothingChanged("commit-failed", failure.text);
    }
}

void Migration::settleEarlierRun(const RealDatabase &database, const Staging &staging)
{
    if (m_noteStays) {
        finishCutCommit(m_device, *m_earlier, database.schemaCookie());
    }
    m_noteStays = false;
    for (const QString &path : {m_device.kept, m_device.replaced}) {
        m_flushDirectory = KeptDatabase(path).settle(staging.original()) || m_flushDirectory;
    }
}

bool Migration::hasRoomToCommit(Place place)
{
    const QString directory = QFileInfo(m_device.database).absolutePath();
    qint64 free = sizing::freeRoom(directory);
    if (place == Place::Disk) {
        // It may well be the same file system.
        free -= sizing::roomForProgram(m_size);
    }
    const bool walks = m_record.from != m_record.target;
    const bool mayReplace = m_databaseInOrder || !QFileInfo::exists(m_device.kept);
    m_keep = m_options.keepDatabase && walks && mayReplace;
    if (m_keep && free < sizing::commitRoom(m_size, true)) {
        tell(QString("no room to keep the database of before"));
        m_keep = false;
    }
    // Where nothing is to be walked the content will most likely be equal, and needs no room.
    return !walks || free >= sizing::commitRoom(m_size, false);
}

QString Migration::stagingParent(Place place) const
{
    if (place == Place::Memory) {
        return m_options.memoryStaging;
    }
    const bool named =
        !m_options.stagingParent.isEmpty() && m_options.stagingParent != m_options.memoryStaging;
    return named ? m_options.stagingParent : m_device.databases;
}

void Migration::noteFailure()
{
    m_attempt.failed = true;
    m_attempt.poolFiles.clear();
    m_attempt.schemaCookie = -1;
    m_noteStays = m_attempt.write(m_device.attempt, false) == 0;
}
} // namespace

RunRecord migrate(const DevicePaths &device, const MigrationOptions &options)
{
    return Migration(device, options).run();
}

#include "guard/rehearsal.h"
#include "guard/commit.h"
#include "guard/comparison.h"
#include "guard/database_file.h"
#include "guard/durable_file.h"
#include "guard/known_versions.h"
#include "guard/limits.h"
#include "guard/regular_file.h"
#include "guard/result_verdict.h"
#include "guard/sizing.h"
#include "guard/verdict/steps_in_log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/resource.h>

namespace
{
const char *const noRoom = "no-room";

/// Silences a run's messages: they are for people who watch a device.
class SilentErrors
{
public:
    SilentErrors() : m_before(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0))
    {
        const Descriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
        dup2(nowhere.get(), STDERR_FILENO);
    }
    ~SilentErrors() { dup2(m_before.get(), STDERR_FILENO); }
    Q_DISABLE_COPY(SilentErrors)

private:
    Descriptor m_before;
};

/// @return the largest memory of one process so far, in bytes
qint64 largestProcess(int who)
{
    rusage usage = {};
    getrusage(who, &usage);
    return usage.ru_maxrss * limits::kibibyte;
}

/// Writes the content of a file into another file without replacing that file.
bool writeInto(const QString &path, const QString &from)
{
    QFile source(from);
    QFile file(path);
    bool isWritten = source.open(QIODevice::ReadOnly) && file.open(QIODevice::WriteOnly);
    while (isWritten && !source.atEnd()) {
        const QByteArray piece = source.read(limits::copiedPiece);
        isWritten = !piece.isEmpty() && file.write(piece) == piece.size();
    }
    return isWritten && file.flush();
}

QVector<RehearsedStep> stepsOf(
    const RunRecord &record, const QByteArray &log, const VersionTable &versions)
{
    QVector<RehearsedStep> steps;
    if (!record.from.number || !record.target || log.isEmpty()) {
        return steps;
    }
    const int newest = std::max(versions.newest(), 1);
    const int from = static_cast<int>(std::clamp<qint64>(*record.from.number, 1, newest));
    const int target = std::clamp(*record.target, 1, newest);
    const StepsInLog told = readSteps(log, from, target, versions);
    const bool isForward = target > from;
    const auto isReached = [&](int version) {
        return record.to.number &&
               (isForward ? *record.to.number >= version : *record.to.number < version);
    };
    for (int count = 0; count < std::abs(target - from); ++count) {
        RehearsedStep step;
        step.isForward = isForward;
        step.version = isForward ? from + 1 + count : from - count;
        if (told.failed.contains(step.version)) {
            step.outcome = RehearsedStep::Outcome::Failed;
            step.lines = told.linesOfFailed.value(step.version);
        } else if (!isReached(step.version)) {
            step.outcome = RehearsedStep::Outcome::NotReached;
        }
        steps << step;
    }
    return steps;
}

/// One rehearsal on a device made of copies.
class Rehearser
{
public:
    explicit Rehearser(const RehearsalOptions &options)
        : m_options(options), m_made(options.device, options.place)
    {
    }

    Rehearsal run();

private:
    void describe();
    MigrationOptions migrationOptions(int target) const;
    void runForward();
    void lookAt(const StagedResult &result);
    bool isOnDevice() const { return m_options.device.database.isEmpty(); }
    qint64 freeRoomOnDevice() const;
    void noteKept();
    void noteMeasurements(const Measurements &measured);
    void noteRoom();
    void keepResult();
    void goBack();
    QString placeOf(const char *name) const { return m_options.place + '/' + name; }

    const RehearsalOptions &m_options;
    RehearsedDevice m_made;
    Rehearsal m_rehearsal;
    qint64 m_takenByProgram = 0; ///< bytes in staging
    qint64 m_mostInStaging = 0;
    qint64 m_roomOnDisk = 0; ///< bytes for the commit and the log
    qint64 m_bytesOfKept = 0;
    bool m_hasBefore = false; ///< the database of before is kept
};

Rehearsal Rehearser::run()
{
    RunRecord &record = m_rehearsal.record;
    record.target = m_options.target;
    const bool isMade = m_made.make();
    describe();
    if (!isMade) {
        m_rehearsal.isWrongCall = m_made.isWrongCall();
        m_rehearsal.lackedRoom = m_made.reason() == noRoom;
        record.endUnchanged(m_made.reason(), m_made.detail());
        return m_rehearsal;
    }
    record.newestKnown = newestKnownVersion(m_made.paths().knownVersions);
    const SilentErrors silence;
    runForward();
    if (m_rehearsal.lackedRoom) {
        return m_rehearsal;
    }
    keepResult();
    goBack();
    return m_rehearsal;
}

void Rehearser::describe()
{
    m_rehearsal.database = m_made.database();
    m_rehearsal.assumed = m_made.assumed();
    m_rehearsal.platform = m_made.platform();
    m_rehearsal.softwareVersion = m_made.softwareVersion();
    const DevicePaths &device = m_made.paths();
    if (!QFileInfo(device.database).isFile()) {
        return;
    }
    m_rehearsal.databaseBytes = QFileInfo(device.database).size();
    const DatabaseFile file(device.database);
    if (file.isDatabase()) {
        m_rehearsal.journalMode = file.hasWriteAheadLog() ? "wal" : "delete";
    }
}

MigrationOptions Rehearser::migrationOptions(int target) const
{
    MigrationOptions options;
    options.target = target;
    options.memoryStaging = placeOf("staging");
    return options;
}

void Rehearser::runForward()
{
    MigrationOptions options = migrationOptions(m_options.target);
    options.strict = m_options.strict;
    options.mend = m_options.mend;
    options.acceptedCodes = m_options.acceptedCodes;
    options.seeResult = [this](const StagedResult &result) { lookAt(result); };
    QDir().mkdir(options.memoryStaging);

    RunRecord &record = m_rehearsal.record;
    const DevicePaths &device = m_made.paths();
    record = migrate(device, options);
    record.newestKnown = newestKnownVersion(device.knownVersions);
    // Until here, only the rehearsal's own place was used, not the device's disk.
    m_rehearsal.lackedRoom = m_rehearsal.lackedRoom || record.reason == noRoom;
    if (!record.guarded) {
        m_rehearsal.log = readSmallFile(device.log, limits::largestLog).value_or(QByteArray());
    }
    noteKept();
    noteMeasurements(record.measured);
    noteRoom();
    m_rehearsal.steps = stepsOf(record, m_rehearsal.log, VersionTable(device.knownVersions));
}

/// Keeps files that are gone after the run.
void Rehearser::lookAt(const StagedResult &result)
{
    m_rehearsal.log = result.log;
    const DevicePaths &device = m_made.paths();
    const sizing::Database before = sizing::measure(result.before);
    const int copies = m_options.mend ? limits::stagedCopiesWithMending : limits::stagedCopies;
    m_takenByProgram = result.mostTaken;
    m_mostInStaging = copies * before.bytes + result.mostTaken;
    m_roomOnDisk =
        sizing::roomForCommit(before, QFileInfo(result.after).size()) + result.log.size();

    m_rehearsal.mendings = result.mendings;
    const QString copy = placeOf("mended.sqlite");
    if (!m_options.mend && durable::copy(result.before, copy, durable::Ownership(), false) == 0) {
        m_rehearsal.mendings = mendCopies(copy, VersionTable(device.knownVersions)).mendings;
    }
    QFile::remove(copy);
    const int error =
        durable::copy(result.before, placeOf("before.sqlite"), durable::Ownership(), false);
    m_hasBefore = error == 0;
    m_rehearsal.lackedRoom = error == ENOSPC;
}

qint64 Rehearser::freeRoomOnDevice() const
{
    return sizing::freeRoom(QFileInfo(m_made.database()).absolutePath());
}

/// The place of the copies may have room to keep the database of before where the device has none.
void Rehearser::noteKept()
{
    RunRecord &record = m_rehearsal.record;
    if (!record.kept || !record.verdict || !m_hasBefore) {
        return;
    }
    m_bytesOfKept = QFileInfo(placeOf("before.sqlite")).size();
    if (!isOnDevice() || freeRoomOnDevice() >= m_roomOnDisk + m_bytesOfKept) {
        return;
    }
    record.kept = false;
    m_bytesOfKept = 0;
    for (Finding &finding : record.verdict->findings) {
        finding.beforeIsKept = false;
    }
}

void Rehearser::noteMeasurements(const Measurements &measured)
{
    m_rehearsal.measured = measured.toJson();
    if (!m_hasBefore) {
        return;
    }
    const RunRecord &record = m_rehearsal.record;
    QJsonObject bytes = m_rehearsal.measured.value("bytes").toObject();
    bytes.insert("peakDisk", record.changed ? m_roomOnDisk + m_bytesOfKept : 0);
    bytes.insert(
        "peakMemory",
        m_mostInStaging + largestProcess(RUSAGE_SELF) + largestProcess(RUSAGE_CHILDREN));
    m_rehearsal.measured.insert("bytes", bytes);
}

/// Checks the device's own room, because the place of the copies may have more.
void Rehearser::noteRoom()
{
    RunRecord &record = m_rehearsal.record;
    if (!isOnDevice() || !m_hasBefore || !record.changed || freeRoomOnDevice() >= m_roomOnDisk) {
        return;
    }
    const sizing::Database before = sizing::measure(placeOf("before.sqlite"));
    const bool hasRoomForDirectRun =
        freeRoomOnDevice() >= sizing::roomForDirectRun(before, m_takenByProgram);
    if (!hasRoomForDirectRun || m_options.strict) {
        record.verdict.reset();
        record.endUnchanged(noRoom, "for the commit");
        return;
    }
    record.guarded = false;
    record.reason = noRoom;
    record.detail = "for the commit";
    SqliteConnection connection;
    connection.openAtRest(placeOf("before.sqlite"));
    MigrationOptions migration = migrationOptions(m_options.target);
    migration.acceptedCodes = m_options.acceptedCodes;
    record.verdict = judgeDirectRun(
        m_made.paths(), migration, record, {noRoom, m_rehearsal.log, tableNames(connection)});
    record.status = record.verdict->counting() > 0 ? Status::LookAtIt : Status::Success;
}

void Rehearser::keepResult()
{
    const QString database = m_made.paths().databaseEntry;
    const bool hasNone = m_rehearsal.record.status == Status::NothingChanged;
    if (m_options.resultFile.isEmpty() || hasNone || !QFileInfo(database).isFile()) {
        return;
    }
    {
        SqliteConnection connection;
        connection.open(database, SQLITE_OPEN_READWRITE);
        connection.run("PRAGMA wal_checkpoint(TRUNCATE)");
    }
    if (!writeInto(m_options.resultFile, database)) {
        // Half of a database is none.
        QFile::resize(m_options.resultFile, 0);
        m_rehearsal.resultIsLost = true;
    }
}

void Rehearser::goBack()
{
    const RunRecord &record = m_rehearsal.record;
    const bool wentForward = record.guarded && record.changed && record.from.number &&
                             record.to.number && *record.to.number > *record.from.number;
    if (!wentForward || !m_hasBefore) {
        return;
    }
    const DevicePaths &device = m_made.paths();
    MigrationOptions options = migrationOptions(static_cast<int>(*record.from.number));
    options.keepDatabase = false;
    std::optional<Verdict> verdict;
    options.seeResult = [&](const StagedResult &result) {
        RunRecord back;
        back.from = record.from;
        back.to = record.from;
        back.target = options.target;
        StagedResult wayBack = result;
        wayBack.before = placeOf("before.sqlite");
        wayBack.log.clear();
        verdict = judgeResult(
            device, options, back, wayBack, compareDatabases(wayBack.before, wayBack.after));
    };
    const RunRecord back = migrate(device, options);
    if (verdict && back.to.isKnown) {
        m_rehearsal.wayBack = WayBack{options.target, back.to, *verdict};
    }
}
} // namespace

Rehearsal rehearse(const RehearsalOptions &options)
{
    return Rehearser(options).run();
}

#include "guard/commit.h"
#include "guard/device_log.h"
#include "guard/durable_file.h"
#include "guard/kept_database.h"
#include "guard/messages.h"
#include "guard/staging.h"

#include <QFileInfo>

#include <cerrno>
#include <cstring>

namespace
{
using FailureKind = DatabaseFailure::Kind;

QString systemText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

DatabaseFailure systemFailure(int error, const QString &what)
{
    const bool noRoom = error == ENOSPC || error == EDQUOT;
    return {
        noRoom ? FailureKind::NoRoom : FailureKind::Unreadable, what + ": " + systemText(error)};
}

/// Before the commit.
/// @return false when the database of before cannot be kept; the commit goes on without it
bool prepareKept(KeptDatabase &kept, const AcceptedResult &result, const QString &database)
{
    const int error = kept.prepare(result.original, durable::ownershipOf(database));
    if (error != 0) {
        tell("the database of before is not kept: " + systemText(error));
        kept.discard();
    }
    return error == 0;
}

/// Makes the names of what was written before the commit durable.
/// @return 0 or the error number of the system
int flushDirectories(const RealDatabase &database, const DevicePaths &device, const DeviceLog &log)
{
    // SQLite flushes the directory of a new journal before it writes the first page.
    const bool journalIsBeside = QFileInfo(device.database).absolutePath() == device.databases &&
                                 !database.hasWriteAheadLog();
    const int error = journalIsBeside ? 0 : durable::flushDirectory(device.databases);
    const QString newLogIn = log.newIn();
    if (error != 0 || newLogIn.isEmpty() || newLogIn == device.databases) {
        return error;
    }
    return durable::flushDirectory(newLogIn);
}
} // namespace

void finishCutCommit(const DevicePaths &device, const Attempt &note, qint64 schemaCookie)
{
    if (note.schemaCookie != schemaCookie) {
        stagedPool::deleteFiles(device.pool, note.poolFiles);
    }
}

CommitEnd commitResult(
    RealDatabase &database, const DevicePaths &device, const AcceptedResult &result)
{
    KeptDatabase kept(device.kept);
    CommitEnd end;
    end.kept = result.keep && prepareKept(kept, result, device.database);

    DeviceLog log(device.log);
    const auto appendLog = [&]() -> RealDatabase::Failure {
        int error = log.append(result.log, true);
        if (error == 0) {
            error = flushDirectories(database, device, log);
        }
        return error == 0 ? std::nullopt : RealDatabase::Failure(systemFailure(error, "log"));
    };
    Attempt attempt = result.attempt;
    attempt.schemaCookie = database.schemaCookie();
    const int noteError = attempt.poolFiles.isEmpty() ? 0 : attempt.write(device.attempt, true);
    end.failure = noteError != 0 ? systemFailure(noteError, "note of the run")
                                 : database.replaceContent(result.database, appendLog);
    if (end.failure && end.failure->kind == FailureKind::Unknown) {
        end.kept = false;
        return end;
    }
    if (end.failure && end.failure->kind != FailureKind::NotFlushed) {
        log.cutBack();
        kept.discard();
        end.kept = false;
        return end;
    }
    end.kept = end.kept && kept.accept();
    end.poolIsSettled = stagedPool::deleteFiles(device.pool, attempt.poolFiles);
    return end;
}

#include "guard/commit.h"
#include "guard/device_log.h"
#include "guard/durable_file.h"
#include "guard/kept_database.h"
#include "guard/staging.h"

#include <QFileInfo>

namespace
{
using FailureKind = DatabaseFailure::Kind;

/// Makes the names of the files that were written before the commit durable.
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

bool hasRoomToCommit(
    const DevicePaths &device, const sizing::Database &before, const AcceptedResult &result)
{
    const QString directory = QFileInfo(device.database).absolutePath();
    const qint64 free = sizing::freeRoom(directory);
    const qint64 commit = sizing::roomForCommit(before, QFileInfo(result.database).size());
    const qint64 kept = result.keep ? QFileInfo(result.original).size() : 0;
    const qint64 beside = result.log.size() + kept;
    // If the database is a link, its file may be on another partition.
    return sizing::shareRoom(directory, device.databases)
               ? free >= commit + beside
               : free >= commit && sizing::freeRoom(device.databases) >= beside;
}

CommitEnd commitResult(
    RealDatabase &database, const DevicePaths &device, const AcceptedResult &result)
{
    KeptDatabase kept(device.kept);
    CommitEnd end;
    end.kept = result.keep && kept.prepare(result.original, durable::ownershipOf(device.database));

    DeviceLog log(device.log);
    const auto appendLog = [&]() -> RealDatabase::Failure {
        int error = log.append(result.log, true);
        if (error == 0) {
            error = flushDirectories(database, device, log);
        }
        return error == 0 ? std::nullopt : RealDatabase::Failure(systemFailure(error, "log"));
    };
    RunNote note = result.note;
    note.schemaCookie = database.schemaCookie();
    const int noteError = note.poolFiles.isEmpty() ? 0 : note.write(device.note, true);
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
    end.poolIsSettled = stagedPool::deleteFiles(device.pool, note.poolFiles);
    return end;
}

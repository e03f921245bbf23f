#include "guard/restoration.h"
#include "guard/comparison.h"
#include "guard/directory_lock.h"
#include "guard/earlier_run.h"
#include "guard/kept_database.h"
#include "guard/messages.h"
#include "guard/real_database.h"
#include "guard/row_changes.h"
#include "guard/sizing.h"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <algorithm>

namespace
{
/// A copy of the real database, removed with this object.
class TemporaryCopy
{
public:
    explicit TemporaryCopy(const QString &path) : m_path(path) { QFile::remove(path); }
    ~TemporaryCopy() { QFile::remove(m_path); }
    Q_DISABLE_COPY(TemporaryCopy)

    const QString &path() const { return m_path; }

private:
    QString m_path;
};

RunRecord nothingChanged(RunRecord record, const QString &reason, const QString &detail = QString())
{
    record.status = Status::NothingChanged;
    record.to = record.from;
    record.reason = reason;
    record.detail = detail;
    return record;
}

bool passesQuickCheck(SqliteConnection &connection)
{
    SqliteStatement check(connection, "PRAGMA quick_check(1)");
    return check.step() && check.value(0) == "ok";
}

void print(const QStringList &lines)
{
    QTextStream output(stdout);
    output.setCodec("UTF-8");
    for (const QString &line : lines) {
        output << line << '\n';
    }
}

RunRecord nothingChangedBy(const RunRecord &record, const DatabaseFailure &failure)
{
    switch (failure.kind) {
    case DatabaseFailure::Kind::Locked:
        return nothingChanged(record, "locked", failure.text);
    case DatabaseFailure::Kind::Written:
        return nothingChanged(record, "written-meanwhile", failure.text);
    case DatabaseFailure::Kind::Replaced:
        return nothingChanged(record, "replaced", failure.text);
    case DatabaseFailure::Kind::NoRoom:
        return nothingChanged(record, "no-room", failure.text);
    default:
        return nothingChanged(record, "restore-failed", failure.text);
    }
}

RunRecord restoreLocked(
    const DevicePaths &device, const RestorationOptions &options,
    const LastMigration &lastMigration, WaitBudget &budget)
{
    RunRecord record;
    record.command = "restore";
    const sizing::Database size = sizing::measure(device.database);
    const qint64 sourceBytes =
        std::max(QFileInfo(device.kept).size(), QFileInfo(device.replaced).size());
    if (sizing::freeRoom(device.databases) <
        2 * size.bytes + sizing::roomForCommit(size, sourceBytes)) {
        return nothingChanged(record, "no-room", "for the commit");
    }
    const TemporaryCopy current(device.copy);
    RealDatabase database(device.database, budget);
    RealDatabase::Failure failure = database.open();
    if (!failure) {
        failure = database.copyTo(current.path());
    }
    if (failure) {
        return nothingChangedBy(record, *failure);
    }
    KeptDatabase replaced(device.replaced);
    if (!options.dryRun) {
        // What a run that was cut has left is settled by the database as it is now.
        if (settlePool(device, RunNote::read(device.note), database.schemaCookie())) {
            QFile::remove(device.note);
        }
        settleKeptDatabases(device, current.path());
    }

    const bool undoes = lastMigration.lastRun().value("command").toString() == "restore" &&
                        QFile::exists(device.replaced);
    const QString source = undoes ? device.replaced : device.kept;
    SqliteConnection connection;
    connection.open(current.path(), SQLITE_OPEN_READWRITE);
    record.from = recordedVersion(connection);
    connection.close();
    if (!QFile::exists(source)) {
        return nothingChanged(record, "nothing-kept");
    }
    connection.open(source, SQLITE_OPEN_READWRITE);
    if (QFileInfo(source).size() == 0 || !passesQuickCheck(connection)) {
        return nothingChanged(record, "kept-damaged");
    }
    record.to = recordedVersion(connection);
    connection.close();

    print({QFileInfo(source).fileName() + " comes back."});
    print(rowChanges(device.database, source));
    print({"The next start migrates again unless the image changes."});
    if (options.dryRun || compareDatabases(source, current.path()).isEmpty()) {
        return record;
    }
    if (!replaced.prepare(current.path(), durable::ownershipOf(device.database)) ||
        durable::flushDirectory(device.databases) != 0) {
        replaced.discard();
        return nothingChanged(record, "no-room", "to keep what is replaced");
    }
    failure = database.replaceContent(source, [] { return std::nullopt; });
    if (failure && failure->kind == DatabaseFailure::Kind::Unknown) {
        // The next run finds out which of the two the database is.
        record.changed = true;
        record.status = Status::LookAtIt;
        record.reason = "commit-unknown";
        record.detail = failure->text;
        return record;
    }
    if (failure && failure->kind != DatabaseFailure::Kind::NotFlushed) {
        replaced.discard();
        return nothingChangedBy(record, *failure);
    }
    record.changed = true;
    record.status = failure ? Status::LookAtIt : Status::Success;
    record.reason = failure ? "not-flushed" : QString();
    replaced.accept();
    return record;
}
} // namespace

RunRecord restore(const DevicePaths &device, const RestorationOptions &options)
{
    RunRecord record;
    record.command = "restore";
    if (device.database.isEmpty()) {
        return nothingChanged(record, "no-database");
    }
    WaitBudget budget(options.waitSeconds);
    DirectoryLock lock;
    if (lock.take(device.databases, budget) != DirectoryLock::Result::Taken) {
        return nothingChanged(record, "locked", "another guard is at work");
    }
    LastMigration lastMigration(device.lastMigration);
    record = restoreLocked(device, options, lastMigration, budget);
    if (record.changed && !lastMigration.record(record, true)) {
        tell(QString("lastMigration.json could not be written"));
    }
    return record;
}

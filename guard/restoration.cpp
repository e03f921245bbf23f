#include "guard/restoration.h"
#include "guard/comparison.h"
#include "guard/database_snapshot.h"
#include "guard/descriptor.h"
#include "guard/directory_lock.h"
#include "guard/earlier_run.h"
#include "guard/kept_database.h"
#include "guard/known_versions.h"
#include "guard/messages.h"
#include "guard/printed_text.h"
#include "guard/real_database.h"
#include "guard/refusals.h"
#include "guard/row_changes.h"
#include "guard/sizing.h"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{
using FailureKind = DatabaseFailure::Kind;

/// The reason for a failure that has none of its own.
const char *const restoreFailed = "restore-failed";

void print(const QStringList &lines)
{
    QTextStream output(stdout);
    output.setCodec("UTF-8");
    for (const QString &line : lines) {
        output << line << '\n';
    }
}

bool areEqual(const QString &database, const QString &other)
{
    return compareDatabases(database, other).isEmpty();
}

/// @return the path where the database belongs, links resolved
QString placeOfDatabase(const DevicePaths &device)
{
    const QFileInfo entry(device.databaseEntry);
    return entry.exists() ? entry.canonicalFilePath() : device.databases + "/" + databaseName;
}

/// Makes an empty file if there is none; SQLite then fills it.
/// @return 0 or the error number of the system
int makeEmptyFile(const QString &path, const durable::Ownership &ownership)
{
    const Descriptor file(
        open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file.isOpen()) {
        return errno == EEXIST ? 0 : errno;
    }
    const bool isOwned = fchown(file.get(), ownership.owner, ownership.group) == 0 &&
                         fchmod(file.get(), ownership.mode) == 0;
    return isOwned ? 0 : errno;
}

/// One restoration, under the guard's lock.
class Restoration
{
public:
    /// @param newest for a fall-back, the newest version that may come back; nothing for a restore
    Restoration(
        const DevicePaths &device, const RestorationOptions &options, WaitBudget &budget,
        const std::optional<int> &newest = std::nullopt)
        : m_device(device), m_options(options), m_newest(newest), m_path(placeOfDatabase(device)),
          m_database(m_path, budget), m_replaced(newest ? device.kept : device.replaced),
          m_replacedLog(device.replacedLog)
    {
        m_record.command = "restore";
    }
    ~Restoration()
    {
        if (!m_options.dryRun) {
            QFile::remove(m_device.copy);
        }
    }
    Q_DISABLE_COPY(Restoration)

    RunRecord run();

private:
    RunRecord nothingChanged(const QString &reason, const QString &detail = QString());

    std::optional<DatabaseFailure> copyCurrent();
    void settleCutRuns();
    void chooseSource();
    QString whyUnusable();
    void tellChanges();
    RealDatabase::Failure replaceReadable();
    RealDatabase::Failure replaceDamaged();
    RealDatabase::Failure keepBytes();
    void settleReplaced();

    const DevicePaths &m_device;
    const RestorationOptions &m_options;
    const std::optional<int> m_newest;
    QString m_path;
    RealDatabase m_database;
    KeptDatabase m_replaced;
    KeptDatabase m_replacedLog;
    std::optional<DatabaseSnapshot> m_snapshot; ///< used instead of a copy beside the database
    QString m_current;       ///< what the database holds, at rest; empty for nothing
    QString m_whyUnreadable; ///< empty when there is such a copy
    QString m_source;
    QString m_sourceName;
    RunRecord m_record;
};

RunRecord Restoration::nothingChanged(const QString &reason, const QString &detail)
{
    m_record.endUnchanged(reason, detail);
    return m_record;
}

RunRecord Restoration::run()
{
    if (m_device.databaseLinkIsBroken) {
        return nothingChanged("database-link-broken");
    }
    if (QFileInfo::exists(m_path) && !QFileInfo(m_path).isFile()) {
        return nothingChanged(restoreFailed, "the database is not a file");
    }
    const sizing::Database size = sizing::measure(m_path);
    const qint64 sourceBytes =
        std::max(QFileInfo(m_device.kept).size(), QFileInfo(m_device.replaced).size());
    if (!m_options.dryRun && sizing::freeRoom(m_device.databases) <
                                 2 * size.bytes + sizing::roomForCommit(size, sourceBytes)) {
        return nothingChanged("no-room", "for the commit");
    }
    if (const RealDatabase::Failure failure = copyCurrent()) {
        m_record.endWith(*failure, restoreFailed);
        return m_record;
    }
    if (!m_options.dryRun) {
        settleCutRuns();
    }
    chooseSource();
    if (!QFileInfo::exists(m_source)) {
        return nothingChanged("nothing-kept");
    }
    const QString whyNot = whyUnusable();
    if (!whyNot.isEmpty()) {
        return nothingChanged("kept-damaged", m_sourceName + ": " + whyNot);
    }
    const bool isReadable = m_whyUnreadable.isEmpty();
    if (m_newest) {
        const bool isKnown = m_record.to.number && *m_record.to.number <= *m_newest;
        if (!isKnown || !isReadable) {
            return nothingChanged(
                "nothing-kept", m_sourceName + " is at " + versionText(m_record.to));
        }
    } else {
        tellChanges();
    }
    if (m_options.dryRun || (isReadable && areEqual(m_source, m_current))) {
        return m_record;
    }
    const RealDatabase::Failure failure = isReadable ? replaceReadable() : replaceDamaged();
    m_record.changed = true;
    if (failure) {
        m_record.endWith(*failure, restoreFailed);
    }
    // If it is not known how the commit ended, the next run finds out.
    if (m_record.endIsKnown) {
        settleReplaced();
    }
    return m_record;
}

void Restoration::settleReplaced()
{
    if (!m_record.changed) {
        m_replaced.discard();
        m_replacedLog.discard();
    } else if (m_replaced.isPrepared() && m_replaced.accept() && !m_newest) {
        QFile::remove(m_device.replacedLog);
        m_replacedLog.settle(QString());
    }
}

/// @return why nothing can be done; an unreadable database is not a reason
std::optional<DatabaseFailure> Restoration::copyCurrent()
{
    if (m_device.database.isEmpty()) {
        m_whyUnreadable = "there is none, or it is empty";
        return std::nullopt;
    }
    if (m_options.dryRun) {
        m_snapshot.emplace(m_path);
        m_current = m_snapshot->path();
        m_whyUnreadable = m_snapshot->error();
    } else {
        m_current = m_device.copy;
        RealDatabase::Failure failure = m_database.open();
        if (!failure) {
            failure = m_database.copyTo(m_current);
        }
        if (failure && failure->kind != FailureKind::Damaged) {
            return failure;
        }
        m_whyUnreadable = failure ? failure->text : QString();
    }
    if (!m_whyUnreadable.isEmpty()) {
        m_current.clear();
        return std::nullopt;
    }
    SqliteConnection connection;
    connection.openAtRest(m_current);
    m_record.from = recordedVersion(connection);
    return std::nullopt;
}

/// Settles what a cut run has left, by looking at the present database.
void Restoration::settleCutRuns()
{
    // If the database cannot be read, it is not known whether that run's commit has happened. The
    // database of before comes back, so the files of the pool stay.
    const bool isReadable = m_whyUnreadable.isEmpty();
    if (!isReadable ||
        settlePool(m_device, RunNote::read(m_device.note), m_database.schemaCookie())) {
        QFile::remove(m_device.note);
    }
    settleKeptDatabases(m_device, m_current);
}

/// Chooses the kept database; if the present one equals it, the one that it replaced.
void Restoration::chooseSource()
{
    m_sourceName = m_device.kept;
    m_source = KeptDatabase(m_device.kept).afterSettling(m_current);
    const QString replaced = m_replaced.afterSettling(m_current);
    if (!m_newest && m_whyUnreadable.isEmpty() && QFileInfo::exists(replaced) &&
        areEqual(m_source, m_current)) {
        m_sourceName = m_device.replaced;
        m_source = replaced;
    }
    m_sourceName = QFileInfo(m_sourceName).fileName();
}

/// @return why the source cannot be brought back, empty when it can
QString Restoration::whyUnusable()
{
    if (!QFileInfo(m_source).isFile()) {
        return "no file";
    }
    if (QFileInfo(m_source).size() == 0) {
        return "empty";
    }
    SqliteConnection connection;
    connection.openAtRest(m_source);
    SqliteStatement check(connection, "PRAGMA quick_check(1)");
    const bool isChecked = check.step();
    if (!isChecked || check.text(0) != "ok") {
        return printedText(
            isChecked ? check.text(0).simplified() : connection.errorText().toUtf8());
    }
    m_record.to = recordedVersion(connection);
    return QString();
}

void Restoration::tellChanges()
{
    print({m_sourceName + " comes back."});
    if (m_whyUnreadable.isEmpty()) {
        print(rowChanges(m_current, m_source));
    } else {
        print({"The database that it replaces cannot be read: " + m_whyUnreadable + "."});
    }
    print({"The next start migrates again unless the image changes."});
}

RealDatabase::Failure Restoration::replaceReadable()
{
    if (!m_replaced.prepare(m_current, durable::ownershipOf(m_path)) ||
        durable::flushDirectory(m_device.databases) != 0) {
        return DatabaseFailure{FailureKind::NoRoom, "to keep what is replaced"};
    }
    return m_database.replaceContent(m_source, [] { return std::nullopt; });
}

RealDatabase::Failure Restoration::replaceDamaged()
{
    const int error = makeEmptyFile(m_path, durable::ownershipOf(m_source));
    if (error != 0) {
        return systemFailure(error, "the new file");
    }
    if (RealDatabase::Failure failure = m_database.openDamaged()) {
        return failure;
    }
    return m_database.replaceContent(m_source, [this] { return keepBytes(); });
}

/// Keeps the bytes of an unreadable database as they are. Its write-ahead log gets another name,
/// because SQLite would take it for the log of whatever database is kept there later.
RealDatabase::Failure Restoration::keepBytes()
{
    QFile::remove(m_device.copy);
    if (RealDatabase::Failure failure = m_database.copyBytesTo(m_device.copy)) {
        return failure;
    }
    const durable::Ownership ownership = durable::ownershipOf(m_path);
    const QString log = m_path + "-wal";
    const bool hasLog = QFileInfo(log).size() > 0;
    const bool hasBytes = hasLog || QFileInfo(m_device.copy).size() > 0;
    if ((hasBytes && !m_replaced.prepare(m_device.copy, ownership)) ||
        (hasLog && !m_replacedLog.prepare(log, ownership)) ||
        durable::flushDirectory(m_device.databases) != 0) {
        return DatabaseFailure{FailureKind::NoRoom, "to keep what is replaced"};
    }
    return std::nullopt;
}
} // namespace

RunRecord fallBack(const DevicePaths &device, int newest, WaitBudget &budget)
{
    return Restoration(device, RestorationOptions(), budget, newest).run();
}

RunRecord restore(const DevicePaths &device, const RestorationOptions &options)
{
    RunRecord record;
    record.command = "restore";
    if (refusals::endIfLibraryLacksNeeds(&record)) {
        return record;
    }
    if (device.databases.isEmpty()) {
        record.endUnchanged("no-databases-directory");
        return record;
    }
    WaitBudget budget(options.waitSeconds);
    DirectoryLock lock;
    if (!options.dryRun) {
        switch (lock.take(device.databases, budget)) {
        case DirectoryLock::Result::Taken:
            break;
        case DirectoryLock::Result::HeldByAnother:
            record.endUnchanged("locked", "another guard is at work");
            return record;
        case DirectoryLock::Result::Failed:
        case DirectoryLock::Result::Impossible:
            record.endUnchanged("no-lock");
            return record;
        }
        QFile::remove(device.copy);
    }
    // The guard that had the lock may have made the database.
    DevicePaths current = device;
    current.placeDatabases(device.databases);
    record = Restoration(current, options, budget).run();
    record.newestKnown = newestKnownVersion(current.knownVersions);
    LastMigration lastMigration(current.lastMigration);
    const bool isToBeNoted = record.changed || !record.endIsKnown;
    if (isToBeNoted && !lastMigration.record(record, true)) {
        tell(QString("lastMigration.json could not be written"));
    }
    return record;
}

#include "guard/restoration.h"
#include "guard/attempt.h"
#include "guard/commit.h"
#include "guard/comparison.h"
#include "guard/database_snapshot.h"
#include "guard/descriptor.h"
#include "guard/directory_lock.h"
#include "guard/kept_database.h"
#include "guard/messages.h"
#include "guard/printed_text.h"
#include "guard/real_database.h"
#include "guard/row_changes.h"
#include "guard/sizing.h"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{
using FailureKind = DatabaseFailure::Kind;

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

/// @return where the database is to be, links resolved; empty where a link leads nowhere
QString placeOfDatabase(const DevicePaths &device)
{
    const QFileInfo entry(device.databases + "/" + databaseName);
    return entry.isSymLink() || entry.exists() ? entry.canonicalFilePath()
                                               : entry.absoluteFilePath();
}

/// Makes an empty file where there is none, which SQLite then fills.
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
    Restoration(const DevicePaths &device, const RestorationOptions &options, WaitBudget &budget)
        : m_device(device), m_options(options), m_path(placeOfDatabase(device)),
          m_database(m_path, budget), m_replaced(device.replaced), m_replacedLog(device.replacedLog)
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
    RunRecord nothingChangedBy(const DatabaseFailure &failure);

    std::optional<DatabaseFailure> copyCurrent();
    void settleCutRuns();
    void chooseSource();
    QString whyUnusable();
    void tellChanges();
    RealDatabase::Failure replaceReadable();
    RealDatabase::Failure replaceDamaged();
    RealDatabase::Failure keepBytes();

    const DevicePaths &m_device;
    const RestorationOptions &m_options;
    QString m_path;
    RealDatabase m_database;
    KeptDatabase m_replaced;
    KeptDatabase m_replacedLog;
    std::optional<DatabaseSnapshot> m_snapshot; ///< instead of a copy beside the database
    QString m_current;       ///< what the database holds, at rest; empty for nothing
    QString m_whyUnreadable; ///< empty when there is such a copy
    QString m_source;
    QString m_sourceName;
    RunRecord m_record;
};

RunRecord Restoration::nothingChanged(const QString &reason, const QString &detail)
{
    m_record.status = Status::NothingChanged;
    m_record.to = m_record.from;
    m_record.reason = reason;
    m_record.detail = detail;
    return m_record;
}

RunRecord Restoration::nothingChangedBy(const DatabaseFailure &failure)
{
    switch (failure.kind) {
    case FailureKind::Locked:
        return nothingChanged("locked", failure.text);
    case FailureKind::Written:
        return nothingChanged("written-meanwhile", failure.text);
    case FailureKind::Replaced:
        return nothingChanged("replaced", failure.text);
    case FailureKind::NoRoom:
        return nothingChanged("no-room", failure.text);
    default:
        return nothingChanged("restore-failed", failure.text);
    }
}

RunRecord Restoration::run()
{
    if (m_path.isEmpty()) {
        return nothingChanged("no-database", "its link leads nowhere");
    }
    if (QFileInfo::exists(m_path) && !QFileInfo(m_path).isFile()) {
        return nothingChanged("restore-failed", "in the place of the database is no file");
    }
    sizing::Database size = sizing::measure(m_path);
    size.bytes = qMax(size.bytes, QFileInfo(m_device.kept).size());
    if (sizing::freeRoom(m_device.databases) < size.bytes + sizing::commitRoom(size, true)) {
        return nothingChanged("no-room", "for the commit");
    }
    if (const RealDatabase::Failure failure = copyCurrent()) {
        return nothingChangedBy(*failure);
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
    tellChanges();
    const bool isReadable = m_whyUnreadable.isEmpty();
    if (m_options.dryRun || (isReadable && areEqual(m_source, m_current))) {
        return m_record;
    }
    const RealDatabase::Failure failure = isReadable ? replaceReadable() : replaceDamaged();
    m_record.changed = true;
    if (failure && failure->kind == FailureKind::Unknown) {
        // The next run finds out which of the two the database is.
        m_record.status = Status::LookAtIt;
        m_record.reason = "commit-unknown";
        m_record.detail = failure->text;
        return m_record;
    }
    if (failure && failure->kind != FailureKind::NotFlushed) {
        m_replaced.discard();
        m_replacedLog.discard();
        m_record.changed = false;
        return nothingChangedBy(*failure);
    }
    m_record.status = failure ? Status::LookAtIt : Status::Success;
    m_record.reason = failure ? "not-flushed" : QString();
    if (m_replaced.accept()) {
        QFile::remove(m_device.replacedLog);
        m_replacedLog.accept();
    }
    return m_record;
}

/// @return why nothing can be done; a database that cannot be read is no reason
std::optional<DatabaseFailure> Restoration::copyCurrent()
{
    if (m_device.database.isEmpty()) {
        m_whyUnreadable = "there is none, or nothing in it";
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

/// What a run that was cut has left is settled by the database as it is now.
void Restoration::settleCutRuns()
{
    if (const std::optional<Attempt> note = Attempt::read(m_device.attempt)) {
        // Of a database that cannot be read nobody knows whether that run's commit has happened. The
        // database of before comes back, and so the files of the pool stay.
        if (m_whyUnreadable.isEmpty()) {
            finishCutCommit(m_device, *note, m_database.schemaCookie());
        }
        QFile::remove(m_device.attempt);
    }
    KeptDatabase(m_device.kept).settle(m_current);
    m_replaced.settle(m_current);
    m_replacedLog.accept();
}

/// The kept one; where the database is that already, what was replaced by it.
void Restoration::chooseSource()
{
    m_sourceName = m_device.kept;
    m_source = KeptDatabase(m_device.kept).afterSettling(m_current);
    const QString replaced = m_replaced.afterSettling(m_current);
    if (m_whyUnreadable.isEmpty() && QFileInfo::exists(replaced) && areEqual(m_source, m_current)) {
        m_sourceName = m_device.replaced;
        m_source = replaced;
    }
    m_sourceName = QFileInfo(m_sourceName).fileName();
}

/// @return why the source is no database to bring back, empty when it is one
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
    if (m_replaced.prepare(m_current, durable::ownershipOf(m_path)) != 0 ||
        durable::flushDirectory(m_device.databases) != 0) {
        return DatabaseFailure{FailureKind::NoRoom, "to keep what is replaced"};
    }
    return m_database.replaceContent(m_source, [] { return std::nullopt; });
}

RealDatabase::Failure Restoration::replaceDamaged()
{
    const int error = makeEmptyFile(m_path, durable::ownershipOf(m_source));
    if (error != 0) {
        return DatabaseFailure{
            FailureKind::NotWritable, QString::fromLocal8Bit(std::strerror(error))};
    }
    if (RealDatabase::Failure failure = m_database.openDamaged()) {
        return failure;
    }
    return m_database.replaceContent(m_source, [this] { return keepBytes(); });
}

/// Keeps what cannot be read as it is. A write-ahead log gets a name under which SQLite does not take
/// it for the log of another database.
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
    if ((hasBytes && m_replaced.prepare(m_device.copy, ownership) != 0) ||
        (hasLog && m_replacedLog.prepare(log, ownership) != 0) ||
        durable::flushDirectory(m_device.databases) != 0) {
        return DatabaseFailure{FailureKind::NoRoom, "to keep what is replaced"};
    }
    return std::nullopt;
}
} // namespace

RunRecord restore(const DevicePaths &device, const RestorationOptions &options)
{
    RunRecord record;
    record.command = "restore";
    if (device.databases.isEmpty()) {
        record.status = Status::NothingChanged;
        record.reason = "no-database";
        return record;
    }
    WaitBudget budget(options.waitSeconds);
    DirectoryLock lock;
    if (lock.take(device.databases, budget) != DirectoryLock::Result::Taken) {
        record.status = Status::NothingChanged;
        record.reason = "locked";
        record.detail = "another guard is at work";
        return record;
    }
    if (!options.dryRun) {
        QFile::remove(device.copy);
    }
    record = Restoration(device, options, budget).run();
    LastMigration lastMigration(device.lastMigration);
    if (record.changed && !lastMigration.record(record, true)) {
        tell(QString("lastMigration.json could not be written"));
    }
    return record;
}

#include "guard/verdict/repaired_copy.h"

#include <QFile>

namespace
{
bool hasRows(const SqliteConnection &connection, const QByteArray &sql)
{
    return SqliteStatement(connection, sql).step();
}

QByteArrayList checksOfForeignKeys(
    const SqliteConnection &connection, const ComputedColumns &computed)
{
    return statementsOfCheck(connection, "foreign_key_check", {}, computed.keyTables());
}

bool hasSomethingToRepair(const JudgedDatabase &database, const VersionTable::EveryRun &everyRun)
{
    const SqliteConnection &before = database.connection();
    const QByteArrayList checks = checksOfForeignKeys(before, database.computed());
    for (const QByteArray &check : checks) {
        if (hasRows(before, check)) {
            return true;
        }
    }
    for (const RowCondition &orphans : everyRun.rows) {
        if (hasRows(
                before, "SELECT 1 FROM " + quotedName(orphans.table) + " WHERE " + orphans.rows)) {
            return true;
        }
    }
    return false;
}

/// Switches the copy to a rollback journal. At rest its write-ahead log is empty.
bool usesRollbackJournal(const QString &path)
{
    constexpr int versionsOffset = 18;
    QFile file(path);
    return file.open(QIODevice::ReadWrite) && file.seek(versionsOffset) &&
           file.write("\1\1", 2) == 2;
}
} // namespace

RepairedCopy::RepairedCopy(
    const JudgedDatabase &before, const QString &path, const QString &directory,
    const VersionTable::EveryRun &everyRun, WorkBudget &budget)
    : m_path(directory + "/repaired.sqlite")
{
    if (!hasSomethingToRepair(before, everyRun)) {
        return;
    }
    QFile::remove(m_path);
    m_isMade = QFile::copy(path, m_path) &&
               QFile::setPermissions(m_path, QFile::ReadOwner | QFile::WriteOwner) &&
               usesRollbackJournal(m_path) &&
               m_connection.open(m_path, SQLITE_OPEN_READWRITE) == SQLITE_OK;
    if (!m_isMade) {
        m_hasFailed = true;
        return;
    }
    sqlite3 *handle = m_connection.handle();
    m_connection.distrustSchema();
    boundStatements(handle);
    sqlite3_progress_handler(
        handle,
        WorkBudget::stride,
        [](void *left) { return static_cast<WorkBudget *>(left)->spend() ? 0 : 1; },
        &budget);
    for (const char *pragma :
         {"PRAGMA journal_mode = MEMORY",
          "PRAGMA synchronous = OFF",
          "PRAGMA ignore_check_constraints = ON",
          "PRAGMA foreign_keys = ON"}) {
        m_connection.run(pragma);
    }
    dropIndexesThatCompute();
    const ComputedColumns computed(m_connection);
    sqlite3_update_hook(handle, noteChange, this);
    for (const QByteArray &check : checksOfForeignKeys(m_connection, computed)) {
        removeViolations(check);
    }
    m_removesOrphans = true;
    for (const RowCondition &orphans : everyRun.rows) {
        m_connection.run("DELETE FROM " + quotedName(orphans.table) + " WHERE " + orphans.rows);
    }
    m_connection.close();
}

RepairedCopy::~RepairedCopy()
{
    m_connection.close();
    QFile::remove(m_path);
}

void RepairedCopy::removeViolations(const QByteArray &check)
{
    SqliteStatement violations(m_connection, check);
    while (violations.step()) {
        if (sqlite3_column_type(violations.handle(), 1) == SQLITE_NULL) {
            continue;
        }
        const QByteArray table = violations.text(0);
        SqliteStatement removal(
            m_connection, "DELETE FROM " + quotedName(table) + " WHERE rowid = ?");
        sqlite3_bind_int64(removal.handle(), 1, sqlite3_column_int64(violations.handle(), 1));
        removal.step();
    }
}

/// The expressions of such indexes come from the database and must not run.
void RepairedCopy::dropIndexesThatCompute()
{
    QByteArrayList names;
    {
        SqliteStatement indexes(
            m_connection,
            "SELECT i.name FROM sqlite_schema i, pragma_index_xinfo(i.name) c "
            "WHERE i.type = 'index' AND c.cid = -2 UNION "
            "SELECT i.name FROM sqlite_schema t, pragma_index_list(t.name) i "
            "WHERE t.type = 'table' AND i.partial");
        while (indexes.step()) {
            names << indexes.text(0);
        }
    }
    for (const QByteArray &name : names) {
        m_connection.run("DROP INDEX " + quotedName(name));
    }
}

void RepairedCopy::noteChange(
    void *copy, int operation, const char *, const char *table, sqlite3_int64 rowid)
{
    auto *self = static_cast<RepairedCopy *>(copy);
    TouchedTable &touched = self->m_touched[folded(table)];
    if (operation == SQLITE_DELETE) {
        touched.hasLostRows = true;
        if (self->m_removesOrphans) {
            touched.orphans << rowid;
        }
    }
}

#include "guard/mending.h"

#include "guard/known_copies.h"
#include "guard/recorded_version.h"
#include "guard/row_key.h"
#include "guard/sqlite_connection.h"
#include "guard/verdict/judged_database.h"

#include <algorithm>
#include <optional>

QByteArray mendingCode(MendingKind kind)
{
    switch (kind) {
    case MendingKind::CopyRemoved:
        return "copy-removed";
    case MendingKind::NameGiven:
        return "name-given";
    case MendingKind::RowsReturned:
        return "rows-returned";
    case MendingKind::OnlyReported:
        break;
    }
    return "only-reported";
}

bool MendingResult::changed() const
{
    return std::any_of(mendings.begin(), mendings.end(), [](const Mending &mending) {
        return mending.kind != MendingKind::OnlyReported;
    });
}

namespace
{
/// Names are compared without regard to the case of ASCII letters.
bool isSameName(const QByteArray &left, const QByteArray &right)
{
    return folded(left) == folded(right);
}

bool holdsName(const QByteArrayList &names, const QByteArray &name)
{
    return std::any_of(names.begin(), names.end(), [&name](const QByteArray &other) {
        return isSameName(other, name);
    });
}

/// The rows of a copy as a step would make them: the columns of the table that get a value, and for
/// each the SQL over a row of the copy.
struct CopiedRows {
    QByteArrayList columns;
    QByteArrayList values;
};

/// Examines the copies in an open transaction, and mends what it can.
class Mender
{
public:
    explicit Mender(const SqliteConnection &connection) : m_connection(connection) {}

    /// @return the result for every copy in the database
    QVector<Mending> mendAll(const QVector<KnownCopy> &copies);

    /// @return a failure of the disk or the memory, after which the transaction has to be rolled
    /// back; empty for none
    const QString &failure() const { return m_failure; }

private:
    void mend(const KnownCopy &copy, Mending &mending);
    void mendBesideTable(const KnownCopy &copy, Mending &mending);
    bool giveName(const Mending &mending);
    bool bringRowsBack(const CopiedRows &rows, const Mending &mending);
    bool removeCopy(const Mending &mending);

    bool isSound();
    QByteArray objectName(const QByteArray &name, const char *condition = "");
    QByteArray storedTable(const QByteArray &name);
    QByteArrayList columnsOf(const QByteArray &table);
    std::optional<CopiedRows> copiedRows(const TakenFromTable &step, const Mending &mending);
    std::optional<qint64> number(const QByteArray &sql);
    bool run(const QByteArray &sql);
    void noteFailure(int code);

    const SqliteConnection &m_connection;
    QString m_failure;
    QString m_lastError; ///< SQLite's words for the last statement that failed
};

/// @return a SELECT of the keys of rows; rows that are equal are numbered
QByteArray numberedKeys(const QByteArrayList &values, const QByteArray &table)
{
    return "SELECT key, row_number() OVER (PARTITION BY key) FROM (SELECT " + rowKeyOf(values) +
           " AS key FROM main." + quotedName(table) + " NOT INDEXED)";
}

QByteArrayList quotedAll(const QByteArrayList &names)
{
    QByteArrayList result;
    std::transform(names.begin(), names.end(), std::back_inserter(result), quotedName);
    return result;
}

QByteArray keysOfTable(const CopiedRows &rows, const Mending &mending)
{
    return numberedKeys(quotedAll(rows.columns), mending.table);
}

QByteArray keysOfCopy(const CopiedRows &rows, const Mending &mending)
{
    return numberedKeys(rows.values, mending.copy);
}

QByteArray countOfDifference(const QByteArray &keys, const QByteArray &otherKeys)
{
    return "SELECT count(*) FROM (" + keys + " EXCEPT " + otherKeys + ")";
}

QByteArray countOfRows(const QByteArray &table)
{
    return "SELECT count(*) FROM main." + quotedName(table) + " NOT INDEXED";
}

QVector<Mending> Mender::mendAll(const QVector<KnownCopy> &copies)
{
    QVector<Mending> mendings;
    for (const KnownCopy &copy : copies) {
        Mending mending;
        mending.table = copy.table;
        mending.copy = storedTable(copy.name);
        if (!mending.copy.isEmpty()) {
            mendings << mending;
        }
    }
    const bool damaged = !mendings.isEmpty() && !isSound();
    for (Mending &mending : mendings) {
        if (!m_failure.isEmpty()) {
            break;
        }
        const auto copy = std::find_if(copies.begin(), copies.end(), [&](const KnownCopy &known) {
            return isSameName(known.name, mending.copy);
        });
        const std::optional<qint64> rows = number(countOfRows(mending.copy));
        mending.rowsOfCopy = rows.value_or(0);
        if (damaged) {
            mending.reason = "the database is damaged";
        } else if (!rows) {
            mending.reason = m_lastError;
        } else {
            run("SAVEPOINT mending");
            mend(*copy, mending);
            if (mending.kind == MendingKind::OnlyReported) {
                run("ROLLBACK TO mending");
            }
            run("RELEASE mending");
        }
    }
    return mendings;
}

void Mender::mend(const KnownCopy &copy, Mending &mending)
{
    for (const QByteArray &name : copy.names()) {
        mending.table = objectName(name);
        if (!mending.table.isEmpty()) {
            break;
        }
    }
    if (!mending.table.isEmpty()) {
        if (storedTable(mending.table).isEmpty()) {
            mending.reason = "the name of the table is that of something else";
        } else {
            mendBesideTable(copy, mending);
        }
        return;
    }
    mending.table = copy.nameAt(recordedVersion(m_connection).number);
    for (const QByteArray &other : copy.inItsPlace + copy.otherCopies) {
        if (!objectName(other).isEmpty()) {
            mending.reason =
                QString("%1 is there too, and the table is not").arg(QString::fromUtf8(other));
            return;
        }
    }
    if (giveName(mending)) {
        mending.kind = MendingKind::NameGiven;
        mending.rowsReturned = mending.rowsOfCopy;
    } else {
        mending.reason = m_lastError;
    }
}

void Mender::mendBesideTable(const KnownCopy &copy, Mending &mending)
{
    const std::optional<qint64> rowsOfTable = number(countOfRows(mending.table));
    if (!rowsOfTable) {
        mending.reason = m_lastError;
        return;
    }
    QVector<CopiedRows> ways;
    for (const TakenFromTable &step : copy.steps + QVector<TakenFromTable>{TakenFromTable()}) {
        if (const std::optional<CopiedRows> rows = copiedRows(step, mending)) {
            ways << *rows;
        }
    }
    const bool allRowsAreThere =
        mending.rowsOfCopy == 0 ||
        std::any_of(ways.begin(), ways.end(), [&](const CopiedRows &rows) {
            return number(countOfDifference(
                       keysOfCopy(rows, mending), keysOfTable(rows, mending))) == 0;
        });
    if (allRowsAreThere) {
        if (removeCopy(mending)) {
            mending.kind = MendingKind::CopyRemoved;
        } else {
            mending.reason = m_lastError;
        }
        return;
    }
    mending.reason = "the table and the copy each have rows that the other one lacks";
    if (*rowsOfTable >= mending.rowsOfCopy) {
        return;
    }
    for (const CopiedRows &rows : ways) {
        if (number(countOfDifference(keysOfTable(rows, mending), keysOfCopy(rows, mending))) != 0) {
            continue;
        }
        if (bringRowsBack(rows, mending) && removeCopy(mending)) {
            mending.kind = MendingKind::RowsReturned;
            mending.rowsReturned = mending.rowsOfCopy - *rowsOfTable;
            mending.reason.clear();
        } else {
            mending.reason = m_lastError;
        }
        return;
    }
}

bool Mender::giveName(const Mending &mending)
{
    // SQLite rewrote references when the program renamed the table to the copy's name. Renaming it
    // back restores them.
    const QByteArray rename =
        "ALTER TABLE main." + quotedName(mending.copy) + " RENAME TO " + quotedName(mending.table);
    if (run(rename)) {
        return true;
    }
    // The rename fails if SQLite cannot understand the whole schema, for example a view of a
    // missing table. In the legacy mode only the table itself is renamed.
    run("PRAGMA legacy_alter_table = ON");
    const bool isRenamed = run(rename);
    run("PRAGMA legacy_alter_table = OFF");
    return isRenamed;
}

bool Mender::bringRowsBack(const CopiedRows &rows, const Mending &mending)
{
    QByteArrayList places;
    QByteArrayList selected;
    for (int index = 0; index < rows.values.size(); ++index) {
        places << "value_" + QByteArray::number(index);
        selected << rows.values[index] + " AS " + places.last();
    }
    // The rows keep the order of the copy, because later steps read them in order. OR ABORT: the
    // table's own conflict clause could lose rows, or end the transaction.
    const QByteArray insertion =
        "INSERT OR ABORT INTO main." + quotedName(mending.table) + " (" +
        quotedAll(rows.columns).join(", ") + ") SELECT " + places.join(", ") +
        " FROM (SELECT *, row_number() OVER (PARTITION BY key) "
        "AS number FROM (SELECT " +
        selected.join(", ") + ", " + rowKeyOf(rows.values) +
        " AS key, row_number() OVER () AS place FROM main." + quotedName(mending.copy) +
        " NOT INDEXED)) WHERE (key, number) NOT IN (" + keysOfTable(rows, mending) +
        ") ORDER BY place";
    if (!run(insertion)) {
        return false;
    }
    // A column's affinity may change a value.
    const bool allRowsAreThere =
        number(countOfDifference(keysOfCopy(rows, mending), keysOfTable(rows, mending))) == 0 &&
        number(countOfRows(mending.table)) == mending.rowsOfCopy;
    if (!allRowsAreThere && m_failure.isEmpty()) {
        m_lastError = "the table does not take the rows as they are";
    }
    return allRowsAreThere;
}

bool Mender::removeCopy(const Mending &mending)
{
    return run("DROP TABLE main." + quotedName(mending.copy));
}

bool Mender::isSound()
{
    SqliteStatement check(m_connection, "PRAGMA quick_check(1)");
    const bool sound = check.step() && check.text(0) == "ok";
    noteFailure(check.result());
    return sound;
}

/// @param condition more SQL on the row of the schema
/// @return the name as the schema writes it, empty when there is no such object
QByteArray Mender::objectName(const QByteArray &name, const char *condition)
{
    SqliteStatement query(
        m_connection,
        "SELECT name FROM main.sqlite_schema WHERE name = ?1 COLLATE NOCASE AND type <> 'trigger'" +
            QByteArray(condition));
    sqlite3_bind_text(query.handle(), 1, name.constData(), name.size(), SQLITE_STATIC);
    const bool isThere = query.step();
    noteFailure(query.result());
    return isThere ? query.text(0) : QByteArray();
}

QByteArray Mender::storedTable(const QByteArray &name)
{
    // A virtual table has no page.
    return objectName(name, " AND type = 'table' AND rootpage > 0");
}

/// @return the columns with stored values, not computed ones
QByteArrayList Mender::columnsOf(const QByteArray &table)
{
    SqliteStatement query(
        m_connection, "SELECT name FROM pragma_table_xinfo(?1, 'main') WHERE hidden = 0");
    sqlite3_bind_text(query.handle(), 1, table.constData(), table.size(), SQLITE_STATIC);
    QByteArrayList columns;
    while (query.step()) {
        columns << query.text(0);
    }
    noteFailure(query.result());
    return columns;
}

/// @return nothing when the copy has a column that is not in the table and that the step does not
/// take away
std::optional<CopiedRows> Mender::copiedRows(const TakenFromTable &step, const Mending &mending)
{
    const QByteArrayList columnsOfTable = columnsOf(mending.table);
    CopiedRows rows;
    for (const QByteArray &column : columnsOf(mending.copy)) {
        const QByteArray name = holdsName(columnsOfTable, column)
                                    ? column
                                    : step.columnsRenamed.value(folded(column), column);
        if (holdsName(columnsOfTable, name) && !holdsName(rows.columns, name)) {
            rows.columns << name;
            const QByteArray becomes = step.values.value(folded(column)).becomes;
            rows.values << (becomes.isEmpty() ? quotedName(column) : becomes);
        } else if (!step.columnsDropped.contains(folded(column))) {
            return std::nullopt;
        }
    }
    if (rows.columns.isEmpty()) {
        return std::nullopt;
    }
    return rows;
}

/// @return nothing when the statement cannot be run
std::optional<qint64> Mender::number(const QByteArray &sql)
{
    SqliteStatement query(m_connection, sql);
    if (!query.step()) {
        noteFailure(query.result());
        return std::nullopt;
    }
    return sqlite3_column_int64(query.handle(), 0);
}

bool Mender::run(const QByteArray &sql)
{
    const int code =
        sqlite3_exec(m_connection.handle(), sql.constData(), nullptr, nullptr, nullptr);
    noteFailure(code);
    return code == SQLITE_OK;
}

void Mender::noteFailure(int code)
{
    switch (code & 0xff) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
        return;
    case SQLITE_NOMEM:
    case SQLITE_IOERR:
    case SQLITE_FULL:
    case SQLITE_CANTOPEN:
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        if (m_failure.isEmpty()) {
            m_failure = m_connection.errorText();
        }
        break;
    default:
        if (m_failure.isEmpty() && sqlite3_get_autocommit(m_connection.handle())) {
            m_failure = m_connection.errorText();
        }
        break;
    }
    m_lastError = m_connection.errorText();
}

/// Nothing from the schema may run, except expressions of columns and indexes.
void restrain(const SqliteConnection &connection)
{
    sqlite3_db_config(connection.handle(), SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(connection.handle(), SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(connection.handle(), SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(connection.handle(), SQLITE_DBCONFIG_ENABLE_FKEY, 0, nullptr);
}

} // namespace

MendingResult mendCopies(const QString &database, const VersionTable &versions)
{
    MendingResult result;
    SqliteConnection connection;
    if (connection.open(database, SQLITE_OPEN_READWRITE) != SQLITE_OK ||
        addRowKey(connection.handle()) != SQLITE_OK) {
        result.error = connection.errorText();
        return result;
    }
    restrain(connection);
    // This copy of the database does not survive a power cut anyway.
    connection.run("PRAGMA synchronous = OFF");
    if (connection.run("BEGIN IMMEDIATE") != SQLITE_OK) {
        result.error = connection.errorText();
        return result;
    }
    Mender mender(connection);
    result.mendings = mender.mendAll(knownCopies(versions));
    result.error = mender.failure();
    if (result.error.isEmpty() && result.changed() && connection.run("COMMIT") != SQLITE_OK) {
        result.error = connection.errorText();
    }
    if (!result.error.isEmpty()) {
        result.mendings.clear();
    }
    // Closing the connection rolls back what was not committed.
    return result;
}

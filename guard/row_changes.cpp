#include "guard/row_changes.h"
#include "guard/comparison.h"
#include "guard/limits.h"
#include "guard/printed_text.h"
#include "guard/sqlite_connection.h"

#include <QMap>

namespace
{
/// The names of the two databases on one connection.
const char *const currentSchema = "main";
const char *const otherSchema = "other";

/// Compares the rows of one table after another.
class RowComparison
{
public:
    RowComparison(const QString &current, const QString &other);

    /// @param table a table of both databases
    /// @return texts on the rows that go, come back and change
    QStringList changes(const QByteArray &table);

    /// @return the number of rows, as a text, of a table that only one of the two databases has
    QString rowsOf(const char *schema, const QByteArray &table);

private:
    struct Key {
        QByteArrayList columns; ///< quoted for SQL
        QByteArrayList names;
    };

    bool step(SqliteStatement &query);
    QByteArrayList columns(const char *schema, const QByteArray &table, const char *condition);
    Key keyOf(const QByteArray &table);
    QString onlyIn(
        const QByteArray &table, const Key &key, const char *schema, const char *without,
        const char *verb, const char *verbOfMany);
    qint64 changedRows(const QByteArray &table, const Key &key);

    SqliteConnection m_connection;
    QString m_error; ///< the failure of a query for a table, or of opening the databases
    bool m_isAttached = false;
};

QByteArray tableIn(const char *schema, const QByteArray &table)
{
    return schema + QByteArray(".") + quotedName(table);
}

/// Equal in every bit: 1 and 1.0 are not, nor are 'a' and 'A' in a column that ignores case. The
/// first part lets SQLite use an index.
QByteArray sameValue(const QByteArray &column)
{
    return QByteArray("(a.%1 IS b.%1 AND a.%1 COLLATE BINARY IS b.%1 AND "
                      "typeof(a.%1) = typeof(b.%1))")
        .replace("%1", column);
}

/// Only the beginning of a value, which may have megabytes.
QByteArray shownValue(const QByteArray &column)
{
    const QByteArray most = QByteArray::number(limits::printedCharacters);
    return QByteArray("CASE WHEN typeof(%1) IN ('text', 'blob') AND length(%1) > %2 "
                      "THEN quote(substr(%1, 1, %2)) || '...' ELSE quote(%1) END")
        .replace("%1", column)
        .replace("%2", most);
}

RowComparison::RowComparison(const QString &current, const QString &other)
{
    m_connection.openAtRest(current);
    SqliteStatement attach(
        m_connection, "ATTACH " + quotedText(addressAtRest(other).toUtf8()) + " AS " + otherSchema);
    step(attach);
    m_isAttached = m_error.isEmpty();
}

bool RowComparison::step(SqliteStatement &query)
{
    const bool isRow = query.step();
    if (!isRow && query.result() != SQLITE_DONE && m_error.isEmpty()) {
        m_error = printedText(m_connection.errorText().toUtf8());
    }
    return isRow;
}

QByteArrayList RowComparison::columns(
    const char *schema, const QByteArray &table, const char *condition)
{
    SqliteStatement query(
        m_connection,
        "SELECT name FROM pragma_table_info(" + quotedText(table) + ", " + quotedText(schema) +
            ") WHERE " + condition + " ORDER BY pk, cid");
    QByteArrayList names;
    while (step(query)) {
        names << query.text(0);
    }
    return names;
}

/// The columns that identify a row in both databases: the primary key, or without one the row id.
RowComparison::Key RowComparison::keyOf(const QByteArray &table)
{
    const QByteArrayList current = columns(currentSchema, table, "pk > 0");
    if (current.isEmpty() || current != columns(otherSchema, table, "pk > 0")) {
        return {{"rowid"}, {}};
    }
    Key key;
    key.names = current;
    for (const QByteArray &name : current) {
        key.columns << quotedName(name);
    }
    return key;
}

/// The keys of rows that only one of the two databases has, as a text; empty when there are none.
QString RowComparison::onlyIn(
    const QByteArray &table, const Key &key, const char *schema, const char *without,
    const char *verb, const char *verbOfMany)
{
    QByteArrayList compared;
    QByteArrayList shown;
    for (const QByteArray &column : key.columns) {
        const QByteArray name = "k" + QByteArray::number(shown.size());
        compared << column + " COLLATE BINARY AS " + name + ", typeof(" + column + ")";
        shown << shownValue(name);
    }
    const QByteArray select = "SELECT " + compared.join(", ") + " FROM ";
    SqliteStatement query(
        m_connection,
        "SELECT " + shown.join(" || '/' || ") + " FROM (" + select + tableIn(schema, table) +
            " EXCEPT " + select + tableIn(without, table) + ")");
    qint64 rows = 0;
    QStringList printed;
    for (; step(query); ++rows) {
        if (printed.size() < limits::printedKeys) {
            printed << printedText(query.text(0));
        }
    }
    if (rows == 0) {
        return QString();
    }
    return QString(rows == 1 ? "%1 row %2 (" : "%1 rows %2 (")
               .arg(QString::number(rows), rows == 1 ? verb : verbOfMany) +
           printed.join(", ") + (rows > printed.size() ? ", ...)" : ")");
}

/// The number of rows in both databases whose values differ in a column of both.
qint64 RowComparison::changedRows(const QByteArray &table, const Key &key)
{
    QByteArrayList sameKey;
    for (const QByteArray &column : key.columns) {
        sameKey << sameValue(column);
    }
    const QByteArrayList ofOther = columns(otherSchema, table, "1");
    QByteArrayList same;
    for (const QByteArray &column : columns(currentSchema, table, "1")) {
        if (ofOther.contains(column) && !key.names.contains(column)) {
            same << sameValue(quotedName(column));
        }
    }
    if (same.isEmpty()) {
        return 0;
    }
    SqliteStatement query(
        m_connection,
        "SELECT count(*) FROM " + tableIn(currentSchema, table) + " a JOIN " +
            tableIn(otherSchema, table) + " b ON " + sameKey.join(" AND ") + " WHERE NOT (" +
            same.join(" AND ") + ")");
    return step(query) ? sqlite3_column_int64(query.handle(), 0) : 0;
}

QStringList RowComparison::changes(const QByteArray &table)
{
    QStringList parts;
    if (m_isAttached) {
        m_error.clear();
        const Key key = keyOf(table);
        parts << onlyIn(table, key, currentSchema, otherSchema, "goes", "go")
              << onlyIn(table, key, otherSchema, currentSchema, "comes back", "come back");
        if (const qint64 changed = changedRows(table, key)) {
            parts << QString(changed == 1 ? "%1 row changes" : "%1 rows change").arg(changed);
        }
        parts.removeAll(QString());
    }
    if (!m_error.isEmpty()) {
        return {"rows change, and cannot be compared: " + m_error};
    }
    return parts.isEmpty() ? QStringList("rows change") : parts;
}

QString RowComparison::rowsOf(const char *schema, const QByteArray &table)
{
    if (m_isAttached) {
        m_error.clear();
        SqliteStatement query(m_connection, "SELECT count(*) FROM " + tableIn(schema, table));
        if (step(query)) {
            return QString::number(sqlite3_column_int64(query.handle(), 0));
        }
    }
    return "cannot be counted: " + m_error;
}

/// An object's definitions in the two databases, if they have it.
struct Presence {
    bool inCurrent = false;
    bool inOther = false;
};
using Objects = QMap<QByteArray, Presence>;

/// @return the objects of these types whose definitions differ, or that only one database has
Objects differentObjects(const DatabaseDifferences &differences, const QByteArrayList &types)
{
    Objects objects;
    for (const SchemaObject &object : differences.objectsOnlyBefore) {
        // An index without a definition comes and goes with its table.
        if (types.contains(object.type) && !object.sql.isNull()) {
            objects[object.name].inCurrent = true;
        }
    }
    for (const SchemaObject &object : differences.objectsOnlyAfter) {
        if (types.contains(object.type) && !object.sql.isNull()) {
            objects[object.name].inOther = true;
        }
    }
    return objects;
}

QStringList tableLines(const DatabaseDifferences &differences, RowComparison &rows)
{
    Objects tables = differentObjects(differences, {"table"});
    for (const QByteArray &table : differences.tables) {
        tables[table];
    }
    QStringList lines;
    for (auto table = tables.constBegin(); table != tables.constEnd(); ++table) {
        const bool inBoth = table->inCurrent == table->inOther;
        QStringList parts;
        if (!inBoth && table->inCurrent) {
            parts << "the table goes, rows: " + rows.rowsOf(currentSchema, table.key());
        } else if (!inBoth) {
            parts << "the table comes back, rows: " + rows.rowsOf(otherSchema, table.key());
        } else if (differences.tables.contains(table.key())) {
            parts << rows.changes(table.key());
        }
        if (inBoth && table->inCurrent) {
            parts << "the definition changes";
        }
        lines << printedText(table.key()) + ": " + parts.join(", ");
    }
    return lines;
}

QStringList otherLines(const DatabaseDifferences &differences)
{
    QStringList lines;
    for (const char *type : {"index", "trigger", "view"}) {
        const Objects objects = differentObjects(differences, {type});
        for (auto object = objects.constBegin(); object != objects.constEnd(); ++object) {
            const char *const what = object->inCurrent && object->inOther ? "changes"
                                     : object->inCurrent                  ? "goes"
                                                                          : "comes back";
            lines << QString(type) + " " + printedText(object.key()) + ": " + what;
        }
    }
    for (const QByteArray &index : differences.indexes) {
        lines << "index " + printedText(index) + ": the entries change";
    }
    if (!differences.settings.isEmpty()) {
        lines << "settings that change: " + differences.settings.join(", ");
    }
    return lines;
}
} // namespace

QStringList rowChanges(const QString &current, const QString &other)
{
    const DatabaseDifferences differences = compareDatabases(current, other);
    if (!differences.readError.isEmpty()) {
        return {"The two cannot be compared: " + differences.readError};
    }
    if (differences.schemaDamaged) {
        return {"The two cannot be compared: the schema of one is damaged."};
    }
    RowComparison rows(current, other);
    return tableLines(differences, rows) + otherLines(differences);
}

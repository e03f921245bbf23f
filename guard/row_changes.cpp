#include "guard/row_changes.h"
#include "guard/limits.h"
#include "guard/sqlite_connection.h"

#include <QUrl>

namespace
{
/// The names under which the two databases are attached.
const char *const currentSchema = "current";
const char *const otherSchema = "other";

QByteArray quoted(QByteArray name)
{
    return '"' + name.replace("\"", "\"\"") + '"';
}

QByteArray tableIn(const char *schema, const QByteArray &table)
{
    return schema + QByteArray(".") + quoted(table);
}

QByteArrayList firstColumn(const SqliteConnection &connection, const QByteArray &sql)
{
    QByteArrayList values;
    SqliteStatement query(connection, sql);
    while (query.step()) {
        values << query.value(0);
    }
    return values;
}

QByteArray inLiteral(QByteArray text)
{
    return '\'' + text.replace("'", "''") + '\'';
}

QByteArrayList columns(
    const SqliteConnection &connection, const char *schema, const QByteArray &table,
    const char *condition)
{
    return firstColumn(
        connection,
        "SELECT name FROM pragma_table_info(" + inLiteral(table) + ", " + inLiteral(schema) +
            ") WHERE " + condition + " ORDER BY pk, cid");
}

/// What names a row in both: the primary key, or the row id without one.
QByteArrayList keyOf(const SqliteConnection &connection, const QByteArray &table)
{
    const QByteArrayList current = columns(connection, currentSchema, table, "pk > 0");
    const bool same = current == columns(connection, otherSchema, table, "pk > 0");
    return same && !current.isEmpty() ? current : QByteArrayList{"rowid"};
}

/// The keys of rows that only one of the two has, as a text; nothing without any.
QString onlyIn(
    const SqliteConnection &connection, const QByteArray &table, const QByteArrayList &key,
    const char *schema, const char *without, const char *verb, const char *verbOfMany)
{
    QByteArrayList names;
    for (const QByteArray &column : key) {
        names << quoted(column);
    }
    const QByteArray list = names.join(", ");
    const QByteArray difference = "SELECT " + list + " FROM " + tableIn(schema, table) +
                                  " EXCEPT SELECT " + list + " FROM " + tableIn(without, table);
    const QByteArray shown = "quote(" + names.join(") || '/' || quote(") + ")";
    const QByteArrayList rows =
        firstColumn(connection, "SELECT " + shown + " FROM (" + difference + ")");
    if (rows.isEmpty()) {
        return QString();
    }
    const QByteArrayList printed = rows.mid(0, limits::printedKeys);
    return QString("%1 %2 (%3%4)")
        .arg(
            QString(rows.size() == 1 ? "%1 row" : "%1 rows").arg(rows.size()),
            rows.size() == 1 ? verb : verbOfMany,
            QString::fromUtf8(printed.join(", ")),
            rows.size() > printed.size() ? ", ..." : "");
}

/// The number of rows of both that have other values in a column of both.
qint64 changedRows(SqliteConnection &connection, const QByteArray &table, const QByteArrayList &key)
{
    QByteArrayList sameKey;
    for (const QByteArray &column : key) {
        sameKey << "a." + quoted(column) + " IS b." + quoted(column);
    }
    const QByteArrayList ofOther = columns(connection, otherSchema, table, "1");
    QByteArrayList differs;
    for (const QByteArray &column : columns(connection, currentSchema, table, "pk = 0")) {
        if (ofOther.contains(column)) {
            differs << "a." + quoted(column) + " IS NOT b." + quoted(column);
        }
    }
    if (differs.isEmpty()) {
        return 0;
    }
    const QByteArray query = "SELECT count(*) FROM " + tableIn(currentSchema, table) + " a JOIN " +
                             tableIn(otherSchema, table) + " b ON " + sameKey.join(" AND ") +
                             " WHERE " + differs.join(" OR ");
    return connection.number(query.constData()).value_or(0);
}

QByteArrayList tables(const SqliteConnection &connection, const char *schema)
{
    return firstColumn(
        connection,
        "SELECT name FROM " + QByteArray(schema) +
            ".sqlite_schema WHERE type = 'table' AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\' "
            "ORDER BY name");
}

QString rowsOf(SqliteConnection &connection, const char *schema, const QByteArray &table)
{
    const QByteArray query = "SELECT count(*) FROM " + tableIn(schema, table);
    return QString::number(connection.number(query.constData()).value_or(0));
}

int attach(const SqliteConnection &connection, const QByteArray &file, const char *schema)
{
    SqliteStatement statement(
        connection, "ATTACH " + inLiteral(file) + " AS " + QByteArray(schema));
    statement.step();
    return statement.result();
}
} // namespace

QStringList rowChanges(const QString &current, const QString &other)
{
    SqliteConnection connection;
    connection.open(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_URI);
    sqlite3_db_config(connection.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    // One that nobody changes needs no files of SQLite's beside it.
    const QByteArray otherFile = "file:" + QUrl::toPercentEncoding(other, "/") + "?immutable=1";
    if (attach(connection, current.toUtf8(), currentSchema) != SQLITE_DONE ||
        attach(connection, otherFile, otherSchema) != SQLITE_DONE) {
        return {"the rows cannot be compared: " + connection.errorText()};
    }
    connection.run("BEGIN");
    const QByteArrayList ofCurrent = tables(connection, currentSchema);
    const QByteArrayList ofOther = tables(connection, otherSchema);
    QStringList lines;
    for (const QByteArray &table : ofCurrent) {
        const QString name = QString::fromUtf8(table);
        if (!ofOther.contains(table)) {
            lines << name + ": the table goes, rows: " + rowsOf(connection, currentSchema, table);
            continue;
        }
        const QByteArrayList key = keyOf(connection, table);
        QStringList parts = {
            onlyIn(connection, table, key, currentSchema, otherSchema, "goes", "go"),
            onlyIn(connection, table, key, otherSchema, currentSchema, "comes back", "come back")};
        parts.removeAll(QString());
        if (const qint64 changed = changedRows(connection, table, key)) {
            parts << QString(changed == 1 ? "%1 row changes" : "%1 rows change").arg(changed);
        }
        if (!parts.isEmpty()) {
            lines << name + ": " + parts.join(", ");
        }
    }
    for (const QByteArray &table : ofOther) {
        if (!ofCurrent.contains(table)) {
            lines << QString::fromUtf8(table) +
                         ": the table comes back, rows: " + rowsOf(connection, otherSchema, table);
        }
    }
    return lines;
}

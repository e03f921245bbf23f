#include "guard/verdict/computed_columns.h"

#include "guard/verdict/version_table.h"

#include <QRegularExpression>

namespace
{
// pragma_table_xinfo's marks of computed columns.
constexpr int computedWhenRead = 2;
constexpr int computedWhenWritten = 3;

/// @return whether a default is a number, a text or a name, and no expression
bool isLiteral(const QByteArray &value)
{
    static const QRegularExpression literal(
        R"(^([-+]?[\w.]+|[xX]?'[^']*(''[^']*)*'|"[^"]*(""[^"]*)*")$)");
    return literal.match(QString::fromUtf8(value)).hasMatch();
}
} // namespace

ComputedColumns::ComputedColumns(const SqliteConnection &connection)
{
    findColumns(connection);
    findKeyTables(connection);
    if (!m_columns.isEmpty() || !m_computedByUpdate.isEmpty()) {
        sqlite3_set_authorizer(connection.handle(), authorize, this);
    }
}

void ComputedColumns::findColumns(const SqliteConnection &connection)
{
    SqliteStatement columns(
        connection,
        "SELECT t.name, c.name, c.hidden, c.dflt_value "
        "FROM sqlite_schema t, pragma_table_xinfo(t.name) c "
        "WHERE t.type = 'table' AND (c.hidden > 1 OR c.dflt_value IS NOT NULL)");
    while (columns.step()) {
        const QByteArray table = folded(columns.text(0));
        const int hidden = sqlite3_column_int(columns.handle(), 2);
        if (hidden == computedWhenRead) {
            m_columns.insert({table, folded(columns.text(1))});
            m_tables << table;
        }
        if (hidden == computedWhenRead || hidden == computedWhenWritten ||
            !isLiteral(columns.text(3))) {
            m_computedByUpdate << table;
        }
    }
}

void ComputedColumns::findKeyTables(const SqliteConnection &connection)
{
    for (const QByteArray &table : qAsConst(m_tables)) {
        SqliteStatement columns(
            connection,
            "SELECT \"from\" FROM pragma_foreign_key_list(?1) UNION ALL "
            "SELECT c.name FROM pragma_index_list(?1) i, pragma_index_xinfo(i.name) c");
        sqlite3_bind_text(columns.handle(), 1, table.constData(), table.size(), SQLITE_STATIC);
        while (columns.step()) {
            if (m_columns.contains({table, folded(columns.text(0))})) {
                m_keyTables << table;
            }
        }
    }
}

int ComputedColumns::authorize(
    void *columns, int action, const char *first, const char *second, const char *, const char *)
{
    const auto *self = static_cast<const ComputedColumns *>(columns);
    const bool computes =
        (action == SQLITE_READ && self->m_columns.contains({folded(first), folded(second)})) ||
        (action == SQLITE_DELETE && self->m_keyTables.contains(folded(first))) ||
        (action == SQLITE_UPDATE && self->m_computedByUpdate.contains(folded(first)));
    return computes ? SQLITE_DENY : SQLITE_OK;
}

QByteArrayList statementsOfCheck(
    const SqliteConnection &connection, const QByteArray &check, const QByteArray &forAll,
    const QSet<QByteArray> &leftOut)
{
    const QByteArray pragma = "PRAGMA " + check;
    if (leftOut.isEmpty()) {
        return {pragma + forAll};
    }
    QByteArrayList statements;
    // SQLite takes a name that begins as a number does for a limit, and checks all tables.
    SqliteStatement names(
        connection,
        "SELECT name FROM sqlite_schema WHERE type = 'table' AND rootpage > 0 "
        "AND name NOT GLOB '[-+0-9]*'");
    while (names.step()) {
        const QByteArray name = names.text(0);
        if (!leftOut.contains(folded(name))) {
            statements << pragma + '(' + quotedText(name) + ')';
        }
    }
    return statements;
}

#include "maintenance/equal_names.h"

#include "schema/statements.h"

namespace
{
/// Names that the database may find equal have the same key, whatever the column's collation is;
/// names that share a key by chance cost one look.
uint keyOf(const EqualNames::Scope &scope, const QString &name)
{
    int end = name.size();
    while (end > 0 && name[end - 1] == ' ') {
        --end;
    }
    return qHash(name.left(end).toLower(), qHashRange(scope.begin(), scope.end()));
}

/// A statement that holds such a name ends early: it fails, or it does something of its own.
bool breaksStatements(const QString &name)
{
    return name.contains('\'') || name.contains(QChar::Null);
}
} // namespace

EqualNames::EqualNames(
    const QString &table, const QStringList &scopeColumns, const QString &condition,
    EqualNames *children)
    : m_table(table), m_scopeColumns(scopeColumns), m_condition(condition), m_children(children)
{
    if (m_children) {
        m_children->m_parent = this;
    }
}

bool EqualNames::isOrdinary() const
{
    if (m_children && !m_children->isOrdinary()) {
        return false;
    }
    // The id is the table's row id, so rows come in its order; no index can change that order, no
    // trigger can change other rows, and the columns' types leave names text and scopes integers.
    const QString scopeNames = "'" + m_scopeColumns.join("', '") + "'";
    return firstValue(
               QString(
                   "SELECT EXISTS (SELECT 1 FROM pragma_table_list('%1') "
                   "WHERE schema = 'main' AND type = 'table' AND wr = 0) "
                   "AND (SELECT group_concat(name || ' ' || upper(type)) FROM pragma_table_xinfo('%1') "
                   "WHERE pk > 0) = 'id INTEGER' "
                   "AND (SELECT count(*) FROM pragma_table_xinfo('%1') WHERE name = 'displayName' "
                   "AND type NOT LIKE '%INT%' AND (type LIKE '%CHAR%' OR type LIKE '%TEXT%')) = 1 "
                   "AND (SELECT count(*) FROM pragma_table_xinfo('%1') WHERE name IN (%2) "
                   "AND type LIKE '%INT%') = %3 "
                   "AND NOT EXISTS (SELECT 1 FROM pragma_table_xinfo('%1') WHERE hidden <> 0) "
                   "AND NOT EXISTS (SELECT 1 FROM pragma_index_list('%1') AS list, "
                   "pragma_index_xinfo(list.name) AS part WHERE list.partial OR part.key AND "
                   "(part.name IS NULL OR part.name IN ('id', 'displayName', %2))) "
                   "AND NOT EXISTS (SELECT 1 FROM sqlite_master WHERE type = 'trigger' "
                   "AND tbl_name = '%1' COLLATE NOCASE)")
                   .arg(m_table, scopeNames, QString::number(m_scopeColumns.size())))
        .toBool();
}

bool EqualNames::nothingToDo() const
{
    if (m_children && !m_children->nothingToDo()) {
        return false;
    }
    QStringList columns("displayName");
    QStringList comparable("typeof(displayName) = 'text'");
    for (const QString &column : m_scopeColumns) {
        columns << column;
        comparable << QString("typeof(%1) = 'integer'").arg(column);
    }
    const QVariant found = firstValue(
        QString("SELECT EXISTS (SELECT 1 FROM %1 WHERE %2 "
                "AND (instr(displayName, '''') > 0 OR instr(displayName, char(0)) > 0)) "
                "OR EXISTS (SELECT 1 FROM %1 WHERE %2 AND %3 GROUP BY %4 HAVING count(*) > 1)")
            .arg(m_table, m_condition, comparable.join(" AND "), columns.join(", ")));
    return found.isValid() && !found.toBool();
}

void EqualNames::selectRows()
{
    if (m_children) {
        m_children->selectRows();
    }
    m_rowsByName.clear();
    m_rowsToVisit.clear();
    QStringList columns({"id", "displayName"});
    columns += m_scopeColumns;
    QSqlQuery rows = forwardOnlyQuery();
    if (!rows.exec(
            QString("SELECT %1 FROM %2 WHERE %3").arg(columns.join(", "), m_table, m_condition))) {
        m_everyRow = true;
        return;
    }
    while (rows.next()) {
        const QString name = rows.value(1).toString();
        Scope scope;
        for (int column = 2; column < columns.size(); ++column) {
            scope << rows.value(column).toLongLong();
        }
        const Row row{rows.value(0).toLongLong(), scope.value(0)};
        m_rowsByName.insert(keyOf(scope, name), row);
        if (breaksStatements(name) || (m_children && m_children->m_rowsToVisit.contains(row.id))) {
            m_rowsToVisit[row.parent].insert(row.id);
        }
    }
    const QList<uint> keys = m_rowsByName.uniqueKeys();
    for (const uint key : keys) {
        visitEquals(key);
    }
    m_everyRow = false;
}

bool EqualNames::forEachRow(
    const QString &select, qint64 parent, const std::function<void(const QSqlQuery &)> &visit)
{
    QSqlQuery rows = forwardOnlyQuery();
    if (m_everyRow) {
        if (!rows.exec(select)) {
            return false;
        }
        while (rows.next()) {
            visit(rows);
        }
        return true;
    }
    const QString oneRow = select + (m_scopeColumns.isEmpty() ? " WHERE id=%1" : " AND id=%1");
    for (auto id = nextRow(parent, std::nullopt); id; id = nextRow(parent, id)) {
        if (!rows.exec(oneRow.arg(*id))) {
            return false;
        }
        if (rows.next()) {
            visit(rows);
        }
    }
    return true;
}

QString EqualNames::among(const Scope &scope, const QString &name) const
{
    if (m_everyRow || breaksStatements(name)) {
        return QString();
    }
    QStringList ids;
    const QList<Row> rows = m_rowsByName.values(keyOf(scope, name));
    for (const Row &row : rows) {
        ids << QString::number(row.id);
    }
    return QString(" AND id IN (%1)").arg(ids.join(","));
}

void EqualNames::rowRenamed(
    qint64 id, const Scope &scope, const QString &name, const QString &newName)
{
    if (m_everyRow) {
        return;
    }
    if (breaksStatements(name)) {
        // There is no telling what such a statement has changed.
        EqualNames *top = this;
        while (top->m_parent) {
            top = top->m_parent;
        }
        top->selectRows();
        return;
    }
    const uint key = keyOf(scope, newName);
    m_rowsByName.insert(key, Row{id, scope.value(0)});
    visitEquals(key);
}

void EqualNames::visitEquals(uint key)
{
    const QList<Row> rows = m_rowsByName.values(key);
    if (rows.size() < 2) {
        return;
    }
    for (const Row &row : rows) {
        m_rowsToVisit[row.parent].insert(row.id);
    }
}

std::optional<qint64> EqualNames::nextRow(qint64 parent, const std::optional<qint64> &last) const
{
    const auto rows = m_rowsToVisit.find(parent);
    if (rows == m_rowsToVisit.end()) {
        return std::nullopt;
    }
    const auto next = last ? rows->upper_bound(*last) : rows->begin();
    return next == rows->end() ? std::nullopt : std::make_optional(*next);
}

#include "maintenance/equal_names.h"

#include "schema/statements.h"

#include <QSqlError>

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

bool holds(const QString &condition)
{
    return firstValue("SELECT " + condition).toBool();
}

/// A statement that holds a quote or a NUL ends early: it fails, or it does something of its own.
/// The two other characters are read as a third one, so that names which read differently are equal.
bool breaksStatements(const QString &name)
{
    return name.contains('\'') || name.contains(QChar::Null) || name.contains(QChar(0xfffe)) ||
           name.contains(QChar(0xffff));
}
} // namespace

EqualNames::EqualNames(
    const QString &table, const QStringList &scopeColumns, const QString &condition,
    EqualNames *children)
    : m_table(table), m_scopeColumns(scopeColumns), m_condition(condition), m_children(children)
{
    for (EqualNames *below = m_children; below; below = below->m_children) {
        below->m_top = this;
    }
}

bool EqualNames::prepare()
{
    bool suspectsFound = false;
    for (const EqualNames *table = this; table; table = table->m_children) {
        const QVariant found = table->isComparable() ? table->suspectsExist() : QVariant();
        if (!found.isValid()) {
            // What fails here fails for every row too, and each failure is a line in the log.
            return true;
        }
        suspectsFound = suspectsFound || found.toBool();
    }
    if (!suspectsFound) {
        return false;
    }
    for (EqualNames *table = this; table; table = table->m_children) {
        if (!table->renamesOneRow()) {
            return true;
        }
        table->m_readInOrderOfRowIds = table->isReadInOrderOfRowIds();
    }
    m_outdated = true;
    return true;
}

bool EqualNames::isComparable() const
{
    return holds(
        QString("(SELECT encoding FROM pragma_encoding) = 'UTF-8' "
                "AND EXISTS (SELECT 1 FROM pragma_table_list('%1') "
                "WHERE schema = 'main' AND type = 'table') "
                "AND NOT EXISTS (SELECT 1 FROM pragma_table_xinfo('%1') WHERE hidden <> 0) "
                "AND (SELECT count(*) FROM pragma_table_xinfo('%1') WHERE name = 'id' "
                "OR name = 'displayName' AND type NOT LIKE '%INT%' "
                "AND (type LIKE '%CHAR%' OR type LIKE '%TEXT%') "
                "OR name IN (%2) AND type LIKE '%INT%') = 2 + %3")
            .arg(m_table, scopeNames(), QString::number(m_scopeColumns.size())));
}

QVariant EqualNames::suspectsExist() const
{
    // A name or a scope that is NULL equals none.
    const QStringList columns = QStringList("displayName") + m_scopeColumns;
    return firstValue(
        QString("SELECT EXISTS (SELECT 1 FROM %1 WHERE %2 "
                "AND (instr(displayName, '''') > 0 OR instr(displayName, char(0)) > 0)) "
                "OR EXISTS (SELECT 1 FROM %1 WHERE %2 AND %3 IS NOT NULL "
                "GROUP BY %4 HAVING count(*) > 1)")
            .arg(m_table, m_condition, columns.join(" IS NOT NULL AND "), columns.join(", ")));
}

bool EqualNames::renamesOneRow() const
{
    return idIsRowId() &&
           holds(QString("NOT EXISTS (SELECT 1 FROM pragma_index_list('%1') AS list, "
                         "pragma_index_info(list.name) AS part "
                         "WHERE list.\"unique\" AND part.name = 'displayName') "
                         "AND NOT EXISTS (SELECT 1 FROM sqlite_master WHERE type = 'trigger' "
                         "AND tbl_name = '%1' COLLATE NOCASE)")
                     .arg(m_table));
}

bool EqualNames::idIsRowId() const
{
    // Every other kind of key has an index of its own.
    return holds(QString("(SELECT group_concat(name) FROM pragma_table_xinfo('%1') "
                         "WHERE pk > 0) = 'id' "
                         "AND NOT EXISTS (SELECT 1 FROM pragma_index_list('%1') "
                         "WHERE origin = 'pk')")
                     .arg(m_table));
}

bool EqualNames::isReadInOrderOfRowIds() const
{
    return holds(QString("NOT EXISTS (SELECT 1 FROM pragma_index_list('%1') AS list, "
                         "pragma_index_info(list.name) AS part "
                         "WHERE list.partial OR part.name IN ('displayName', %2))")
                     .arg(m_table, scopeNames()));
}

QString EqualNames::scopeNames() const
{
    return "'" + m_scopeColumns.join("', '") + "'";
}

void EqualNames::refresh()
{
    if (m_top->m_outdated) {
        m_top->m_everyRow = !m_top->readRows();
        m_top->m_outdated = false;
    }
}

bool EqualNames::readRows()
{
    if (m_children && !m_children->readRows()) {
        return false;
    }
    m_rowsByName.clear();
    m_rowsToVisit.clear();
    const QStringList columns = QStringList({"id", "displayName"}) + m_scopeColumns;
    QSqlQuery rows = forwardOnlyQuery();
    rows.exec(QString("SELECT %1 FROM %2 WHERE %3").arg(columns.join(", "), m_table, m_condition));
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
    return !rows.lastError().isValid();
}

bool EqualNames::forEachRow(
    const QString &select, qint64 parent, const std::function<void(const QSqlQuery &)> &visit)
{
    QSqlQuery rows = forwardOnlyQuery();
    std::optional<qint64> id = nextRow(parent, std::nullopt);
    if (!m_top->m_everyRow && !id) {
        return true;
    }
    if (m_top->m_everyRow || !m_readInOrderOfRowIds) {
        if (!rows.exec(select)) {
            return false;
        }
        for (qint64 rowsMet = 0; rowsMet < limit() && rows.next(); ++rowsMet) {
            visit(rows);
        }
        return true;
    }
    const QString oneRow = select + (m_scopeColumns.isEmpty() ? " WHERE id=%1" : " AND id=%1");
    for (; id; id = nextRow(parent, id)) {
        if (!rows.exec(oneRow.arg(*id))) {
            return false;
        }
        if (rows.next()) {
            visit(rows);
        }
    }
    return true;
}

bool EqualNames::isSuspect(const Scope &scope, const QString &name)
{
    refresh();
    return m_top->m_everyRow || breaksStatements(name) ||
           m_rowsByName.count(keyOf(scope, name)) > 1;
}

QString EqualNames::among(const Scope &scope, const QString &name) const
{
    if (m_top->m_everyRow || !m_readInOrderOfRowIds || breaksStatements(name)) {
        return QString();
    }
    QStringList ids;
    const QList<Row> rows = m_rowsByName.values(keyOf(scope, name));
    for (const Row &row : rows) {
        ids << QString::number(row.id);
    }
    return QString(" AND id IN (%1)").arg(ids.join(","));
}

qint64 EqualNames::limit()
{
    if (!m_limit) {
        m_limit = 2 * countRows("SELECT * FROM " + m_table);
    }
    return *m_limit;
}

bool EqualNames::endBecauseOfDamage()
{
    if (idIsRowId() && isReadInOrderOfRowIds()) {
        m_limit = 0;
    }
    return m_limit == 0;
}

void EqualNames::rowUpdated(
    qint64 id, const Scope &scope, const QString &name, const QString &newName)
{
    if (m_top->m_everyRow) {
        return;
    }
    if (breaksStatements(name)) {
        // There is no telling what such a statement has changed.
        m_top->m_outdated = true;
        return;
    }
    const uint key = keyOf(scope, newName);
    const Row row{id, scope.value(0)};
    if (!m_rowsByName.contains(key, row)) {
        m_rowsByName.insert(key, row);
        visitEquals(key);
    }
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

std::optional<qint64> EqualNames::nextRow(qint64 parent, const std::optional<qint64> &last)
{
    refresh();
    const auto rows = m_rowsToVisit.find(parent);
    if (rows == m_rowsToVisit.end()) {
        return std::nullopt;
    }
    const auto next = last ? rows->upper_bound(*last) : rows->begin();
    return next == rows->end() ? std::nullopt : std::make_optional(*next);
}

#include "maintenance/suspect_rows.h"

#include "schema/statements.h"

#include <QSqlError>

namespace
{
/// Names that SQLite may find equal have the same key, whatever the column's collation is. Names that
/// share a key by chance cost one statement.
uint keyOf(const SuspectRows::Scope &scope, const QString &name)
{
    int end = name.size();
    while (end > 0 && name[end - 1] == ' ') {
        --end;
    }
    return qHash(name.left(end).toLower(), qHashRange(scope.begin(), scope.end()));
}

/// A quote or a NUL ends the statement early: it fails, or it does something of its own. SQLite reads
/// the two other characters as U+FFFD, which makes names equal that are not the same here.
bool breaksStatements(const QString &name)
{
    return name.contains('\'') || name.contains(QChar::Null) || name.contains(QChar(0xfffe)) ||
           name.contains(QChar(0xffff));
}
} // namespace

SuspectRows::SuspectRows(const NameTable &table, SuspectRows *children)
    : m_table(table), m_children(children)
{
    for (SuspectRows *below = m_children; below; below = below->m_children) {
        below->m_top = this;
    }
}

bool SuspectRows::prepare()
{
    bool suspectsFound = false;
    for (const SuspectRows *rows = this; rows; rows = rows->m_children) {
        const QVariant found =
            rows->m_table.canBeGrouped() ? rows->m_table.hasSuspects() : QVariant();
        if (!found.isValid()) {
            // A statement that fails here fails for every row too, and each failure is a line in the
            // log.
            return true;
        }
        suspectsFound = suspectsFound || found.toBool();
    }
    if (suspectsFound && allowsSuspectsOnly()) {
        for (SuspectRows *rows = this; rows; rows = rows->m_children) {
            rows->m_readInOrderOfRowIds = rows->m_table.isReadInOrderOfRowIds();
        }
        m_outdated = true;
    }
    return suspectsFound;
}

bool SuspectRows::allowsSuspectsOnly() const
{
    return m_table.renameChangesOneRow() && (!m_children || m_children->allowsSuspectsOnly());
}

bool SuspectRows::forEachRow(
    const QString &select, qint64 parent, const std::function<void(const QSqlQuery &)> &visit)
{
    refresh();
    if (m_top->m_everyRow) {
        return visitEveryRow(select, visit);
    }
    if (!nextSuspect(parent, std::nullopt)) {
        return true;
    }
    // Where an index decides on the order every row is visited; only suspects look for their equals.
    return m_readInOrderOfRowIds ? visitSuspects(select, parent, visit)
                                 : visitEveryRow(select, visit);
}

bool SuspectRows::visitEveryRow(
    const QString &select, const std::function<void(const QSqlQuery &)> &visit)
{
    QSqlQuery rows = forwardOnlyQuery();
    if (!rows.exec(select)) {
        return false;
    }
    for (qint64 rowsRead = 0; rowsRead < limit() && rows.next(); ++rowsRead) {
        visit(rows);
    }
    return true;
}

bool SuspectRows::visitSuspects(
    const QString &select, qint64 parent, const std::function<void(const QSqlQuery &)> &visit)
{
    const QString oneRow =
        select + (m_table.scopeColumns.isEmpty() ? " WHERE id=%1" : " AND id=%1");
    for (auto id = nextSuspect(parent, std::nullopt); id; id = nextSuspect(parent, id)) {
        QSqlQuery row = forwardOnlyQuery();
        if (!row.exec(oneRow.arg(*id))) {
            return false;
        }
        if (row.next()) {
            visit(row);
        }
    }
    return true;
}

void SuspectRows::refresh()
{
    if (m_top->m_outdated) {
        m_top->m_everyRow = !m_top->readRows();
        m_top->m_outdated = false;
    }
}

bool SuspectRows::readRows()
{
    if (m_children && !m_children->readRows()) {
        return false;
    }
    m_rowsByName.clear();
    m_suspects.clear();
    const QStringList columns = QStringList({"id", "displayName"}) + m_table.scopeColumns;
    QSqlQuery rows = forwardOnlyQuery();
    rows.exec(QString("SELECT %1 FROM %2 WHERE %3")
                  .arg(columns.join(", "), m_table.name, m_table.condition));
    while (rows.next()) {
        const QString name = rows.value(1).toString();
        Scope scope;
        for (int column = 2; column < columns.size(); ++column) {
            scope << rows.value(column).toLongLong();
        }
        const Row row{rows.value(0).toLongLong(), scope.value(0)};
        m_rowsByName.insert(keyOf(scope, name), row);
        if (breaksStatements(name) || (m_children && m_children->m_suspects.contains(row.id))) {
            m_suspects[row.parent].insert(row.id);
        }
    }
    const QList<uint> keys = m_rowsByName.uniqueKeys();
    for (const uint key : keys) {
        addSuspects(key);
    }
    return !rows.lastError().isValid();
}

bool SuspectRows::isSuspect(const Scope &scope, const QString &name)
{
    refresh();
    return m_top->m_everyRow || breaksStatements(name) ||
           m_rowsByName.count(keyOf(scope, name)) > 1;
}

QString SuspectRows::among(const Scope &scope, const QString &name) const
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

qint64 SuspectRows::limit()
{
    if (!m_limit) {
        m_limit = 2 * countRows("SELECT * FROM " + m_table.name);
    }
    return *m_limit;
}

bool SuspectRows::endBecauseOfDamage()
{
    if (m_table.idIsRowId() && m_table.isReadInOrderOfRowIds()) {
        m_limit = 0;
    }
    return m_limit == 0;
}

void SuspectRows::rowUpdated(
    qint64 id, const Scope &scope, const QString &name, const QString &newName)
{
    if (m_top->m_everyRow) {
        return;
    }
    if (breaksStatements(name)) {
        // Such a statement may have changed anything.
        m_top->m_outdated = true;
        return;
    }
    const uint key = keyOf(scope, newName);
    const Row row{id, scope.value(0)};
    if (!m_rowsByName.contains(key, row)) {
        m_rowsByName.insert(key, row);
        addSuspects(key);
    }
}

void SuspectRows::addSuspects(uint key)
{
    const QList<Row> rows = m_rowsByName.values(key);
    if (rows.size() < 2) {
        return;
    }
    for (const Row &row : rows) {
        m_suspects[row.parent].insert(row.id);
    }
}

std::optional<qint64> SuspectRows::nextSuspect(qint64 parent, const std::optional<qint64> &last)
{
    refresh();
    const auto rows = m_suspects.find(parent);
    if (rows == m_suspects.end()) {
        return std::nullopt;
    }
    const auto next = last ? rows->upper_bound(*last) : rows->begin();
    return next == rows->end() ? std::nullopt : std::make_optional(*next);
}

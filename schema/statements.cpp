#include "schema/statements.h"

#include <QSqlError>

#include <algorithm>

bool execute(const QString &sql)
{
    return QSqlQuery().exec(sql);
}

QSqlQuery forwardOnlyQuery()
{
    QSqlQuery query;
    query.setForwardOnly(true);
    return query;
}

bool readToTheEnd(const QSqlQuery &rows)
{
    return !rows.lastError().isValid();
}

qint64 countRows(const QString &select, const QMap<QString, QVariant> &values)
{
    QSqlQuery rows = forwardOnlyQuery();
    rows.prepare(select);
    for (auto value = values.begin(); value != values.end(); ++value) {
        rows.bindValue(value.key(), value.value());
    }
    rows.exec();
    // One by one: a count in SQL would fail where the rows merely break off.
    qint64 rowsRead = 0;
    while (rows.next()) {
        ++rowsRead;
    }
    return rowsRead;
}

LimitedWalk::LimitedWalk()
{
    setForwardOnly(true);
}

bool LimitedWalk::next()
{
    if (m_rowsMet > m_limit || !QSqlQuery::next()) {
        return false;
    }
    if (++m_rowsMet == uncountedRows) {
        m_limit += 2 * countRows(lastQuery(), boundValues());
    }
    return m_rowsMet <= m_limit;
}

bool readToTheEnd(const LimitedWalk &rows)
{
    return rows.m_rowsMet <= rows.m_limit && !rows.lastError().isValid();
}

QVariant firstValue(const QString &sql)
{
    QSqlQuery query = forwardOnlyQuery();
    return query.exec(sql) && query.next() ? query.value(0) : QVariant();
}

bool allSucceeded(std::initializer_list<bool> results)
{
    return std::all_of(results.begin(), results.end(), [](bool succeeded) { return succeeded; });
}

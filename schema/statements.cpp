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

qint64 rowLimit(const QString &table)
{
    // One by one: a count would fail where the walk merely breaks off.
    qint64 rowsRead = 0;
    QSqlQuery rows = forwardOnlyQuery();
    rows.exec(QString("SELECT * FROM %1").arg(table));
    while (rows.next()) {
        ++rowsRead;
    }
    return 2 * rowsRead;
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

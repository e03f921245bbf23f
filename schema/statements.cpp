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

QVariant firstValue(const QString &sql)
{
    QSqlQuery query = forwardOnlyQuery();
    return query.exec(sql) && query.next() ? query.value(0) : QVariant();
}

bool allSucceeded(std::initializer_list<bool> results)
{
    return std::all_of(results.begin(), results.end(), [](bool succeeded) { return succeeded; });
}

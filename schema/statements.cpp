#include "schema/statements.h"

#include <QSqlError>

#include <algorithm>

bool executeQuietly(const QString &sql)
{
    return QSqlQuery().exec(sql);
}

QSqlQuery forwardOnlyQuery()
{
    QSqlQuery query;
    query.setForwardOnly(true);
    return query;
}

bool executeWith(QSqlQuery &query, const QString &sql, const QMap<QString, QVariant> &values)
{
    if (!query.prepare(sql)) {
        return false;
    }
    for (auto value = values.begin(); value != values.end(); ++value) {
        query.bindValue(value.key(), value.value());
    }
    return query.exec();
}

bool readToTheEnd(const QSqlQuery &rows)
{
    return !rows.lastError().isValid();
}

qint64 countRows(const QString &select, const QMap<QString, QVariant> &values)
{
    QSqlQuery rows = forwardOnlyQuery();
    executeWith(rows, select, values);
    // One by one: a count in SQL fails where the reading merely stops early.
    qint64 rowsRead = 0;
    while (rows.next()) {
        ++rowsRead;
    }
    return rowsRead;
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

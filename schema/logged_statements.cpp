#include "app/database_migrator.h"

#include <QSqlError>
#include <QSqlQuery>

bool DatabaseMigrator::executeOrLogFailure(
    const QString &sql, const QString &failureLine, const QString &errorLine)
{
    QSqlQuery query;
    if (query.exec(sql)) {
        return true;
    }
    logMessage(failureLine);
    logMessage(errorLine.arg(query.lastError().text()));
    return false;
}

void DatabaseMigrator::executeOrLogError(const QString &sql)
{
    QSqlQuery query;
    if (!query.exec(sql)) {
        logMessage(query.lastError().text());
    }
}

bool DatabaseMigrator::executeOrLogDatabaseError(const QString &sql, const QString &failure)
{
    QSqlQuery query;
    if (query.exec(sql)) {
        return true;
    }
    logMessage(failure + query.lastError().databaseText());
    return false;
}

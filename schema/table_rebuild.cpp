#include "app/database_migrator.h"
#include "schema/rebuild_statements.h"

#include <QSqlError>
#include <QSqlQuery>

bool DatabaseMigrator::dropColumnSaveParameters(const QString &table, const QString &column)
{
    const TableInfo info = getTableInfo(table);
    const RebuildStatements rebuild = composeRebuild(table, info, column);
    QSqlQuery query;
    // Kept on purpose: the result is ignored. If foreign keys stay on, the DROP cascades.
    query.exec("PRAGMA foreign_keys = OFF");
    // With a structure that was read only in part the table would lose its other columns and keys. If
    // no column could be read the create statement runs and fails, and its error is logged.
    const bool tableRebuilt = info.readError.isEmpty() && query.exec(rebuild.create) &&
                              query.exec(rebuild.copyRows) && query.exec(rebuild.drop) &&
                              query.exec(rebuild.rename);
    if (!tableRebuilt) {
        logMessage(
            QString(
                "DatabaseMigrator::dropColumnSaveParameters - Failed to drop column named %1 to %2")
                .arg(column, table));
        logMessage(QString("DatabaseMigrator::dropColumnSaveParameters - %1")
                       .arg(info.readError.isEmpty() ? query.lastError().text() : info.readError));
    }
    query.exec("PRAGMA foreign_keys = ON");
    return tableRebuilt;
}

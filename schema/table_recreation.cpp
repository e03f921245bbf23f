#include "schema/table_recreation.h"

#include "app/database_migrator.h"
#include "schema/statements.h"

#include <QSqlError>

std::optional<RecreationFailure> recreateTable(
    DatabaseMigrator &migrator, const TableRecreation &recreation)
{
    QSqlQuery query = forwardOnlyQuery();
    if (!query.exec(recreation.rename)) {
        return RecreationFailure{recreation.renameFailure, query.lastError().databaseText()};
    }
    // Kept on purpose: a failure from here to the first row leaves the rows in the renamed table.
    if (!query.exec(recreation.create)) {
        return RecreationFailure{recreation.createFailure, query.lastError().databaseText()};
    }
    if (!query.exec(recreation.select)) {
        return RecreationFailure{recreation.selectFailure, query.lastError().databaseText()};
    }
    std::optional<RecreationFailure> failure;
    while (!failure && query.next()) {
        QSqlQuery insertion;
        if (!insertion.exec(recreation.insert(query))) {
            failure = {recreation.insertFailure, insertion.lastError().databaseText()};
        }
    }
    if (!failure && !readToTheEnd(query)) {
        failure = {recreation.selectFailure, query.lastError().databaseText()};
    }
    // A table that is still being read can be neither dropped nor renamed.
    query.finish();
    if (failure) {
        migrator.dropTable(recreation.table);
        executeQuietly(recreation.renameBack);
        return failure;
    }
    // Kept on purpose: a table that cannot be dropped is no failure.
    migrator.dropTable(recreation.tableAside);
    return std::nullopt;
}

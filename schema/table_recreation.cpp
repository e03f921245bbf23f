#include "schema/table_recreation.h"

#include "app/database_migrator.h"
#include "schema/statements.h"

#include <QSqlError>

std::optional<RecreationFailure> DatabaseMigrator::recreateTable(const TableRecreation &recreation)
{
    QSqlQuery query = forwardOnlyQuery();
    if (!query.exec(recreation.rename)) {
        return RecreationFailure{recreation.renameFailure, query.lastError().databaseText()};
    }
    // Kept on purpose, shipped devices rely on it: from here to the first row a failure leaves the
    // rows in the table aside.
    if (!query.exec(recreation.create)) {
        return RecreationFailure{recreation.createFailure, query.lastError().databaseText()};
    }
    if (!query.exec(recreation.select)) {
        return RecreationFailure{recreation.selectFailure, query.lastError().databaseText()};
    }
    while (query.next()) {
        QSqlQuery insertion;
        if (!insertion.exec(recreation.insert(query))) {
            // The tables are locked against the drop and the rename while one of them is read.
            query.finish();
            dropTable(recreation.table);
            execute(recreation.renameBack);
            return RecreationFailure{
                recreation.insertFailure, insertion.lastError().databaseText()};
        }
    }
    query.finish();
    // Kept on purpose, shipped devices rely on it: a table that cannot be dropped is no failure.
    dropTable(recreation.tableAside);
    return std::nullopt;
}

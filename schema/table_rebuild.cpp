#include "app/database_migrator.h"
#include "schema/foreign_key_clauses.h"

#include <QMap>
#include <QSqlError>
#include <QSqlQuery>

bool DatabaseMigrator::dropColumnSaveParameters(const QString &table, const QString &column)
{
    const TableInfo info = getTableInfo(table);
    QString createStatement = QString("CREATE TABLE %1_temp (").arg(table);
    QString columnList;
    QString primaryKeyClause = "PRIMARY KEY(";
    QMap<int, QString> primaryKeyColumns;

    for (int i = 0; i < info.columnNames.size(); ++i) {
        const QString &name = info.columnNames[i];
        if (name.compare(column, Qt::CaseInsensitive) == 0) {
            continue;
        }
        columnList += name + ",";
        createStatement += name + " " + info.columnTypes[i];
        if (info.notNullFlags[i] == "1") {
            createStatement += " NOT NULL ";
        }
        if (!info.defaultValues[i].isEmpty()) {
            createStatement += " DEFAULT " + info.defaultValues[i];
        }
        if (info.primaryKeyPositions[i] != "0") {
            primaryKeyColumns.insert(info.primaryKeyPositions[i].toInt(), name);
        }
        createStatement += " , ";
    }

    // A key that loses a column in the middle gets an empty name, one that loses them all an empty
    // clause: the database refuses both, so such a table stays as it is.
    for (int position = 1; position <= primaryKeyColumns.size(); ++position) {
        primaryKeyClause += primaryKeyColumns.value(position) + ",";
    }
    if (primaryKeyClause.endsWith(",")) {
        primaryKeyClause.chop(1);
    }
    createStatement += primaryKeyClause + ") ";

    const QString foreignKeys = extractForeignKeys(info.createText, column);
    if (!foreignKeys.isEmpty()) {
        createStatement += ", " + foreignKeys;
        createStatement.chop(1);
    }
    createStatement += ")";
    columnList.chop(1);

    QSqlQuery query;
    // Kept on purpose, shipped devices rely on it: nobody asks whether they are off now. Where they
    // are not, the drop deletes the rows that refer to the table.
    query.exec("PRAGMA foreign_keys = OFF");
    // A structure that was read only in part would cost the table its other columns and keys. Where
    // no column could be read the create statement runs, and its error is the one that is logged.
    const bool tableRebuilt =
        info.readError.isEmpty() && query.exec(createStatement) &&
        query.exec(QString("INSERT INTO %1_temp SELECT %2 FROM %1").arg(table, columnList)) &&
        query.exec(QString("DROP TABLE %1").arg(table)) &&
        query.exec(QString("ALTER TABLE %1_temp RENAME TO %1").arg(table));
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

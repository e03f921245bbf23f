#include "schema/rebuild_statements.h"

#include "schema/foreign_key_clauses.h"

#include <QMap>

RebuildStatements composeRebuild(const QString &table, const TableInfo &info, const QString &column)
{
    QString create = QString("CREATE TABLE %1_temp (").arg(table);
    QString columnList;
    QString primaryKeyClause = "PRIMARY KEY(";
    QMap<int, QString> primaryKeyColumns;

    for (int i = 0; i < info.columnNames.size(); ++i) {
        const QString &name = info.columnNames[i];
        if (name.compare(column, Qt::CaseInsensitive) == 0) {
            continue;
        }
        columnList += name + ",";
        create += name + " " + info.columnTypes[i];
        if (info.notNullFlags[i] == "1") {
            create += " NOT NULL ";
        }
        if (!info.defaultValues[i].isEmpty()) {
            create += " DEFAULT " + info.defaultValues[i];
        }
        if (info.primaryKeyPositions[i] != "0") {
            primaryKeyColumns.insert(info.primaryKeyPositions[i].toInt(), name);
        }
        create += " , ";
    }
    columnList.chop(1);

    // A key that loses a column in the middle gets an empty name. A key that loses them all gets an
    // empty clause. SQLite refuses both, so such a table stays as it is.
    for (int position = 1; position <= primaryKeyColumns.size(); ++position) {
        primaryKeyClause += primaryKeyColumns.value(position) + ",";
    }
    if (primaryKeyClause.endsWith(",")) {
        primaryKeyClause.chop(1);
    }
    create += primaryKeyClause + ") ";

    const QString foreignKeys = extractForeignKeys(info.createText, column);
    if (!foreignKeys.isEmpty()) {
        create += ", " + foreignKeys;
        create.chop(1);
    }
    create += ")";

    return {
        create,
        QString("INSERT INTO %1_temp SELECT %2 FROM %1").arg(table, columnList),
        QString("DROP TABLE %1").arg(table),
        QString("ALTER TABLE %1_temp RENAME TO %1").arg(table),
    };
}

#include "app/database_migrator.h"
#include "schema/statements.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>

bool DatabaseMigrator::tableExists(const QString &table) const
{
    QSqlQuery query = forwardOnlyQuery();
    return query.exec(QString("SELECT name FROM sqlite_master WHERE type='table' AND name='%1'")
                          .arg(table)) &&
           query.next();
}

bool DatabaseMigrator::columnExists(const QString &table, const QString &column) const
{
    QSqlQuery query = forwardOnlyQuery();
    return query.exec(QString("SELECT * FROM %1").arg(table)) &&
           query.record().indexOf(column) >= 0;
}

TableInfo DatabaseMigrator::getTableInfo(const QString &table) const
{
    QSqlQuery query = forwardOnlyQuery();
    QStringList foreignKeyColumns;
    query.exec(QString("PRAGMA foreign_key_list('%1')").arg(table));
    while (query.next()) {
        foreignKeyColumns << query.value(3).toString();
    }
    if (!readToTheEnd(query)) {
        foreignKeyColumns.clear();
    }

    TableInfo info;
    query.exec(QString("PRAGMA table_info('%1')").arg(table));
    while (query.next()) {
        info.columnNames << query.value(1).toString();
        info.columnTypes << query.value(2).toString();
        info.notNullFlags << query.value(3).toString();
        info.defaultValues << query.value(4).toString();
        info.primaryKeyPositions << query.value(5).toString();
    }
    if (!readToTheEnd(query)) {
        const bool readInPart = !info.columnNames.isEmpty();
        info = TableInfo();
        info.readError = readInPart ? query.lastError().text() : QString();
    }
    info.foreignKeyColumns = foreignKeyColumns;

    query.exec(
        QString("SELECT sql FROM (SELECT * FROM sqlite_master) WHERE tbl_name = '%1'").arg(table));
    if (query.next()) {
        info.createText = query.value(0).toString();
    } else if (!readToTheEnd(query) && !info.columnNames.isEmpty()) {
        info.readError = query.lastError().text();
    }
    return info;
}

bool DatabaseMigrator::addColumn(
    const QString &table, const QString &column, const QString &type, const QString &defaultValue)
{
    QString statement = QString("ALTER TABLE %1 ADD COLUMN %2 %3").arg(table, column, type);
    if (!defaultValue.isEmpty()) {
        statement += QString(" NOT NULL DEFAULT(%1)").arg(defaultValue);
    }
    return executeOrLogTwoLines(
        statement,
        QString("DatabaseMigrator::addColumn - Failed to add column named %1 to %2")
            .arg(column, table),
        "DatabaseMigrator::addColumn - %1");
}

bool DatabaseMigrator::addColumnIfNotExists(
    const QString &table, const QString &column, const QString &type, const QString &defaultValue)
{
    if (getTableInfo(table).columnNames.contains(column)) {
        return true;
    }
    QString statement = QString("ALTER TABLE %1 ADD COLUMN %2 %3").arg(table, column, type);
    if (!defaultValue.isEmpty()) {
        // Kept on purpose: unlike addColumn, neither NOT NULL nor parentheses.
        statement += QString(" DEFAULT %1").arg(defaultValue);
    }
    return executeOrLogTwoLines(
        statement,
        QString("DatabaseMigrator::addColumnIfNotExists - Failed to add column named %1 to %2")
            .arg(column, table),
        "DatabaseMigrator::addColumnIfNotExists - %1");
}

bool DatabaseMigrator::setColumnValue(
    const QString &table, const QString &column, const QString &value, const QString &condition)
{
    QString statement = QString("UPDATE %1 SET %2=%3").arg(table, column, value);
    if (!condition.isEmpty()) {
        statement += QString(" WHERE %1").arg(condition);
    }
    return executeOrLogTwoLines(
        statement,
        QString("DatabaseMigrator::setColumnValue - Failed to set column named %1 to %2")
            .arg(column, value),
        "DatabaseMigrator::setColumnValue - %1");
}

bool DatabaseMigrator::dropTable(const QString &table)
{
    return executeOrLogTwoLines(
        QString("DROP TABLE IF EXISTS %1").arg(table),
        QString("DatabaseMigrator::dropTable - Failed to drop table named %1").arg(table),
        "DatabaseMigrator::dropTable - %1");
}

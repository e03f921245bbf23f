#include "maintenance/name_table.h"

#include "schema/statements.h"

namespace
{
bool holds(const QString &condition)
{
    return firstValue("SELECT " + condition).toBool();
}

QString texts(const QStringList &names)
{
    return "'" + names.join("', '") + "'";
}
} // namespace

bool NameTable::canBeGrouped() const
{
    return holds(
        QString("(SELECT encoding FROM pragma_encoding) = 'UTF-8' "
                "AND EXISTS (SELECT 1 FROM pragma_table_list('%1') "
                "WHERE schema = 'main' AND type = 'table') "
                "AND NOT EXISTS (SELECT 1 FROM pragma_table_xinfo('%1') WHERE hidden <> 0) "
                "AND (SELECT count(*) FROM pragma_table_xinfo('%1') WHERE name = 'id' "
                "OR name = 'displayName' AND type NOT LIKE '%INT%' "
                "AND (type LIKE '%CHAR%' OR type LIKE '%TEXT%') "
                "OR name IN (%2) AND type LIKE '%INT%') = 2 + %3")
            .arg(name, texts(scopeColumns), QString::number(scopeColumns.size())));
}

QVariant NameTable::hasSuspects() const
{
    // NULL is equal to nothing.
    const QStringList columns = QStringList("displayName") + scopeColumns;
    return firstValue(
        QString("SELECT EXISTS (SELECT 1 FROM %1 WHERE %2 "
                "AND (instr(displayName, '''') > 0 OR instr(displayName, char(0)) > 0)) "
                "OR EXISTS (SELECT 1 FROM %1 WHERE %2 AND %3 IS NOT NULL "
                "GROUP BY %4 HAVING count(*) > 1)")
            .arg(name, condition, columns.join(" IS NOT NULL AND "), columns.join(", ")));
}

bool NameTable::renameChangesOneRow() const
{
    return idIsRowId() &&
           holds(QString("NOT EXISTS (SELECT 1 FROM pragma_index_list('%1') AS list, "
                         "pragma_index_info(list.name) AS part "
                         "WHERE list.\"unique\" AND part.name = 'displayName') "
                         "AND NOT EXISTS (SELECT 1 FROM sqlite_master WHERE type = 'trigger' "
                         "AND tbl_name = '%1' COLLATE NOCASE)")
                     .arg(name));
}

bool NameTable::isReadInOrderOfRowIds() const
{
    return holds(QString("NOT EXISTS (SELECT 1 FROM pragma_index_list('%1') AS list, "
                         "pragma_index_info(list.name) AS part "
                         "WHERE list.partial OR part.name IN ('displayName', %2))")
                     .arg(name, texts(scopeColumns)));
}

bool NameTable::idIsRowId() const
{
    // Every other kind of key has an index of its own.
    return holds(QString("(SELECT group_concat(name) FROM pragma_table_xinfo('%1') "
                         "WHERE pk > 0) = 'id' "
                         "AND NOT EXISTS (SELECT 1 FROM pragma_index_list('%1') "
                         "WHERE origin = 'pk')")
                     .arg(name));
}

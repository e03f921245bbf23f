#include "guard/verdict/table_walk.h"

namespace
{
void followColumn(
    ColumnWalk &column, const TakenFromTable &taken, int version, const QByteArray &platform)
{
    if (column.droppedBy != 0) {
        return;
    }
    const QByteArray name = column.names.last();
    const auto value = taken.values.constFind(name);
    if (value != taken.values.constEnd() &&
        (value->platform.isEmpty() || value->platform == platform)) {
        column.rules << ColumnWalk::Rule{version, *value};
    }
    if (taken.columnsDropped.contains(name)) {
        column.droppedBy = version;
    } else if (taken.columnsRenamed.contains(name)) {
        column.names << taken.columnsRenamed.value(name);
    }
}
} // namespace

TableWalk followTable(
    const QByteArray &table, const QByteArrayList &columns, const QVector<Step> &steps,
    const VersionTable &versions, const QByteArray &platform)
{
    TableWalk walk;
    walk.names << table;
    for (const QByteArray &column : columns) {
        ColumnWalk columnWalk;
        columnWalk.names << folded(column);
        walk.columns << columnWalk;
    }
    for (const Step &step : steps) {
        const VersionTable::Tables &tables = versions.takenBy(step.version, step.direction);
        const auto taken = tables.constFind(folded(walk.names.last()));
        if (taken == tables.constEnd()) {
            continue;
        }
        if (taken->dropped) {
            walk.droppedBy = step.version;
            break;
        }
        if (!taken->rows.isEmpty()) {
            walk.rules << TableWalk::Rule{step.version, taken->rows};
        }
        for (ColumnWalk &column : walk.columns) {
            followColumn(column, *taken, step.version, platform);
        }
        if (!taken->renamed.isEmpty()) {
            walk.names << taken->renamed;
        }
    }
    return walk;
}

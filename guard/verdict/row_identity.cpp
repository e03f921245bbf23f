#include "guard/verdict/row_identity.h"

#include "guard/verdict/rows_in_order.h"

namespace
{
/// @return the columns in the table after, empty when one is missing
QByteArrayList columnsAfter(
    const QByteArrayList &columns, const TableCase &table, const TableShape &after)
{
    QByteArrayList names;
    for (const QByteArray &column : columns) {
        const int place = placeAfter(table.walk.columns[table.shape.indexOf(column)], after);
        if (place < 0) {
            return {};
        }
        names << quotedName(after.columns[place]);
    }
    return names;
}

/// @return the columns of before that make up the key of after, empty when one is missing
QByteArrayList columnsBefore(
    const QByteArrayList &key, const TableCase &table, const TableShape &after)
{
    QByteArrayList names;
    for (const QByteArray &wanted : key) {
        for (int column = 0; column < table.shape.columns.size(); ++column) {
            const int place = placeAfter(table.walk.columns[column], after);
            if (place >= 0 && folded(after.columns[place]) == folded(wanted)) {
                names << table.shape.columns[column];
                break;
            }
        }
    }
    return names.size() == key.size() ? names : QByteArrayList();
}

/// @return how many rows of before have no row with the same key after; -1 when that cannot be
/// found out
qint64 countLost(const TableCase &table, const RowIdentity &identity)
{
    RowsInOrder before(table.before, table.name, identity.before, {"1"}, {});
    RowsInOrder after(table.after, table.nameAfter, identity.after, {"1"}, {});
    qint64 lost = 0;
    after.next();
    while (before.next()) {
        while (after.hasRow() && before.compareKey(after) > 0) {
            after.next();
        }
        if (after.hasRow() && before.compareKey(after) == 0) {
            after.next();
        } else {
            ++lost;
        }
    }
    return before.isComplete() ? lost : -1;
}
} // namespace

std::optional<RowIdentity> rowIdentity(const TableCase &table)
{
    const std::optional<TableShape> after = table.after.shape(table.nameAfter);
    if (!after) {
        return std::nullopt;
    }
    RowIdentity identity;
    QByteArrayList key = table.shape.key;
    identity.after = columnsAfter(key, table, *after);
    if (identity.after.isEmpty()) {
        key = columnsBefore(after->key, table, *after);
        identity.after = columnsAfter(key, table, *after);
    }
    const bool haveRowids = !table.shape.rowid.isEmpty() && !after->rowid.isEmpty();
    if (haveRowids) {
        identity.tieBreakerBefore = table.shape.rowid;
        identity.tieBreakerAfter = after->rowid;
    }
    if (identity.after.isEmpty()) {
        // If nothing identifies the rows, only their number is compared.
        identity.before = haveRowids ? QByteArrayList{table.shape.rowid} : QByteArrayList{"1"};
        identity.after = haveRowids ? QByteArrayList{after->rowid} : QByteArrayList{"1"};
        return identity;
    }
    RowIdentity rewritten = identity;
    bool isRewritten = false;
    for (const QByteArray &column : key) {
        identity.before << quotedName(column);
        rewritten.before << quotedName(column);
        for (const ColumnWalk::Rule &rule : table.walk.columns[table.shape.indexOf(column)].rules) {
            // Without an expression this is "()", which cannot be prepared.
            const QByteArray becomes = '(' + rule.value.becomes + ')';
            if (table.before.canPrepare("SELECT " + becomes + " FROM " + quotedName(table.name))) {
                rewritten.before.last() = becomes;
                isRewritten = true;
            }
        }
    }
    // The keys are as they were if the step failed.
    return isRewritten && countLost(table, rewritten) <= countLost(table, identity) ? rewritten
                                                                                    : identity;
}

QByteArrayList ownKey(const TableShape &shape)
{
    QByteArrayList key;
    for (const QByteArray &column : shape.key) {
        key << quotedName(column);
    }
    if (key.isEmpty()) {
        // If columns use all names of the row id, nothing identifies the rows.
        key << (shape.rowid.isEmpty() ? QByteArray("1") : shape.rowid);
    }
    return key;
}

int placeAfter(const ColumnWalk &column, const TableShape &after)
{
    // If a step failed, the column has an earlier name.
    for (auto name = column.names.crbegin(); name != column.names.crend(); ++name) {
        const int place = after.indexOf(*name);
        if (place >= 0) {
            return place;
        }
    }
    return -1;
}

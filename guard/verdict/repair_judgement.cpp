#include "guard/verdict/repair_judgement.h"

#include "guard/verdict/row_identity.h"
#include "guard/verdict/rows_in_order.h"

#include <memory>

namespace
{
/// Skips the rows before a row, and that row.
/// @return whether the row is there
bool take(RowsInOrder &rows, const RowsInOrder &row)
{
    while (rows.hasRow() && row.compareKey(rows) > 0) {
        rows.next();
    }
    const bool hasIt = rows.hasRow() && row.compareKey(rows) == 0;
    if (hasIt) {
        rows.next();
    }
    return hasIt;
}
} // namespace

Unreadable judgeRepairs(
    const TableCase &table, const JudgedDatabase &original, const RepairedCopy &repaired,
    FoundRepairs &found, TableNumbers &numbers, RowKeeper &keeper)
{
    const auto touched = repaired.touched().value(folded(table.name));
    if (!touched.hasLostRows && !table.shape.rowid.isEmpty()) {
        return Unreadable::No;
    }
    const bool isGone = table.nameAfter.isNull();
    RowIdentity identity = {ownKey(table.shape), {}, {}, {}};
    if (!isGone) {
        identity = rowIdentity(table).value_or(identity);
    }
    const QByteArray rowid = table.shape.rowid.isEmpty() ? QByteArray("0") : table.shape.rowid;
    RowsInOrder before(original, table.name, identity.before, {rowid}, identity.tieBreakerBefore);
    RowsInOrder kept(table.before, table.name, identity.before, {rowid}, identity.tieBreakerBefore);
    std::unique_ptr<RowsInOrder> after;
    if (!isGone) {
        after = std::make_unique<RowsInOrder>(
            table.after,
            table.nameAfter,
            identity.after,
            QByteArrayList{"1"},
            identity.tieBreakerAfter);
        after->next();
    }
    Finding violations;
    violations.kind = "violations-removed";
    violations.object = table.name;
    qint64 rowsBefore = 0;
    kept.next();
    while (before.next()) {
        ++rowsBefore;
        const bool isKept = take(kept, before);
        const bool isAfter = after && take(*after, before);
        if (isKept) {
            continue;
        }
        if (isAfter) {
            // The program could not remove the row.
            --numbers.rowsNew;
            continue;
        }
        ++numbers.rowsGone;
        const qint64 number = sqlite3_column_int64(before.row(), before.place(0));
        Finding &finding = touched.orphans.contains(number) ? found.orphans : violations;
        ++finding.numbers["rows"];
        keeper.keep(finding, {table.name, before.keyText(), {}, {}});
    }
    numbers.rowsBefore = rowsBefore;
    if (violations.numbers.value("rows") > 0) {
        found.violations = violations;
    }
    return before.isComplete() ? Unreadable::No : Unreadable::Before;
}

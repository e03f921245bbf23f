#include "guard/known_copies.h"

namespace
{
Direction oppositeOf(Direction direction)
{
    return direction == Direction::Forward ? Direction::Backward : Direction::Forward;
}

QByteArrayList droppedTables(const VersionTable::Tables &tables)
{
    QByteArrayList dropped;
    for (auto table = tables.begin(); table != tables.end(); ++table) {
        if (table->dropped) {
            dropped << table.key();
        }
    }
    return dropped;
}

/// Adds the names of the tables that hold these rows in versions without the table.
void addOtherPlaces(KnownCopy &copy, const VersionTable &versions)
{
    for (int version = 1; version <= versions.newest(); ++version) {
        for (const Direction direction : {Direction::Forward, Direction::Backward}) {
            const TakenFromTable taken =
                versions.takenBy(version, direction).value(folded(copy.table));
            if (!taken.renamed.isEmpty() && direction == Direction::Forward) {
                copy.renames.append({version, copy.table, taken.renamed});
            } else if (!taken.renamed.isEmpty()) {
                copy.renames.append({version, taken.renamed, copy.table});
            }
            if (taken.dropped) {
                copy.inItsPlace += droppedTables(versions.takenBy(version, oppositeOf(direction)));
            }
        }
    }
}
} // namespace

QByteArrayList KnownCopy::names() const
{
    QByteArrayList all = {table};
    for (const RenamedTable &rename : renames) {
        all << rename.before << rename.after;
    }
    return all;
}

QByteArray KnownCopy::nameAt(std::optional<qint64> version) const
{
    for (const RenamedTable &rename : renames) {
        if (version) {
            return *version < rename.version ? rename.before : rename.after;
        }
    }
    return table;
}

QVector<KnownCopy> knownCopies(const VersionTable &versions)
{
    QVector<KnownCopy> copies;
    for (const CopyOfTable &entry : versions.copies()) {
        KnownCopy copy;
        copy.name = entry.name;
        copy.table = entry.table;
        for (const auto &[version, direction] : entry.steps) {
            copy.steps << versions.takenBy(version, direction).value(folded(entry.table));
        }
        addOtherPlaces(copy, versions);
        for (const CopyOfTable &other : versions.copies()) {
            if (other.name != entry.name && folded(other.table) == folded(entry.table)) {
                copy.otherCopies << other.name;
            }
        }
        copies << copy;
    }
    return copies;
}

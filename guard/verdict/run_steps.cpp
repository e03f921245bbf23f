#include "guard/verdict/run_steps.h"

#include <algorithm>

namespace
{
/// There is no step to it.
constexpr int oldestVersion = 1;

/// @return whether an earlier step of the run makes a table: its way back takes it away, or it
/// gives the name to another one
bool isMadeBefore(
    const Step &step, const QByteArray &table, const QVector<Step> &steps,
    const VersionTable &versions)
{
    for (const Step &earlier : steps) {
        if (earlier.version == step.version && earlier.direction == step.direction) {
            break;
        }
        const bool isForward = earlier.direction == Direction::Forward;
        const VersionTable::Tables &back =
            versions.takenBy(earlier.version, isForward ? Direction::Backward : Direction::Forward);
        if (back.value(table).dropped) {
            return true;
        }
        for (const TakenFromTable &taken : versions.takenBy(earlier.version, earlier.direction)) {
            if (folded(taken.renamed) == table) {
                return true;
            }
        }
    }
    return false;
}
} // namespace

QVector<Step> stepsOfRun(
    std::optional<int> recorded, int target, const QVector<int> &reapplied,
    const VersionTable &versions)
{
    QVector<Step> steps;
    for (const int version : reapplied) {
        steps << Step{version, Direction::Forward};
    }
    // The program has no steps beyond the newest version that it knows.
    const int newest = versions.newest() > 0 ? versions.newest() : VersionTable::mostVersions;
    const int from = std::clamp(recorded.value_or(0), oldestVersion, newest);
    const int last = std::clamp(target, oldestVersion, newest);
    for (int version = from + 1; version <= last; ++version) {
        steps << Step{version, Direction::Forward};
    }
    for (int version = from; version > last; --version) {
        steps << Step{version, Direction::Backward};
    }
    return steps;
}

bool lackedTable(
    int version, const QVector<Step> &steps, const QSet<QByteArray> &tables,
    const VersionTable &versions)
{
    const auto step = std::find_if(
        steps.rbegin(), steps.rend(), [&](const Step &made) { return made.version == version; });
    if (step == steps.rend()) {
        return false;
    }
    // On the way back nothing needs what it drops.
    if (step->direction == Direction::Backward) {
        return false;
    }
    const VersionTable::Tables &taken = versions.takenBy(version, step->direction);
    for (auto table = taken.begin(); table != taken.end(); ++table) {
        const bool isTaken = table->dropped || !table->renamed.isEmpty();
        if (isTaken && !tables.contains(table.key()) &&
            !isMadeBefore(*step, table.key(), steps, versions)) {
            return true;
        }
    }
    return false;
}

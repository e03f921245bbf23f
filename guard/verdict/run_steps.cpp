#include "guard/verdict/run_steps.h"

#include <algorithm>

namespace
{
/// No step leads to this version.
constexpr int oldestVersion = 1;

/// @return the tables that a step forward makes: those that its way back drops, and those that it
/// renames another table to
QSet<QByteArray> tablesMadeBy(int version, const VersionTable &versions)
{
    QSet<QByteArray> made;
    const VersionTable::Tables &back = versions.takenBy(version, Direction::Backward);
    for (auto table = back.begin(); table != back.end(); ++table) {
        if (table->dropped) {
            made << table.key();
        }
    }
    for (const TakenFromTable &taken : versions.takenBy(version, Direction::Forward)) {
        if (!taken.renamed.isEmpty()) {
            made << folded(taken.renamed);
        }
    }
    return made;
}
} // namespace

QVector<Step> stepsOfRun(
    std::optional<int> recorded, std::optional<int> reached, int target, const StepsInLog &log,
    const VersionTable &versions)
{
    QVector<Step> steps;
    for (const int version : log.reapplied) {
        steps << Step{version, Direction::Forward};
    }
    // The program has no step beyond its newest version. The table can be older than the program.
    const int known = versions.newest() > 0 ? versions.newest() : VersionTable::mostVersions;
    const int newest = std::min(
        std::max({known, reached.value_or(0), log.lastClosed}), VersionTable::mostVersions);
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

QSet<int> stepsThatLackTables(
    const QVector<Step> &steps, const StepsInLog &log, const QSet<QByteArray> &tables,
    const VersionTable &versions)
{
    QSet<QByteArray> available = tables;
    QSet<int> lacking;
    for (const Step &step : steps) {
        if (step.direction == Direction::Backward) {
            continue;
        }
        const QByteArrayList needs = versions.neededBy(step.version);
        const bool lacksTable =
            std::any_of(needs.begin(), needs.end(), [&](const QByteArray &table) {
                return !available.contains(table);
            });
        if (lacksTable && log.failed.contains(step.version)) {
            lacking << step.version;
        } else if (!log.failedAgain.contains(step.version)) {
            available += tablesMadeBy(step.version, versions);
        }
    }
    return lacking;
}

QVector<Finding> findingsOnSteps(const StepsInLog &log, const QSet<int> &lacking)
{
    QVector<Finding> found;
    const auto add = [&found](const QByteArray &kind, const QByteArray &object, bool before) {
        Finding finding;
        finding.kind = kind;
        finding.object = object;
        finding.before = before;
        found << finding;
    };
    QList<int> failed = (log.failed + log.failedAgain).values();
    std::sort(failed.begin(), failed.end());
    for (const int version : failed) {
        // If a version could not be applied again, its change was not there before either.
        const bool before = !log.failed.contains(version) || lacking.contains(version);
        add("step-failed", QByteArray::number(version), before);
    }
    if (log.unknownFailed) {
        add("step-failed", "unknown", false);
    }
    for (const int version : log.reapplied) {
        add("reapplied", QByteArray::number(version), false);
    }
    return found;
}

#include "guard/result_verdict.h"
#include "guard/limits.h"
#include "guard/regular_file.h"
#include "guard/verdict/run_steps.h"

#include <algorithm>

namespace
{
/// @return a version for the verdict; a number that no program's version can have is clamped
std::optional<int> judgedVersion(const RecordedVersion &version)
{
    if (!version.number) {
        return std::nullopt;
    }
    return static_cast<int>(std::clamp<qint64>(*version.number, 0, limits::largestVersion));
}

Finding findingOf(const Mending &mending)
{
    Finding finding;
    finding.kind = "mended";
    finding.object = mending.copy;
    finding.mending = mendingCode(mending.kind);
    finding.table = mending.table;
    finding.numbers = {{"rows", mending.rowsOfCopy}, {"rowsReturned", mending.rowsReturned}};
    return finding;
}

/// A copy that mending left alone was there before the run. This adds the finding even if the run
/// has changed nothing and the verdict did not look for copies.
void addLeftAlone(const Mending &mending, QVector<Finding> *findings)
{
    auto found = std::find_if(findings->begin(), findings->end(), [&](const Finding &finding) {
        return finding.kind == "left-behind" && folded(finding.object) == folded(mending.copy);
    });
    if (found == findings->end()) {
        Finding finding;
        finding.kind = "left-behind";
        finding.object = mending.copy;
        finding.numbers = {{"rows", mending.rowsOfCopy}};
        finding.before = true;
        found = findings->insert(findings->end(), finding);
    }
    // SQLite's words can contain values, so they are in `detail`, which not every reader may see.
    found->detail = mending.reason;
}

/// Adds that an earlier direct run was cut. If that counts, it is the reason of this run.
void addCutDirectRun(const MigrationOptions &options, QVector<Finding> *findings)
{
    Finding finding = findings::directRunCut();
    finding.accepted = options.acceptedCodes.contains(finding.code());
    findings->insert(finding.counts() ? 0 : findings->size(), finding);
}

/// @param from the recorded version before
/// @param reached the recorded version after, nothing when it is not known
QVector<Finding> findingsOnSteps(
    const DevicePaths &device, int from, std::optional<int> reached, int target,
    const DirectResult &result)
{
    const VersionTable versions(device.knownVersions);
    const StepsInLog log = readSteps(result.log, from, target, versions);
    QSet<int> lacking;
    if (result.tablesBefore) {
        const QVector<Step> steps = stepsOfRun(from, reached, target, log, versions);
        lacking = stepsThatLackTables(steps, log, *result.tablesBefore, versions);
    }
    return findingsOnSteps(log, lacking);
}
} // namespace

Verdict judgeResult(
    const DevicePaths &device, const MigrationOptions &options, const RunRecord &record,
    const StagedResult &result, const DatabaseDifferences &differences)
{
    const VersionTable versions(device.knownVersions);
    RunToJudge run;
    run.before = result.before;
    run.after = result.after;
    run.from = judgedVersion(record.from);
    run.to = judgedVersion(record.to);
    run.target = options.target;
    run.log = result.log;
    run.platform = firstLineOfSmallFile(device.platform, limits::largestPlatform).toUtf8();
    for (const QString &script : versions.everyRun().scripts) {
        run.scripts << readSmallFile(device.references + '/' + script, limits::largestScript)
                           .value_or(QByteArray());
    }
    run.acceptedCodes = options.acceptedCodes;
    run.scratchDirectory = result.scratchDirectory;
    Verdict verdict = judge(run, differences, versions);
    if (record.followsCutDirectRun) {
        addCutDirectRun(options, &verdict.findings);
    }
    for (const Mending &mending : result.mendings) {
        if (mending.kind == MendingKind::OnlyReported) {
            addLeftAlone(mending, &verdict.findings);
        } else {
            verdict.findings << findingOf(mending);
        }
    }
    return verdict;
}

std::optional<QSet<QByteArray>> tableNames(const SqliteConnection &connection)
{
    SqliteStatement names(connection, "SELECT name FROM sqlite_schema WHERE type = 'table'");
    QSet<QByteArray> tables;
    while (names.step()) {
        tables << folded(names.text(0));
    }
    return names.result() == SQLITE_DONE ? std::optional<QSet<QByteArray>>(tables) : std::nullopt;
}

Verdict judgeDirectRun(
    const DevicePaths &device, const MigrationOptions &options, const RunRecord &record,
    const DirectResult &result)
{
    Verdict verdict;
    verdict.from = judgedVersion(record.from);
    verdict.to = judgedVersion(record.to);
    verdict.target = options.target;
    verdict.findings << findings::direct(result.reason.toLatin1());
    // A database that the program has just made records no version.
    if (record.to.isKnown && result.reason != "no-database" && verdict.to != verdict.target) {
        verdict.findings << findings::targetMissed(verdict.to, verdict.target);
    }
    // If no version was recorded, the log does not show which steps the run should have made.
    if (verdict.from && tellsOfRun(result.log)) {
        verdict.findings +=
            findingsOnSteps(device, *verdict.from, verdict.to, verdict.target, result);
    }
    if (record.followsCutDirectRun) {
        verdict.findings << findings::directRunCut();
    }
    for (Finding &finding : verdict.findings) {
        finding.accepted = options.acceptedCodes.contains(finding.code());
    }
    return verdict;
}

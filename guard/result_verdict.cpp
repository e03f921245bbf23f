#include "guard/result_verdict.h"
#include "guard/limits.h"
#include "guard/regular_file.h"

#include <algorithm>

namespace
{
/// @return a version as the verdict takes it: what is no version of any program's is cut
std::optional<int> judgedVersion(const RecordedVersion &version)
{
    if (!version.number) {
        return std::nullopt;
    }
    return static_cast<int>(std::clamp<qint64>(*version.number, 0, limits::largestVersion));
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
    const QByteArray platform =
        readSmallFile(device.platform, limits::largestPlatform).value_or(QByteArray());
    run.platform = platform.left(platform.indexOf('\n'));
    for (const QString &script : versions.everyRun().scripts) {
        run.scripts << readSmallFile(device.references + '/' + script, limits::largestScript)
                           .value_or(QByteArray());
    }
    run.acceptedCodes = options.acceptedCodes;
    run.scratchDirectory = result.scratchDirectory;
    return judge(run, differences, versions);
}

Verdict judgeDirectRun(
    const MigrationOptions &options, const RunRecord &record, const QString &reason)
{
    Verdict verdict;
    verdict.from = judgedVersion(record.from);
    verdict.to = judgedVersion(record.to);
    verdict.target = options.target;
    Finding finding = findings::direct(reason.toLatin1());
    finding.accepted = options.acceptedCodes.contains(finding.code());
    verdict.findings << finding;
    // What the program makes where there was no database records no version.
    if (record.to.isKnown && reason != "no-database" && verdict.to != verdict.target) {
        Finding missed = findings::targetMissed(verdict.to, verdict.target);
        missed.accepted = options.acceptedCodes.contains(missed.code());
        verdict.findings << missed;
    }
    return verdict;
}

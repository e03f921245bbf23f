#include "guard/refusals.h"
#include "guard/known_versions.h"

#include <algorithm>
#include <limits>

namespace refusals
{
namespace
{
/// The compile options do not show this reliably; a statement does.
bool libraryRefusesTexts()
{
    SqliteConnection connection;
    if (connection.open(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY) != SQLITE_OK) {
        return false;
    }
    const SqliteStatement query(connection, "SELECT \"text\"");
    return query.result() != SQLITE_OK && connection.errorText() == "no such column: text";
}

void endWith(const Finding &finding, RunRecord *record)
{
    record->endUnchanged(QString::fromLatin1(finding.kind));
    Verdict verdict;
    verdict.target = record->target.value_or(0);
    verdict.findings << finding;
    record->verdict = verdict;
}

int asNumber(qint64 version)
{
    return static_cast<int>(std::min<qint64>(version, std::numeric_limits<int>::max()));
}
} // namespace

const char *const newerThanProgram = "newer-than-program";

bool isNewerThanProgram(const DevicePaths &device, const RecordedVersion &version)
{
    const std::optional<int> newest = newestKnownVersion(device.knownVersions);
    return newest && version.number && *version.number > *newest;
}

bool endIfNewer(const DevicePaths &device, RunRecord *record)
{
    if (!isNewerThanProgram(device, record->from)) {
        return false;
    }
    const int recorded = asNumber(*record->from.number);
    endWith(
        findings::newerThanProgram(recorded, newestKnownVersion(device.knownVersions).value_or(0)),
        record);
    record->verdict->from = recorded;
    record->verdict->to = recorded;
    return true;
}

bool endIfLibraryIsUnfit(RunRecord *record)
{
    if (!libraryRefusesTexts()) {
        return false;
    }
    endWith(findings::libraryUnfit(), record);
    return true;
}
} // namespace refusals

#include "guard/refusals.h"
#include "guard/known_versions.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace refusals
{
namespace
{
/// Something that the guard's statements use.
struct Need {
    const char *name;
    const char *statement; ///< can be prepared only if the library has it
};

/// Without one of these a statement of the guard fails, so its table counts as unreadable, and what
/// it has lost is not seen. A library may be too old (3.33 is the first with sqlite_schema), or
/// built without one: a version number does not show that.
constexpr Need needs[] = {
    {"sqlite_schema", "SELECT name FROM main.sqlite_schema"},
    {"pragma_table_info", "SELECT name FROM pragma_table_info('t', 'main')"},
    {"pragma_table_xinfo", "SELECT hidden FROM pragma_table_xinfo('t', 'main')"},
    {"pragma_index_list", "SELECT partial FROM pragma_index_list('t')"},
    {"pragma_index_xinfo", "SELECT cid FROM pragma_index_xinfo('i')"},
    {"pragma_quick_check", "SELECT * FROM pragma_quick_check"},
    {"pragma_foreign_key_check", "SELECT rowid FROM pragma_foreign_key_check"},
    {"row_number", "SELECT row_number() OVER (PARTITION BY 1)"},
    {"EXCEPT", "SELECT 1 EXCEPT SELECT 2"},
};

/// A connection to an empty database, to ask the library what it can do. The compile options do not
/// show this reliably; a statement does.
class LibraryCheck
{
public:
    LibraryCheck() { m_connection.open(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY); }

    /// @return the first need that the library does not meet, nothing when it meets all
    const Need *missing() const
    {
        const auto *const found =
            std::find_if(std::begin(needs), std::end(needs), [this](const Need &need) {
                return refuses(need.statement);
            });
        return found == std::end(needs) ? nullptr : found;
    }

    bool refusesTexts() const { return refuses("SELECT \"text\""); }

private:
    /// Any other error, such as no memory, says nothing about the library. The error's words depend
    /// on the version.
    bool refuses(const char *statement) const
    {
        return SqliteStatement(m_connection, statement).result() == SQLITE_ERROR;
    }

    SqliteConnection m_connection;
};

QString detailOf(const Need &need)
{
    return QString("no %1").arg(need.name);
}

void endWith(const Finding &finding, RunRecord *record, const QString &detail = QString())
{
    record->endUnchanged(QString::fromLatin1(finding.kind), detail);
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
    const LibraryCheck library;
    if (const Need *missing = library.missing()) {
        endWith(findings::libraryUnfit(missing->name), record, detailOf(*missing));
        return true;
    }
    if (library.refusesTexts()) {
        endWith(findings::libraryUnfit(QByteArray()), record);
        return true;
    }
    return false;
}

bool endIfLibraryLacksNeeds(RunRecord *record)
{
    const Need *missing = LibraryCheck().missing();
    if (!missing) {
        return false;
    }
    record->endUnchanged("library-unfit", detailOf(*missing));
    return true;
}
} // namespace refusals

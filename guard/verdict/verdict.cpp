#include "guard/verdict/verdict.h"

#include "guard/stored_schema.h"
#include "guard/verdict/repair_judgement.h"
#include "guard/verdict/row_identity.h"
#include "guard/verdict/rows_in_order.h"
#include "guard/verdict/run_steps.h"
#include "guard/verdict/script_words.h"
#include "guard/verdict/steps_in_log.h"

#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>

namespace
{
constexpr int format = 1;

/// How many of SQLite's instructions a verdict may take: this many for each byte of the two files,
/// and a fixed number for small databases. Sound databases of farms need less than a tenth.
constexpr qint64 instructionsPerByte = 20;
constexpr qint64 fixedInstructions = 50'000'000;

/// @return the table's part of a copy's name, null when the name is not a copy's
QByteArray tableOfCopy(const QByteArray &name)
{
    for (const char *suffix : {"_temp", "_old"}) {
        if (name.endsWith(suffix)) {
            return name.chopped(static_cast<int>(qstrlen(suffix)));
        }
    }
    return {};
}

qint64 countRows(const JudgedDatabase &database, const QByteArray &table)
{
    SqliteStatement count(
        database.connection(), "SELECT count(*) FROM " + quotedName(table) + " NOT INDEXED");
    return count.step() ? sqlite3_column_int64(count.handle(), 0) : 0;
}

/// @return SQLite's first report of damage, empty when there is none
QString damageOf(const JudgedDatabase &database)
{
    SqliteStatement off(database.connection(), "PRAGMA ignore_check_constraints = ON");
    off.step();
    // Unused pages that SQLite reports are ignored: they hold nothing. SQLite does not look for
    // them when its list of tables begins with a view, so a run that only changes that order would
    // seem to cause damage. It reports them before it looks at rows, so the limit is high.
    for (const QByteArray &statement : statementsOfCheck(
             database.connection(), "quick_check", "(1000000)", database.computed().tables())) {
        SqliteStatement check(database.connection(), statement);
        while (check.step()) {
            for (const QByteArray &line : check.text(0).split('\n')) {
                if (line != "ok" && !line.startsWith("*** in database ") &&
                    !line.endsWith(" is never used")) {
                    return QString::fromUtf8(line);
                }
            }
        }
        if (check.result() != SQLITE_DONE && check.result() != SQLITE_INTERRUPT) {
            return database.connection().errorText();
        }
    }
    return {};
}

class Judge
{
public:
    Judge(const RunToJudge &run, const VersionTable &versions)
        : m_run(run), m_versions(versions),
          m_log(readSteps(run.log, run.from.value_or(0), run.target, versions)),
          m_steps(stepsOfRun(run.from, run.to, run.target, m_log, versions)),
          m_budget(
              fixedInstructions +
              instructionsPerByte * (QFileInfo(run.before).size() + QFileInfo(run.after).size()))
    {
        m_verdict.from = run.from;
        m_verdict.to = run.to;
        m_verdict.target = run.target;
        for (const Step &step : m_steps) {
            if (!versions.knows(step.version) &&
                !m_verdict.unknownVersions.contains(step.version)) {
                m_verdict.unknownVersions << step.version;
            }
        }
    }

    Verdict judge(const DatabaseDifferences &differences)
    {
        const DatabaseFile fileBefore(m_run.before);
        const auto schemaBefore = readStoredSchema(fileBefore);
        noteTables(schemaBefore, m_tablesBefore);
        judgeLog();
        if (!differences.isEmpty()) {
            const DatabaseFile fileAfter(m_run.after);
            const auto schemaAfter = readStoredSchema(fileAfter);
            if (!schemaBefore || !schemaAfter) {
                addUnreadable({}, !schemaBefore);
            } else {
                noteTables(schemaAfter, m_tablesAfter);
                judgeContents(*schemaBefore, differences);
            }
        }
        for (Finding &finding : m_verdict.findings) {
            finding.accepted = m_run.acceptedCodes.contains(finding.code());
        }
        std::stable_partition(
            m_verdict.findings.begin(), m_verdict.findings.end(), [](const Finding &finding) {
                return finding.counts();
            });
        return m_verdict;
    }

private:
    static void noteTables(
        const std::optional<QVector<StoredObject>> &schema, QHash<QByteArray, QByteArray> &tables)
    {
        for (const StoredObject &stored : schema.value_or(QVector<StoredObject>())) {
            if (stored.object.type == "table") {
                tables.insert(folded(stored.object.name), stored.object.name);
            }
        }
    }

    Finding &add(const QByteArray &kind, const QByteArray &object = {})
    {
        Finding finding;
        finding.kind = kind;
        finding.object = object;
        m_verdict.findings << finding;
        return m_verdict.findings.last();
    }

    void addUnreadable(const QByteArray &table, bool before)
    {
        Finding &finding = add("unreadable", table);
        // A table that takes too much work does not count against this run.
        finding.before = before || m_budget.isSpent();
        finding.detail = m_budget.isSpent() ? QString("too much work") : QString();
    }

    void judgeLog()
    {
        if (m_run.to != m_run.target) {
            m_verdict.findings << findings::targetMissed(m_run.to, m_run.target);
        }
        const QList<QByteArray> names = m_tablesBefore.keys();
        const QSet<int> lacking = stepsThatLackTables(
            m_steps, m_log, QSet<QByteArray>(names.begin(), names.end()), m_versions);
        m_verdict.findings += findingsOnSteps(m_log, lacking);
    }

    void judgeContents(
        const QVector<StoredObject> &schemaBefore, const DatabaseDifferences &differences)
    {
        const JudgedDatabase before(m_run.before, m_budget);
        const JudgedDatabase after(m_run.after, m_budget);
        const RepairedCopy repaired(
            before, m_run.before, m_run.scratchDirectory, m_versions.everyRun(), m_budget);
        if (repaired.hasFailed()) {
            m_verdict.lackedRoom = true;
            return;
        }
        std::unique_ptr<JudgedDatabase> base;
        if (repaired.isMade()) {
            base = std::make_unique<JudgedDatabase>(repaired.path(), m_budget);
        }
        judgeDamage(before, after);
        judgeCopies(after);

        QSet<QByteArray> differing(differences.tables.begin(), differences.tables.end());
        for (const SchemaObject &object : differences.objectsOnlyBefore) {
            if (object.type == "table") {
                differing << object.name;
            }
        }
        m_scriptWords = wordsOfChangingStatements(m_run.scripts);
        for (const StoredObject &stored : schemaBefore) {
            const SchemaObject &object = stored.object;
            const bool isData = object.type == "table" && stored.rootPage != 0 &&
                                !folded(object.name).startsWith("sqlite_");
            if (isData && differing.contains(object.name)) {
                judgeOne(object.name, before, base ? *base : before, after, repaired);
            }
        }
        if (m_orphans.numbers.value("rows") > 0) {
            m_verdict.findings << m_orphans;
        }
    }

    void judgeDamage(const JudgedDatabase &before, const JudgedDatabase &after)
    {
        const QString damage = damageOf(after);
        if (!damage.isEmpty()) {
            Finding &finding = add("damaged");
            finding.before = !damageOf(before).isEmpty();
            finding.detail = damage;
        }
    }

    void judgeCopies(const JudgedDatabase &after)
    {
        QList<QByteArray> names = m_tablesAfter.keys();
        std::sort(names.begin(), names.end());
        for (const QByteArray &name : names) {
            const QByteArray table = tableOfCopy(name);
            if (table.isEmpty() ||
                !(m_tablesBefore.contains(table) || m_tablesAfter.contains(table))) {
                continue;
            }
            const QByteArray asWritten = m_tablesAfter.value(name);
            Finding &finding = add("left-behind", asWritten);
            finding.numbers.insert("rows", countRows(after, asWritten));
            finding.before = m_tablesBefore.contains(name);
        }
    }

    void judgeOne(
        const QByteArray &name, const JudgedDatabase &before, const JudgedDatabase &base,
        const JudgedDatabase &after, const RepairedCopy &repaired)
    {
        const std::optional<TableShape> shape = base.shape(name);
        if (!shape) {
            addUnreadable(name, true);
            return;
        }
        TableCase table = {name, {}, base, after, {}, *shape, {}, {}, false, false};
        table.walk = followTable(name, shape->columns, m_steps, m_versions, m_run.platform);
        for (const QByteArray &later : table.walk.names) {
            table.nameAfter = m_tablesAfter.value(folded(later), table.nameAfter);
        }
        const VersionTable::EveryRun &everyRun = m_versions.everyRun();
        table.uniqueNames = everyRun.names.value(folded(name));
        table.ownColumns = everyRun.values.value(folded(name));
        table.isNamedByScript = m_scriptWords.contains(folded(table.walk.names.last()));
        table.hasUnknownVersion = !m_verdict.unknownVersions.isEmpty();

        QVector<Finding> found;
        TableNumbers numbers;
        numbers.name = name;
        Unreadable end = table.nameAfter.isNull() ? judgeLostTable(table, found, numbers)
                                                  : judgeTable(table, found, numbers, m_keeper);
        if (end == Unreadable::No && repaired.isMade()) {
            FoundRepairs repairs = {m_orphans, {}};
            end = judgeRepairs(table, before, repaired, repairs, numbers, m_keeper);
            if (repairs.violations) {
                found << *repairs.violations;
            }
        }
        if (end != Unreadable::No) {
            addUnreadable(name, end == Unreadable::Before);
            return;
        }
        for (Finding &finding : found) {
            finding.numbers.insert("rowsBefore", numbers.rowsBefore);
            finding.numbers.insert("rowsAfter", numbers.rowsAfter);
        }
        m_verdict.findings += found;
        m_verdict.tables << numbers;
    }

    Unreadable judgeLostTable(
        const TableCase &table, QVector<Finding> &found, TableNumbers &numbers)
    {
        Finding finding;
        finding.kind = "table-lost";
        finding.object = table.name;
        if (table.walk.droppedBy != 0) {
            finding.purpose = {Purpose::Taker::Version, table.walk.droppedBy};
        } else if (table.hasUnknownVersion) {
            finding.purpose.taker = Purpose::Taker::Unknown;
        } else if (table.isNamedByScript) {
            finding.purpose.taker = Purpose::Taker::Script;
        }
        RowsInOrder rows(table.before, table.name, ownKey(table.shape), {"1"}, {});
        while (rows.next()) {
            ++numbers.rowsBefore;
            m_keeper.keep(finding, {table.name, rows.keyText(), {}, {}});
        }
        numbers.rowsGone = numbers.rowsBefore;
        finding.numbers.insert("rows", numbers.rowsBefore);
        found << finding;
        return rows.isComplete() ? Unreadable::No : Unreadable::Before;
    }

    const RunToJudge &m_run;
    const VersionTable &m_versions;
    StepsInLog m_log;
    QVector<Step> m_steps;
    WorkBudget m_budget;
    Verdict m_verdict;
    RowKeeper m_keeper;
    Finding m_orphans = orphansFinding();
    QSet<QByteArray> m_scriptWords;
    QHash<QByteArray, QByteArray> m_tablesBefore; ///< by folded name, as it is written
    QHash<QByteArray, QByteArray> m_tablesAfter;

    static Finding orphansFinding()
    {
        Finding finding;
        finding.kind = "orphans-removed";
        return finding;
    }
};

/// @return such as "9, 27 to 31 and 34"
QString textOfVersions(QVector<int> versions)
{
    std::sort(versions.begin(), versions.end());
    QStringList parts;
    for (int first = 0, end = 0; first < versions.size(); first = end) {
        end = first + 1;
        while (end < versions.size() && versions[end] == versions[end - 1] + 1) {
            ++end;
        }
        // Two in a row are no range.
        end = end - first == 2 ? first + 1 : end;
        parts << QString::number(versions[first]);
        if (end - first > 1) {
            parts.last() += " to " + QString::number(versions[end - 1]);
        }
    }
    const QString last = parts.takeLast();
    return parts.isEmpty() ? last : parts.join(", ") + " and " + last;
}

QJsonValue versionValue(const std::optional<int> &version)
{
    return version ? QJsonValue(*version) : QJsonValue();
}
} // namespace

void Verdict::noteKept()
{
    for (Finding &finding : findings) {
        finding.beforeIsKept = true;
    }
}

int Verdict::counting() const
{
    return static_cast<int>(std::count_if(
        findings.begin(), findings.end(), [](const Finding &finding) { return finding.counts(); }));
}

QStringList Verdict::lines() const
{
    QStringList lines;
    for (const Finding &finding : findings) {
        if (finding.counts()) {
            lines << finding.sentence();
        }
    }
    return lines;
}

QString Verdict::unknownLine() const
{
    if (unknownVersions.isEmpty()) {
        return {};
    }
    if (unknownVersions.size() == 1) {
        return QString("what version %1 takes is not known here: its losses were not judged")
            .arg(unknownVersions.first());
    }
    return QString("what versions %1 take is not known here: their losses were not judged")
        .arg(textOfVersions(unknownVersions));
}

QJsonObject Verdict::toJson(bool withRows, int mostEntries) const
{
    const QVector<Finding> shownFindings = findings.mid(0, mostEntries);
    QJsonArray findingList;
    for (const Finding &finding : shownFindings) {
        findingList << finding.toJson(withRows);
    }
    const QVector<TableNumbers> shownTables = tables.mid(0, mostEntries);
    QJsonArray tableList;
    for (const TableNumbers &table : shownTables) {
        tableList << QJsonObject{
            {"table", QString::fromLatin1(printableName(table.name))},
            {"rowsBefore", table.rowsBefore},
            {"rowsAfter", table.rowsAfter},
            {"rowsGone", table.rowsGone},
            {"rowsNew", table.rowsNew}};
    }
    const QVector<int> shownVersions = unknownVersions.mid(0, mostEntries);
    QJsonArray unknown;
    for (const int version : shownVersions) {
        unknown << version;
    }
    return {
        {"format", format},
        {"from", versionValue(from)},
        {"to", versionValue(to)},
        {"target", target},
        {"counting", counting()},
        {"findings", findingList},
        {"tables", tableList},
        {"unknownVersions", unknown},
        {"leftOut",
         QJsonObject{
             {"findings", findings.size() - shownFindings.size()},
             {"tables", tables.size() - shownTables.size()},
             {"unknownVersions", unknownVersions.size() - shownVersions.size()}}}};
}

Verdict judge(
    const RunToJudge &run, const DatabaseDifferences &differences, const VersionTable &versions)
{
    return Judge(run, versions).judge(differences);
}

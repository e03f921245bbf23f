#include "guard/verdict/verdict.h"

#include "guard/stored_schema.h"
#include "guard/verdict/repaired_copy.h"
#include "guard/verdict/rows_in_order.h"
#include "guard/verdict/steps_in_log.h"

#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>
#include <cctype>

namespace
{
constexpr int format = 1;

/// There is no step to it.
constexpr int oldestVersion = 1;

/// SQLite's instructions that a verdict may take: so many for each byte of the two files, and a
/// fixed part that small databases need. Sound databases of farms need less than a tenth.
constexpr qint64 instructionsPerByte = 20;
constexpr qint64 fixedInstructions = 50'000'000;

QVector<Step> stepsOf(
    const RunToJudge &run, const QVector<int> &reapplied, const VersionTable &versions)
{
    QVector<Step> steps;
    for (const int version : reapplied) {
        steps << Step{version, Direction::Forward};
    }
    // The program has no steps beyond the newest version that it knows.
    const int newest =
        versions.newest() > 0 ? versions.newest() : std::max(run.target, run.from.value_or(0));
    const int from =
        std::clamp(run.from.value_or(0), oldestVersion, std::max(newest, oldestVersion));
    const int target = std::clamp(run.target, oldestVersion, std::max(newest, oldestVersion));
    for (int version = from + 1; version <= target; ++version) {
        steps << Step{version, Direction::Forward};
    }
    for (int version = from; version > target; --version) {
        steps << Step{version, Direction::Backward};
    }
    return steps;
}

/// @return the words, folded, of all statements of the scripts that can change or remove rows
QSet<QByteArray> wordsOfChangingStatements(const QVector<QByteArray> &scripts)
{
    static const QSet<QByteArray> changing = {"update", "replace", "delete", "drop", "alter"};
    QSet<QByteArray> words;
    for (QByteArray script : scripts) {
        // As the program reads them: lines with nothing between, statements that end with ";".
        script.replace("\n", "");
        for (const QByteArray &statement : script.split(';')) {
            QSet<QByteArray> own;
            QByteArray word;
            for (const char letter : statement + ' ') {
                const auto byte = static_cast<unsigned char>(letter);
                if (std::isalnum(byte) != 0 || letter == '_' || byte >= 0x80) {
                    word += letter;
                } else {
                    own << folded(word);
                    word.clear();
                }
            }
            if (own.intersects(changing)) {
                words += own;
            }
        }
    }
    return words;
}

/// @return the part of a copy's name that is the table's, null when it is no copy's
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

/// @return SQLite's first words for damage, empty without any
QString damageOf(const JudgedDatabase &database)
{
    SqliteStatement off(database.connection(), "PRAGMA ignore_check_constraints = ON");
    off.step();
    // Pages that nothing uses hold nothing. SQLite does not look for them when its list of tables
    // begins with a view: a run that only changes that order would seem to bring damage.
    SqliteStatement check(database.connection(), "PRAGMA quick_check(1000)");
    while (check.step()) {
        for (const QByteArray &line : check.text(0).split('\n')) {
            if (line != "ok" && !line.startsWith("*** in database ") &&
                !line.endsWith(" is never used")) {
                return QString::fromUtf8(line);
            }
        }
    }
    const bool isDone = check.result() == SQLITE_DONE || check.result() == SQLITE_INTERRUPT;
    return isDone ? QString() : database.connection().errorText();
}

class Judge
{
public:
    Judge(const RunToJudge &run, const VersionTable &versions)
        : m_run(run), m_versions(versions),
          m_log(readSteps(run.log, run.from.value_or(0), run.target, versions)),
          m_steps(stepsOf(run, m_log.reapplied, versions)),
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
        // What takes too much work says nothing about this run.
        finding.before = before || m_budget.isSpent();
        finding.detail = m_budget.isSpent() ? QString("too much work") : QString();
    }

    void judgeLog()
    {
        if (m_run.to != m_run.target) {
            m_verdict.findings << findings::targetMissed(m_run.to, m_run.target);
        }
        QList<int> failed = (m_log.failed + m_log.failedAgain).values();
        std::sort(failed.begin(), failed.end());
        for (const int version : failed) {
            // What could not be applied again was not there before either.
            add("step-failed", QByteArray::number(version)).before =
                !m_log.failed.contains(version) || lackedSomethingBefore(version);
        }
        if (m_log.unknownFailed) {
            add("step-failed", "unknown");
        }
        for (const int version : m_log.reapplied) {
            add("reapplied", QByteArray::number(version));
        }
    }

    /// @return whether a table that the step of the walk takes was missing before the run
    bool lackedSomethingBefore(int version) const
    {
        const auto step = std::find_if(m_steps.rbegin(), m_steps.rend(), [&](const Step &made) {
            return made.version == version;
        });
        if (step == m_steps.rend()) {
            return false;
        }
        // On the way back nothing needs what it drops.
        if (step->direction == Direction::Backward) {
            return false;
        }
        const VersionTable::Tables &tables = m_versions.takenBy(version, step->direction);
        for (auto table = tables.begin(); table != tables.end(); ++table) {
            const bool isTaken = table->dropped || !table->renamed.isEmpty();
            if (isTaken && !m_tablesBefore.contains(table.key()) &&
                !isMadeBefore(*step, table.key())) {
                return true;
            }
        }
        return false;
    }

    /// @return whether an earlier step of the run makes a table: its way back takes it away, or it
    /// gives the name to another one
    bool isMadeBefore(const Step &step, const QByteArray &table) const
    {
        for (const Step &earlier : m_steps) {
            if (earlier.version == step.version && earlier.direction == step.direction) {
                break;
            }
            const bool isForward = earlier.direction == Direction::Forward;
            const VersionTable::Tables &back = m_versions.takenBy(
                earlier.version, isForward ? Direction::Backward : Direction::Forward);
            if (back.value(table).dropped) {
                return true;
            }
            for (const TakenFromTable &taken :
                 m_versions.takenBy(earlier.version, earlier.direction)) {
                if (folded(taken.renamed) == table) {
                    return true;
                }
            }
        }
        return false;
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
            end = judgeRepairs(table, before, repaired, found, numbers);
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

    static QByteArrayList ownKey(const TableShape &shape)
    {
        QByteArrayList key;
        for (const QByteArray &column : shape.key) {
            key << quotedName(column);
        }
        if (key.isEmpty()) {
            // Columns can have all the names of the row id: then nothing tells the rows.
            key << (shape.rowid.isEmpty() ? QByteArray("1") : shape.rowid);
        }
        return key;
    }

    /// Notes the rows of before that neither the repaired copy nor the database after has.
    Unreadable judgeRepairs(
        const TableCase &table, const JudgedDatabase &original, const RepairedCopy &repaired,
        QVector<Finding> &found, TableNumbers &numbers)
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
        RowsInOrder before(
            original, table.name, identity.before, {rowid}, identity.tieBreakerBefore);
        RowsInOrder kept(
            table.before, table.name, identity.before, {rowid}, identity.tieBreakerBefore);
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
        const auto take = [](RowsInOrder &rows, const RowsInOrder &row) {
            while (rows.hasRow() && row.compareKey(rows) > 0) {
                rows.next();
            }
            const bool hasIt = rows.hasRow() && row.compareKey(rows) == 0;
            if (hasIt) {
                rows.next();
            }
            return hasIt;
        };
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
                // The program could not remove it.
                --numbers.rowsNew;
                continue;
            }
            ++numbers.rowsGone;
            const qint64 number = sqlite3_column_int64(before.row(), before.place(0));
            Finding &finding = touched.orphans.contains(number) ? m_orphans : violations;
            ++finding.numbers["rows"];
            m_keeper.keep(finding, {table.name, before.keyText(), {}, {}});
        }
        numbers.rowsBefore = rowsBefore;
        if (violations.numbers.value("rows") > 0) {
            found << violations;
        }
        return before.isComplete() ? Unreadable::No : Unreadable::Before;
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

QJsonValue versionValue(const std::optional<int> &version)
{
    return version ? QJsonValue(*version) : QJsonValue();
}
} // namespace

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

QJsonObject Verdict::toJson(bool withRows) const
{
    QJsonArray findingList;
    for (const Finding &finding : findings) {
        findingList << finding.toJson(withRows);
    }
    QJsonArray tableList;
    for (const TableNumbers &table : tables) {
        tableList << QJsonObject{
            {"table", QString::fromLatin1(printableName(table.name))},
            {"rowsBefore", table.rowsBefore},
            {"rowsAfter", table.rowsAfter},
            {"rowsGone", table.rowsGone},
            {"rowsNew", table.rowsNew}};
    }
    QJsonArray unknown;
    for (const int version : unknownVersions) {
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
        {"unknownVersions", unknown}};
}

Verdict judge(
    const RunToJudge &run, const DatabaseDifferences &differences, const VersionTable &versions)
{
    return Judge(run, versions).judge(differences);
}

namespace findings
{
Finding direct(const QByteArray &reason)
{
    Finding finding;
    finding.kind = "direct";
    finding.object = reason;
    return finding;
}

Finding targetMissed(const std::optional<int> &recorded, int target)
{
    Finding finding;
    finding.kind = "target-missed";
    finding.object = recorded ? QByteArray::number(*recorded) : QByteArray("none");
    finding.numbers = {{"target", target}};
    return finding;
}

Finding newerThanProgram(int recorded, int newest)
{
    Finding finding;
    finding.kind = "newer-than-program";
    finding.numbers = {{"recorded", recorded}, {"newest", newest}};
    return finding;
}

Finding libraryUnfit()
{
    Finding finding;
    finding.kind = "library-unfit";
    return finding;
}
} // namespace findings

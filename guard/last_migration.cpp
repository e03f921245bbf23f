#include "guard/last_migration.h"
#include "guard/durable_file.h"
#include "guard/limits.h"
#include "guard/regular_file.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

namespace
{
const int format = 1;
const char *const directRunCut = "directRunCut";

/// @return whether the database is in order after a run, nothing when the run does not show it
std::optional<bool> leavesInOrder(const RunRecord &run)
{
    if (!run.endIsKnown || !run.changed) {
        return std::nullopt;
    }
    if (run.status != Status::Success) {
        return false;
    }
    const bool isRestore = run.command == "restore";
    return isRestore || run.from != run.to ? std::optional<bool>(true) : std::nullopt;
}

bool tellsOfCutDirectRun(const Verdict &verdict)
{
    return std::any_of(
        verdict.findings.begin(), verdict.findings.end(), [](const Finding &finding) {
            return finding.kind == findings::directRunCut().kind;
        });
}

/// @return whether the next run no longer has to tell that a direct run was cut
bool settlesCutDirectRun(const RunRecord &run)
{
    const bool isRestored = run.command == "restore" && run.endIsKnown && run.changed;
    return isRestored || (run.verdict && tellsOfCutDirectRun(*run.verdict));
}

/// @return the content without measurements, which differ from run to run
QJsonObject withoutMeasurements(QJsonObject content)
{
    for (const char *name : {"lastRun", "lastChange"}) {
        if (content.contains(name)) {
            QJsonObject run = content.value(name).toObject();
            run.remove("measured");
            content.insert(name, run);
        }
    }
    return content;
}

/// @return the change of version that a run made, as an entry of `changes`
QJsonObject changeOfVersion(const QJsonObject &run)
{
    QJsonObject change;
    for (const char *name : {"command", "from", "to", "target", "way", "status", "reason"}) {
        if (run.contains(name)) {
            change.insert(name, run.value(name));
        }
    }
    return change;
}
} // namespace

LastMigration::LastMigration(const QString &path) : m_path(path)
{
    const QByteArray content = readSmallFile(path, limits::largestJson).value_or(QByteArray());
    m_content = QJsonDocument::fromJson(content).object();
}

bool LastMigration::directRunWasCut() const
{
    return m_content.value(directRunCut).toBool();
}

void LastMigration::announceDirectRun(RunRecord run)
{
    run.guarded = false;
    run.endIsKnown = false;
    run.status = Status::LookAtIt;
    run.reason = QString::fromLatin1(findings::directRunCut().kind);
    QJsonObject content = m_content;
    content.insert("format", format);
    content.insert("lastRun", run.toJson());
    content.insert("lastChange", run.toJson());
    content.insert("databaseInOrder", false);
    content.insert(directRunCut, true);
    m_isAnnounced = write(content) == 0;
    if (m_isAnnounced) {
        durable::flushDirectory(QFileInfo(m_path).absolutePath());
    }
}

bool LastMigration::record(const RunRecord &run, bool flushDirectory)
{
    const QJsonObject last = run.toJson();
    QJsonObject content = m_content;
    content.insert("format", format);
    content.insert("lastRun", last);
    if (run.from != run.to || run.status != Status::Success) {
        content.insert("lastChange", last);
    }
    if (run.endIsKnown && run.changed && run.from != run.to) {
        QJsonArray changes = content.value("changes").toArray();
        changes << changeOfVersion(last);
        while (changes.size() > limits::notedChanges) {
            changes.removeFirst();
        }
        content.insert("changes", changes);
    }
    if (const std::optional<bool> inOrder = leavesInOrder(run)) {
        content.insert("databaseInOrder", *inOrder);
    }
    if (settlesCutDirectRun(run)) {
        content.remove(directRunCut);
    }
    if (m_isAnnounced || withoutMeasurements(content) != withoutMeasurements(m_content)) {
        if (write(content) != 0) {
            return false;
        }
        m_content = content;
        flushDirectory = true;
    }
    return !flushDirectory || durable::flushDirectory(QFileInfo(m_path).absolutePath()) == 0;
}

/// @return 0 or the error number of the system
int LastMigration::write(const QJsonObject &content) const
{
    durable::Ownership readableForAll;
    readableForAll.mode = 0644;
    return durable::replace(m_path, QJsonDocument(content).toJson(), readableForAll, true);
}

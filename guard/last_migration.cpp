#include "guard/last_migration.h"
#include "guard/durable_file.h"
#include "guard/limits.h"
#include "guard/regular_file.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

namespace
{
const int format = 1;

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
    if (withoutMeasurements(content) != withoutMeasurements(m_content)) {
        const QByteArray text = QJsonDocument(content).toJson();
        durable::Ownership readableForAll;
        readableForAll.mode = 0644;
        if (durable::replace(m_path, text, readableForAll, true) != 0) {
            return false;
        }
        m_content = content;
        flushDirectory = true;
    }
    return !flushDirectory || durable::flushDirectory(QFileInfo(m_path).absolutePath()) == 0;
}

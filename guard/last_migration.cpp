#include "guard/last_migration.h"
#include "guard/durable_file.h"
#include "guard/limits.h"
#include "guard/regular_file.h"

#include <QFileInfo>
#include <QJsonDocument>

namespace
{
const int format = 1;

/// @return whether the database is in order after a run, nothing when the run does not tell
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
    if (const std::optional<bool> inOrder = leavesInOrder(run)) {
        content.insert("databaseInOrder", *inOrder);
    }
    if (content != m_content) {
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

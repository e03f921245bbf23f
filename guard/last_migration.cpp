#include "guard/last_migration.h"
#include "guard/durable_file.h"
#include "guard/known_versions.h"
#include "guard/limits.h"
#include "guard/regular_file.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QStringList>

#include <cstdio>

namespace
{
const int format = 1;

QJsonValue versionValue(const std::optional<int> &version)
{
    return version ? QJsonValue(*version) : QJsonValue();
}
} // namespace

QJsonObject RunRecord::toJson() const
{
    QJsonObject run = {
        {"command", command},
        {"from", versionValue(from)},
        {"to", versionValue(to)},
        {"way", guarded ? "guarded" : "direct"},
        {"changed", changed},
        {"status", static_cast<int>(status)}};
    if (target) {
        run.insert("target", *target);
    }
    if (!staging.isEmpty()) {
        run.insert("staging", staging);
    }
    if (!reason.isEmpty()) {
        run.insert("reason", reason);
    }
    if (changed && command == "run") {
        run.insert("kept", kept);
    }
    return run;
}

QString RunRecord::line() const
{
    QStringList parts = {QString("from %1 to %2").arg(versionText(from), versionText(to))};
    if (target) {
        parts << "target " + QString::number(*target) << (guarded ? "guarded" : "direct");
    }
    parts << (changed ? "changed" : "not changed");
    if (!reason.isEmpty()) {
        parts << reason + (detail.isEmpty() ? QString() : " (" + detail + ")");
    }
    parts << "status " + QString::number(static_cast<int>(status));
    return parts.join(", ");
}

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
    if (run.status != Status::NothingChanged) {
        content.insert("databaseInOrder", run.status == Status::Success);
    }
    if (content != m_content) {
        const QString newFile = m_path + ".new";
        const QByteArray text = QJsonDocument(content).toJson();
        durable::Ownership readableForAll;
        readableForAll.mode = 0644;
        if (durable::write(newFile, text, readableForAll, true) != 0 ||
            durable::rename(newFile, m_path) != 0) {
            std::remove(QFile::encodeName(newFile).constData());
            return false;
        }
        m_content = content;
        flushDirectory = true;
    }
    return !flushDirectory || durable::flushDirectory(QFileInfo(m_path).absolutePath()) == 0;
}

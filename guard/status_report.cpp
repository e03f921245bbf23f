#include "guard/status_report.h"
#include "guard/database_snapshot.h"
#include "guard/known_versions.h"
#include "guard/last_migration.h"
#include "guard/printed_text.h"
#include "guard/recorded_version.h"

#include <QFileInfo>
#include <QJsonDocument>

namespace
{
const QString unknown("unknown");

QString withReason(const QString &text, const QString &reason)
{
    return reason.isEmpty() ? text : text + " (" + reason + ")";
}

QString cannotBeRead(const QString &why)
{
    return withReason(unknown, "cannot be read: " + printedText(why.toUtf8()));
}

/// @param database at rest
/// @param remark what else is to be said about it
QString versionOf(const QString &database, const QString &remark)
{
    SqliteConnection connection;
    connection.openAtRest(database);
    const RecordedVersion version = recordedVersion(connection);
    const bool isRead = version.number || sqlite3_errcode(connection.handle()) == SQLITE_OK;
    return isRead ? withReason(versionText(version), remark) : cannotBeRead(connection.errorText());
}

QString versionOfDatabase(const DevicePaths &device)
{
    if (device.database.isEmpty()) {
        return withReason(unknown, "there is no database, or nothing in it");
    }
    const DatabaseSnapshot snapshot(device.database);
    return snapshot.error().isEmpty() ? versionOf(snapshot.path(), snapshot.remark())
                                      : cannotBeRead(snapshot.error());
}

QString keptText(const DevicePaths &device)
{
    if (!QFileInfo(device.kept).isFile()) {
        return "none";
    }
    return "version " + versionOf(device.kept, QString()) + ", " + device.kept;
}

QString runText(const QJsonObject &run)
{
    return run.isEmpty() ? QString("none")
                         : QString::fromUtf8(QJsonDocument(run).toJson(QJsonDocument::Compact));
}
} // namespace

QStringList statusReport(const DevicePaths &device)
{
    const LastMigration lastMigration(device.lastMigration);
    const std::optional<int> newest = newestKnownVersion(device.knownVersions);
    return {
        "recorded version: " + versionOfDatabase(device),
        "newest version that the program knows: " + (newest ? QString::number(*newest) : unknown),
        "kept database of before: " + keptText(device),
        "last run: " + runText(lastMigration.lastRun()),
        "last change: " + runText(lastMigration.lastChange())};
}

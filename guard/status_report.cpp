#include "guard/status_report.h"
#include "guard/known_versions.h"
#include "guard/last_migration.h"
#include "guard/recorded_version.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonDocument>
#include <QUrl>

namespace
{
RecordedVersion versionOf(const QString &database, const char *parameters)
{
    if (!QFileInfo::exists(database)) {
        return {};
    }
    SqliteConnection connection;
    const QString name =
        "file:" + QString::fromLatin1(QUrl::toPercentEncoding(database, "/")) + parameters;
    connection.open(name, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
    sqlite3_db_config(connection.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    const int milliseconds = 1000;
    sqlite3_busy_timeout(connection.handle(), milliseconds);
    return recordedVersion(connection);
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
    const QString kept =
        QFileInfo::exists(device.kept)
            ? "version " + versionText(versionOf(device.kept, "?immutable=1")) + ", " + device.kept
            : QString("none");
    return {
        "recorded version: " + versionText(versionOf(device.database, "")),
        "newest version that the program knows: " +
            (newest ? QString::number(*newest) : QString("unknown")),
        "kept database of before: " + kept,
        "last run: " + runText(lastMigration.lastRun()),
        "last change: " + runText(lastMigration.lastChange())};
}

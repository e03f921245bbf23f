#include "guard/status_report.h"
#include "guard/database_snapshot.h"
#include "guard/known_versions.h"
#include "guard/printed_text.h"
#include "guard/recorded_version.h"
#include "guard/run_record.h"

#include <QFileInfo>
#include <QJsonDocument>

namespace
{
constexpr int format = 1;
const QString unknown("unknown");

QString withReason(const QString &text, const QString &reason)
{
    return reason.isEmpty() ? text : text + " (" + reason + ")";
}

QString cannotBeRead(const QString &why)
{
    return withReason(unknown, "cannot be read: " + printedText(why.toUtf8()));
}

QString compact(const QJsonObject &json)
{
    return QString::fromUtf8(QJsonDocument(json).toJson(QJsonDocument::Compact));
}

QString runText(const QJsonObject &run)
{
    return run.isEmpty() ? QString("none") : compact(run);
}

QJsonObject versionValue(const std::optional<qint64> &number, const QString &text)
{
    return {
        {"version", number ? QJsonValue(static_cast<double>(*number)) : QJsonValue()},
        {"text", text}};
}
} // namespace

StatusReport::StatusReport(const DevicePaths &device)
    : m_keptPath(device.kept), m_database(versionOfDatabase(device)),
      m_newest(newestKnownVersion(device.knownVersions)), m_lastMigration(device.lastMigration)
{
    if (QFileInfo(device.kept).isFile()) {
        m_kept = versionAtRest(device.kept, QString());
    }
}

/// @param remark a remark on the database, empty for none
StatusReport::Version StatusReport::versionAtRest(const QString &database, const QString &remark)
{
    SqliteConnection connection;
    connection.openAtRest(database);
    const RecordedVersion version = recordedVersion(connection);
    const bool isRead = version.number || sqlite3_errcode(connection.handle()) == SQLITE_OK;
    return {
        version.number,
        isRead ? withReason(versionText(version), remark) : cannotBeRead(connection.errorText())};
}

StatusReport::Version StatusReport::versionOfDatabase(const DevicePaths &device)
{
    if (device.database.isEmpty()) {
        return {std::nullopt, withReason(unknown, "there is no database, or nothing in it")};
    }
    const DatabaseSnapshot snapshot(device.database);
    return snapshot.error().isEmpty() ? versionAtRest(snapshot.path(), snapshot.remark())
                                      : Version{std::nullopt, cannotBeRead(snapshot.error())};
}

QStringList StatusReport::lines() const
{
    return {
        "recorded version: " + m_database.text,
        "newest version that the program knows: " +
            (m_newest ? QString::number(*m_newest) : unknown),
        "kept database of before: " +
            (m_kept ? "version " + m_kept->text + ", " + m_keptPath : QString("none")),
        "last run: " + runText(m_lastMigration.lastRun()),
        "last change: " + runText(m_lastMigration.lastChange())};
}

QString StatusReport::json() const
{
    return compact(
        {{"format", format},
         {"database", versionValue(m_database.number, m_database.text)},
         {"newestKnown", m_newest ? QJsonValue(*m_newest) : QJsonValue()},
         {"kept", m_kept ? QJsonValue(versionValue(m_kept->number, m_kept->text)) : QJsonValue()},
         {"lastMigration", m_lastMigration.content()}});
}

int StatusReport::lastStatus() const
{
    return m_lastMigration.lastRun().value("status").toInt(
        static_cast<int>(Status::NothingChanged));
}

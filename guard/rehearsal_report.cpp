#include "guard/rehearsal_report.h"

#include <QJsonArray>

#include <algorithm>

namespace rehearsalReport
{
namespace
{
constexpr int format = 1;

QJsonValue versionValue(const RecordedVersion &version)
{
    return version.number ? QJsonValue(*version.number) : QJsonValue();
}

/// @return a path without characters that control a terminal
QString printable(QString path)
{
    std::replace_if(
        path.begin(), path.end(), [](QChar letter) { return !letter.isPrint(); }, QChar('?'));
    return path;
}

/// @return a whole text of the log, including the part after a NUL
QString textOf(const QByteArray &bytes)
{
    return QString::fromUtf8(bytes.constData(), bytes.size());
}

QString outcomeName(RehearsedStep::Outcome outcome)
{
    switch (outcome) {
    case RehearsedStep::Outcome::Failed:
        return "failed";
    case RehearsedStep::Outcome::NotReached:
        return "not-reached";
    case RehearsedStep::Outcome::Done:
        break;
    }
    return "done";
}

QJsonArray stepsOf(const Rehearsal &rehearsal, bool withRows)
{
    QJsonArray list;
    for (const RehearsedStep &step : rehearsal.steps) {
        QJsonObject entry = {
            {"version", step.version},
            {"direction", step.isForward ? "forward" : "backward"},
            {"outcome", outcomeName(step.outcome)}};
        if (withRows && step.outcome == RehearsedStep::Outcome::Failed) {
            QJsonArray lines;
            for (const QByteArray &line : step.lines) {
                lines << textOf(line);
            }
            entry.insert("lines", lines);
        }
        list << entry;
    }
    return list;
}

QJsonArray mendingsOf(const Rehearsal &rehearsal, bool withRows)
{
    QJsonArray list;
    for (const Mending &mending : rehearsal.mendings) {
        QJsonObject entry = {
            {"copy", QString::fromLatin1(printableName(mending.copy))},
            {"table", QString::fromLatin1(printableName(mending.table))},
            {"kind", QString::fromLatin1(mendingCode(mending.kind))},
            {"rowsOfCopy", mending.rowsOfCopy},
            {"rowsReturned", mending.rowsReturned}};
        if (withRows && !mending.reason.isEmpty()) {
            entry.insert("reason", mending.reason);
        }
        list << entry;
    }
    return list;
}

QJsonValue wayBackOf(const Rehearsal &rehearsal, bool withRows)
{
    if (!rehearsal.wayBack) {
        return {};
    }
    const WayBack &back = *rehearsal.wayBack;
    const QJsonObject verdict = back.verdict.toJson(withRows);
    return QJsonObject{
        {"target", back.target},
        {"to", versionValue(back.to)},
        {"reached", back.to.is(back.target)},
        {"counting", verdict.value("counting")},
        {"findings", verdict.value("findings")},
        {"tables", verdict.value("tables")}};
}
} // namespace

QJsonObject toJson(const Rehearsal &rehearsal, bool withRows)
{
    const RunRecord &record = rehearsal.record;
    const QJsonObject run = record.toJson();
    QJsonObject json = {
        {"format", format},
        {"rehearsal", true},
        {"database",
         QJsonObject{
             {"path", withRows ? QJsonValue(rehearsal.database) : QJsonValue()},
             {"bytes", rehearsal.databaseBytes},
             {"journalMode",
              rehearsal.journalMode.isEmpty() ? QJsonValue() : QJsonValue(rehearsal.journalMode)}}},
        {"withRows", withRows},
        {"assumed", QJsonArray::fromStringList(rehearsal.assumed)},
        {"given",
         QJsonObject{
             {"platform", rehearsal.platform}, {"softwareVersion", rehearsal.softwareVersion}}},
        {"measured", rehearsal.measured.isEmpty() ? run.value("measured") : rehearsal.measured},
        {"verdict", record.verdict ? QJsonValue(record.verdict->toJson(withRows)) : QJsonValue()},
        {"versions", stepsOf(rehearsal, withRows)},
        {"mending", mendingsOf(rehearsal, withRows)},
        {"wayBack", wayBackOf(rehearsal, withRows)},
        {"log", withRows ? QJsonValue(textOf(rehearsal.log)) : QJsonValue()}};
    for (const char *name :
         {"from", "to", "target", "status", "reason", "way", "changed", "software"}) {
        if (run.contains(name)) {
            json.insert(name, run.value(name));
        }
    }
    if (withRows && !record.detail.isEmpty()) {
        json.insert("detail", record.detail);
    }
    return json;
}

QStringList lines(const Rehearsal &rehearsal, bool named)
{
    QStringList lines = rehearsal.record.lines();
    lines.first().prepend("rehearsal: ");
    if (named) {
        return {printable(rehearsal.database) + ": " + lines.first()};
    }
    if (!rehearsal.assumed.isEmpty()) {
        lines << "assumed: " + rehearsal.assumed.join(", ");
    }
    return lines;
}
} // namespace rehearsalReport

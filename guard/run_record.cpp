#include "guard/run_record.h"
#include "guard/limits.h"

#include <QCoreApplication>
#include <QStringList>

#include <sqlite3.h>

namespace
{
QJsonValue versionValue(const RecordedVersion &version)
{
    return version.number ? QJsonValue(*version.number) : QJsonValue();
}

QString reasonFor(DatabaseFailure::Kind kind, const QString &step)
{
    switch (kind) {
    case DatabaseFailure::Kind::Locked:
        return "locked";
    case DatabaseFailure::Kind::Written:
        return "written-meanwhile";
    case DatabaseFailure::Kind::Replaced:
        return "replaced";
    case DatabaseFailure::Kind::NoRoom:
        return "no-room";
    case DatabaseFailure::Kind::NotFlushed:
        return "not-flushed";
    case DatabaseFailure::Kind::Unknown:
        return "commit-unknown";
    case DatabaseFailure::Kind::NotWritable:
    case DatabaseFailure::Kind::Damaged:
    case DatabaseFailure::Kind::Failed:
        break;
    }
    return step;
}
} // namespace

void RunRecord::endUnchanged(const QString &why, const QString &words)
{
    status = Status::NothingChanged;
    changed = false;
    kept = false;
    to = from;
    reason = why;
    detail = words;
}

void RunRecord::endWith(const DatabaseFailure &failure, const QString &step)
{
    const QString why = reasonFor(failure.kind, step);
    if (failure.kind == DatabaseFailure::Kind::NotFlushed) {
        status = Status::LookAtIt;
        changed = true;
        reason = why;
        detail = failure.text;
        return;
    }
    endUnchanged(why, failure.text);
    if (failure.kind == DatabaseFailure::Kind::Unknown) {
        endIsKnown = false;
        to = RecordedVersion();
    }
}

QJsonObject RunRecord::toJson() const
{
    QJsonObject run = {
        {"command", command},
        {"from", versionValue(from)},
        {"to", versionValue(to)},
        {"way", guarded ? "guarded" : "direct"},
        {"changed", endIsKnown ? QJsonValue(changed) : QJsonValue()},
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
    if (verdict) {
        // The record may be sent to an inventory, so it has no contents of rows.
        run.insert("verdict", verdict->toJson(false, limits::recordedEntries));
    }
    run.insert(
        "software",
        QJsonObject{
            {"guard", QCoreApplication::applicationVersion()},
            {"sqlite", sqlite3_libversion()},
            {"program", newestKnown ? QJsonValue(*newestKnown) : QJsonValue()}});
    run.insert("measured", measured.toJson());
    return run;
}

void RunRecord::judgedBy(const Verdict &judged, Status atLeast)
{
    verdict = judged;
    if (judged.counting() > 0) {
        status = atLeast;
        reason = QString::fromLatin1(judged.findings.first().kind);
    }
}

QStringList RunRecord::lines() const
{
    QStringList parts = {QString("from %1 to %2").arg(versionText(from), versionText(to))};
    if (target) {
        parts << "target " + QString::number(*target) << (guarded ? "guarded" : "direct");
    }
    if (endIsKnown) {
        parts << (changed ? "changed" : "not changed");
    }
    if (!reason.isEmpty()) {
        parts << reason + (detail.isEmpty() ? QString() : " (" + detail + ")");
    }
    parts << "status " + QString::number(static_cast<int>(status));
    QStringList lines = {parts.join(", ")};
    if (verdict) {
        lines << verdict->lines();
        if (const QString unknown = verdict->unknownLine(); !unknown.isEmpty()) {
            lines << unknown;
        }
    }
    return lines;
}

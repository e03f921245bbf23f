#include "guard/run_note.h"
#include "guard/durable_file.h"
#include "guard/limits.h"
#include "guard/regular_file.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace
{
/// @return a text that differs after every start of the device, empty when it cannot be read
QString bootIdentifier()
{
    QFile file("/proc/sys/kernel/random/boot_id");
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll().trimmed())
                                          : QString();
}

bool isOfThisBoot(const QString &boot)
{
    return !boot.isEmpty() && boot == bootIdentifier();
}
} // namespace

std::optional<RunNote> RunNote::read(const QString &path)
{
    const std::optional<QByteArray> content = readSmallFile(path, limits::largestJson);
    if (!content) {
        return std::nullopt;
    }
    const QJsonObject json = QJsonDocument::fromJson(*content).object();
    RunNote note;
    note.stagedOnDisk = json.value("staging").toString() == "disk";
    note.runsInARow = json.value("runsInARow").toInt(1);
    note.failed = json.value("failed").toBool() || isOfThisBoot(json.value("boot").toString());
    note.schemaCookie = static_cast<qint64>(json.value("schemaCookie").toDouble(-1));
    for (const QJsonValue name : json.value("poolFiles").toArray()) {
        note.poolFiles << QByteArray::fromPercentEncoding(name.toString().toLatin1());
    }
    return note;
}

int RunNote::write(const QString &path, bool flush) const
{
    QJsonArray names;
    for (const QByteArray &name : poolFiles) {
        // A name is bytes, a JSON text is characters.
        names << QString::fromLatin1(name.toPercentEncoding());
    }
    const QJsonObject note = {
        {"staging", stagedOnDisk ? "disk" : "memory"},
        {"runsInARow", runsInARow},
        {"failed", failed},
        {"boot", bootIdentifier()},
        {"schemaCookie", static_cast<double>(schemaCookie)},
        {"poolFiles", names}};
    const QByteArray content = QJsonDocument(note).toJson(QJsonDocument::Compact) + '\n';
    return durable::replace(path, content, {}, flush);
}

#include "guard/attempt.h"
#include "guard/durable_file.h"
#include "guard/limits.h"
#include "guard/regular_file.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace
{
/// @return what is another text after every start of the device
QString bootIdentifier()
{
    QFile file("/proc/sys/kernel/random/boot_id");
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll().trimmed())
                                          : QString();
}
} // namespace

std::optional<Attempt> Attempt::read(const QString &path)
{
    const std::optional<QByteArray> content = readSmallFile(path, limits::largestJson);
    if (!content) {
        return std::nullopt;
    }
    const QJsonObject note = QJsonDocument::fromJson(*content).object();
    Attempt attempt;
    attempt.stagedOnDisk = note.value("staging").toString() == "disk";
    attempt.runsInARow = note.value("runsInARow").toInt(1);
    attempt.failed =
        note.value("failed").toBool() || note.value("boot").toString() == bootIdentifier();
    attempt.schemaCookie = static_cast<qint64>(note.value("schemaCookie").toDouble(-1));
    for (const QJsonValue name : note.value("poolFiles").toArray()) {
        attempt.poolFiles << QByteArray::fromPercentEncoding(name.toString().toLatin1());
    }
    return attempt;
}

int Attempt::write(const QString &path, bool flush) const
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
    return durable::write(path, content, {}, flush);
}

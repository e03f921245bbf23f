#include "guard/known_versions.h"
#include "guard/limits.h"
#include "guard/regular_file.h"

#include <QJsonDocument>
#include <QJsonObject>

std::optional<int> newestKnownVersion(const QString &path)
{
    const QByteArray content = readSmallFile(path, limits::largestJson).value_or(QByteArray());
    const int newest = QJsonDocument::fromJson(content).object().value("newest").toInt();
    return newest > 0 ? std::optional<int>(newest) : std::nullopt;
}

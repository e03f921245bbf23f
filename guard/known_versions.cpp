#include "guard/known_versions.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

std::optional<int> newestKnownVersion(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    const int newest = QJsonDocument::fromJson(file.readAll()).object().value("newest").toInt();
    return newest > 0 ? std::optional<int>(newest) : std::nullopt;
}

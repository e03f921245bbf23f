#include "guard/known_copies.h"

#include <QJsonArray>

namespace
{
constexpr int knownFormat = 1;
constexpr const char *directions[] = {"forward", "backward"};

QString oppositeOf(const QString &direction)
{
    return direction == directions[0] ? directions[1] : directions[0];
}

QHash<QByteArray, QByteArray> texts(const QJsonObject &object)
{
    QHash<QByteArray, QByteArray> result;
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        result.insert(entry.key().toUtf8(), entry->toString().toUtf8());
    }
    return result;
}

StepOfCopy readStep(const QJsonObject &entry)
{
    StepOfCopy step;
    for (const QJsonValue column : entry["columnsDropped"].toArray()) {
        step.columnsDropped << column.toString().toUtf8();
    }
    step.columnsRenamed = texts(entry["columnsRenamed"].toObject());
    const QJsonObject values = entry["values"].toObject();
    for (auto value = values.begin(); value != values.end(); ++value) {
        const QString becomes = value->toObject()["becomes"].toString();
        if (!becomes.isEmpty()) {
            step.becomes.insert(value.key().toUtf8(), becomes.toUtf8());
        }
    }
    return step;
}

/// @return the tables that a version takes away in a direction
QByteArrayList droppedTables(const QJsonObject &direction)
{
    QByteArrayList tables;
    for (auto entry = direction.begin(); entry != direction.end(); ++entry) {
        if (entry->toObject()["dropped"].toBool()) {
            tables << entry.key().toUtf8();
        }
    }
    return tables;
}
} // namespace

QVector<KnownCopy> knownCopies(const QJsonObject &schemaVersions)
{
    QVector<KnownCopy> copies;
    if (schemaVersions["format"].toInt() != knownFormat) {
        return copies;
    }
    const QJsonObject versions = schemaVersions["versions"].toObject();
    const QJsonObject entries = schemaVersions["copies"].toObject();
    for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
        const QJsonObject description = entry->toObject();
        const QString table = description["table"].toString();
        KnownCopy copy;
        copy.name = entry.key().toUtf8();
        copy.table = table.toUtf8();
        for (const QString direction : directions) {
            for (const QJsonValue number : description[direction].toArray()) {
                const QJsonObject version = versions[QString::number(number.toInt())].toObject();
                copy.steps << readStep(version[direction].toObject()[table].toObject());
            }
            for (const QJsonValue version : versions) {
                const QJsonObject taken =
                    version.toObject()[direction].toObject()[table].toObject();
                if (taken["renamed"].isString()) {
                    copy.otherNames << taken["renamed"].toString().toUtf8();
                }
                if (taken["dropped"].toBool()) {
                    copy.inItsPlace +=
                        droppedTables(version.toObject()[oppositeOf(direction)].toObject());
                }
            }
        }
        for (auto other = entries.begin(); other != entries.end(); ++other) {
            if (other != entry && other->toObject()["table"] == table) {
                copy.otherCopies << other.key().toUtf8();
            }
        }
        copies << copy;
    }
    return copies;
}

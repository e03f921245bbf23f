#include "guard/verdict/version_table.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace
{
/// The format that this reader understands.
constexpr int knownFormat = 1;

QByteArray text(const QJsonValue &value)
{
    return value.toString().toUtf8();
}

QByteArray foldedText(const QJsonValue &value)
{
    return folded(text(value));
}

QByteArrayList foldedTexts(const QJsonValue &value)
{
    QByteArrayList texts;
    for (const QJsonValue entry : value.toArray()) {
        texts << foldedText(entry);
    }
    return texts;
}

TakenFromTable readTable(const QJsonObject &json)
{
    TakenFromTable taken;
    taken.dropped = json.value("dropped").toBool();
    taken.renamed = text(json.value("renamed"));
    taken.columnsDropped = foldedTexts(json.value("columnsDropped"));
    taken.rows = text(json.value("rows"));
    const QJsonObject renamed = json.value("columnsRenamed").toObject();
    for (auto column = renamed.begin(); column != renamed.end(); ++column) {
        taken.columnsRenamed.insert(foldedText(column.key()), foldedText(column.value()));
    }
    const QJsonObject values = json.value("values").toObject();
    for (auto column = values.begin(); column != values.end(); ++column) {
        const QJsonObject rule = column.value().toObject();
        RewrittenValue value;
        value.becomes = text(rule.value("becomes"));
        value.any = text(rule.value("any"));
        value.within = rule.value("within").toDouble();
        value.platform = text(rule.value("platform"));
        taken.values.insert(foldedText(column.key()), value);
    }
    return taken;
}

VersionTable::Tables readTables(const QJsonObject &json)
{
    VersionTable::Tables tables;
    for (auto table = json.begin(); table != json.end(); ++table) {
        tables.insert(foldedText(table.key()), readTable(table.value().toObject()));
    }
    return tables;
}

VersionTable::EveryRun readEveryRun(const QJsonObject &json)
{
    VersionTable::EveryRun everyRun;
    for (const QJsonValue entry : json.value("rows").toArray()) {
        const QJsonObject condition = entry.toObject();
        everyRun.rows << RowCondition{
            text(condition.value("table")), text(condition.value("rows"))};
    }
    const QJsonObject names = json.value("names").toObject();
    for (auto table = names.begin(); table != names.end(); ++table) {
        everyRun.names.insert(foldedText(table.key()), foldedText(table.value()));
    }
    const QJsonObject values = json.value("values").toObject();
    for (auto table = values.begin(); table != values.end(); ++table) {
        everyRun.values.insert(foldedText(table.key()), foldedTexts(table.value()));
    }
    for (const QJsonValue entry : json.value("scripts").toArray()) {
        everyRun.scripts << entry.toString();
    }
    return everyRun;
}

QVector<CopyOfTable> readCopies(const QJsonObject &json)
{
    QVector<CopyOfTable> copies;
    for (auto entry = json.begin(); entry != json.end(); ++entry) {
        const QJsonObject description = entry.value().toObject();
        CopyOfTable copy{entry.key().toUtf8(), text(description.value("table")), {}};
        for (const QJsonValue version : description.value("forward").toArray()) {
            copy.steps.append({version.toInt(), Direction::Forward});
        }
        for (const QJsonValue version : description.value("backward").toArray()) {
            copy.steps.append({version.toInt(), Direction::Backward});
        }
        copies << copy;
    }
    return copies;
}
} // namespace

QByteArray folded(const QByteArray &name)
{
    QByteArray result = name;
    for (char &letter : result) {
        // SQLite ignores the case of ASCII letters only.
        if (letter >= 'A' && letter <= 'Z') {
            letter = static_cast<char>(letter - 'A' + 'a');
        }
    }
    return result;
}

VersionTable::VersionTable(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return;
    }
    const QJsonObject json = QJsonDocument::fromJson(file.readAll()).object();
    m_newest = json.value("newest").toInt();
    if (json.value("format").toInt() != knownFormat) {
        return;
    }
    m_everyRun = readEveryRun(json.value("everyRun").toObject());
    m_copies = readCopies(json.value("copies").toObject());
    const QJsonObject versions = json.value("versions").toObject();
    for (auto version = versions.begin(); version != versions.end(); ++version) {
        const QJsonObject entry = version.value().toObject();
        m_versions.insert(
            version.key().toInt(),
            {readTables(entry.value("forward").toObject()),
             readTables(entry.value("backward").toObject()),
             foldedTexts(entry.value("needs"))});
    }
}

const VersionTable::Tables &VersionTable::takenBy(int version, Direction direction) const
{
    static const Tables nothing;
    const auto found = m_versions.constFind(version);
    if (found == m_versions.constEnd()) {
        return nothing;
    }
    return direction == Direction::Forward ? found->forward : found->backward;
}

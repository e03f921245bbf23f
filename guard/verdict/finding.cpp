#include "guard/verdict/finding.h"

#include "guard/verdict/table_words.h"

#include <QCryptographicHash>
#include <QJsonArray>

#include <tuple>

namespace
{
/// Longer names are cut: a code has to fit a line.
constexpr int longestName = 64;

/// Repairs that a run makes before it walks, and what it does to equal names.
bool isRepair(const QByteArray &kind)
{
    return kind == "violations-removed" || kind == "orphans-removed" || kind == "reapplied" ||
           kind == "renamed";
}

/// @return "1 row of fields" or "3 rows of fields"
QString rowsOf(qint64 count, const QByteArray &table)
{
    return QString(count == 1 ? "%1 row of %2" : "%1 rows of %2")
        .arg(QString::number(count), wordForTable(table));
}

QString wasOrWere(qint64 count)
{
    return count == 1 ? "was" : "were";
}

/// @return what ends the sentence on something that is missing
QString onPurpose(const Purpose &purpose)
{
    switch (purpose.taker) {
    case Purpose::Taker::Version:
        return QString(" on purpose: version %1 takes them").arg(purpose.version);
    case Purpose::Taker::Script:
        return ", perhaps by a reference-data script, which names the table";
    case Purpose::Taker::Unknown:
        return ": nobody can say whether on purpose, since a version is not known here";
    case Purpose::Taker::Nobody:
        break;
    }
    return ": look at before-migration.sqlite";
}

QJsonValue purposeValue(const Purpose &purpose)
{
    switch (purpose.taker) {
    case Purpose::Taker::Version:
        return purpose.version;
    case Purpose::Taker::Script:
        return "script";
    case Purpose::Taker::Unknown:
        return "unknown";
    case Purpose::Taker::Nobody:
        break;
    }
    return {};
}
} // namespace

bool Purpose::operator<(const Purpose &other) const
{
    return std::make_tuple(taker, version) < std::make_tuple(other.taker, other.version);
}

QByteArray printableName(const QByteArray &name)
{
    QByteArray encoded = name.toPercentEncoding();
    if (encoded.size() <= longestName) {
        return encoded;
    }
    const QByteArray digest = QCryptographicHash::hash(name, QCryptographicHash::Sha1).toHex();
    return encoded.left(longestName) + '~' + digest.left(8);
}

QByteArray Finding::code() const
{
    QByteArray code = kind;
    if (!object.isEmpty()) {
        code += ':' + printableName(object);
    }
    if (!column.isEmpty()) {
        code += '.' + printableName(column);
    }
    return code;
}

bool Finding::counts() const
{
    const bool expected = isRepair(kind) || (kind == "direct" && object == "no-database");
    return !expected && !before && !accepted && purpose.taker == Purpose::Taker::Nobody;
}

QString Finding::sentence() const
{
    const qint64 count = numbers.value("rows");
    const QString name = QString::fromLatin1(printableName(object));
    const QString word = wordForTable(object);
    const QString columnName = QString::fromLatin1(printableName(column));
    if (kind == "target-missed") {
        return QString("the database is at %1, not at version %2")
            .arg(
                object == "none" ? QString("no version") : "version " + name,
                QString::number(numbers.value("target")));
    }
    if (kind == "step-failed") {
        const QString failed = object == "unknown"
                                   ? QString("a version's step failed")
                                   : QString("the step of version %1 failed").arg(name);
        return before ? failed + ", as it would have before: what it needs was not there"
                      : failed + ": look at the log";
    }
    if (kind == "left-behind") {
        const QString text = QString("a copy of a table was left behind: %1, with %2 rows")
                                 .arg(name, QString::number(count));
        return before ? text + ", as before this run" : text;
    }
    if (kind == "rows-lost") {
        const QString lost = purpose.taker == Purpose::Taker::Nobody ? " lost" : " removed";
        return rowsOf(count, object) + ' ' + wasOrWere(count) + lost + onPurpose(purpose);
    }
    if (kind == "values-lost") {
        return QString("%1 of %2 in %3 changed")
                   .arg(
                       QString(count == 1 ? "%1 value" : "%1 values").arg(count),
                       columnName,
                       word) +
               onPurpose(purpose);
    }
    if (kind == "table-lost") {
        return QString("the table of %1 is gone, with %2 rows").arg(word, QString::number(count)) +
               onPurpose(purpose);
    }
    if (kind == "column-lost") {
        return QString("the column %1 of %2 is gone, with %3 values")
                   .arg(columnName, word, QString::number(count)) +
               onPurpose(purpose);
    }
    if (kind == "damaged") {
        return before ? "the database is damaged, as before this run"
                      : "the database is damaged: look at before-migration.sqlite";
    }
    if (kind == "unreadable") {
        if (object.isEmpty()) {
            return before ? "the tables could not be read, as before this run"
                          : "the tables cannot be read any more: look at before-migration.sqlite";
        }
        return QString(
                   before
                       ? "%1 could not be compared, since the database of before could not be read there"
                       : "%1 cannot be read any more: look at before-migration.sqlite")
            .arg(word);
    }
    if (kind == "violations-removed") {
        return rowsOf(count, object) + ' ' + wasOrWere(count) +
               " removed, since something that they belong to was not there";
    }
    if (kind == "orphans-removed") {
        return QString("%1 of product configurations that nothing refers to %2 removed")
            .arg(QString(count == 1 ? "%1 row" : "%1 rows").arg(count), wasOrWere(count));
    }
    if (kind == "reapplied") {
        return QString("version %1 was applied again, since its change was not there").arg(name);
    }
    if (kind == "renamed") {
        return QString(
                   count == 1 ? "%1 of %2 got another name, since there were equal names"
                              : "%1 of %2 got other names, since there were equal names")
            .arg(QString::number(count), word);
    }
    if (kind == "direct") {
        return QString("the program ran without the guard's protection: %1").arg(name);
    }
    if (kind == "newer-than-program") {
        return QString(
                   "the database is at version %1, but the program knows versions up to %2: it was not started")
            .arg(numbers.value("recorded"))
            .arg(numbers.value("newest"));
    }
    if (kind == "library-unfit") {
        return "the SQLite library refuses texts in double quotes, which versions 6 and 16 need: the program was not started";
    }
    return QString::fromLatin1(code());
}

QJsonObject Finding::toJson(bool withRows) const
{
    QJsonObject figures;
    for (auto number = numbers.begin(); number != numbers.end(); ++number) {
        figures.insert(number.key(), number.value());
    }
    QJsonObject json = {
        {"code", QString::fromLatin1(code())},
        {"kind", QString::fromLatin1(kind)},
        {"numbers", figures},
        {"sentence", sentence()},
        {"before", before},
        {"onPurpose", purposeValue(purpose)},
        {"accepted", accepted},
        {"counts", counts()}};
    if (!object.isEmpty()) {
        json.insert("object", QString::fromLatin1(printableName(object)));
    }
    if (!column.isEmpty()) {
        json.insert("column", QString::fromLatin1(printableName(column)));
    }
    if (!withRows) {
        return json;
    }
    if (!detail.isEmpty()) {
        json.insert("detail", detail);
    }
    QJsonArray list;
    for (const FindingRow &row : rows) {
        QJsonObject entry = {
            {"table", QString::fromUtf8(row.table)}, {"key", QString::fromUtf8(row.key)}};
        if (!row.before.isNull()) {
            entry.insert("before", QString::fromUtf8(row.before));
            entry.insert("after", QString::fromUtf8(row.after));
        }
        list << entry;
    }
    json.insert("rows", list);
    json.insert("hasAllRows", hasAllRows);
    return json;
}

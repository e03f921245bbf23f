#include "guard/verdict/finding.h"

#include <QCryptographicHash>
#include <QJsonArray>

#include <tuple>

namespace
{
/// Longer names are cut: a code has to fit on a line.
constexpr int longestName = 64;

/// True for repairs: those that a run makes before it walks, those that the guard makes before the
/// run, and new names for equal ones.
bool isRepair(const QByteArray &kind)
{
    return kind == "violations-removed" || kind == "orphans-removed" || kind == "reapplied" ||
           kind == "renamed" || kind == "mended";
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
    if (name.isEmpty()) {
        return "\"\"";
    }
    // In a code, a point separates the column from its table.
    QByteArray encoded = name.toPercentEncoding({}, ".");
    if (encoded.size() <= longestName) {
        return encoded;
    }
    const QByteArray digest = QCryptographicHash::hash(name, QCryptographicHash::Sha1).toHex();
    return encoded.left(longestName) + '~' + digest.left(8);
}

QByteArray Finding::code() const
{
    QByteArray code = kind;
    if (!object.isNull()) {
        code += ':' + printableName(object);
    }
    if (!column.isNull()) {
        code += '.' + printableName(column);
    }
    return code;
}

bool Finding::counts() const
{
    const bool expected = isRepair(kind) || (kind == "direct" && object == "no-database");
    return !expected && !before && !accepted && purpose.taker == Purpose::Taker::Nobody;
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
    if (!object.isNull()) {
        json.insert("object", QString::fromLatin1(printableName(object)));
    }
    if (!column.isNull()) {
        json.insert("column", QString::fromLatin1(printableName(column)));
    }
    if (!mending.isEmpty()) {
        json.insert("mending", QString::fromLatin1(mending));
        json.insert("table", QString::fromLatin1(printableName(table)));
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

namespace findings
{
Finding direct(const QByteArray &reason)
{
    Finding finding;
    finding.kind = "direct";
    finding.object = reason;
    return finding;
}

Finding targetMissed(const std::optional<int> &recorded, int target)
{
    Finding finding;
    finding.kind = "target-missed";
    finding.object = recorded ? QByteArray::number(*recorded) : QByteArray("none");
    finding.numbers = {{"target", target}};
    return finding;
}

Finding newerThanProgram(int recorded, int newest)
{
    Finding finding;
    finding.kind = "newer-than-program";
    finding.numbers = {{"recorded", recorded}, {"newest", newest}};
    return finding;
}

Finding libraryUnfit(const QByteArray &missing)
{
    Finding finding;
    finding.kind = "library-unfit";
    finding.object = missing.isEmpty() ? QByteArray() : missing;
    return finding;
}

Finding directRunCut()
{
    Finding finding;
    finding.kind = "direct-run-cut";
    return finding;
}
} // namespace findings

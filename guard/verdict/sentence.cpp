#include "guard/verdict/finding.h"

#include "guard/verdict/table_words.h"

namespace
{
/// @return "1 row" or "3 rows"
QString counted(qint64 count, const char *thing)
{
    return QString("%1 %2").arg(count).arg(thing) + (count == 1 ? "" : "s");
}

/// @return "1 row of fields" or "3 rows of fields"
QString countedRows(qint64 count, const QByteArray &table)
{
    return counted(count, "row") + " of " + wordForTable(table);
}

QString wasOrWere(qint64 count)
{
    return count == 1 ? "was" : "were";
}

/// @return the end of a sentence on something that only the database of before has
QString whereToLook(const Finding &finding)
{
    return finding.beforeIsKept ? QString(": look at before-migration.sqlite") : QString();
}

/// @return the end of a sentence on something that is missing
QString onPurpose(const Finding &finding)
{
    const Purpose &purpose = finding.purpose;
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
    return whereToLook(finding);
}

QString nameOf(const QByteArray &name)
{
    return QString::fromLatin1(printableName(name));
}

qint64 rowsOf(const Finding &finding)
{
    return finding.numbers.value("rows");
}

QString targetMissed(const Finding &finding)
{
    return QString("the database is at %1, not at version %2")
        .arg(
            finding.object == "none" ? QString("no version") : "version " + nameOf(finding.object),
            QString::number(finding.numbers.value("target")));
}

QString stepFailed(const Finding &finding)
{
    const QString failed =
        finding.object == "unknown"
            ? QString("a version's step failed")
            : QString("the step of version %1 failed").arg(nameOf(finding.object));
    return finding.before ? failed + ", as it would have before: what it needs was not there"
                          : failed + ": look at the log";
}

QString leftBehind(const Finding &finding)
{
    const QString text = QString("a copy of a table was left behind: %1, with %2")
                             .arg(nameOf(finding.object), counted(rowsOf(finding), "row"));
    return finding.before ? text + ", as before this run" : text;
}

QString mended(const Finding &finding)
{
    const QString copy = nameOf(finding.object);
    const QString table = wordForTable(finding.table);
    if (finding.mending == "name-given") {
        return QString("the table of %1 was only there as %2: it has its name again, with %3")
            .arg(table, copy, counted(rowsOf(finding), "row"));
    }
    if (finding.mending == "rows-returned") {
        const qint64 returned = finding.numbers.value("rowsReturned");
        return QString("%1 came back from %2, which a cut run had left")
            .arg(countedRows(returned, finding.table), copy);
    }
    return QString("%1, a copy that a cut run had left, was removed: all its rows (%2) are in %3")
        .arg(copy, QString::number(rowsOf(finding)), table);
}

QString rowsLost(const Finding &finding)
{
    const QString lost = finding.purpose.taker == Purpose::Taker::Nobody ? " lost" : " removed";
    return countedRows(rowsOf(finding), finding.object) + ' ' + wasOrWere(rowsOf(finding)) + lost +
           onPurpose(finding);
}

QString valuesLost(const Finding &finding)
{
    const qint64 count = rowsOf(finding);
    return QString("%1 of %2 in %3 changed")
               .arg(counted(count, "value"), nameOf(finding.column), wordForTable(finding.object)) +
           onPurpose(finding);
}

QString tableLost(const Finding &finding)
{
    return QString("the table of %1 is gone, with %2")
               .arg(wordForTable(finding.object), counted(rowsOf(finding), "row")) +
           onPurpose(finding);
}

QString columnLost(const Finding &finding)
{
    return QString("the column %1 of %2 is gone, with %3")
               .arg(
                   nameOf(finding.column),
                   wordForTable(finding.object),
                   counted(rowsOf(finding), "value")) +
           onPurpose(finding);
}

QString damaged(const Finding &finding)
{
    return "the database is damaged" +
           (finding.before ? QString(", as before this run") : whereToLook(finding));
}

QString unreadable(const Finding &finding)
{
    if (!finding.before) {
        const QString unread =
            finding.object.isNull() ? QString("the tables") : wordForTable(finding.object);
        return unread + " cannot be read any more" + whereToLook(finding);
    }
    return finding.object.isNull()
               ? QString("the tables could not be read, as before this run")
               : wordForTable(finding.object) +
                     " could not be compared, since the database of before could not be read there";
}

QString violationsRemoved(const Finding &finding)
{
    return countedRows(rowsOf(finding), finding.object) + ' ' + wasOrWere(rowsOf(finding)) +
           " removed, since something that they belong to was not there";
}

QString orphansRemoved(const Finding &finding)
{
    const qint64 count = rowsOf(finding);
    return QString("%1 of product configurations that nothing refers to %2 removed")
        .arg(counted(count, "row"), wasOrWere(count));
}

QString reapplied(const Finding &finding)
{
    return QString("version %1 was applied again, since its change was not there")
        .arg(nameOf(finding.object));
}

QString renamed(const Finding &finding)
{
    const qint64 count = rowsOf(finding);
    return QString(
               count == 1 ? "%1 of %2 got another name, since there were equal names"
                          : "%1 of %2 got other names, since there were equal names")
        .arg(QString::number(count), wordForTable(finding.object));
}

QString direct(const Finding &finding)
{
    return QString("the program ran without the guard's protection: %1")
        .arg(nameOf(finding.object));
}

QString newerThanProgram(const Finding &finding)
{
    return QString(
               "the database is at version %1, but the program knows versions up to %2: it was not started")
        .arg(finding.numbers.value("recorded"))
        .arg(finding.numbers.value("newest"));
}

QString libraryUnfit(const Finding &finding)
{
    if (!finding.object.isEmpty()) {
        return QString(
                   "the guard needs SQLite 3.33 or newer with %1, which this library does not have: the program was not started")
            .arg(nameOf(finding.object));
    }
    return "the SQLite library refuses texts in double quotes, which versions 6 and 16 need: the program was not started";
}

QString directRunCut(const Finding &)
{
    return "an earlier run without the guard's protection was cut: it may have left the database half migrated";
}

struct Wording {
    const char *kind;
    QString (*sentence)(const Finding &finding);
};

constexpr Wording wordings[] = {
    {"target-missed", targetMissed},
    {"step-failed", stepFailed},
    {"left-behind", leftBehind},
    {"mended", mended},
    {"rows-lost", rowsLost},
    {"values-lost", valuesLost},
    {"table-lost", tableLost},
    {"column-lost", columnLost},
    {"damaged", damaged},
    {"unreadable", unreadable},
    {"violations-removed", violationsRemoved},
    {"orphans-removed", orphansRemoved},
    {"reapplied", reapplied},
    {"renamed", renamed},
    {"direct", direct},
    {"newer-than-program", newerThanProgram},
    {"library-unfit", libraryUnfit},
    {"direct-run-cut", directRunCut},
};
} // namespace

QString Finding::sentence() const
{
    for (const Wording &wording : wordings) {
        if (kind == wording.kind) {
            return wording.sentence(*this);
        }
    }
    return QString::fromLatin1(code());
}

#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QVector>

#include <optional>

/// What took the missing rows or values.
struct Purpose {
    enum class Taker {
        Nobody,  ///< no version takes it: only this run does
        Version, ///< a version, on purpose
        Script,  ///< perhaps a reference-data script that names the table
        Unknown  ///< not known: the table of versions lacks a version that was walked
    };
    Taker taker = Taker::Nobody;
    int version = 0; ///< the version that took it

    bool operator<(const Purpose &other) const;
};

/// One row that a finding is about. Values are SQL literals.
struct FindingRow {
    QByteArray table;
    QByteArray key;    ///< the values of its key
    QByteArray before; ///< a value that changed; empty for a row that is gone
    QByteArray after;
};

/// A result of judging a run. docs/findings.md explains every code.
struct Finding {
    QByteArray kind;   ///< the first part of the code, such as "rows-lost"
    QByteArray object; ///< a table, version, reason or need; null where there is only one
    QByteArray column; ///< of that table, null when the finding is not on a column

    /// By name: "rows" counts the rows that it is about, "rowsBefore" and "rowsAfter" those of the
    /// table.
    QMap<QString, qint64> numbers;

    QByteArray mending; ///< of "mended": "copy-removed", "name-given" or "rows-returned"
    QByteArray table;   ///< of "mended": the table that the object is a copy of

    Purpose purpose;
    bool before = false;       ///< it was already so before this run
    bool accepted = false;     ///< the caller accepts its code
    bool beforeIsKept = false; ///< the database of before is kept, so a person can look at it
    QString detail;            ///< SQLite's words for it

    QVector<FindingRow> rows; ///< contents of the device; not every reader may see them
    bool hasAllRows = true;   ///< false when there were too many to keep

    /// @return the stable code: printable ASCII without blanks, such as "rows-lost:fields"
    QByteArray code() const;

    /// @return whether a person has to look at it
    bool counts() const;

    /// @return a sentence for a person: table names and numbers, no contents of rows
    QString sentence() const;

    /// @param withRows whether the keys, names and values of rows may be in it
    QJsonObject toJson(bool withRows) const;
};

/// @return a name from a database in printable ASCII: points and other bytes are %XX, a long name is
/// cut, and an empty one is ""
QByteArray printableName(const QByteArray &name);

/// Findings that need no database to be read.
namespace findings
{
/// @param reason the guard's code for the reason, such as "no-bubblewrap"
Finding direct(const QByteArray &reason);
/// @param recorded nothing when the database records no version
Finding targetMissed(const std::optional<int> &recorded, int target);
Finding newerThanProgram(int recorded, int newest);
/// @param missing what the library lacks; empty when it refuses texts in double quotes
Finding libraryUnfit(const QByteArray &missing);
/// A run before this one, without the guard's protection, was cut.
Finding directRunCut();
} // namespace findings

#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QVector>

#include <optional>

/// Who took what is missing.
struct Purpose {
    enum class Taker {
        Nobody,  ///< only here: no version takes it
        Version, ///< on purpose
        Script,  ///< perhaps a reference-data script, which names the table
        Unknown  ///< a version was walked that the table of versions does not know
    };
    Taker taker = Taker::Nobody;
    int version = 0; ///< the one that took it

    bool operator<(const Purpose &other) const;
};

/// One row that a finding is about. Values are SQL literals.
struct FindingRow {
    QByteArray table;
    QByteArray key;    ///< the values of its key
    QByteArray before; ///< of a value that changed; empty for a row that is gone
    QByteArray after;
};

/// Something worth saying about a run. docs/findings.md explains every code.
struct Finding {
    QByteArray kind;   ///< the first part of the code, such as "rows-lost"
    QByteArray object; ///< a table, version or reason; empty where there is only one
    QByteArray column; ///< of that table, empty when it is no column's finding

    /// By name: "rows" for the rows that it is about, "rowsBefore" and "rowsAfter" for the table's.
    QMap<QString, qint64> numbers;

    QByteArray mending; ///< of "mended": "copy-removed", "name-given" or "rows-returned"
    QByteArray table;   ///< of "mended": the table that the object is a copy of

    Purpose purpose;
    bool before = false;       ///< it was so before this run
    bool accepted = false;     ///< the caller has accepted its code
    bool beforeIsKept = false; ///< the database of before can be looked at
    QString detail;            ///< words of SQLite's for it

    QVector<FindingRow> rows; ///< contents of the device: not for every reader
    bool hasAllRows = true;   ///< false when there were too many to keep

    /// @return the stable code: printable ASCII without blanks, such as "rows-lost:fields"
    QByteArray code() const;

    /// @return whether somebody has to look at it
    bool counts() const;

    /// @return a sentence for a person: table names and numbers, no contents of rows
    QString sentence() const;

    /// @param withRows whether the keys, names and values of rows may be in it
    QJsonObject toJson(bool withRows) const;
};

/// @return a name of a database in printable ASCII: other bytes as %XX, and a long one cut
QByteArray printableName(const QByteArray &name);

/// Findings that take no database.
namespace findings
{
/// @param reason the guard's code for it, such as "no-bubblewrap"
Finding direct(const QByteArray &reason);
/// @param recorded nothing when the database records no version
Finding targetMissed(const std::optional<int> &recorded, int target);
Finding newerThanProgram(int recorded, int newest);
Finding libraryUnfit();
} // namespace findings

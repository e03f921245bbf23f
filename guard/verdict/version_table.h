#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QVector>

#include <utility>

/// @return a name of a table or column in the letter case in which names are compared
QByteArray folded(const QByteArray &name);

enum class Direction { Forward, Backward };

/// How a version rewrites the values of a column. The expressions are SQL over the row of before.
struct RewrittenValue {
    QByteArray becomes;  ///< the new value; empty: it cannot be predicted
    QByteArray any;      ///< a condition on rows that may get any value; empty: no row
    double within = 0;   ///< a number may differ by this fraction of itself
    QByteArray platform; ///< the only platform that this is for; empty: all
};

/// The parts of a table that a version takes away. Columns are keyed by their folded names.
struct TakenFromTable {
    bool dropped = false;
    QByteArray renamed; ///< the table's new name, empty when it keeps its name
    QByteArrayList columnsDropped;
    QHash<QByteArray, QByteArray> columnsRenamed;
    QByteArray rows; ///< an SQL condition for the rows that go, empty when none do
    QHash<QByteArray, RewrittenValue> values;
};

/// Rows of a table.
struct RowCondition {
    QByteArray table;
    QByteArray rows; ///< an SQL condition
};

/// A copy of a table that steps make and remove again.
struct CopyOfTable {
    QByteArray name;  ///< such as growers_temp
    QByteArray table; ///< the table that it is a copy of, as the versions write its name
    QVector<std::pair<int, Direction>> steps; ///< the steps that make the copy
};

/// The table of what versions take away on purpose, from the file beside the program.
class VersionTable
{
public:
    using Tables = QHash<QByteArray, TakenFromTable>; ///< by folded name

    /// Reads the file. If it cannot be read or has another format, the table knows no version.
    explicit VersionTable(const QString &path);

    /// @return the newest version that the program knows, 0 when the file does not say
    int newest() const { return m_newest; }

    /// A limit on versions, because a recorded, requested or logged number can have any value: far
    /// more than any program has, and few enough to go through all of them.
    static constexpr int mostVersions = 1000;

    bool knows(int version) const { return m_versions.contains(version); }

    /// @return what a step takes away, by table; empty for a step that is not known
    const Tables &takenBy(int version, Direction direction) const;

    /// @return the tables, folded, without which the step forward fails
    QByteArrayList neededBy(int version) const { return m_versions.value(version).needs; }

    /// The repairs and changes that every run makes, whatever it walks.
    struct EveryRun {
        QVector<RowCondition> rows;          ///< orphans that are removed, in this order
        QHash<QByteArray, QByteArray> names; ///< by table, the column whose names are made unique
        QHash<QByteArray, QByteArrayList> values; ///< by table, columns that it writes itself
        QStringList scripts; ///< names of the reference-data scripts beside the program
    };
    const EveryRun &everyRun() const { return m_everyRun; }

    /// @return the copies that a step can leave behind when it is cut
    const QVector<CopyOfTable> &copies() const { return m_copies; }

private:
    struct Version {
        Tables forward;
        Tables backward;
        QByteArrayList needs;
    };
    int m_newest = 0;
    QHash<int, Version> m_versions;
    EveryRun m_everyRun;
    QVector<CopyOfTable> m_copies;
};

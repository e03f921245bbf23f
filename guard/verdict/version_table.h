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

/// What a version rewrites a column's values to. The expressions are SQL over the row of before.
struct RewrittenValue {
    QByteArray becomes;  ///< the new value; empty: none that can be told
    QByteArray any;      ///< a condition on rows that may get any value; empty: no row
    double within = 0;   ///< a number may differ by this part of itself
    QByteArray platform; ///< only there; empty: everywhere
};

/// What a version takes from a table. Columns are keyed by their folded names.
struct TakenFromTable {
    bool dropped = false;
    QByteArray renamed; ///< the table's new name, empty when it keeps its name
    QByteArrayList columnsDropped;
    QHash<QByteArray, QByteArray> columnsRenamed;
    QByteArray rows; ///< an SQL condition on the rows that go, empty when none do
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
    QByteArray table; ///< the table that it is a copy of, as its name is written
    QVector<std::pair<int, Direction>> steps; ///< that make the copy
};

/// What versions take away on purpose, as the file beside the program tells it.
class VersionTable
{
public:
    using Tables = QHash<QByteArray, TakenFromTable>; ///< by folded name

    /// Reads the file. One that cannot be read, or has another format, knows no version.
    explicit VersionTable(const QString &path);

    /// @return the newest version that the program knows, 0 when the file does not say
    int newest() const { return m_newest; }

    /// Far more versions than any program has, and few enough to go through them all: what is recorded,
    /// asked for or logged can be any number.
    static constexpr int mostVersions = 1000;

    bool knows(int version) const { return m_versions.contains(version); }

    /// @return what a step takes, by table; nothing for one that is not known
    const Tables &takenBy(int version, Direction direction) const;

    /// @return the tables, folded, without which the step forward fails
    QByteArrayList neededBy(int version) const { return m_versions.value(version).needs; }

    /// What every run does, whatever it walks.
    struct EveryRun {
        QVector<RowCondition> rows;          ///< orphans, which go, in the order of their going
        QHash<QByteArray, QByteArray> names; ///< by table the column that is made unique
        QHash<QByteArray, QByteArrayList> values; ///< by table the columns that it writes itself
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

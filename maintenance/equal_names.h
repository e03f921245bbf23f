#pragma once

#include <QMap>
#include <QMultiHash>
#include <QSqlQuery>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

#include <functional>
#include <optional>
#include <set>

/// The rows of one table that a renaming pass has to look at. Looking at every row costs the square
/// of their number, because each needs a statement that reads the table; so where the tables allow
/// it, only suspects are looked at: rows with an equal name and rows whose statement may fail. What
/// the pass does to the database and to the log is the same.
class EqualNames
{
public:
    /// The values of the columns within which a name must be unique. The first of them is the one
    /// by which the pass reads its rows.
    using Scope = QVector<qint64>;

    /// @param table has the columns id and displayName
    /// @param scopeColumns the columns of a scope
    /// @param condition which rows the pass reads at all
    /// @param children the table whose rows the pass reads below this one's, by this one's id
    EqualNames(
        const QString &table, const QStringList &scopeColumns, const QString &condition = "true",
        EqualNames *children = nullptr);

    /// Finds the suspects, here and below. Without it, and where the tables do not allow it, every
    /// row is one.
    /// @return false when there are none
    bool prepare();

    /// Calls `visit` with the rows of a SELECT statement, one by one. Rows that are no suspects and
    /// have none below them may be left out.
    /// @param parent the first value of the rows' scope, 0 without a scope
    /// @return false when the statement failed
    bool forEachRow(
        const QString &select, qint64 parent, const std::function<void(const QSqlQuery &)> &visit);

    /// @return false when the statement that finds a name's equals can neither find two nor fail
    bool isSuspect(const Scope &scope, const QString &name);

    /// @return a restriction, to be put behind the statement that finds a suspect's equals, to the
    /// rows that can be equal; empty where every row can be
    QString among(const Scope &scope, const QString &name) const;

    /// @return how many rows a walk over all rows, or over a name's equals, may meet
    qint64 limit();

    /// Ends every walk over the table if only damage can have returned rows with falling ids: a sound
    /// table is read in the order of its row ids. A damaged one can return a row twice, which makes
    /// the row a duplicate of itself.
    /// @return false when a sound table can return these rows; the walks go on
    bool endBecauseOfDamage();

    /// Takes note of an attempt to rename a row.
    /// @param name the name by which the row was found
    void rowUpdated(qint64 id, const Scope &scope, const QString &name, const QString &newName);

private:
    struct Row {
        qint64 id;
        qint64 parent;

        bool operator==(const Row &other) const { return id == other.id && parent == other.parent; }
    };

    /// @return whether grouping finds equal names: names are text and scopes are integers, what is
    /// read is what is stored, and the columns are there
    bool isComparable() const;

    /// @return whether a row with an equal name or a breaking one exists; invalid on failure
    QVariant suspectsExist() const;

    /// @return whether the id is the row id, which no other kind of key is
    bool idIsRowId() const;

    /// @return whether a rename changes the row with its id and nothing else: the id is the row id,
    /// no trigger changes other rows, and no other row gives way to a new name or follows it
    bool renamesOneRow() const;

    /// @return whether the pass meets rows in the order of their row ids, because no index is of any
    /// use to its statements
    bool isReadInOrderOfRowIds() const;

    /// @return the scope columns as a list of SQL texts
    QString scopeNames() const;

    /// Reads the rows of every table again where statements may have changed anything.
    void refresh();
    bool readRows();
    void visitEquals(uint key);
    std::optional<qint64> nextRow(qint64 parent, const std::optional<qint64> &last);

    QString m_table;
    QStringList m_scopeColumns;
    QString m_condition;
    EqualNames *m_children;
    EqualNames *m_top = this;
    bool m_everyRow = true;  ///< every row is a suspect; the top's counts
    bool m_outdated = false; ///< the rows have to be read again; the top's counts
    bool m_readInOrderOfRowIds = false;
    std::optional<qint64> m_limit;
    QMultiHash<uint, Row> m_rowsByName;
    QMap<qint64, std::set<qint64>> m_rowsToVisit;
};

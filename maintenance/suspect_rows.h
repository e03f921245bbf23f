#pragma once

#include "maintenance/name_table.h"

#include <QMap>
#include <QMultiHash>
#include <QSqlQuery>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>
#include <optional>
#include <set>

/// The rows of one table that the renaming of duplicates has to look at.
///
/// The renaming looks for the equals of every row, and each look reads the table: rows times rows.
/// But only two kinds of rows make a difference, the suspects: a row that has an equal, and a row
/// whose name breaks its statement. The renaming looks at these alone, in the order in which it
/// would have met them; the database and the log are the same as if it had looked at every row.
///
/// An example, growers by id: 1 "A", 2 "B", 3 "A", 4 "A_2", 5 "O'Brien".
/// - Suspects are 1 and 3, which are equal, and 5, whose quote ends its statement early.
/// - Row 1 is looked at: its equals are 1 and 3, and 3 is renamed to "A_2". Now 3 and 4 are equal, so
///   4 becomes a suspect too.
/// - Row 3 is looked at: its equals are 3 and 4, and 4 is renamed to "A_2_2". Row 4 then has none.
/// - Row 5 is looked at: its statement fails, which is a line in the log.
/// - Row 2 is never looked at.
///
/// Where a table does not allow this (see NameTable) every row is looked at.
class SuspectRows
{
public:
    /// The values of a table's scope columns. The rows are read by the first of them.
    using Scope = QVector<qint64>;

    /// @param children the table whose rows are read row by row of this one, by this one's id
    explicit SuspectRows(const NameTable &table, SuspectRows *children = nullptr);

    /// Finds the suspects, here and in the children. Until it is called every row is one.
    /// @return false when there are none
    bool prepare();

    /// Calls `visit` with the rows of a SELECT statement, one by one. Rows that are no suspects and
    /// whose children are none may be left out.
    /// @param parent the first value of the rows' scope, 0 without a scope
    /// @return false when the statement failed
    bool forEachRow(
        const QString &select, qint64 parent, const std::function<void(const QSqlQuery &)> &visit);

    /// @return false when the statement that finds the equals of this name can neither find two rows
    /// nor fail
    bool isSuspect(const Scope &scope, const QString &name);

    /// @return a condition to append to the statement that finds the equals of a suspect: only these
    /// rows can be equal; empty where every row can be
    QString among(const Scope &scope, const QString &name) const;

    /// @return how many rows may be read in one go, over the table or over the equals of a name: twice
    /// the rows of the table. In a damaged table, or where a trigger adds rows, there might be no end.
    qint64 limit();

    /// Ends the renaming in this table if only damage can have returned rows with falling ids: a sound
    /// table is read in the order of its row ids. A damaged one can return a row twice, which makes
    /// the row a duplicate of itself.
    /// @return false when a sound table can return these rows; the renaming goes on
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

    /// @return false when a table does not allow to look at suspects alone
    bool allowsSuspectsOnly() const;

    bool visitEveryRow(const QString &select, const std::function<void(const QSqlQuery &)> &visit);
    bool visitSuspects(
        const QString &select, qint64 parent, const std::function<void(const QSqlQuery &)> &visit);

    /// Reads the rows of every table again where a statement may have changed anything.
    void refresh();
    bool readRows();
    void addSuspects(uint key);
    std::optional<qint64> nextSuspect(qint64 parent, const std::optional<qint64> &last);

    NameTable m_table;
    SuspectRows *m_children;
    SuspectRows *m_top = this;
    bool m_everyRow = true;  ///< every row is a suspect; the value of the topmost table counts
    bool m_outdated = false; ///< the rows must be read again; the value of the topmost table counts
    bool m_readInOrderOfRowIds = false;
    std::optional<qint64> m_limit;
    QMultiHash<uint, Row> m_rowsByName;
    QMap<qint64, std::set<qint64>> m_suspects; ///< ids by the first value of the scope
};

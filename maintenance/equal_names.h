#pragma once

#include <QMap>
#include <QMultiHash>
#include <QSqlQuery>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>
#include <optional>
#include <set>

/// The rows of one table that a renaming pass has to look at. Looking at every row costs the square
/// of their number, because each needs a statement that reads the table; so where the table is an
/// ordinary one, only rows with an equal name and rows whose statement may fail are looked at.
/// What the pass does to the database and to the log is the same.
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

    /// @return whether this and the tables below are ordinary: rows are read in the order of their
    /// id, names are text, scopes are integers, and no statement has side effects
    bool isOrdinary() const;

    /// @return true when no row, here and below, can be renamed and no statement can fail
    bool nothingToDo() const;

    /// Finds the rows to look at, here and below. Before it every row is looked at.
    void selectRows();

    /// Calls `visit` with the rows of a SELECT statement that are to be looked at, one by one.
    /// @param parent the first value of the rows' scope, 0 without a scope
    /// @return false when the statement failed
    bool forEachRow(
        const QString &select, qint64 parent, const std::function<void(const QSqlQuery &)> &visit);

    /// @return a restriction, to be put behind the statement that finds a name's equals, to the
    /// rows that can be equal; empty where every row can be
    QString among(const Scope &scope, const QString &name) const;

    /// Takes note that a row has been renamed.
    /// @param name the name by which the row was found
    void rowRenamed(qint64 id, const Scope &scope, const QString &name, const QString &newName);

private:
    struct Row {
        qint64 id;
        qint64 parent;
    };

    void visitEquals(uint key);
    std::optional<qint64> nextRow(qint64 parent, const std::optional<qint64> &last) const;

    QString m_table;
    QStringList m_scopeColumns;
    QString m_condition;
    EqualNames *m_children;
    EqualNames *m_parent = nullptr;
    bool m_everyRow = true;
    QMultiHash<uint, Row> m_rowsByName;
    QMap<qint64, std::set<qint64>> m_rowsToVisit;
};

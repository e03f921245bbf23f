#pragma once

#include "guard/verdict/finding.h"
#include "guard/verdict/judged_database.h"
#include "guard/verdict/table_walk.h"

/// How many rows a table had and has, as far as both could be read.
struct TableNumbers {
    QByteArray name; ///< in the database of before
    qint64 rowsBefore = 0;
    qint64 rowsAfter = 0;
    qint64 rowsGone = 0; ///< rows of before that are not there any more
    qint64 rowsNew = 0;
};

/// Keeps the rows that findings are about, up to a number of bytes in all.
class RowKeeper
{
public:
    void keep(Finding &finding, const FindingRow &row);

private:
    qint64 m_bytes = 0;
};

/// What the judgement of a table needs.
struct TableCase {
    QByteArray name;              ///< in the database of before
    QByteArray nameAfter;         ///< null when the table is gone
    const JudgedDatabase &before; ///< with the repairs, if there were any
    const JudgedDatabase &after;
    TableWalk walk;            ///< its columns are those of the shape
    TableShape shape;          ///< before
    QByteArray uniqueNames;    ///< the column of names that the run makes unique, folded; or empty
    QByteArrayList ownColumns; ///< folded: what the program writes itself
    bool isNamedByScript = false;
    bool hasUnknownVersion = false; ///< a version of the walk is not known
};

/// Why a table could not be judged.
enum class Unreadable { No, Before, After };

/// Judges what a run has done to a table.
/// @param[out] findings one for every kind, column and taker
Unreadable judgeTable(
    const TableCase &table, QVector<Finding> &findings, TableNumbers &numbers, RowKeeper &keeper);

/// The expressions by which rows of before and after are told, and how they are ordered.
struct RowIdentity {
    QByteArrayList before;
    QByteArrayList after;
    QByteArray tieBreakerBefore;
    QByteArray tieBreakerAfter;
};

/// @return nothing when the table after cannot be read
std::optional<RowIdentity> rowIdentity(const TableCase &table);

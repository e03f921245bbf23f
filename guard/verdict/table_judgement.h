#pragma once

#include "guard/verdict/finding.h"
#include "guard/verdict/table_case.h"

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

/// Why a table could not be judged.
enum class Unreadable { No, Before, After };

/// Judges what a run has done to a table.
/// @param[out] findings one for every kind, column and taker
Unreadable judgeTable(
    const TableCase &table, QVector<Finding> &findings, TableNumbers &numbers, RowKeeper &keeper);

#pragma once

#include "guard/verdict/finding.h"
#include "guard/verdict/table_case.h"

/// The numbers of rows of a table, if it could be read before and after.
struct TableNumbers {
    QByteArray name; ///< in the database of before
    qint64 rowsBefore = 0;
    qint64 rowsAfter = 0;
    qint64 rowsGone = 0; ///< rows of before that are gone
    qint64 rowsNew = 0;
};

/// Keeps the rows that findings are about, up to a limit of bytes for all.
class RowKeeper
{
public:
    void keep(Finding &finding, const FindingRow &row);

private:
    qint64 m_bytes = 0;
};

/// Why a table could not be judged.
enum class Unreadable { No, Before, After };

/// Judges the changes that a run has made to a table.
/// @param[out] findings receives one for every kind, column and taker
Unreadable judgeTable(
    const TableCase &table, QVector<Finding> &findings, TableNumbers &numbers, RowKeeper &keeper);

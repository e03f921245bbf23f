#pragma once

#include "guard/verdict/repaired_copy.h"
#include "guard/verdict/table_judgement.h"

#include <optional>

/// The findings on rows that a run removes before it walks.
struct FoundRepairs {
    Finding &orphans; ///< one for all tables
    std::optional<Finding> violations;
};

/// Notes the rows of before that neither the repaired copy nor the database after has.
/// @param table its database of before is the repaired copy
/// @param original the database of before, without the repairs
/// @param numbers as they are told from the repaired copy; made those of the original
Unreadable judgeRepairs(
    const TableCase &table, const JudgedDatabase &original, const RepairedCopy &repaired,
    FoundRepairs &found, TableNumbers &numbers, RowKeeper &keeper);

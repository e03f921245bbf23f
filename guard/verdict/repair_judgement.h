#pragma once

#include "guard/verdict/repaired_copy.h"
#include "guard/verdict/table_judgement.h"

#include <optional>

/// The findings on rows that a run removes before it walks.
struct FoundRepairs {
    Finding &orphans; ///< one for all tables
    std::optional<Finding> violations;
};

/// Notes the rows of before that are missing both in the repaired copy and in the database after.
/// @param table a case whose database of before is the repaired copy
/// @param original the database of before, without the repairs
/// @param[in,out] numbers counted on the repaired copy; changed to those of the original
Unreadable judgeRepairs(
    const TableCase &table, const JudgedDatabase &original, const RepairedCopy &repaired,
    FoundRepairs &found, TableNumbers &numbers, RowKeeper &keeper);

#pragma once

#include "guard/verdict/judged_database.h"
#include "guard/verdict/table_walk.h"

/// A table to judge.
struct TableCase {
    QByteArray name;              ///< in the database of before
    QByteArray nameAfter;         ///< null when the table is gone
    const JudgedDatabase &before; ///< with the repairs, if there were any
    const JudgedDatabase &after;
    TableWalk walk;            ///< its columns are those of the shape
    TableShape shape;          ///< before
    QByteArray uniqueNames;    ///< folded: the column whose names the run makes unique, or empty
    QByteArrayList ownColumns; ///< folded: the columns that the program writes itself
    bool isNamedByScript = false;
    bool hasUnknownVersion = false; ///< a version of the walk is not in the table of versions
};

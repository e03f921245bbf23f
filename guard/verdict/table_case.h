#pragma once

#include "guard/verdict/judged_database.h"
#include "guard/verdict/table_walk.h"

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

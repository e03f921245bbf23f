#pragma once

#include "schema/table_info.h"

#include <QString>

/// The statements that rebuild a table without one of its columns, in the order in which they run:
/// the copy `<table>_temp` is created and filled, the table is dropped and the copy gets its name.
struct RebuildStatements {
    QString create;
    QString copyRows;
    QString drop;
    QString rename;
};

/// Composes the statements from a table's structure. They carry over the names, types, NOT NULL,
/// defaults, the primary key and the FOREIGN KEY clauses that do not name the column, and nothing
/// else. Without a primary key, or with a gap in it, the create statement is one that SQLite refuses.
/// @param column the column that goes, in any letter case; one that is not there changes nothing
RebuildStatements composeRebuild(
    const QString &table, const TableInfo &info, const QString &column);

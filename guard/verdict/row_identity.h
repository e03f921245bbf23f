#pragma once

#include "guard/verdict/table_case.h"

#include <optional>

/// The expressions that identify rows of before and after, and the order of the rows.
struct RowIdentity {
    QByteArrayList before;
    QByteArrayList after;
    QByteArray tieBreakerBefore;
    QByteArray tieBreakerAfter;
};

/// @return nothing when the table after cannot be read
std::optional<RowIdentity> rowIdentity(const TableCase &table);

/// @return the expressions that identify the rows of a table within its own database
QByteArrayList ownKey(const TableShape &shape);

/// @return the place of a column of before after the walk, -1 when it is gone
int placeAfter(const ColumnWalk &column, const TableShape &after);

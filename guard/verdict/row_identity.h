#pragma once

#include "guard/verdict/table_case.h"

#include <optional>

/// The expressions by which rows of before and after are told, and how they are ordered.
struct RowIdentity {
    QByteArrayList before;
    QByteArrayList after;
    QByteArray tieBreakerBefore;
    QByteArray tieBreakerAfter;
};

/// @return nothing when the table after cannot be read
std::optional<RowIdentity> rowIdentity(const TableCase &table);

/// @return the expressions by which the rows of a table are told in its own database
QByteArrayList ownKey(const TableShape &shape);

/// @return where a column of before is after the walk, -1 when it is gone
int placeAfter(const ColumnWalk &column, const TableShape &after);

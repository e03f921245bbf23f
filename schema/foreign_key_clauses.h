#pragma once

#include <QString>

/// Finds the FOREIGN KEY clauses of a table that do not name a column.
/// @param createText the CREATE statement as the database keeps it
/// @param column a clause that contains this name anywhere, in any letter case, is left out
/// @return the other clauses, in their order, each followed by ","
QString extractForeignKeys(const QString &createText, const QString &column);

/// Finds where a clause ends.
/// @param text a text that begins with the clause
/// @return the index of the comma that ends the clause, the text's length less one without such a comma
int findClauseEnd(const QString &text);

#pragma once

#include <QString>

/// Takes the FOREIGN KEY clauses that can stay when a column goes from a table's CREATE text.
/// @param createText the CREATE statement as the database keeps it
/// @param column the column that goes; a clause that holds its name anywhere, in any letter case,
/// is left out
/// @return the clauses that stay, in their order, each followed by ","
QString extractForeignKeys(const QString &createText, const QString &column);

/// Finds where a clause ends.
/// @param text a text that begins with the clause
/// @return the index of the comma that ends the clause, the text's length less one without such
int findClauseEnd(const QString &text);

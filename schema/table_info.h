#pragma once

#include <QString>
#include <QStringList>

/// A table's structure as the database describes it. The five lists after the first are parallel:
/// entry i of each describes the same column, in the order of declaration.
struct TableInfo {
    QStringList foreignKeyColumns;   ///< the referencing column of every foreign key row
    QStringList columnNames;         ///< as declared
    QStringList columnTypes;         ///< as declared
    QStringList notNullFlags;        ///< "0" or "1"
    QStringList defaultValues;       ///< as written in the declaration, empty without a default
    QStringList primaryKeyPositions; ///< "0" outside the primary key, from "1" in it
    QString createText;              ///< the CREATE statement, empty when there is no such table
    /// Why only a part could be read: some columns, or the columns without the CREATE statement.
    /// Empty when all of it was read, and when there are no columns at all.
    QString readError;
};

#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

/// A table whose display names must be unique within a scope, and what SQLite can tell about it
/// before a row is renamed. Each answer is one statement that changes nothing.
struct NameTable {
    QString name;               ///< the table's name; it has the columns id and displayName
    QStringList scopeColumns;   ///< a name is unique among rows with equal values in these columns
    QString condition = "true"; ///< which rows are read at all

    /// @return true when SQLite's own grouping finds equal names: names are texts and scopes are
    /// integers, every value is read as it is stored, and the columns are there
    bool canBeGrouped() const;

    /// @return whether there are two rows with equal names in one scope, or a name that breaks its
    /// statement; invalid when the table cannot be read
    QVariant hasSuspects() const;

    /// @return true when a rename changes the row with its id and nothing else: the id is the row
    /// id, no trigger changes other rows, and no other row is replaced because of the new name
    bool renameChangesOneRow() const;

    /// @return true when rows are read in the order of their row ids: no index is of any use to the
    /// statements
    bool isReadInOrderOfRowIds() const;

    /// @return true when the id is the row id, which no other kind of key is
    bool idIsRowId() const;
};

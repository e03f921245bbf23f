#pragma once

#include "guard/verdict/version_table.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QVector>

#include <optional>

/// A table that a version renames.
struct RenamedTable {
    int version;
    QByteArray before;
    QByteArray after;
};

/// A copy that a cut step leaves behind, and what all versions do to its table.
struct KnownCopy {
    QByteArray name;               ///< such as growers_temp
    QByteArray table;              ///< the table that it is a copy of
    QVector<RenamedTable> renames; ///< of the table
    QByteArrayList inItsPlace;     ///< tables that hold its rows in versions without this table
    QByteArrayList otherCopies;    ///< of the same table
    QVector<TakenFromTable> steps; ///< what steps that make the copy take from the table

    /// @return all names that the table has in any version, its own first
    QByteArrayList names() const;

    /// @return the name of the table at a version; its own name when there is no version
    QByteArray nameAt(std::optional<qint64> version) const;
};

/// @return the copies that steps can leave behind, in the order of their names
QVector<KnownCopy> knownCopies(const VersionTable &versions);

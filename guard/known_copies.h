#pragma once

#include "guard/verdict/version_table.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QVector>

#include <optional>

/// A version gives a table another name.
struct RenamedTable {
    int version;
    QByteArray before;
    QByteArray after;
};

/// A copy that a cut step leaves behind, and what becomes of its table in all versions.
struct KnownCopy {
    QByteArray name;               ///< such as growers_temp
    QByteArray table;              ///< the table that it is a copy of
    QVector<RenamedTable> renames; ///< of the table
    QByteArrayList inItsPlace;     ///< tables of the versions that do not have this one
    QByteArrayList otherCopies;    ///< of the same table
    QVector<TakenFromTable> steps; ///< what the steps that make the copy take from the table

    /// @return the names that the table has in all versions, its own one first
    QByteArrayList names() const;

    /// @return the name of the table at a version, its own one at none
    QByteArray nameAt(std::optional<qint64> version) const;
};

/// @return the copies that the versions can leave behind, in the order of their names
QVector<KnownCopy> knownCopies(const VersionTable &versions);

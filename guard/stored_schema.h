#pragma once

#include "guard/comparison.h"
#include "guard/database_file.h"

#include <QVector>

#include <optional>

/// A schema's object and the first page of its b-tree.
struct StoredObject {
    SchemaObject object;
    quint32 rootPage = 0; ///< 0 for what has no b-tree: views, triggers, virtual tables
};

/// Reads sqlite_schema as it is stored, without parsing its definitions.
/// @return the objects, sorted by precedes(); nothing when they cannot be read
std::optional<QVector<StoredObject>> readStoredSchema(const DatabaseFile &file);

/// Orders objects by all their texts; the place of their b-tree does not count.
bool precedes(const SchemaObject &left, const SchemaObject &right);

#pragma once

#include <QByteArray>

inline const QByteArray files =
    "CREATE TABLE files (id INTEGER PRIMARY KEY, uuid TEXT, displayName TEXT, absolutePath TEXT, "
    "fileSize INTEGER, typeId INTEGER, created TEXT, growerId INTEGER, farmId INTEGER, "
    "fieldId INTEGER);";

/// @return statements for one file
/// @param scope its type, grower, farm and field
inline QByteArray file(const QByteArray &id, const QByteArray &name, const QByteArray &scope)
{
    return "INSERT INTO files (id, displayName, typeId, growerId, farmId, fieldId) VALUES (" + id +
           ", " + name + ", " + scope + ");";
}

#pragma once

#include <QByteArray>
#include <QByteArrayList>

/// A small database with the tables that have display names. The same seed makes the same database.
/// Most databases have the tables of the device software; in the others some tables differ. Names,
/// ids and references can be any value.
/// @return the statements that make it; one that fails adds nothing
QByteArrayList randomDatabase(quint32 seed);

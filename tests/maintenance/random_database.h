#pragma once

#include <QByteArray>
#include <QByteArrayList>

/// A small database with the tables that hold display names, the same one for the same seed. Most
/// have tables as the device software makes them; in the others some tables are odd in one way or
/// another. Names, ids and references are anything that a database can hold.
/// @return the statements that make it; one that fails adds nothing
QByteArrayList randomDatabase(quint32 seed);

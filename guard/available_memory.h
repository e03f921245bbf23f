#pragma once

#include <QString>

/// @return how many bytes new files in memory may take: the least that the system, or any control
/// group above this process, has left
/// @param root where the system's own file systems are: "/", or in tests a directory of the test
qint64 availableMemory(const QString &root = QStringLiteral("/"));

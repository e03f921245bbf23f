#pragma once

#include <QString>

/// @return bytes of memory that new files in memory may take: what the system has left, and what
/// each control group above this process has left
/// @param root where the system's own file systems are: "/", a test's directory in tests
qint64 availableMemory(const QString &root = QStringLiteral("/"));

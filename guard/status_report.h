#pragma once

#include "guard/device_paths.h"

#include <QStringList>

/// @return what `migration-guard status` prints: recorded version, newest version that the program
/// knows, the kept database of before, the last run and the last change
QStringList statusReport(const DevicePaths &device);

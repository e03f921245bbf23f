#pragma once

#include "guard/command_line.h"

/// Executes `rehearse`: prints how the run would end to standard error, and JSON if it is asked
/// for.
/// @param application the application directory, absolute
/// @param target the parsed one
/// @return the exit status
int rehearseAsAsked(const CommandLine &line, const QString &application, int target);

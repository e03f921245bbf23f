#pragma once

#include "guard/command_line.h"

/// Does what `rehearse` is asked for: prints how the run would end to standard error, and JSON.
/// @param application the application directory, absolute
/// @param target the parsed one
/// @return the exit status
int rehearseAsAsked(const CommandLine &line, const QString &application, int target);

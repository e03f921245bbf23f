#pragma once

#include <QByteArray>

/// What the guard reads in the log of a run. The program's log words are a contract.
namespace runLog
{
/// @return true when a line says that something could not be written or kept in memory: the result
/// may be half of one
bool tellsOfLackOfRoom(const QByteArray &line);

/// @return true for a line with which a step ends
bool closesAStep(const QByteArray &line);

/// @return true when a step of the run failed: it says so, or the walk passed a version forward
/// without its line of success
/// @param from recorded version before
/// @param to recorded version after
bool hasFailedStep(const QByteArray &text, int from, int to);

/// @return false when the program has not written it to the end
bool isWhole(const QByteArray &text);
} // namespace runLog

#pragma once

#include <QByteArray>

/// Reads the log of a run. The program's log words are a contract.
namespace runLog
{
/// @return true when a line says that something could not be written or kept in memory: the result
/// may be a half one
bool tellsOfLackOfRoom(const QByteArray &line);

/// @return true for a line with which a step ends
bool closesAStep(const QByteArray &line);

/// @return false when the program did not write the log to its end
bool isWhole(const QByteArray &text);
} // namespace runLog

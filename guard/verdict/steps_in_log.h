#pragma once

#include "guard/verdict/version_table.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QHash>
#include <QSet>
#include <QVector>

/// The steps of a run according to its log. The program's log words are a contract.
struct StepsInLog {
    QVector<int> reapplied; ///< the versions that self-repair applied again, in order
    int lastClosed = 0;     ///< the last version of the walk forward that says how it ended
    QSet<int> failedAgain;  ///< those of `reapplied` that failed
    QSet<int> failed;       ///< the versions of the walk whose step failed
    QHash<int, QByteArrayList> linesOfFailed; ///< by version, the log's lines on those steps
    bool unknownFailed = false;               ///< a step failed, but the log does not say which
};

/// @return whether the log has the first line of a run; if not, nothing is known about its steps
bool tellsOfRun(const QByteArray &log);

/// @param log the text that the run has logged
/// @param from the version at which the walk began
/// @param target the version that it was to reach
StepsInLog readSteps(const QByteArray &log, int from, int target, const VersionTable &versions);

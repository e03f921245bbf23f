#pragma once

#include "guard/verdict/version_table.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QHash>
#include <QSet>
#include <QVector>

/// What the log text of a run says about its steps. The program's log words are a contract.
struct StepsInLog {
    QVector<int> reapplied; ///< the versions that self-repair applied again, in order
    QSet<int> failedAgain;  ///< those of them that failed
    QSet<int> failed;       ///< the versions of the walk whose step failed
    QHash<int, QByteArrayList> linesOfFailed; ///< by version, what the log says of those steps
    bool unknownFailed = false;               ///< a step failed, and nothing tells which
};

/// @return whether a run has begun to write; without that nothing is known of its steps
bool tellsOfRun(const QByteArray &log);

/// @param log the text that the run has logged
/// @param from the version at which the walk began
/// @param target the version to which it should go
StepsInLog readSteps(const QByteArray &log, int from, int target, const VersionTable &versions);

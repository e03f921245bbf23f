#pragma once

#include "guard/verdict/finding.h"
#include "guard/verdict/steps_in_log.h"
#include "guard/verdict/table_walk.h"

#include <QSet>

#include <optional>

/// @param recorded the version before, nothing when the database records none
/// @param reapplied the versions that self-repair applied again
/// @return the steps that a run makes: what is applied again, then the walk
QVector<Step> stepsOfRun(
    std::optional<int> recorded, int target, const QVector<int> &reapplied,
    const VersionTable &versions);

/// Tells which steps would have failed before, too. A step forward that needs a table which was not
/// there fails on every run, and so does a later one that needs what that step would have made.
/// @param steps of the run
/// @param tables that there were before the run, folded
/// @return the versions of the walk whose steps have failed for that
QSet<int> stepsThatLackTables(
    const QVector<Step> &steps, const StepsInLog &log, const QSet<QByteArray> &tables,
    const VersionTable &versions);

/// @param lacking the versions of stepsThatLackTables()
/// @return the findings on steps that failed, and on those that were applied again
QVector<Finding> findingsOnSteps(const StepsInLog &log, const QSet<int> &lacking);

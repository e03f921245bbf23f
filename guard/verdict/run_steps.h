#pragma once

#include "guard/verdict/finding.h"
#include "guard/verdict/steps_in_log.h"
#include "guard/verdict/table_walk.h"

#include <QSet>

#include <optional>

/// @param recorded the version before, nothing when the database records none
/// @param reached the version after, nothing when the database records none or it is not known
/// @return the steps of a run: those that are applied again, then the walk
QVector<Step> stepsOfRun(
    std::optional<int> recorded, std::optional<int> reached, int target, const StepsInLog &log,
    const VersionTable &versions);

/// Finds the steps that fail on every run: a step forward that needs a table which was not there,
/// and a later step that needs a table which that step would have made.
/// @param steps of the run
/// @param tables the tables before the run, folded
/// @return the versions of the walk whose steps failed for that reason
QSet<int> stepsThatLackTables(
    const QVector<Step> &steps, const StepsInLog &log, const QSet<QByteArray> &tables,
    const VersionTable &versions);

/// @param lacking the result of stepsThatLackTables()
/// @return the findings on steps that failed, and on those that were applied again
QVector<Finding> findingsOnSteps(const StepsInLog &log, const QSet<int> &lacking);

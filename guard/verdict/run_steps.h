#pragma once

#include "guard/verdict/table_walk.h"

#include <QSet>

#include <optional>

/// @param recorded the version before, nothing when the database records none
/// @param reapplied the versions that self-repair applied again
/// @return the steps that a run makes: what is applied again, then the walk
QVector<Step> stepsOfRun(
    std::optional<int> recorded, int target, const QVector<int> &reapplied,
    const VersionTable &versions);

/// @param steps of the run
/// @param tables that there were before the run, folded
/// @return whether a table that a version's step of the walk takes was missing before the run
bool lackedTable(
    int version, const QVector<Step> &steps, const QSet<QByteArray> &tables,
    const VersionTable &versions);

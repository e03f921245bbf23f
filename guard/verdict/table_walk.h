#pragma once

#include "guard/verdict/version_table.h"

/// A step of a run.
struct Step {
    int version = 0;
    Direction direction = Direction::Forward;
};

/// The effects of a run's steps on a column of before.
struct ColumnWalk {
    struct Rule {
        int version = 0;
        RewrittenValue value;
    };
    QByteArrayList names; ///< its names one after the other, folded
    QVector<Rule> rules;  ///< in the order of the steps
    int droppedBy = 0;    ///< a version, 0 when it is kept
};

/// The effects of a run's steps on a table of before.
struct TableWalk {
    struct Rule {
        int version = 0;
        QByteArray rows; ///< a condition
    };
    QByteArrayList names; ///< its names one after the other; the first as in the database of before
    QVector<Rule> rules;  ///< in the order of the steps
    int droppedBy = 0;    ///< a version, 0 when it is kept
    QVector<ColumnWalk> columns; ///< in the order of the argument
};

/// Follows a table through the steps.
/// @param columns the table's columns before
/// @param platform the device's
TableWalk followTable(
    const QByteArray &table, const QByteArrayList &columns, const QVector<Step> &steps,
    const VersionTable &versions, const QByteArray &platform);

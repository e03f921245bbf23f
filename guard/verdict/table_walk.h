#pragma once

#include "guard/verdict/version_table.h"

/// A step that a run has made.
struct Step {
    int version = 0;
    Direction direction = Direction::Forward;
};

/// What the steps of a run do to a column of before.
struct ColumnWalk {
    struct Rule {
        int version = 0;
        RewrittenValue value;
    };
    QByteArrayList names; ///< that it has one after the other, folded
    QVector<Rule> rules;  ///< in the order of the steps
    int droppedBy = 0;    ///< a version, 0 when it is kept
};

/// What the steps of a run do to a table of before.
struct TableWalk {
    struct Rule {
        int version = 0;
        QByteArray rows; ///< a condition
    };
    QByteArrayList
        names; ///< that it has one after the other; the first as in the database of before
    QVector<Rule> rules;         ///< in the order of the steps
    int droppedBy = 0;           ///< a version, 0 when it is kept
    QVector<ColumnWalk> columns; ///< in the order that was asked for
};

/// Follows a table through the steps.
/// @param columns of the table before
/// @param platform of the device
TableWalk followTable(
    const QByteArray &table, const QByteArrayList &columns, const QVector<Step> &steps,
    const VersionTable &versions, const QByteArray &platform);

#pragma once

#include <QtTest>

/// Declares the columns of a test's rows.
/// @return a function that adds a row: its sentence, then a value for every column
template <typename... Values, typename... Names> auto addColumns(const Names &...names)
{
    (QTest::addColumn<Values>(names), ...);
    return [](const char *sentence, const Values &...values) {
        (QTest::newRow(sentence) << ... << values);
    };
}

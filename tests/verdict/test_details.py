"""Equal keys, the order of keys, and names that are cut."""

import hashlib
import itertools
import math

import pytest

NUMBERS = (0, 0.0, -1, 1, 1.0, 0.5, -0.5, 1.5, -1.5, 2, -2.0, 1 << 53, (1 << 53) + 1,
           float(1 << 53), (1 << 63) - 1, float(1 << 63), -(1 << 63), -float(1 << 63),
           math.nextafter(-float(1 << 63), -math.inf), 1e300, -1e300, math.inf, -math.inf)
# Keys in SQLite's order, each with the expression that makes it.
KEYS = ("NULL", "-9e999", "-9223372036854775808", "-1.5", "-1", "0", "0.5", "1", "9007199254740992",
        "9007199254740993", "9223372036854775807", "9e300", "''", "'B'", "'a'", "'aa'", "'b'",
        "'é'", "x''", "x'00'", "x'41'", "x'4100'", "x'ff'")


def literal(number):
    if isinstance(number, int):
        return str(number) if number > -(1 << 63) else "(-9223372036854775807 - 1)"
    return f"{'-' * (number < 0)}9e999" if math.isinf(number) else repr(number)


def test_keys_are_equal_as_sqlite_compares_numbers(bench):
    """A table for every two numbers, one as the key before and the other as the key after."""
    pairs = [*itertools.product(NUMBERS, repeat=2)]
    before, after = ("".join(
        f"CREATE TABLE t{place} (k PRIMARY KEY); INSERT INTO t{place} VALUES"
        f" ({literal(pair[side])});" for place, pair in enumerate(pairs)) for side in (0, 1))
    verdict = bench.verdict(before, after)
    found = {finding["object"]: finding["kind"] for finding in verdict["findings"]}
    for place, (left, right) in enumerate(pairs):
        expected = None if repr(left) == repr(right) else "rows-lost"
        if left == right and expected:
            expected = "values-lost"
        assert found.get(f"t{place}") == expected, (left, right)


@pytest.mark.parametrize("side", ["before", "after"])
def test_any_one_row_is_missed_among_keys_of_every_class(bench, side):
    """A table for every key, in which only its row is gone, or new."""
    rows = ", ".join(f"({key}, {place})" for place, key in enumerate(KEYS))
    tables = "".join(f"CREATE TABLE t{place} (k PRIMARY KEY, a); INSERT INTO t{place} VALUES"
                     f" {rows};" for place in range(len(KEYS)))
    fewer = tables + "".join(f"DELETE FROM t{place} WHERE a = {place};"
                             for place in range(len(KEYS)))
    verdict = bench.verdict(*(tables, fewer) if side == "before" else (fewer, tables))
    gone = {finding["object"]: [row["key"] for row in finding["rows"]]
            for finding in verdict["findings"]}
    assert {finding["kind"] for finding in verdict["findings"]} <= {"rows-lost"}
    expected = {f"t{place}": [{"9e300": "8.9999999999999999e+300"}.get(key, key)]
                for place, key in enumerate(KEYS)}
    assert gone == (expected if side == "before" else {})
    for numbers in verdict["tables"]:
        count = len(KEYS)
        assert (numbers["rowsBefore"], numbers["rowsAfter"], numbers["rowsGone"],
                numbers["rowsNew"]) == ((count, count - 1, 1, 0) if side == "before"
                                        else (count - 1, count, 0, 1))


@pytest.mark.parametrize("length, cut", [(64, False), (65, True)])
def test_long_names_are_cut(bench, length, cut):
    name = "x" * length
    table = (f"CREATE TABLE {name} (id INTEGER PRIMARY KEY, {name});"
             f"INSERT INTO {name} VALUES (1, 2);")
    finding, = bench.verdict(table, table + f"UPDATE {name} SET {name} = 3")["findings"]
    digest = hashlib.sha1(name.encode()).hexdigest()[:8]
    expected = f"{name[:64]}~{digest}" if cut else name
    assert finding["code"] == f"values-lost:{expected}.{expected}"
    assert (finding["object"], finding["column"]) == (expected, expected)
    assert finding["sentence"] == (f"1 value of {expected} in {expected} changed: "
                                   "look at before-migration.sqlite")


def test_many_rows_that_belong_to_nothing_are_all_removed(bench):
    """The work is more than SQLite does before it asks whether it may go on."""
    tables = ("CREATE TABLE parents (id INTEGER PRIMARY KEY); CREATE TABLE children (id INTEGER"
              " PRIMARY KEY, parent REFERENCES parents); INSERT INTO children WITH RECURSIVE n(i) "
              "AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000) SELECT i, i FROM n;")
    finding, = bench.verdict(tables, tables + "DELETE FROM children")["findings"]
    assert (finding["code"], finding["numbers"]["rows"]) == ("violations-removed:children", 5000)


def test_without_anything_to_repair_no_room_is_needed(bench):
    rows = "CREATE TABLE t (id INTEGER PRIMARY KEY); INSERT INTO t VALUES (1);"
    verdict = bench.verdict(rows, rows + "DELETE FROM t", scratch="/proc/none")
    assert not verdict["lackedRoom"]
    assert [finding["code"] for finding in verdict["findings"]] == ["rows-lost:t"]

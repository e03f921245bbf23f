"""Bounds on the part of the rows that a verdict reads and keeps."""

import pytest
from bench import FIELDS

MEBIBYTE = 1 << 20


def test_rows_are_kept_up_to_32_mebibytes(bench):
    """Each is a key of 1,000 bytes in quotes, and what is stored with it."""
    rows = (FIELDS + "CREATE TABLE t (k TEXT PRIMARY KEY) WITHOUT ROWID; INSERT INTO t "
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 33000)"
            "SELECT printf('%01000d', i) FROM n;")
    finding, = bench.verdict(rows, rows + "DELETE FROM t")["findings"]
    size = 1002 + 4 * 8
    kept = len(finding["rows"])
    assert kept * size <= 32 * MEBIBYTE < (kept + 1) * size
    assert finding["numbers"]["rows"] == 33_000
    assert finding["hasAllRows"] is False


def test_values_are_kept_up_to_32_mebibytes(bench):
    """For a changed value, both the old and the new one are kept."""
    rows = ("CREATE TABLE t (id INTEGER PRIMARY KEY, a); INSERT INTO t WITH RECURSIVE n(i) AS"
            " (SELECT 10000 UNION ALL SELECT i + 1 FROM n WHERE i < 50000)"
            " SELECT i, printf('%01000d', i) FROM n;")
    finding, = bench.verdict(rows, rows + "UPDATE t SET a = ''")["findings"]
    size = 5 + 1002 + 2 + 4 * 8
    kept = len(finding["rows"])
    assert kept * size <= 32 * MEBIBYTE < (kept + 1) * size
    assert finding["hasAllRows"] is False


@pytest.mark.parametrize("size, kind", [
    (64 * MEBIBYTE - 1000, "values-lost"), (64 * MEBIBYTE + 1, "unreadable")])
def test_rows_are_read_up_to_64_mebibytes(bench, size, kind):
    rows = ("CREATE TABLE t (id INTEGER PRIMARY KEY, a, b);"
            f"INSERT INTO t VALUES (1, zeroblob({size}), 1);")
    finding, = bench.verdict(rows, rows + "UPDATE t SET b = 2")["findings"]
    assert finding["kind"] == kind

"""The changes that `restore` prints before it makes them."""

import shutil
import sqlite3
from contextlib import closing

import pytest

FIRST = "before-migration.sqlite comes back."
LAST = "The next start migrates again unless the image changes."


@pytest.fixture
def changes(device):
    """Makes the kept database and the current one, and returns the lines about their changes."""
    def of(kept, current, settings=""):
        with closing(sqlite3.connect(device.database, isolation_level=None)) as database:
            database.executescript(settings + kept)
        shutil.copy(device.database, device.kept)
        with closing(sqlite3.connect(device.database, isolation_level=None)) as database:
            database.executescript(current)
        run = device.run("restore", "--dry-run")
        assert run.returncode == 0, run.stderr
        first, *lines, last = run.stdout.removesuffix("\n").split("\n")
        assert (first, last) == (FIRST, LAST)
        return lines
    return of


ROWS = [
    ("rows without a key", "CREATE TABLE t (a); INSERT INTO t VALUES (1), (2), (3);",
     "DELETE FROM t WHERE a = 2; INSERT INTO t VALUES (4), (5); UPDATE t SET a = 9 WHERE a = 1;",
     ["t: 2 rows go (4, 5), 1 row comes back (2), 1 row changes"]),
    ("a key of two columns",
     "CREATE TABLE t (a, b, PRIMARY KEY (b, a)); INSERT INTO t VALUES (1, 2);",
     "UPDATE t SET a = NULL;", ["t: 1 row goes (2/NULL), 1 row comes back (2/1)"]),
    ("a key whose letter case changes",
     "CREATE TABLE t (a TEXT COLLATE NOCASE PRIMARY KEY, b); INSERT INTO t VALUES ('a', 1);",
     "UPDATE t SET a = 'A';", ["t: 1 row goes ('A'), 1 row comes back ('a')"]),
    ("an integer key that becomes a real one",
     "CREATE TABLE t (a PRIMARY KEY, b); INSERT INTO t VALUES (1, 1);", "UPDATE t SET a = 1.0;",
     ["t: 1 row goes (1.0), 1 row comes back (1)"]),
    ("a value whose letter case changes",
     "CREATE TABLE t (a INTEGER PRIMARY KEY, b COLLATE NOCASE); INSERT INTO t VALUES (1, 'x');",
     "UPDATE t SET b = 'X';", ["t: 1 row changes"]),
    ("an integer value that becomes a real one",
     "CREATE TABLE t (a INTEGER PRIMARY KEY, b); INSERT INTO t VALUES (1, 1);",
     "UPDATE t SET b = 1.0;", ["t: 1 row changes"]),
    ("a difference that no query finds",
     "CREATE TABLE t (a PRIMARY KEY); INSERT INTO t VALUES (NULL), (NULL);",
     "INSERT INTO t VALUES (NULL);", ["t: rows change"]),
    ("another key, and no row ids",
     "CREATE TABLE t (a PRIMARY KEY, b) WITHOUT ROWID; INSERT INTO t VALUES (1, 2);",
     "DROP TABLE t; CREATE TABLE t (a, b PRIMARY KEY) WITHOUT ROWID; INSERT INTO t VALUES (1, 3);",
     ["t: rows change, and cannot be compared: no such column: rowid, the definition changes"]),
    ("many rows", "CREATE TABLE t (a INTEGER PRIMARY KEY);",
     "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 25)"
     "INSERT INTO t SELECT i FROM n;",
     ["t: 25 rows go (" + ", ".join(map(str, range(1, 21))) + ", ...)"]),
    ("tables that go and come back", "CREATE TABLE t (a); INSERT INTO t VALUES (1), (2);",
     "DROP TABLE t; CREATE TABLE u (a);",
     ["t: the table comes back, rows: 2", "u: the table goes, rows: 0"]),
    ("other objects",
     "CREATE TABLE t (a UNIQUE, b); CREATE INDEX i ON t (a); CREATE VIEW v AS SELECT 1;"
     "CREATE TRIGGER r AFTER INSERT ON t BEGIN SELECT 1; END;",
     "DROP INDEX i; CREATE INDEX i ON t (b); DROP VIEW v; CREATE VIEW w AS SELECT 1;"
     "DROP TRIGGER r; PRAGMA user_version = 5;",
     ["index i: changes", "trigger r: comes back", "view v: comes back", "view w: goes",
      "settings that change: user_version"]),
    ("only a definition", "CREATE TABLE t (a, b); INSERT INTO t VALUES (1, 2);",
     "ALTER TABLE t RENAME COLUMN b TO c;", ["t: the definition changes"]),
    ("a name of more than one line", 'CREATE TABLE "it\'s ""a""\n\tb\x1b[2J\u202e\\" (a);',
     'INSERT INTO "it\'s ""a""\n\tb\x1b[2J\u202e\\" VALUES (1);',
     ["it's \"a\"\\u000a\\u0009b\\u001b[2J\\u202e\\\\: 1 row goes (1)"]),
    ("a key of more than one line", "CREATE TABLE t (a PRIMARY KEY);",
     "INSERT INTO t VALUES ('x\ny'), (x'0d0a');",
     ["t: 2 rows go ('x\\u000ay', X'0D0A')"]),
    ("a key of megabytes", "CREATE TABLE t (a PRIMARY KEY);",
     "INSERT INTO t VALUES (printf('%.3000000c', 'x')), (zeroblob(3000000));",
     ["t: 2 rows go ('" + 63 * "x" + "..., X'" + 62 * "0" + "...)"]),
    ("a name of a megabyte", "CREATE TABLE t (a);",
     f'CREATE TABLE "{1_000_000 * "n"}" (a); CREATE VIEW "{1_000_000 * "ä"}" AS SELECT 1;',
     [64 * "n" + "...: the table goes, rows: 0", "view " + 64 * "ä" + "...: goes"]),
    ("a name with a NUL", "CREATE TABLE t (a); CREATE TABLE u (a);",
     "INSERT INTO t VALUES (1); PRAGMA writable_schema = 1;"
     "UPDATE sqlite_schema SET name = 't' || char(0) || 'x', tbl_name = 't' || char(0) || 'x'"
     " WHERE name = 't';",
     ["t: the table comes back, rows: 0", "t\\u0000x: the table goes, rows: cannot be counted: "
      "unrecognized token: \"\"t\""]),
]


@pytest.mark.parametrize("kept, current, lines", [row[1:] for row in ROWS],
                         ids=[row[0] for row in ROWS])
def test_it_prints_what_changes(changes, kept, current, lines):
    assert changes(kept, current) == lines


@pytest.mark.parametrize("encoding", ["UTF-16le", "UTF-16be"])
def test_it_reads_utf_16(changes, device, encoding):
    lines = changes("CREATE TABLE fält (a PRIMARY KEY, b); INSERT INTO fält VALUES ('å', 1);",
                    "UPDATE fält SET b = 2; INSERT INTO fält VALUES ('ö', 3);",
                    f"PRAGMA encoding = '{encoding}';")
    assert lines == ["fält: 1 row goes ('ö'), 1 row changes"]
    assert device.run("restore").returncode == 0
    assert device.rows("SELECT a FROM fält") == [("å",)]


def test_a_virtual_table_is_told_by_the_tables_that_hold_it(changes):
    module = "CREATE VIRTUAL TABLE f USING fts5 (x); INSERT INTO f VALUES ('a');"
    lines = changes(module, "INSERT INTO f VALUES ('b');")
    assert [line.split(":")[0] for line in lines] == ["f_content", "f_data", "f_docsize", "f_idx"]


def test_a_damaged_table_is_told(changes, device):
    changes("CREATE TABLE t (a PRIMARY KEY, b) WITHOUT ROWID; INSERT INTO t VALUES (1, 2);"
            "CREATE TABLE u (a);", "INSERT INTO u VALUES (1);")
    with open(device.database, "r+b") as file:
        file.seek(4096)
        file.write(bytes(8))
    lines = device.run("restore", "--dry-run").stdout.splitlines()
    assert lines == [
        FIRST, "t: rows change, and cannot be compared: database disk image is malformed",
        "u: 1 row goes (1)", LAST]


def test_a_definition_that_cannot_be_read_is_told(changes, device):
    changes("CREATE TABLE t (a);", "PRAGMA writable_schema = 1;"
            "UPDATE sqlite_schema SET sql = 'CREATE TABLE t (';")
    run = device.run("restore", "--dry-run")
    assert run.stdout.splitlines() == [
        FIRST, "t: rows change, and cannot be compared: malformed database schema (t) - incomplete "
        "input, the definition changes", LAST]

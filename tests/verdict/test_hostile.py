"""Hostile databases: there is a verdict, and it stays within its memory and processor time."""

import json
import os
import shutil
import sqlite3
import subprocess
from contextlib import closing

import pytest
from runs_to_judge import VERSIONS_FILE
from support.places import scratch_directory

MEBIBYTE = 1 << 20
# The memory that a verdict needs besides the files' content: Qt, SQLite, rows kept for findings.
FIXED_MEMORY = 64 * MEBIBYTE
# Both schemas are held twice, and SQLite's own form of them is larger than the text.
MEMORY_PER_BYTE = 10
FIXED_SECONDS = 5
SECONDS_PER_MEBIBYTE = 1
ROWS = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < {}) "


def judged(folder, target=34):
    """The verdict and its cost: bytes of memory, seconds of processor time."""
    (folder / "log").write_text("")
    request = {"before": str(folder / "before"), "after": str(folder / "after"), "from": 1,
               "to": target, "target": target, "log": str(folder / "log"), "platform": "TORVIK",
               "versions": str(VERSIONS_FILE), "scratch": str(folder), "scripts": []}
    with (folder / "answer").open("wb") as answer, \
            subprocess.Popen([os.environ["VERDICT_OF"]], stdin=subprocess.PIPE,
                             stdout=answer) as process:
        process.stdin.write(json.dumps(request).encode() + b"\n")
        process.stdin.close()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    assert process.returncode == 0
    verdict = json.loads((folder / "answer").read_bytes())
    return verdict, verdict["peakMemory"] * 1024, usage.ru_utime + usage.ru_stime


def made(path, statements):
    with closing(sqlite3.connect(path, isolation_level=None)) as database:
        database.create_collation("unknown", lambda left, right: (left > right) - (left < right))
        database.execute("PRAGMA journal_mode = OFF")
        for statement in statements:
            if callable(statement):
                statement(database)
            else:
                database.executescript(statement)


def in_schema(old, new):
    """Changes texts of the schema to bytes that SQLite itself would not write."""
    def change(database):
        database.execute("PRAGMA writable_schema = ON")
        database.execute("UPDATE sqlite_schema SET name = CAST(replace(name, ?1, ?2) AS TEXT),"
                         " tbl_name = CAST(replace(tbl_name, ?1, ?2) AS TEXT),"
                         " sql = CAST(replace(sql, ?1, ?2) AS TEXT)", (old, new))
    return change


def table(name, rows=2, columns="id INTEGER PRIMARY KEY, a"):
    quoted = '"' + name.replace('"', '""') + '"'
    return (f"CREATE TABLE {quoted} ({columns});"
            f"INSERT INTO {quoted} (id) VALUES {', '.join(f'({row})' for row in range(rows))};")


# SQLite needs long to make these databases.
TABLES = 10_000 if "CAMPAIGN" in os.environ else 2_000
WIDE_TABLES = 200 if "CAMPAIGN" in os.environ else 60
MANY_COLUMNS = ", ".join(f"c{number} INTEGER DEFAULT {number}" for number in range(1999))
NAMES = ("a'b", 'a"b', "a\nb", "<b>", "a;b", "\u202eb", "x" * MEBIBYTE, "%1%2", "--", "[x]", "`")
SETTINGS = ("CREATE TABLE productControl_productSettings (productId varchar(40) primary key,"
            " displayName, tankCapacity REAL, machineConfigId INTEGER);")

# SQLite needs more memory for this text than a verdict may have.
COSTLY = "hex(zeroblob(33000000))"


def computing(t="id INTEGER PRIMARY KEY, parent REFERENCES parents",
              children="id INTEGER PRIMARY KEY, up REFERENCES t", index="(parent)"):
    """Tables with rows that break foreign keys. They get these definitions once the rows exist, so
    nothing is computed for the rows."""
    return (["CREATE TABLE parents (id INTEGER PRIMARY KEY, name); INSERT INTO parents VALUES"
             " (1, 'a'); CREATE UNIQUE INDEX names ON parents (name);"
             "CREATE TABLE t (id INTEGER PRIMARY KEY, parent); CREATE INDEX i ON t (parent);"
             "INSERT INTO t VALUES (1, 1), (2, 7); CREATE TABLE children (id INTEGER PRIMARY KEY,"
             " up, x); INSERT INTO children VALUES (1, 1, 'x'), (2, 2, 'x');" + table("other")],
            ["DELETE FROM other WHERE id = 0"],
            [in_schema("t (id INTEGER PRIMARY KEY, parent)", f"t ({t})"),
             in_schema("children (id INTEGER PRIMARY KEY, up, x)", f"children ({children})"),
             in_schema("ON t (parent)", f"ON t {index}")])


# Statements for before, further ones for after, and a change to both files at the end.
CASES = {
    "many tables lose a row each": (
        ["BEGIN;" + "".join(table(f"t{number}") for number in range(TABLES)) + "COMMIT;"],
        ["BEGIN;" + "".join(f"DELETE FROM t{number} WHERE id = 0;" for number in range(TABLES))
         + "COMMIT;"]),
    "2,000 columns": (
        [table("wide", 50, f"id INTEGER PRIMARY KEY, {MANY_COLUMNS}")],
        ["UPDATE wide SET c0 = -1, c1998 = -1; DELETE FROM wide WHERE id = 7"]),
    "many wide tables": (
        ["BEGIN;" + "".join(
            table(f"t{number}", 2, f"id INTEGER PRIMARY KEY, {MANY_COLUMNS}")
            for number in range(WIDE_TABLES)) + "COMMIT;"],
        ["BEGIN;" + "".join(f"DELETE FROM t{number} WHERE id = 0;"
                            for number in range(WIDE_TABLES)) + "COMMIT;"]),
    "odd names": ([table(name) for name in NAMES],
                  [f'DELETE FROM "{name.replace(chr(34), chr(34) * 2)}" WHERE id = 0;'
                   for name in NAMES]),
    "a name with NUL": ([table("nul_name"), table("other")], ["DELETE FROM other;"],
                        [in_schema("nul", b"nul\0")]),
    "invalid UTF-8": ([table("a_name"), table("other")], ["DELETE FROM other;"],
                      [in_schema("a_", b"\xff\xfe")]),
    "a schema that cannot be parsed": ([table("t")], ["DELETE FROM t;"],
                                       [in_schema("INTEGER PRIMARY", "%%")]),
    "unknown collations": (
        [table("t", 3, "id TEXT COLLATE unknown PRIMARY KEY, a COLLATE unknown"),
         "CREATE TABLE w (id TEXT COLLATE unknown PRIMARY KEY, a) WITHOUT ROWID;"
         "INSERT INTO w VALUES ('a', 1), ('b', 2);"],
        ["DELETE FROM t WHERE +id = '0'; DELETE FROM w WHERE a = 1;"]),
    "a huge value": (
        ["CREATE TABLE t (id INTEGER PRIMARY KEY, a);"
         f"INSERT INTO t VALUES (1, zeroblob({40 * MEBIBYTE})), (2, 'x');"],
        ["UPDATE t SET a = 'y' WHERE id = 2; UPDATE t SET a = CAST(a AS TEXT) WHERE id = 1"]),
    "a value beyond what is read": (
        ["CREATE TABLE t (id INTEGER PRIMARY KEY, a);"
         f"INSERT INTO t VALUES (1, zeroblob({70 * MEBIBYTE}));"],
        ["INSERT INTO t VALUES (2, 'x');"]),
    "a rule that looks at all rows for each one": (
        [SETTINGS + ROWS.format(30_000) +
         "INSERT INTO productControl_productSettings SELECT 'x' || i, '', 1, 1 FROM n;"],
        ["DELETE FROM productControl_productSettings;"]),
    "keys without order": (
        ["CREATE TABLE t (a TEXT PRIMARY KEY, b);" + ROWS.format(100_000) +
         "INSERT INTO t SELECT hex(randomblob(8)), i FROM n;"],
        ["DELETE FROM t WHERE b % 2; UPDATE t SET b = 0;"]),
    "rows that break foreign keys in a long chain": (
        ["CREATE TABLE t (id INTEGER PRIMARY KEY, up REFERENCES t (id) ON DELETE CASCADE);"
         + ROWS.format(20_000) + "INSERT INTO t SELECT i, CASE i WHEN 1 THEN -1 ELSE i - 1 END"
         " FROM n;"],
        ["DELETE FROM t WHERE id < 10;"]),
    "a check would compute a column": computing(
        f"id INTEGER PRIMARY KEY, parent, x TEXT AS ({COSTLY}) NOT NULL"),
    **{f"a check would compute a column, and there is a table {name}": (
        [table(name)] + before, after, last) for name in ("1", "-1st", "+1") for before, after, last
       in [computing(f"id INTEGER PRIMARY KEY, parent, x AS ({COSTLY}) NOT NULL")]},
    "a foreign key is a computed column": computing(
        f"id INTEGER PRIMARY KEY, parent, x AS ({COSTLY}) REFERENCES parents (name)"),
    "an index has a computed column": computing(
        f"id INTEGER PRIMARY KEY, parent REFERENCES parents, x AS ({COSTLY})", index="(x)"),
    "rows that refer with a computed column": computing(
        children=f"id INTEGER PRIMARY KEY, up, x AS ({COSTLY}) REFERENCES t ON DELETE CASCADE"),
    "a stored column would be computed again": computing(
        children="id INTEGER PRIMARY KEY, up REFERENCES t ON DELETE SET NULL,"
        f" x AS ({COSTLY}) STORED"),
    "a default would be computed": computing(
        children=f"id INTEGER PRIMARY KEY, up DEFAULT ({COSTLY}) REFERENCES t"
        " ON DELETE SET DEFAULT"),
}


@pytest.mark.parametrize("name", CASES)
def test_verdict_on(name):
    before, added, *last = CASES[name]
    with scratch_directory() as folder:
        made(folder / "before", before)
        shutil.copyfile(folder / "before", folder / "after")
        made(folder / "after", added)
        for file in ("before", "after"):
            made(folder / file, *last or [[]])
        size = sum((folder / file).stat().st_size for file in ("before", "after"))
        verdict, memory, seconds = judged(folder)
        # The test's own values are at least as large as the part of a row that SQLite may hold.
        largest = 4 * 70 * MEBIBYTE if "value" in name else 0
        if os.environ.get("COST_IS_MEASURED") != "no":
            assert memory < FIXED_MEMORY + MEMORY_PER_BYTE * size + largest
            assert seconds < FIXED_SECONDS + SECONDS_PER_MEBIBYTE * size / MEBIBYTE
        kinds = {finding["kind"] for finding in verdict["findings"]}
        assert kinds & {"rows-lost", "values-lost", "unreadable", "violations-removed"}
        assert {path.name for path in folder.iterdir()} == {"before", "after", "log", "answer"}

"""Mending handles each kind of copy that a cut step leaves, and loses no row."""

import json
import os
import pathlib
import random
import shutil
import sqlite3
import subprocess
import sys
from contextlib import closing

import pytest
from support.contents import identifier
from support.kept_rows import lost_rows, other_names
from support.places import ROOT, TESTS, scratch_directory
from support.versions import NEWEST, dump_of

sys.path.insert(0, str(TESTS / "fuzz"))
from cases import KINDS, case  # noqa: E402
from devices import DATABASE  # noqa: E402

MEND = pathlib.Path(os.environ["MEND"])
SCHEMA_VERSIONS = ROOT / "guard" / "schema-versions.json"
VERSIONS = json.loads(SCHEMA_VERSIONS.read_text(encoding="utf-8"))
CAMPAIGN = "CAMPAIGN" in os.environ
DEVICES = 4000 if CAMPAIGN else 140

REMOVED, NAMED, RETURNED, REPORTED = "copy removed", "name given", "rows returned", "reported"
BOTH_LACK = "the table and the copy each have rows that the other one lacks"

# Version 2 re-creates a table: it gets the key b, c loses its fraction, and d goes. Version 3
# renames x. Version 4 has w in place of v.
SMALL_VERSIONS = {
    "format": 1, "newest": 4,
    "versions": {
        "2": {"forward": {"t": {"columnsDropped": ["d"],
                                "values": {"c": {"becomes": "CAST(c AS INTEGER)"}}}},
              "backward": {"s": {"columnsDropped": ["b"]}}},
        "3": {"forward": {"x": {"renamed": "y"}, "r": {"columnsRenamed": {"b": "e"}}},
              "backward": {"y": {"renamed": "x", "columnsDropped": ["b"]}}},
        "4": {"forward": {"v": {"dropped": True}}, "backward": {"w": {"dropped": True}}}},
    "copies": {
        "r_temp": {"table": "r", "forward": [3]},
        "s_old": {"table": "s", "backward": [2]},
        "s_temp": {"table": "s", "backward": [2]},
        "t_old": {"table": "t", "forward": [2]},
        "v_temp": {"table": "v", "backward": [3]},
        "y_temp": {"table": "y", "backward": [3]}}}

S = "CREATE TABLE s (a INTEGER PRIMARY KEY, b TEXT DEFAULT 'new', c);"
S_ROWS = "INSERT INTO s VALUES(1, 'one', X'00'), (2, 'two', 2.5), (3, NULL, NULL);"
S_TEMP = "CREATE TABLE s_temp (a INTEGER , c , PRIMARY KEY(a) );"
S_COPIED = S_TEMP + "INSERT INTO s_temp SELECT a, c FROM s;"
T_OLD = ("CREATE TABLE t_old (b TEXT, c REAL, d);"
         "INSERT INTO t_old VALUES('one', 1.5, 'x'), ('two', 2.0, 'y'), (NULL, NULL, NULL);")
T = "CREATE TABLE t (b TEXT PRIMARY KEY, c);"
R_TEMP = "CREATE TABLE r_temp (a INTEGER PRIMARY KEY, b); INSERT INTO r_temp VALUES(1, 2), (3, 4);"
R = "CREATE TABLE r (a INTEGER PRIMARY KEY, e);"
AT_VERSION = ("CREATE TABLE tableVersion (tableName, version);"
              "INSERT INTO tableVersion VALUES('mainSqlDb', {});")


def mend(database, versions=SCHEMA_VERSIONS):
    run = subprocess.run([MEND, database, versions], capture_output=True, timeout=120)
    return json.loads(run.stdout)


@pytest.fixture
def mended(tmp_path):
    """Makes a database from statements and mends it. Returns the work done and the database's
    content."""
    versions = tmp_path / "versions.json"
    versions.write_text(json.dumps(SMALL_VERSIONS))
    database = tmp_path / "database.sqlite"

    def of(statements):
        with closing(sqlite3.connect(database)) as connection:
            connection.executescript(statements)
        answer = mend(database, versions)
        assert answer["error"] == ""
        assert sorted(path.name for path in tmp_path.iterdir()) == [
            "database.sqlite", "versions.json"]
        return [(one["copy"], one["table"], one["kind"], one["rowsOfCopy"], one["rowsReturned"],
                 one["reason"]) for one in answer["mendings"]], content(database)
    return of


def content(database):
    """The definitions and the rows of a database, with the rows' places."""
    with closing(sqlite3.connect(database)) as connection:
        connection.text_factory = bytes
        objects = connection.execute(
            "SELECT type, name, tbl_name, sql FROM sqlite_schema ORDER BY 1, 2").fetchall()
        rows = {}
        for kind, name, _, sql in objects:
            if kind == b"table" and not sql.startswith(b"CREATE VIRTUAL"):
                rows[name] = connection.execute(
                    f"SELECT * FROM {identifier(name.decode())}").fetchall()
        return objects, rows


def made(statements):
    with scratch_directory() as folder:
        with closing(sqlite3.connect(folder / "made")) as connection:
            connection.executescript(statements)
        return content(folder / "made")


@pytest.mark.parametrize("before, done, after", [
    pytest.param(S + S_ROWS + S_COPIED, ("s_temp", "s", REMOVED, 3, 0, ""), S + S_ROWS,
                 id="all rows of the copy are in the table"),
    pytest.param(S + S_ROWS + S_TEMP, ("s_temp", "s", REMOVED, 0, 0, ""), S + S_ROWS,
                 id="the copy has no rows"),
    pytest.param(S + "CREATE TABLE s_temp (q);", ("s_temp", "s", REMOVED, 0, 0, ""), S,
                 id="neither has rows"),
    pytest.param(S + S_ROWS + S_COPIED + "DROP TABLE s", ("s_temp", "s", NAMED, 3, 3, ""),
                 S_TEMP.replace("s_temp", '"s"') +
                 "INSERT INTO s VALUES(1, X'00'), (2, 2.5), (3, NULL);", id="there is no table"),
    pytest.param(S_TEMP, ("s_temp", "s", NAMED, 0, 0, ""), S_TEMP.replace("s_temp", '"s"'),
                 id="there is no table, and the copy has no rows"),
    pytest.param(S + S_ROWS + S_COPIED + "DELETE FROM s", ("s_temp", "s", RETURNED, 3, 3, ""),
                 S + "INSERT INTO s VALUES(1, 'new', X'00'), (2, 'new', 2.5), (3, 'new', NULL);",
                 id="the table has no rows"),
    pytest.param(S + S_ROWS + S_COPIED + "DELETE FROM s WHERE a = 2",
                 ("s_temp", "s", RETURNED, 3, 1, ""),
                 S + "INSERT INTO s VALUES(1, 'one', X'00'), (2, 'new', 2.5), (3, NULL, NULL);",
                 id="the table has fewer rows"),
    pytest.param(S + S_ROWS + S_COPIED + "DELETE FROM s WHERE a = 2; INSERT INTO s (a) VALUES(4);",
                 ("s_temp", "s", REPORTED, 3, 0, BOTH_LACK), None,
                 id="both have rows that the other one lacks"),
    pytest.param(S + S_ROWS + S_COPIED + "UPDATE s SET c = CAST(c AS TEXT) WHERE a = 2",
                 ("s_temp", "s", REPORTED, 3, 0, BOTH_LACK), None,
                 id="a value has another storage class"),
    pytest.param(S + S_ROWS + S_COPIED + "UPDATE s SET c = CAST(c AS TEXT) WHERE a = 1",
                 ("s_temp", "s", REPORTED, 3, 0, BOTH_LACK), None,
                 id="a BLOB is a text with the same bytes"),
    pytest.param(S + "INSERT INTO s VALUES(1, 'a', 0.0);" + S_COPIED + "UPDATE s SET c = -0.0;",
                 ("s_temp", "s", REPORTED, 1, 0, BOTH_LACK), None, id="a zero has another sign"),
    pytest.param(S + "INSERT INTO s VALUES(1, 'a', 'b');" + S_COPIED + "UPDATE s SET c = 'B';",
                 ("s_temp", "s", REPORTED, 1, 0, BOTH_LACK), None,
                 id="a text has another letter case"),
    pytest.param("CREATE TABLE s (b, c COLLATE NOCASE);"
                 "INSERT INTO s VALUES(1, 'b'); CREATE TABLE s_temp (c COLLATE NOCASE);"
                 "INSERT INTO s_temp VALUES('B');", ("s_temp", "s", REPORTED, 1, 0, BOTH_LACK),
                 None, id="a text is equal by the collation only"),
    pytest.param("CREATE TABLE s (b, c); INSERT INTO s VALUES(1, 7), (2, 8);"
                 "CREATE TABLE s_temp (c); INSERT INTO s_temp VALUES(7), (7);",
                 ("s_temp", "s", REPORTED, 2, 0, BOTH_LACK), None,
                 id="a row is in the copy twice, in the table once"),
    pytest.param("CREATE TABLE s (b, c); INSERT INTO s VALUES(1, 7);"
                 "CREATE TABLE s_temp (c); INSERT INTO s_temp VALUES(7), (7), (NULL);",
                 ("s_temp", "s", RETURNED, 3, 2, ""),
                 "CREATE TABLE s (b, c); INSERT INTO s VALUES(1, 7), (NULL, 7), (NULL, NULL);",
                 id="a row is in the copy once more"),
    pytest.param(S + S_ROWS + "CREATE TABLE s_temp AS SELECT *, 9 AS further FROM s;",
                 ("s_temp", "s", REPORTED, 3, 0, BOTH_LACK), None,
                 id="the copy has a column that no step takes"),
    pytest.param("CREATE TABLE s (a, c); CREATE TABLE s_temp (a, B, c);"
                 "INSERT INTO s VALUES(1, 2); INSERT INTO s_temp VALUES(1, 7, 2);",
                 ("s_temp", "s", REMOVED, 1, 0, ""),
                 "CREATE TABLE s (a, c); INSERT INTO s VALUES(1, 2);",
                 id="the copy has a column that the step takes, in another letter case"),
    pytest.param("CREATE TABLE s (a, z); CREATE TABLE s_temp (b);"
                 "INSERT INTO s_temp VALUES(1);", ("s_temp", "s", REPORTED, 1, 0, BOTH_LACK), None,
                 id="no column is in both"),
    pytest.param(T_OLD + T + "INSERT INTO t VALUES('one', 1);",
                 ("t_old", "t", RETURNED, 3, 2, ""),
                 T + "INSERT INTO t VALUES('one', 1), ('two', 2), (NULL, NULL);",
                 id="a re-creation was cut between two rows: the others come as the step has them"),
    pytest.param(T_OLD + T + "INSERT INTO t VALUES('one', 1), ('two', 2), (NULL, NULL);",
                 ("t_old", "t", REMOVED, 3, 0, ""),
                 T + "INSERT INTO t VALUES('one', 1), ('two', 2), (NULL, NULL);",
                 id="a re-creation was cut after the last row"),
    pytest.param(T_OLD + T + "INSERT INTO t VALUES('one', 1.5);",
                 ("t_old", "t", REPORTED, 3, 0, BOTH_LACK), None,
                 id="a value is neither the old nor the new one, and a column would be lost"),
    pytest.param(R_TEMP + R, ("r_temp", "r", RETURNED, 2, 2, ""),
                 R + "INSERT INTO r VALUES(1, 2), (3, 4);", id="the step renames a column"),
    pytest.param(R_TEMP + R + "INSERT INTO r VALUES(1, 2), (3, 4), (5, 6);",
                 ("r_temp", "r", REMOVED, 2, 0, ""),
                 R + "INSERT INTO r VALUES(1, 2), (3, 4), (5, 6);",
                 id="the step renames a column, and the table has all rows"),
    pytest.param(S + S_ROWS + S_COPIED.replace("s_temp", "S_Temp"),
                 ("S_Temp", "s", REMOVED, 3, 0, ""), S + S_ROWS, id="another letter case"),
    pytest.param((S + S_ROWS).replace(" s ", " S ") + S_COPIED, ("s_temp", "S", REMOVED, 3, 0, ""),
                 (S + S_ROWS).replace(" s ", " S "), id="the table has another letter case"),
    pytest.param("CREATE TABLE x (a, b); INSERT INTO x VALUES(1, 2);"
                 "CREATE TABLE y_temp (a); INSERT INTO y_temp VALUES(1);",
                 ("y_temp", "x", REMOVED, 1, 0, ""),
                 "CREATE TABLE x (a, b); INSERT INTO x VALUES(1, 2);",
                 id="the table has the name of another version"),
    pytest.param("CREATE TABLE y_temp (a);", ("y_temp", "y", NAMED, 0, 0, ""),
                 'CREATE TABLE "y" (a);', id="no version is recorded"),
    pytest.param("CREATE TABLE y_temp (a);" + AT_VERSION.format(3),
                 ("y_temp", "y", NAMED, 0, 0, ""), 'CREATE TABLE "y" (a);' + AT_VERSION.format(3),
                 id="the version that gives the table its name is recorded"),
    pytest.param("CREATE TABLE y_temp (a);" + AT_VERSION.format(2),
                 ("y_temp", "x", NAMED, 0, 0, ""), 'CREATE TABLE "x" (a);' + AT_VERSION.format(2),
                 id="a version is recorded at which the table has another name"),
    pytest.param("CREATE TABLE v_temp (a); INSERT INTO v_temp VALUES(1); CREATE TABLE W (a);",
                 ("v_temp", "v", REPORTED, 1, 0, "w is there too, and the table is not"), None,
                 id="a later version has another table in its place"),
    pytest.param("CREATE TABLE v_temp (a); INSERT INTO v_temp VALUES(1);",
                 ("v_temp", "v", NAMED, 1, 1, ""),
                 'CREATE TABLE "v" (a); INSERT INTO v VALUES(1);',
                 id="no other table is in its place"),
    pytest.param(S_TEMP + "CREATE VIEW s AS SELECT 1;",
                 ("s_temp", "s", REPORTED, 0, 0, "the name of the table is that of something else"),
                 None, id="a view has the name of the table"),
    pytest.param(S_TEMP + "CREATE VIEW other AS SELECT * FROM s; CREATE TRIGGER of_other INSTEAD OF"
                 " INSERT ON other BEGIN DELETE FROM s; END;", ("s_temp", "s", NAMED, 0, 0, ""),
                 "CREATE TABLE s (a INTEGER , c , PRIMARY KEY(a) );".replace(" s ", ' "s" ') +
                 "CREATE VIEW other AS SELECT * FROM s; CREATE TRIGGER of_other INSTEAD OF INSERT"
                 " ON other BEGIN DELETE FROM s; END;", id="a view needs the missing table"),
    pytest.param("CREATE TABLE s (a INTEGER PRIMARY KEY); CREATE TABLE child (s REFERENCES s);"
                 "CREATE INDEX i ON s (a); CREATE TRIGGER g AFTER DELETE ON s BEGIN SELECT 1; END;"
                 "CREATE VIEW o AS SELECT a FROM s; ALTER TABLE s RENAME TO s_old;",
                 ("s_old", "s", NAMED, 0, 0, ""),
                 'CREATE TABLE "s" (a INTEGER PRIMARY KEY); CREATE TABLE child (s REFERENCES "s");'
                 'CREATE INDEX i ON "s" (a); CREATE TRIGGER g AFTER DELETE ON "s" BEGIN SELECT 1;'
                 ' END; CREATE VIEW o AS SELECT a FROM "s";',
                 id="what was rewritten with the name is written back"),
    pytest.param(S + S_ROWS + S_COPIED + "DELETE FROM s; CREATE TABLE n (a); CREATE TRIGGER g AFTER"
                 " INSERT ON s BEGIN DELETE FROM s_temp; INSERT INTO n VALUES(1); END;",
                 ("s_temp", "s", RETURNED, 3, 3, ""),
                 S + "INSERT INTO s VALUES(1, 'new', X'00'), (2, 'new', 2.5), (3, 'new', NULL);"
                 "CREATE TABLE n (a); CREATE TRIGGER g AFTER INSERT ON s BEGIN DELETE FROM s_temp;"
                 " INSERT INTO n VALUES(1); END;", id="no trigger fires"),
    pytest.param("CREATE TABLE child (s REFERENCES s_temp ON DELETE CASCADE);"
                 "INSERT INTO child VALUES(1);" + S + S_ROWS + S_COPIED,
                 ("s_temp", "s", REMOVED, 3, 0, ""),
                 "CREATE TABLE child (s REFERENCES s_temp ON DELETE CASCADE);"
                 "INSERT INTO child VALUES(1);" + S + S_ROWS,
                 id="rows that refer to the copy are kept"),
    pytest.param("CREATE TABLE s (a, b NOT NULL, c); CREATE TABLE s_temp (a, c);"
                 "INSERT INTO s_temp VALUES(1, 2);",
                 ("s_temp", "s", REPORTED, 1, 0, "NOT NULL constraint failed: s.b"), None,
                 id="the table refuses the rows"),
    pytest.param("CREATE TABLE s (a PRIMARY KEY, c); CREATE TABLE s_temp (a, c);"
                 "INSERT INTO s_temp VALUES(1, 2), (1, 3);",
                 ("s_temp", "s", REPORTED, 2, 0, "UNIQUE constraint failed: s.a"), None,
                 id="two rows of the copy have one key"),
    *(pytest.param(f"CREATE TABLE s (a PRIMARY KEY ON CONFLICT {resolution}, c);"
                   "CREATE TABLE s_temp (a, c); INSERT INTO s_temp VALUES(1, 2), (1, 3);",
                   ("s_temp", "s", REPORTED, 2, 0, "UNIQUE constraint failed: s.a"), None,
                   id=f"two rows of the copy have one key, and the table says {resolution}")
      for resolution in ("REPLACE", "IGNORE", "ROLLBACK", "FAIL")),
    pytest.param("CREATE TABLE s (a TEXT, c); CREATE TABLE s_temp (a, c);"
                 "INSERT INTO s_temp VALUES(1, 2);",
                 ("s_temp", "s", REPORTED, 1, 0, "the table does not take the rows as they are"),
                 None, id="the table makes other values of them"),
    pytest.param("CREATE VIEW s_temp AS SELECT 1; CREATE TABLE s (a);", None, None,
                 id="a view has the name of a copy"),
    pytest.param("CREATE VIRTUAL TABLE s_temp USING fts3(a); CREATE TABLE s (a);", None, None,
                 id="a virtual table has the name of a copy"),
    pytest.param("CREATE TABLE z (a); CREATE TABLE z_temp (a); CREATE TABLE z_old (a);"
                 "CREATE TABLE t_temp (a); CREATE TABLE r_old (a);", None, None,
                 id="tables of somebody's own"),
    pytest.param("CREATE TABLE s (a, g AS (a + 1), h AS (a + 2) STORED);"
                 "CREATE TABLE s_temp (a, i AS (a + 3)); INSERT INTO s_temp VALUES(1);",
                 ("s_temp", "s", RETURNED, 1, 1, ""),
                 "CREATE TABLE s (a, g AS (a + 1), h AS (a + 2) STORED); INSERT INTO s VALUES(1);",
                 id="computed columns"),
    pytest.param("CREATE TABLE s (a PRIMARY KEY, c) WITHOUT ROWID; INSERT INTO s VALUES(2, 2);"
                 "CREATE TABLE s_temp (c, a PRIMARY KEY) WITHOUT ROWID;"
                 "INSERT INTO s_temp VALUES(2, 2), (1, 1);", ("s_temp", "s", RETURNED, 2, 1, ""),
                 "CREATE TABLE s (a PRIMARY KEY, c) WITHOUT ROWID;"
                 "INSERT INTO s VALUES(2, 2), (1, 1);", id="no row ids, and another order"),
    pytest.param("PRAGMA encoding = 'UTF-16le'; CREATE TABLE s (a, b);"
                 "INSERT INTO s VALUES('é', 1), (CAST(X'00d8' AS TEXT), 2);"
                 "CREATE TABLE s_temp (a); INSERT INTO s_temp VALUES(CAST(X'01d8' AS TEXT));",
                 ("s_temp", "s", REPORTED, 1, 0, BOTH_LACK), None,
                 id="texts in UTF-16 that are no characters"),
    pytest.param('CREATE TABLE s ("a""b" TEXT, "%1", "select", "é");'
                 "INSERT INTO s VALUES('x', 1, 2, 3);"
                 'CREATE TABLE s_temp ("a""b" TEXT, "%1", "select", "é");'
                 "INSERT INTO s_temp SELECT * FROM s; INSERT INTO s_temp VALUES(1, 2, 3, 4);",
                 ("s_temp", "s", RETURNED, 2, 1, ""),
                 'CREATE TABLE s ("a""b" TEXT, "%1", "select", "é");'
                 "INSERT INTO s VALUES('x', 1, 2, 3), (1, 2, 3, 4);", id="odd names of columns"),
])
def test_copy_is_mended(mended, before, done, after):
    mendings, found = mended(before)
    assert mendings == ([done] if done else [])
    expected = made(after or before)
    assert found == expected


def test_two_copies_without_a_table_are_reported(mended):
    before = S_TEMP + S_TEMP.replace("s_temp", "s_old") + "INSERT INTO s_old VALUES(1, 2);"
    mendings, found = mended(before)
    assert mendings == [
        ("s_old", "s", REPORTED, 1, 0, "s_temp is there too, and the table is not"),
        ("s_temp", "s", REPORTED, 0, 0, "s_old is there too, and the table is not")]
    assert found == made(before)


def test_copy_that_is_refused_leaves_no_trace_beside_one_that_is_mended(mended):
    refused = ("CREATE TABLE s (a TEXT, c); CREATE TABLE s_temp (a, c);"
               "INSERT INTO s_temp VALUES(1, 2);")
    mendings, found = mended(refused + R_TEMP + R)
    assert [one[2] for one in mendings] == [RETURNED, REPORTED]
    assert found == made(refused + R + "INSERT INTO r VALUES(1, 2), (3, 4);")


def test_two_copies_beside_a_table_are_each_mended(mended):
    mendings, found = mended(S + "CREATE TABLE s_old (a, b, c);"
                             "INSERT INTO s_old VALUES(5, '6', 7);"
                             "CREATE TABLE s_temp AS SELECT a, c FROM s_old;")
    assert [one[2] for one in mendings] == [RETURNED, REMOVED]
    assert found == made(S + "INSERT INTO s VALUES(5, '6', 7);")


@pytest.mark.parametrize("columns", [101, 1990])
def test_wide_tables_are_compared(mended, columns):
    names = ", ".join(f"c{number}" for number in range(columns))
    values = ", ".join(map(str, range(columns)))
    table = f"CREATE TABLE s ({names}); INSERT INTO s VALUES({values});"
    changed = table.replace("s (", "s_temp (").replace("s V", "s_temp V")
    assert mended(table + changed)[0] == [("s_temp", "s", REMOVED, 1, 0, "")]
    other = changed.replace(f", {columns - 1})", ", 0)")
    assert mended(other)[0] == [("s_temp", "s", REPORTED, 1, 0, BOTH_LACK)]


def test_counter_of_a_renamed_table_comes_back(mended):
    table = "CREATE TABLE s (a INTEGER PRIMARY KEY AUTOINCREMENT); INSERT INTO s VALUES(9);"
    mendings, found = mended(table + "DELETE FROM s; ALTER TABLE s RENAME TO s_old;")
    assert [one[2] for one in mendings] == [NAMED]
    assert found[1][b"sqlite_sequence"] == [(b"s", 9)]


def test_unknown_format_names_no_copies(tmp_path):
    versions, database = tmp_path / "versions.json", tmp_path / "database.sqlite"
    versions.write_text(json.dumps({**SMALL_VERSIONS, "format": 2}))
    with closing(sqlite3.connect(database)) as connection:
        connection.executescript(S_TEMP)
    assert mend(database, versions) == {"error": "", "mendings": []}


def test_locked_database_is_left_alone(tmp_path):
    database = tmp_path / "database.sqlite"
    with closing(sqlite3.connect(database, isolation_level=None)) as connection:
        connection.execute("CREATE TABLE farms_temp (a)")
        connection.execute("BEGIN IMMEDIATE")
        assert mend(database) == {"error": "database is locked", "mendings": []}


def test_all_or_nothing_is_kept_when_there_is_no_room(tmp_path):
    database = tmp_path / "database.sqlite"
    with closing(sqlite3.connect(database)) as connection:
        connection.executescript(dump_of(NEWEST) + """
            CREATE TABLE boomCapacity_temp AS SELECT * FROM boomCapacity;
            CREATE TABLE farms_temp AS SELECT * FROM farms;
            WITH numbers(number) AS (SELECT 1 UNION ALL SELECT number + 1 FROM numbers LIMIT 400)
            INSERT INTO farms_temp (id, displayName, growerId, originalName)
                SELECT number + 1000, 'farm', 1, hex(zeroblob(2000)) FROM numbers;""")
    before = content(database)
    # A write beyond the limit fails instead of ending the process: Python ignores the signal.
    run = subprocess.run(["prlimit", f"--fsize={database.stat().st_size + 8192}", MEND, database,
                          SCHEMA_VERSIONS], capture_output=True, timeout=120, restore_signals=False)
    assert json.loads(run.stdout) == {"error": "disk I/O error", "mendings": []}
    assert content(database) == before


# ---- Random devices -----------------------------------------------------------------------------

def plant(chance, database):
    """Leaves a copy of a table behind, in one of many ways."""
    copy, entry = chance.choice([*VERSIONS["copies"].items()])
    table = chance.choice(other_names(entry["table"], VERSIONS))
    copy = chance.choice((copy, copy, copy.upper()))
    columns = [name for name, in database.run("SELECT name FROM pragma_table_info(?)", table)]
    if not columns:
        return
    some = [identifier(name) for name in columns if chance.random() < 0.8] or columns
    some, where = ", ".join(some), chance.choice(("1", "1", "rowid % 3", "0"))
    found = database.run("SELECT sql FROM sqlite_schema WHERE name = ? COLLATE NOCASE", table)
    definition = found[0][0] if found else "SELECT 1"
    first = identifier(columns[0])
    for statement in chance.choice((
            [f"ALTER TABLE {table} RENAME TO {copy}"],
            [f"ALTER TABLE {table} RENAME TO {copy}", definition],
            [f"ALTER TABLE {table} RENAME TO {copy}", definition,
             f"INSERT INTO {table} SELECT * FROM {copy} WHERE {where}"],
            [f"CREATE TABLE {copy} AS SELECT {some} FROM {table} WHERE {where}"],
            [f"CREATE TABLE {copy} AS SELECT * FROM {table} WHERE {where}"],
            [f"CREATE TABLE {copy} AS SELECT {some} FROM {table}", f"DROP TABLE {table}"],
            [f"CREATE TABLE {copy} AS SELECT {some} FROM {table}",
             f"DELETE FROM {table} WHERE {where}"],
            [f"CREATE TABLE {copy} AS SELECT * FROM {table}",
             f"UPDATE OR IGNORE {table} SET {first} = ? WHERE {where}"],
            [f"CREATE TABLE {copy} AS SELECT {some} FROM {table}",
             f"INSERT INTO {copy} SELECT * FROM {copy} WHERE {where}"],
            [f"CREATE TABLE {copy} (a)", f"INSERT INTO {copy} VALUES(?)"],
            [f"CREATE VIEW {copy} AS SELECT 1"])):
        values = [chance.choice((1, "one", None))] * statement.count("?")
        database.run(statement, *values)
    database.run(chance.choice((
        "SELECT 1",
        f"CREATE TRIGGER g_{copy} AFTER INSERT ON {table} BEGIN DELETE FROM {copy}; END",
        f"CREATE UNIQUE INDEX i_{copy} ON {table} ({first})",
        f"CREATE VIEW v_{copy} AS SELECT * FROM {copy}, {table}",
        f"ALTER TABLE {table} ADD COLUMN g AS (1 / 0)",
        f"ALTER TABLE {table} ADD COLUMN n NOT NULL DEFAULT 7")))


def objects_beside(database, copies):
    """The definitions of everything that neither belongs to a copy nor names one."""
    return {row for row in database.execute("SELECT type, name, tbl_name, sql FROM sqlite_schema")
            if not any(copy in repr(row).lower() for copy in copies)}


def damages(path):
    """The results of SQLite's check of a database.

    The check does not look for unused pages when a view or a virtual table, which has no page,
    comes first in SQLite's own list of tables. A new name changes that list. So everything without
    a page is removed from a copy first.
    """
    with scratch_directory() as folder:
        copy = folder / "copy"
        shutil.copy(path, copy)
        with closing(sqlite3.connect(copy, isolation_level=None)) as database:
            database.execute("PRAGMA writable_schema = ON")
            database.execute("DELETE FROM sqlite_schema WHERE ifnull(rootpage, 0) = 0")
        with closing(sqlite3.connect(copy)) as database:
            database.text_factory = lambda text: text.decode(errors="replace")
            return {line for text, in database.execute("PRAGMA quick_check(100000)")
                    for line in text.splitlines() if line != "ok"}


def test_damages_are_found_although_sqlite_would_not_look_for_them(tmp_path):
    """An unused page, in a database where a view comes first."""
    path = tmp_path / "database.sqlite"
    with closing(sqlite3.connect(path, isolation_level=None)) as database:
        database.executescript("CREATE TABLE t (a); CREATE TABLE forgotten (a);"
                               "PRAGMA writable_schema = ON;"
                               "DELETE FROM sqlite_schema WHERE name = 'forgotten';"
                               "PRAGMA writable_schema = OFF; CREATE VIEW v AS SELECT 1;")
    with closing(sqlite3.connect(path)) as database:
        assert database.execute("PRAGMA quick_check").fetchall() == [("ok",)]
    assert "Page 3 is never used" in damages(path)


@pytest.mark.parametrize("first", range(len(KINDS)), ids=KINDS)
def test_no_row_is_lost_on_random_devices(tmp_path, first):
    before, after = tmp_path / "before.sqlite", tmp_path / "after.sqlite"
    copies = [copy.lower() for copy in VERSIONS["copies"]]
    seen = set()
    for seed in range(first, DEVICES, len(KINDS)):
        device, chance = case(seed), random.Random(seed)
        if not isinstance(device.files.get(DATABASE), bytes):
            continue
        try:
            with device.edit() as database:
                for _ in range(chance.randint(1, 4)):
                    plant(chance, database)
        except (sqlite3.Error, MemoryError, TypeError):
            pass  # The device is mended with what was planted before.
        before.write_bytes(device.database)
        shutil.copy(before, after)
        answer = mend(after)
        kinds = {one["kind"] for one in answer["mendings"]}
        seen |= kinds
        if kinds <= {REPORTED}:
            assert after.read_bytes() == before.read_bytes(), seed
            continue
        try:
            assert lost_rows(before, after, VERSIONS) == [], seed
        except UnicodeEncodeError:
            continue  # Python cannot ask for a column whose name is no text.
        with closing(sqlite3.connect(before)) as old, closing(sqlite3.connect(after)) as new:
            old.text_factory = new.text_factory = lambda text: text.decode(errors="replace")
            assert objects_beside(old, copies) <= objects_beside(new, copies), seed
        assert damages(after) <= damages(before), seed
    assert not CAMPAIGN or {REMOVED, NAMED, RETURNED, REPORTED} <= seen

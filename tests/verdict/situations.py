"""Small runs to judge, each with one thing to look at: the databases before and after it."""

import re

from bench import CLOSING, FIELDS, OPENING, log_of
from support.versions import NEWEST, dump_of


def rewriting(version):
    return {"rows": "k IS NULL AND EXISTS (SELECT 1 FROM t later WHERE later.rowid > t.rowid AND "
            "later.k IS NULL)", "values": {"k": {"becomes": f"ifnull(k, 'from {version}')"}}}


# 2 and 3 take rows, and 3 values by platform; 4 changes values a little; 5 and 6 give a table and a
# column other names and take the column; 7 and 8 rewrite keys; 9 makes tables that 10 and 11 need.
TABLE = {
    "format": 1, "newest": 12,
    "everyRun": {
        "rows": [{"table": "Orphans", "rows": "parent NOT IN (SELECT id FROM parents)"},
                 {"table": "leaves", "rows": "orphan NOT IN (SELECT id FROM orphans)"}],
        "names": {"Fields": "DisplayName"},
        "values": {"TableVersion": ["Version", "mirelversion"]}},
    "versions": {
        "2": {"forward": {"fields": {"rows": "area < 2"}, "t": {"rows": "\"gone\" > 1"}},
              "backward": {"fields": {"rows": "area > 3"}}},
        "3": {"forward": {"fields": {"rows": "area < 3", "values": {
            "area": {"becomes": "area + 1", "platform": "TORVIKMAX"},
            "displayName": {"any": "id = 3", "platform": "TORVIK"}}}}, "backward": {}},
        "4": {"forward": {"fields": {"values": {"area": {"within": 0.5}}}},
              "backward": {"fields": {"values": {"area": {"becomes": "area * 2"}}}}},
        "5": {"forward": {"FIELDS": {"renamed": "Plots", "columnsRenamed": {"Area": "Size"}}},
              "backward": {}},
        "6": {"forward": {"plots": {"columnsDropped": ["SIZE"]}},
              "backward": {"plots": {"renamed": "fields", "columnsRenamed": {"size": "area"}}}},
        "7": {"forward": {"t": rewriting(7), "u": {"values": {"k": {"becomes": "k || 'x'"}}}},
              "backward": {"t": {"dropped": True}}},
        "8": {"needs": ["later"], "backward": {}, "forward": {
            "later": {"dropped": True},
            "t": {"values": {"k": {"becomes": "ifnull(k, 'from 8')"}}}}},
        "9": {"forward": {}, "backward": {"left": {"dropped": True}, "right": {"dropped": True},
                                          "later": {"dropped": True}}},
        "10": {"forward": {"whole": {"renamed": "left"}}, "backward": {}},
        "11": {"needs": ["Left", "right"],
               "forward": {"Left": {"dropped": True}, "right": {"renamed": "last"}},
               "backward": {}}}}

PARENTS = "CREATE TABLE parents (id INTEGER PRIMARY KEY); INSERT INTO parents VALUES (1);"
ORPHANS = (PARENTS + "CREATE TABLE orphans (id INTEGER PRIMARY KEY, parent);"
           "INSERT INTO orphans VALUES (1, 1), (2, 2), (3, 3);"
           "CREATE TABLE leaves (id INTEGER PRIMARY KEY, orphan);"
           "INSERT INTO leaves VALUES (1, 1), (2, 2), (3, 1);")
CHILDREN = (PARENTS + "CREATE TABLE switches (id INTEGER PRIMARY KEY, parent REFERENCES parents);"
            "INSERT INTO switches VALUES (1, 1), (2, 7), (3, 8), (4, 1);"
            "CREATE TABLE lamps (id INTEGER PRIMARY KEY, switch REFERENCES switches ON DELETE "
            "CASCADE, other REFERENCES switches ON DELETE SET NULL CHECK (other IS NOT NULL));"
            "INSERT INTO lamps VALUES (1, 1, 2), (2, 2, 1), (3, 1, 1);")
REMOVED = ("PRAGMA ignore_check_constraints = ON; DELETE FROM switches WHERE id IN (2, 3);"
           "DELETE FROM lamps WHERE id = 2; UPDATE lamps SET other = NULL WHERE id = 1;")
PAIRS = ("CREATE TABLE t (a, b TEXT, c, PRIMARY KEY (b, a)) WITHOUT ROWID;"
         "INSERT INTO t VALUES (1, 'x', 1), (2, 'x', 2), (1, 'it''s', 3);")
# Columns have taken all names of the row id.
NO_ROW_IDS = ("CREATE TABLE t (rowid, _rowid_, oid);"
              "INSERT INTO t VALUES (1, 2, 3), (4, 5, 6), (7, 8, 9);")
NULL_KEYS = ("CREATE TABLE t (k TEXT PRIMARY KEY, a); INSERT INTO t VALUES "
             "(NULL, 1), ('b', 2), (NULL, 3);")
COLUMNS = ", ".join(f"c{number}" for number in range(1001))
WIDE = (f"CREATE TABLE t (id INTEGER PRIMARY KEY, {COLUMNS});"
        "INSERT INTO t (id, c0, c498, c499, c500, c999, c1000) VALUES "
        "(1, 1, 1, 1, 1, 1, 1), (2, 2, 2, 2, 2, 2, 2), (3, 3, 3, 3, 3, 3, 3);")
SCHEMA = "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = {} WHERE name = '{}';"
OVERFLOW = "abs(-9223372036854775807 - 1)"


def in_schema(old, new, name):
    return SCHEMA.format(f"replace(sql, '{old}', '{new}')", name)


def lines(*texts, source=1, target=1, before="", closing=True):
    return (before + OPENING.format(source, target) + "".join(f"{text}\n" for text in texts)
            + CLOSING.format(target) * closing)


SUCCESS = "Migration to version {} was successful."


def again(version):
    return f"Corruption detected: applying update to db for version {version}"


def failing_back(line, *before):
    """The toolkit writes two lines; the second one has SQLite's words."""
    return lines(*before, f"DatabaseMigrator::{line}", "DatabaseMigrator::x - failed: y")


# The tables of all versions, without SQLite's own; tableVersion is there anyway.
TABLES = sorted({name for version in range(1, NEWEST + 1) for name in re.findall(
    r'CREATE TABLE (?:IF NOT EXISTS )?"?(\w+)', dump_of(version))}
    - {"sqlite_sequence", "tableVersion"})

# Statements for before; those that are added for after, or all of them after "="; options.
SITUATIONS = {
    # ---- Versions of the run
    "the version is not recorded": (FIELDS, "DELETE FROM fields", {
        "from": None, "to": None, "target": 2, "log": log_of(1, 2)}),
    "version 0 is recorded": (FIELDS, "DELETE FROM fields", {
        "from": 0, "target": 2, "to": 2, "log": log_of(0, 2)}),
    "the target is beyond the newest version": (FIELDS, "DELETE FROM fields", {
        "source": 11, "target": 20, "reached": 12, "log": lines(SUCCESS.format(12))}),
    "the target is 0": (FIELDS, "DELETE FROM fields", {"source": 2, "target": 0, "reached": 1}),
    "a newer version than the newest is recorded": (FIELDS, "DELETE FROM fields", {
        "source": 20, "target": 11, "reached": 11}),
    "the table of versions has no newest one": (FIELDS, "DELETE FROM fields", {
        "source": 2, "target": 3, "table": {**TABLE, "newest": 0}}),
    "no table of versions": (FIELDS, "DELETE FROM fields", {
        "source": 3, "target": 1, "table": {"format": 1}}),
    "several versions are not known": (FIELDS, "DELETE FROM fields", {
        "source": 11, "target": 14, "table": {**TABLE, "newest": 14}}),
    "an unknown version is applied again, and walked": (FIELDS, "DELETE FROM fields", {
        "source": 12, "target": 13, "table": {**TABLE, "newest": 13}, "log": lines(
            again(13), SUCCESS.format(13),
            SUCCESS.format(13), source=12, target=13)}),
    # ---- Rows and values
    "each row has its taker": (FIELDS + "INSERT INTO fields VALUES (4, 'x', 1), (5, 'y', 9);",
                               "DELETE FROM fields WHERE id <> 5; INSERT INTO fields VALUES"
                               " (6, 'z', 0), (7, 'z', 0);", {"target": 3}),
    "on the way back others are taken": (FIELDS, "DELETE FROM fields", {"source": 2}),
    "values of one platform": (
        FIELDS, "UPDATE fields SET area = area + 1; UPDATE fields SET displayName = id || 'x'",
        {"source": 2, "target": 3, "platform": "TORVIKMAX"}),
    "values of the other platform": (
        FIELDS, "UPDATE fields SET area = area + 1; UPDATE fields SET displayName = id || 'x'",
        {"source": 2, "target": 3}),
    "values at the bound of what may differ": (
        FIELDS + "INSERT INTO fields VALUES (4, 'x', -2.0), (5, 'y', 4), (6, 'z', 'a'), (7, 'z', 2)"
        ", (8, 'z', 2.0), (9, 'z', NULL);",
        "UPDATE fields SET area = area * 1.5 WHERE id < 5; UPDATE fields SET area = area / 2 WHERE"
        " id = 5; UPDATE fields SET area = 'b' WHERE id = 6; UPDATE fields SET area = '2' WHERE"
        " id = 7; UPDATE fields SET area = 3.0000001 WHERE id = 8; UPDATE fields SET area = 0"
        " WHERE id = 9", {"source": 3, "target": 4}),
    "values that may differ a little, in a table without row ids": (
        "CREATE TABLE fields (id, number, area, PRIMARY KEY (id, number)) WITHOUT ROWID;"
        "INSERT INTO fields VALUES (1, 1, 2.0), (1, 2, 2.0);",
        "UPDATE fields SET area = area + number", {"source": 3, "target": 4}),
    "values on the way back": (FIELDS, "UPDATE fields SET area = area * 2 WHERE id < 3;"
                               "UPDATE fields SET area = area / 2 WHERE id = 3",
                               {"source": 4, "target": 3}),
    "one value": (FIELDS, "UPDATE fields SET area = 7 WHERE id = 2", {}),
    "values of every class": (
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, NULL), (2, -5),"
        f" (3, 0.1), (4, 'it''s'), (5, x'00ff'), (6, '{'m' * 1000}'), (7, '{'n' * 1001}'),"
        f" (8, x'{'0a' * 1001}'), (9, 0.0), (10, 1e300);",
        "UPDATE t SET a = 'new' WHERE id < 9; UPDATE t SET a = -0.0 WHERE id = 9;"
        "UPDATE t SET a = NULL WHERE id = 10", {}),
    "a stored column that is computed": (
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a, b AS (a + 1) STORED, c AS (a + 2));"
        "INSERT INTO t VALUES (1, 1), (2, 2);", "UPDATE t SET a = 3 WHERE id = 2", {}),
    "many columns": (WIDE, "UPDATE t SET c0 = 0, c498 = 0, c499 = 0, c500 = 0, c999 = 0, c1000 = 0"
                     " WHERE id = 2; DELETE FROM t WHERE id = 3; INSERT INTO t (id) VALUES (4)",
                     {}),
    "names that become unique, and others": (
        FIELDS + "INSERT INTO fields VALUES (4, NULL, 1), (5, 5, 1), (6, 'A', 1), (7, 'A', 1),"
        " (8, 'A', 1), (9, 'A', 1), (10, 'A', 1), (11, 'A', 1), (12, 'A', 1), (13, 'A', 1);",
        "UPDATE fields SET displayName = displayName || '_2' WHERE id < 6;"
        "UPDATE fields SET displayName = '_2' WHERE id = 4;"
        "UPDATE fields SET displayName = 'a_12_3' WHERE id = 6;"
        "UPDATE fields SET displayName = 'A_' WHERE id = 7;"
        "UPDATE fields SET displayName = 'A__2' WHERE id = 8;"
        "UPDATE fields SET displayName = 'A2' WHERE id = 9;"
        "UPDATE fields SET displayName = 'B_2' WHERE id = 10;"
        "UPDATE fields SET displayName = 'A_2x' WHERE id = 11;"
        "UPDATE fields SET displayName = x'415f32' WHERE id = 12;"
        "UPDATE fields SET displayName = 'A_2_' WHERE id = 13", {}),
    "a name that was not there, in a table without row ids": (
        "CREATE TABLE fields (id, number, displayName, PRIMARY KEY (id, number)) WITHOUT ROWID;"
        "INSERT INTO fields VALUES (1, 1, NULL), (1, 2, 'A');",
        "UPDATE fields SET displayName = ifnull(displayName, '') || '_2'", {}),
    "one name becomes unique": (FIELDS, "UPDATE fields SET displayName = 'North_2' WHERE id = 1",
                                {}),
    "a name of another column": (
        "CREATE TABLE fields (id INTEGER PRIMARY KEY, other, displayName);"
        "INSERT INTO fields VALUES (1, 'x', 'y');", "UPDATE fields SET other = 'x_2'", {}),
    "what the program writes itself": (
        "INSERT INTO tableVersion VALUES ('mainSqlDb', 1, 'a'), ('other', 1, 'a');",
        "UPDATE tableVersion SET version = 3, MirelVersion = 'b', tableName = tableName || 'x'"
        " WHERE tableName = 'other'; UPDATE tableVersion SET version = 4, MirelVersion = 'c'", {}),
    # ---- Columns and tables
    "a column under another name": (
        FIELDS, "ALTER TABLE fields RENAME TO plots; ALTER TABLE plots RENAME COLUMN area TO size;"
        "UPDATE plots SET size = 0 WHERE id = 1; DELETE FROM plots WHERE id = 2;",
        {"source": 4, "target": 5}),
    "the step that renames has failed": (
        FIELDS, "UPDATE fields SET area = 0 WHERE id = 1; DELETE FROM fields WHERE id = 2;",
        {"source": 4, "target": 5, "log": lines("Migration to version 5 FAILED!")}),
    "a column goes under another name": (
        FIELDS, "ALTER TABLE fields DROP COLUMN area; ALTER TABLE fields RENAME TO plots;"
        "DELETE FROM plots WHERE id = 1;", {"source": 4, "target": 6}),
    "a column that is still there after a step that takes it": (
        FIELDS, "ALTER TABLE fields RENAME TO plots; UPDATE plots SET area = 0 WHERE id = 1",
        {"source": 4, "target": 6}),
    "on the way back the old names come": (
        FIELDS.replace("fields", "plots").replace("area", "size"),
        "ALTER TABLE plots RENAME TO fields; ALTER TABLE fields RENAME COLUMN size TO area;"
        "UPDATE fields SET area = 1 WHERE id = 2", {"source": 6, "target": 5}),
    "a column that a script may have taken": (
        FIELDS, "ALTER TABLE fields DROP COLUMN area",
        {"scripts": ["ALTER TABLE fields DROP COLUMN area;"]}),
    "a column that an unknown version may have taken": (
        FIELDS, "ALTER TABLE fields DROP COLUMN area", {"source": 11, "target": 12}),
    "a table that a script may have taken": (
        FIELDS, "DROP TABLE fields", {"scripts": ["--\nDR", "DROP\nTABLE Fields;"]}),
    "a table that a script may have taken, on one line": (
        FIELDS, "DROP TABLE fields", {"scripts": ["x;DROP TABLE \"Fields\"; SELECT 1"]}),
    "a table that an unknown version may have taken": (
        FIELDS, "DROP TABLE fields", {"source": 11, "target": 12,
                                      "scripts": ["DROP TABLE fields;"]}),
    "a table that a version takes": (
        NULL_KEYS, "DROP TABLE t", {"source": 7, "target": 6, "scripts": ["DROP TABLE t;"]}),
    "a table that a version takes, of which rows are left": (
        NULL_KEYS, "DELETE FROM t WHERE a = 1; UPDATE t SET a = 4 WHERE k = 'b'",
        {"source": 7, "target": 6}),
    "a table with two columns in its key is gone": (PAIRS, "DROP TABLE t", {}),
    "a table without row ids of its own is gone": (NO_ROW_IDS, "DROP TABLE t", {}),
    "one row and one value are gone": (
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a, b); INSERT INTO t VALUES (1, 1, NULL);",
        "=CREATE TABLE t (id INTEGER PRIMARY KEY, b); INSERT INTO t VALUES (1, 1);", {}),
    "words of scripts": (
        "CREATE TABLE a_1 (a); INSERT INTO a_1 VALUES (1); CREATE TABLE b (a); INSERT INTO b VALUES"
        " (1); CREATE TABLE c (a); INSERT INTO c VALUES (1); CREATE TABLE é (a); INSERT INTO é"
        " VALUES (1); CREATE TABLE d (a); INSERT INTO d VALUES (1); CREATE TABLE e (a); INSERT INTO"
        " e VALUES (1); CREATE TABLE f (a); INSERT INTO f VALUES (1);",
        "DELETE FROM a_1; DELETE FROM b; DELETE FROM c; DELETE FROM é; DELETE FROM d;"
        " DELETE FROM e; DELETE FROM f;",
        {"scripts": ["Delete from A_1;insert into b;replace into d(a) values (1)",
                     "UPDATE é SET a=1;UPDA\nTE c SET a = 1; ALTER TABLE \"e\"; drop2 table f"]}),
    # ---- Which row is which
    "a key of two columns": (PAIRS, "DELETE FROM t WHERE c = 2; UPDATE t SET c = NULL WHERE c = 3;"
                             "INSERT INTO t VALUES (1, 'y', 5)", {}),
    "the key of after": (
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a, b); INSERT INTO t VALUES (1, 'x', 1),"
        " (2, 'y', 2), (3, 'x', 3);",
        "=CREATE TABLE t (A PRIMARY KEY, b); INSERT INTO t VALUES ('x', 3), ('z', 9);", {}),
    "the key of after, which has no other column": (
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, 'x'), (2, 'y');",
        "=CREATE TABLE t (a PRIMARY KEY); INSERT INTO t VALUES ('y');", {}),
    "neither has its key in the other one": (
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, 'x'), (2, 'y');",
        "=CREATE TABLE t (other INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (2, 'z'), (3, 'y');",
        {}),
    "no row ids before": (NO_ROW_IDS, "DELETE FROM t WHERE oid = 3", {}),
    **{f"only {name} is left for the row id": (
        "CREATE TABLE t (_RowId_, ROWID, OID, a);".replace(f"{name.upper()},", "")
        .replace(f"{name}, ", "") + "INSERT INTO t VALUES (1, 2, 3), (4, 5, 6), (7, 8, 9);",
        "DELETE FROM t WHERE a = 3; UPDATE t SET a = 0 WHERE a = 6", {})
       for name in ("rowid", "_RowId_", "oid")},
    "keys with NULL become one": (
        NULL_KEYS, "DELETE FROM t WHERE a = 1; UPDATE t SET k = 'from 7' WHERE a = 3",
        {"source": 6, "target": 7}),
    "keys with NULL become one, and the wrong one is kept": (
        NULL_KEYS, "DELETE FROM t WHERE a = 3; UPDATE t SET k = 'from 7' WHERE a = 1",
        {"source": 6, "target": 7}),
    "the last of two rules for a key": (
        NULL_KEYS, "DELETE FROM t WHERE a = 1; UPDATE t SET k = 'from 8' WHERE a = 3",
        {"source": 6, "target": 8}),
    "a step that rewrites keys has failed": (
        NULL_KEYS, "DELETE FROM t WHERE a = 2", {"source": 6, "target": 7}),
    "a step that rewrites keys has failed, and a row is new": (
        NULL_KEYS + "DELETE FROM t WHERE a = 3;", "INSERT INTO t VALUES ('a', 5)",
        {"source": 6, "target": 7}),
    "a key that is another number of the same size": (
        "CREATE TABLE t (k PRIMARY KEY, a); INSERT INTO t VALUES (1, 'x'), (2.0, 'y');",
        "=CREATE TABLE t (k PRIMARY KEY, a); INSERT INTO t VALUES (1.0, 'z'), (2, 'z');", {}),
    "a step that rewrites every key has failed, and the first row is new": (
        "CREATE TABLE u (k TEXT PRIMARY KEY); INSERT INTO u VALUES ('b'), ('c');",
        "INSERT INTO u VALUES ('a')", {"source": 6, "target": 7}),
    "every key is rewritten, and the first row is new": (
        "CREATE TABLE u (k TEXT PRIMARY KEY); INSERT INTO u VALUES ('b'), ('c');",
        "UPDATE u SET k = k || 'x'; INSERT INTO u VALUES ('a')", {"source": 6, "target": 7}),
    "equal keys": (
        "CREATE TABLE t (k TEXT PRIMARY KEY, a); INSERT INTO t VALUES (NULL, 1), (NULL, 2),"
        " (NULL, 3);", "DELETE FROM t WHERE a = 1", {}),
    "a rule that needs a column that is not there": (
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, 1), (2, 2);",
        "DELETE FROM t WHERE id = 1", {"target": 2}),
    "texts in UTF-16": (
        "CREATE TABLE t (k TEXT PRIMARY KEY, a); INSERT INTO t VALUES ('～', 'x'), ('𐀀', 'y'),"
        " ('b', CAST(x'00d8' AS TEXT)), ('é', 'é');",
        "UPDATE t SET a = CAST(x'01d8' AS TEXT) WHERE k = 'b'; DELETE FROM t WHERE k = '～';",
        {"encoding": "UTF-16le"}),
    "texts in UTF-16 of the other order": (
        "CREATE TABLE t (k TEXT PRIMARY KEY, a); INSERT INTO t VALUES ('～', 'x'), ('𐀀', 'y'),"
        " ('b', CAST(x'd800' AS TEXT));",
        "UPDATE t SET a = CAST(x'd801' AS TEXT) WHERE k = 'b'; DELETE FROM t WHERE k = '𐀀';",
        {"encoding": "UTF-16be"}),
    "keys that UTF-16 would have in another order": (
        "CREATE TABLE t (k TEXT PRIMARY KEY, a); INSERT INTO t VALUES ('～', 'x'), ('𐀀', 'y'),"
        " ('b', 'z');", "DELETE FROM t WHERE k = '～'", {}),
    "texts that are none": (
        "CREATE TABLE t (id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, CAST(x'41ff' AS"
        " TEXT)), (2, CAST(x'41fe' AS TEXT));",
        "UPDATE t SET a = CAST(x'41fd' AS TEXT) WHERE id = 1", {}),
    "texts with zeros in them": (
        "CREATE TABLE t (k TEXT PRIMARY KEY, a TEXT); INSERT INTO t VALUES ('a' || char(0) || 'b',"
        " 'x' || char(0) || 'y'), ('a' || char(0) || 'c', 'z');",
        "UPDATE t SET a = 'x' || char(0) || 'z' WHERE a < 'y';"
        "DELETE FROM t WHERE k > 'a' || char(0) || 'b'", {}),
    "keys that another collation takes for equal": (
        "CREATE TABLE t (k TEXT COLLATE NOCASE, a); INSERT INTO t VALUES ('B', 1), ('a', 2),"
        " ('C', 3); CREATE TABLE n (k TEXT COLLATE NOCASE PRIMARY KEY, a) WITHOUT ROWID;"
        "INSERT INTO n SELECT * FROM t;",
        "=CREATE TABLE t (k TEXT COLLATE NOCASE PRIMARY KEY, a); INSERT INTO t VALUES ('b', 1),"
        " ('a', 2), ('C', 4); CREATE TABLE n (k TEXT COLLATE NOCASE PRIMARY KEY, a) WITHOUT ROWID;"
        "INSERT INTO n VALUES ('b', 1), ('a', 2), ('C', 4);", {}),
    # ---- Repairs
    "orphans, and what refers to them": (
        ORPHANS, "DELETE FROM orphans WHERE id > 1; DELETE FROM leaves WHERE id = 2", {}),
    "one orphan, and one more row": (
        ORPHANS + "DELETE FROM orphans WHERE id = 3; DELETE FROM leaves;",
        "DELETE FROM orphans", {}),
    "orphans that are still there": (ORPHANS, "DELETE FROM orphans WHERE id = 2;", {}),
    "orphans in a table that is gone": (ORPHANS, "DROP TABLE orphans; DELETE FROM leaves", {}),
    "orphans of something that is a view": (
        ORPHANS + "DROP TABLE parents; CREATE VIEW parents AS SELECT 1 AS id;",
        "DELETE FROM orphans WHERE id = 3", {}),
    "rows that belong to nothing": (CHILDREN, REMOVED, {}),
    "rows that belong to nothing, in write-ahead mode": (
        "PRAGMA journal_mode = WAL;" + CHILDREN, REMOVED, {}),
    "one row that belongs to nothing, and a value": (
        CHILDREN + "DELETE FROM switches WHERE id = 3;",
        REMOVED + "UPDATE switches SET parent = NULL WHERE id = 4", {}),
    "rows that belong to nothing, and none of them goes": (
        CHILDREN, "DELETE FROM switches WHERE id = 4", {}),
    "rows that belong to nothing, in a table that is gone": (
        CHILDREN, "DROP TABLE switches; DELETE FROM lamps", {}),
    "rows that belong to nothing, in tables without row ids": (
        PARENTS + "CREATE TABLE w (id PRIMARY KEY, parent REFERENCES parents) WITHOUT ROWID;"
        "INSERT INTO w VALUES (1, 1), (2, 2), (3, 3);"
        "CREATE TABLE c (id PRIMARY KEY, s REFERENCES s ON DELETE CASCADE) WITHOUT ROWID;"
        "CREATE TABLE s (id INTEGER PRIMARY KEY, parent REFERENCES parents);"
        "INSERT INTO s VALUES (1, 1), (2, 2); INSERT INTO c VALUES (1, 1), (2, 2), (3, 2);",
        "DELETE FROM w WHERE id = 3; DELETE FROM s WHERE id = 2; DELETE FROM c WHERE id > 1", {}),
    "rows that belong to nothing, where a column has the name of the row id": (
        PARENTS + "CREATE TABLE w (rowid PRIMARY KEY, parent REFERENCES parents) WITHOUT ROWID;"
        "INSERT INTO w VALUES (0, 1), (5, 9);", "DELETE FROM w WHERE rowid = 0", {}),
    "an index that computes is not evaluated": (
        CHILDREN + "CREATE INDEX i ON switches (parent + 1);"
        + in_schema("parent + 1", OVERFLOW, "i"), "DROP INDEX i;" + REMOVED, {}),
    "an index of some rows is not evaluated": (
        CHILDREN + "CREATE INDEX i ON switches (parent) WHERE parent > 1;"
        + in_schema("parent > 1", f"{OVERFLOW} > 1", "i"), "DROP INDEX i;" + REMOVED, {}),
    "a violation and an orphan in one table": (
        ORPHANS.replace("parent);", "parent REFERENCES parents);", 1)
        + "INSERT INTO orphans VALUES (4, 1);",
        "DELETE FROM orphans WHERE id > 1; DELETE FROM leaves WHERE id = 2", {}),
    # ---- What a cut leaves, damage, and what cannot be read
    "copies left behind": (
        FIELDS + "CREATE TABLE Fields_TEMP (a); INSERT INTO Fields_TEMP VALUES (1);",
        "CREATE TABLE FIELDS_old AS SELECT * FROM fields; INSERT INTO fields_temp VALUES (2);"
        "CREATE TABLE _temp (a); CREATE TABLE parents_temp (a); CREATE VIEW v_temp AS SELECT 1;"
        "CREATE TABLE fields_temporary (a);", {}),
    "the copy of a table that is gone": (
        FIELDS, "ALTER TABLE fields RENAME TO fields_temp", {}),
    "damage": (FIELDS + "INSERT INTO fields VALUES (4, 'x', NULL);",
               in_schema("area REAL", "area REAL NOT NULL", "fields"), {}),
    "damage of before": (FIELDS + "INSERT INTO fields VALUES (4, 'x', NULL);"
                         + in_schema("area REAL", "area REAL NOT NULL", "fields"),
                         "DELETE FROM fields WHERE id = 1", {}),
    "a text that is none": (FIELDS, "", {"patches": {
        "after": [("Südhang".encode(), b"S\xffdhang!")]}}),
    "rows out of order after": (FIELDS, "", {"patches": {
        "after": [(b"\x02\x04\x00\x17\x07South", b"\x09\x04\x00\x17\x07South")]}}),
    "rows out of order before": (FIELDS, "", {"patches": {
        "before": [(b"\x02\x04\x00\x17\x07South", b"\x09\x04\x00\x17\x07South")]}}),
    "rows out of order in a table that is gone": (FIELDS, "DROP TABLE fields", {"patches": {
        "before": [(b"\x02\x04\x00\x17\x07South", b"\x09\x04\x00\x17\x07South")]}}),
    "the schema cannot be read after": (FIELDS, "", {"patches": {"after": [(100, b"\7")]}}),
    "the schema could not be read before": (FIELDS, "", {"patches": {"before": [(100, b"\7")]}}),
    "tables that cannot be read after": (FIELDS, "", {"patches": {
        "after": [(b"tabletableVersiontableVersion", b"tabletableVersiontableVersio\xff")]}}),
    "a definition that cannot be understood": (
        FIELDS, "DELETE FROM fields; " + in_schema("area REAL", "area %%%%", "fields"), {}),
    "a definition that could not be understood before": (
        FIELDS + in_schema("area REAL", "area %%%%", "fields"),
        "=" + FIELDS + "DELETE FROM fields;", {}),
    "other kinds of objects": (
        FIELDS + "CREATE VIRTUAL TABLE f USING fts3(a); INSERT INTO f VALUES ('x');"
        "CREATE VIEW v AS SELECT 1; CREATE TABLE s (id INTEGER PRIMARY KEY AUTOINCREMENT);"
        "INSERT INTO s VALUES (5); DELETE FROM s;",
        "DELETE FROM f; DROP VIEW v; DELETE FROM sqlite_sequence;", {}),
    # ---- The log
    "what the log of an earlier run says": (FIELDS, "", {"target": 2, "log": lines(
        SUCCESS.format(2), target=2, before="Migration to version 2 FAILED!\n")}),
    "what the log says after the run": (FIELDS, "", {"target": 2, "log": lines(
        SUCCESS.format(2), target=2) + "Migration to version 2 FAILED!\n"}),
    "a step that lacked what it takes": (FIELDS, "", {"source": 10, "target": 11, "log": lines(
        "Migration to version 11 FAILED!")}),
    "a step that lacked a part of what it takes": (
        "CREATE TABLE left (a);", "", {"source": 10, "target": 11, "log": lines(
            "Migration to version 11 FAILED!")}),
    "a step that lacked nothing": (
        "CREATE TABLE LEFT (a); CREATE TABLE right (a);", "", {
            "source": 10, "target": 11, "log": lines("Migration to version 11 FAILED!")}),
    "a step that lacked what an earlier one makes": (FIELDS, "", {
        "source": 8, "target": 11, "log": lines(SUCCESS.format(9), SUCCESS.format(10))}),
    "a step that lacked what an earlier one makes under another name": (
        "CREATE TABLE right (a);", "", {"source": 9, "target": 11,
                                        "log": lines(SUCCESS.format(10))}),
    "a step that lacked what a later one makes": (FIELDS, "", {
        "source": 7, "target": 9, "log": lines(SUCCESS.format(9))}),
    "a step back that lacked what it takes": (FIELDS, "", {
        "source": 9, "target": 8, "log": lines("Reverting from version 9 FAILED!!")}),
    "versions applied again": (FIELDS, "DELETE FROM fields WHERE id < 3", {
        "source": 3, "target": 3, "log": lines(
            *(line for version in (3, 2) for line in (
                again(version), SUCCESS.format(version))))}),
    **{f"on the way back: {line}": (FIELDS, "", {
        "source": 11, "target": 1, "reached": 1, "log": failing_back(line)})
       for line in (
           "dropTable - Failed to drop table named t",
           "dropTable - Failed to drop table named LEFT",
           "dropTable - Failed to drop table named fields",
           "setColumnValue - Failed to set column named area to 0",
           "setColumnValue - Failed to set column named other to 0",
           "addColumn - Failed to add column named size to plots",
           "dropColumn - Failed to drop column named Area to Plots",
           "addColumn - Failed to add column named other to plots",
           "dropColumn - Failed to drop column named area to fields")},
    "on the way back: a column is not set, and one step sets it": (FIELDS, "", {
        "source": 4, "target": 1, "reached": 1,
        "log": failing_back("setColumnValue - Failed to set column named area to 0")}),
    "on the way back: the step to the target is the last one": (FIELDS, "", {
        "source": 11, "target": 4, "reached": 4,
        "log": failing_back("setColumnValue - Failed to set column named size to 0")}),
    **{f"a version is applied again, and then: {line}": (FIELDS, "", {
        "source": 11, "target": 1, "reached": 1, "log": failing_back(line, again(version), *then)})
       for line, version, *then in (
           ("addColumn - Failed to add column named other to plots", 3),
           ("addColumn - Failed to add column named size to plots", 3),
           ("addColumn - Failed to add column named Size to plots", 6),
           ("dropTable - Failed to drop table named t", 6),
           ("dropTable - Failed to drop table named T", 6, SUCCESS.format(6)))},
    **{f"on the way back: {line}": (FIELDS, "", {
        "source": 29, "target": 20, "reached": 20, "table": {**TABLE, "newest": 30},
        "log": lines(line)})
       for line in (
           "Failed to create preferredGpsSolutions table", "Failed to determine the solutions",
           "Failed to insert preferredGpsSolutions", "Failed to insert others",
           "Failed inserting data from reverseSenseSettings",
           "Could not rename table back to reverseSenseSettings",
           "Could not rename table back to x",
           "Reverting from version 27 FAILED!", "revert from version 27 has failed",
           "Reverting from version 27 was fine", "Error while reverting to version 24. Error: x")},
    "the step of version 29 fails when it is applied again": (FIELDS, "", {
        "source": 29, "target": 29, "table": {**TABLE, "newest": 30},
        "log": lines(again(29), "Failed inserting data from reverseSenseSettings")}),
    **{f"on the way from 2 to 5: {name}": (FIELDS, "", {
        "source": 2, "target": 5, "reached": 5, "log": lines(*texts, source=2, target=5)})
       for name, texts in {
           "all is well": [SUCCESS.format(version) for version in (3, 4, 5)],
           "no step says anything": [],
           "one step says nothing": [SUCCESS.format(3), SUCCESS.format(5)],
           "the last step says nothing": [SUCCESS.format(3), SUCCESS.format(4)],
           "a part of the first step fails": [
               "DatabaseMigrator::addColumn - failed", *(
                   SUCCESS.format(version) for version in (3, 4, 5))],
           "a part of the last step fails": [
               SUCCESS.format(3), SUCCESS.format(4), "DatabaseMigrator::addColumn - FAILED",
               SUCCESS.format(5)],
           "a part of one of two steps fails": [
               SUCCESS.format(3), "DatabaseMigrator::addColumn - failed", SUCCESS.format(5)],
           "a part of something fails after all steps": [
               *(SUCCESS.format(version) for version in (3, 4, 5)),
               "DatabaseMigrator::addColumn - failed"],
           "a part of something fails after the last step has failed": [
               SUCCESS.format(3), SUCCESS.format(4), "Migration to version 5 FAILED!",
               "DatabaseMigrator::addColumn - failed"],
           "a part of a step fails that says nothing": [
               SUCCESS.format(3), SUCCESS.format(4), "DatabaseMigrator::addColumn - failed"],
           "another line of the toolkit": [
               "DatabaseMigrator::addColumn - done", *(
                   SUCCESS.format(version) for version in (3, 4, 5))],
           "steps in other words": [
               "Database migration to version 3 completed successfully!",
               "Error while updating to version 4: x", "The query in updateToVersion5() failed!"],
           "a step that fails, and says that it is well": [
               SUCCESS.format(3), "updateToVersion4 failed at something", SUCCESS.format(4),
               SUCCESS.format(5)],
           "an older version fails": ["Migration to version 2 FAILED!", *(
               SUCCESS.format(version) for version in (3, 4, 5))],
           "a version is applied again, and a part of it fails": [
               again(2), "DatabaseMigrator::addColumn - failed", SUCCESS.format(2), *(
                   SUCCESS.format(version) for version in (3, 4, 5))],
           "a version is applied again in vain": [
               again(2), "updateToVersion2 failed at something", "Migration to version 2 FAILED!",
               *(SUCCESS.format(version) for version in (3, 4, 5))],
           "a version is applied again in vain, and then a part of a step fails": [
               again(2), "Migration to version 2 FAILED!", "DatabaseMigrator::addColumn - failed",
               *(SUCCESS.format(version) for version in (3, 4, 5))],
           "two versions are applied again, and a part of the first one fails": [
               again(1), "DatabaseMigrator::addColumn - failed", again(2), SUCCESS.format(2), *(
                   SUCCESS.format(version) for version in (3, 4, 5))],
           "a version is applied again, fails in a part and says nothing": [
               again(2), "DatabaseMigrator::addColumn - failed", *(
                   SUCCESS.format(version) for version in (3, 4, 5))],
           "a version of the walk is applied again": [
               again(4), SUCCESS.format(4), *(SUCCESS.format(version) for version in (3, 4, 5))],
           "a line that is too long": [
               SUCCESS.format(3), SUCCESS.format(4),
               "x" * (4096 - len(SUCCESS.format(5)) + 2) + " " + SUCCESS.format(5)],
           "a line that is not too long": [
               SUCCESS.format(3), SUCCESS.format(4),
               "x" * (4096 - len(SUCCESS.format(5)) - 1) + " " + SUCCESS.format(5)]}.items()},
    "the oldest step says nothing": (FIELDS, "", {"target": 3, "log": lines(SUCCESS.format(3))}),
    "every table that a version has": (
        "".join(f"CREATE TABLE {name} (a);" for name in TABLES),
        "".join(f"DROP TABLE {name};" for name in TABLES), {}),
    "a version applied again in vain, and walked in vain": (FIELDS, "", {
        "target": 2, "reached": 1, "log": lines(
            again(3),
            "Migration to version 3 FAILED!", "Migration to version 2 FAILED!", target=2)}),
    "many findings, some of which count": (
        FIELDS + CHILDREN, REMOVED + "DELETE FROM fields WHERE id < 3; UPDATE fields SET area = 0;"
        "DELETE FROM switches; CREATE TABLE fields_old (a)",
        {"target": 2, "reached": 1, "accept": ["left-behind:fields_old", "target-missed:1"]}),
}

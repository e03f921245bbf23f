"""Provokes each code: databases of a few rows before and after, and the verdict on them."""

import json
import re
import sqlite3
from contextlib import closing

import pytest
from bench import FIELDS, TABLE, log_of
from runs_to_judge import VERSIONS_FILE


def test_a_run_with_nothing_to_say(bench):
    verdict = bench.verdict(FIELDS, None)
    assert verdict["findings"] == [] and verdict["counting"] == 0 and verdict["lines"] == []


def test_rows_lost(bench):
    verdict = bench.verdict(FIELDS, FIELDS + "DELETE FROM fields WHERE id = 3")
    assert verdict["findings"] == [{
        "code": "rows-lost:fields", "kind": "rows-lost", "object": "fields",
        "numbers": {"rows": 1, "rowsBefore": 3, "rowsAfter": 2},
        "sentence": "1 row of fields was lost: look at before-migration.sqlite",
        "before": False, "onPurpose": None, "accepted": False, "counts": True,
        "rows": [{"table": "fields", "key": "3"}], "hasAllRows": True}]
    assert verdict["tables"] == [{
        "table": "fields", "rowsBefore": 3, "rowsAfter": 2, "rowsGone": 1, "rowsNew": 0}]
    assert verdict["lines"] == ["1 row of fields was lost: look at before-migration.sqlite"]


def test_what_is_not_kept_cannot_be_looked_at(bench):
    """Every sentence that names the kept database is different without one."""
    before = (FIELDS + "CREATE TABLE gone (a); CREATE TABLE other (a, b);"
              "INSERT INTO other VALUES (1, 2);")
    after = FIELDS + ("DELETE FROM fields WHERE id = 3; UPDATE fields SET area = 7;"
                      "CREATE TABLE other (a); INSERT INTO other VALUES (1);")
    bench.verdict(before, None)
    sound = (bench.folder / "before.sqlite").read_bytes()
    page = sound.rfind("Südhang".encode()) // 4096 * 4096
    without_a_row = sound[:page + 3] + b"\0\2" + sound[page + 5:]
    for other, number in ((after, 4), (without_a_row, 2),
                          (sound[:page] + b"\7" + sound[page + 1:], 2),
                          (sound[:100] + b"\7" + sound[101:], 1)):
        kept = bench.verdict(sound, other)["lines"]
        assert [line.endswith(": look at before-migration.sqlite") for line in kept] == (
            [True] * number)
        assert bench.verdict(sound, other, notKept=True)["lines"] == [
            line.partition(": look")[0] for line in kept]


def test_rows_lost_where_every_run_writes_all_columns(bench):
    table = {**TABLE, "everyRun": {**TABLE["everyRun"], "values": {"counters": ["number"]}}}
    counters = "CREATE TABLE counters (number); INSERT INTO counters VALUES (1), (2), (3);"
    after = counters + "UPDATE counters SET number = 7; DELETE FROM counters WHERE rowid = 2"
    assert bench.findings(counters, after, table=table) == [
        ("rows-lost:counters", None, 1, False, True)]


def test_rows_that_a_version_takes_and_one_more(bench):
    after = FIELDS + "DELETE FROM fields WHERE id IN (1, 3)"
    assert bench.findings(FIELDS, after, target=2) == [
        ("rows-lost:fields", None, 1, False, True), ("rows-lost:fields", 2, 1, False, False)]


def test_rows_that_an_unknown_version_may_have_taken(bench):
    verdict = bench.verdict(FIELDS, FIELDS + "DELETE FROM fields WHERE id = 3", source=8, target=9)
    assert verdict["unknownVersions"] == [9]
    assert [(finding["onPurpose"], finding["counts"]) for finding in verdict["findings"]] == [
        ("unknown", False)]


@pytest.mark.parametrize("newest, reached, log, unknown", [
    pytest.param(2, 4, "\n", [3, 4], id="the recorded version proves the walk"),
    pytest.param(2, 1, None, [3, 4], id="the log proves the walk"),
    pytest.param(2, 1, "Migration to version 3 FAILED!\n", [3], id="the log proves a part of it"),
    pytest.param(2, 1, "\n", [], id="nothing proves it"),
    pytest.param(4, 4, None, [3, 4], id="the table has no entries")])
def test_versions_beyond_the_newest_of_the_table(bench, newest, reached, log, unknown):
    """The table can be older than the program."""
    table = {**TABLE, "newest": newest, "versions": {"2": TABLE["versions"]["2"]}}
    verdict = bench.verdict(FIELDS, FIELDS + "DELETE FROM fields WHERE id = 3", target=4,
                            reached=reached, table=table, log=log and log_of(1, 4, log))
    assert verdict["unknownVersions"] == unknown
    lost, = [finding for finding in verdict["findings"] if finding["kind"] == "rows-lost"]
    assert lost["onPurpose"] == ("unknown" if unknown else None)
    assert lost["counts"] is not bool(unknown)


def test_a_recorded_version_without_bound(bench):
    verdict = bench.verdict(FIELDS, FIELDS + "DELETE FROM fields", target=999_999,
                            reached=999_999, table={**TABLE, "newest": 2})
    assert verdict["unknownVersions"][-1] == 1000


@pytest.mark.parametrize("table", [{"newest": 9}, {**TABLE, "format": 2}], ids=str)
def test_a_table_of_versions_that_says_nothing(bench, table):
    after = FIELDS + "DELETE FROM fields WHERE id = 1"
    assert bench.findings(FIELDS, after, target=2, table=table) == [
        ("rows-lost:fields", "unknown", 1, False, False)]


def test_rows_that_a_script_may_have_taken(bench):
    after = FIELDS + "DELETE FROM fields WHERE id = 3; UPDATE fields SET area = 7"
    taken = [("rows-lost:fields", "script", 1, False, False),
             ("values-lost:fields.area", "script", 2, False, False)]
    assert bench.findings(FIELDS, after, scripts=["DELETE FROM Fields\n WHERE id = 3;"]) == taken
    assert [purpose for _, purpose, *_ in bench.findings(
        FIELDS, after, scripts=["INSERT INTO fields VALUES (9, 'x', 1); DELETE FROM farms"])] == [
            None, None]


def test_values_lost(bench):
    after = FIELDS + "UPDATE fields SET area = round(area); UPDATE fields SET area = 7 WHERE id = 1"
    assert bench.findings(FIELDS, after, source=2, target=3) == [
        ("values-lost:fields.area", None, 1, False, True),
        ("values-lost:fields.area", 3, 2, False, False)]


@pytest.mark.parametrize("value, differs", [
    ("1", True), ("1.0", False), ("'1.0'", True), ("x'31'", True), ("NULL", True)])
def test_values_differ_by_class_and_bytes(bench, value, differs):
    table = "CREATE TABLE t (id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, {});"
    assert bool(bench.findings(table.format("1.0"), table.format(value))) == differs


def test_values_that_may_differ_a_little(bench):
    after = FIELDS + ("UPDATE fields SET area = area * 1.05 WHERE id = 1;"
                      "UPDATE fields SET area = area * 1.2 WHERE id = 2")
    assert bench.findings(FIELDS, after, source=3, target=2) == [
        ("values-lost:fields.area", None, 1, False, True),
        ("values-lost:fields.area", 3, 1, False, False)]


def test_values_that_may_be_any(bench):
    after = FIELDS + "UPDATE fields SET area = 77 WHERE id < 3"
    assert bench.findings(FIELDS, after, source=7, target=8) == [
        ("values-lost:fields.area", None, 1, False, True),
        ("values-lost:fields.area", 8, 1, False, False)]


def test_column_lost(bench):
    before = FIELDS + "UPDATE fields SET area = NULL WHERE id = 1;"
    after = before + "ALTER TABLE fields DROP COLUMN area"
    assert bench.findings(before, after) == [("column-lost:fields.area", None, 2, False, True)]
    assert bench.findings(before, after, source=3, target=4) == [
        ("column-lost:fields.area", 4, 2, False, False)]


def test_table_lost(bench):
    assert bench.findings(FIELDS, "") == [("table-lost:fields", None, 3, False, True)]
    assert bench.findings(FIELDS, "", source=4, target=5) == [
        ("table-lost:fields", 5, 3, False, False)]


def test_a_table_with_another_name(bench):
    renamed = "ALTER TABLE fields RENAME TO plots; ALTER TABLE plots RENAME COLUMN area TO size;"
    assert bench.findings(FIELDS, FIELDS + renamed, source=5, target=6) == []
    after = FIELDS + renamed + "DELETE FROM plots WHERE id = 2; UPDATE plots SET size = 9"
    assert bench.findings(FIELDS, after, source=5, target=6) == [
        ("rows-lost:fields", None, 1, False, True),
        ("values-lost:fields.area", None, 2, False, True)]


def test_left_behind(bench):
    copy = "CREATE TABLE fields_temp AS SELECT * FROM fields WHERE id < 3;"
    other = "CREATE TABLE air_temp (a);"
    assert bench.findings(FIELDS + other, FIELDS + other + copy) == [
        ("left-behind:fields_temp", None, 2, False, True)]
    more = "INSERT INTO fields VALUES (4, 'x', 1)"
    assert bench.findings(FIELDS + copy, FIELDS + copy + more) == [
        ("left-behind:fields_temp", None, 2, True, False)]


def test_damaged(bench):
    bench.verdict(FIELDS, None)
    sound = (bench.folder / "before.sqlite").read_bytes()
    page = sound.rfind("Südhang".encode()) // 4096 * 4096
    broken = sound[:page + 3] + b"\0\2" + sound[page + 5:]
    assert [(code, before, counts) for code, _, _, before, counts in
            bench.findings(sound, broken)][0] == ("damaged", False, True)
    worse = broken.replace(b"North", b"Worth")
    assert ("damaged", None, None, True, False) in bench.findings(broken, worse)


def test_pages_that_nothing_uses_are_no_damage(bench):
    """SQLite looks for them only when its own list of tables does not begin with a view."""
    hidden = FIELDS + ("CREATE TABLE forgotten (a); PRAGMA writable_schema = ON;"
                       "DELETE FROM sqlite_schema WHERE name = 'forgotten';"
                       "PRAGMA writable_schema = OFF;")
    assert bench.findings(hidden + "CREATE VIEW v AS SELECT 1;", hidden) == []
    checks = []
    for name in ("before", "after"):
        with closing(sqlite3.connect(bench.folder / f"{name}.sqlite")) as database:
            checks.append(database.execute("PRAGMA quick_check").fetchone()[0])
    assert checks[0] == "ok" and checks[1].endswith(" is never used")


def test_damage_is_found_however_many_pages_are_unused(bench):
    """SQLite reports such pages first."""
    rows = (FIELDS + "CREATE TABLE big (a); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1"
            " FROM n WHERE i < 1500) INSERT INTO big SELECT zeroblob(4000) FROM n;"
            "CREATE TABLE t (id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, NULL);"
            "PRAGMA writable_schema = ON; DELETE FROM sqlite_schema WHERE name = 'big';")
    damage = "UPDATE sqlite_schema SET sql = replace(sql, 'a)', 'a NOT NULL)') WHERE name = 't';"
    assert ("damaged", None, None, False, True) in bench.findings(rows, rows + damage)


def test_damage_beside_a_computed_column(bench):
    """The tables without such a column are checked one by one."""
    before = FIELDS + ("CREATE TABLE computed (a, b AS (a)); CREATE TABLE \"it's\" (id INTEGER"
                       " PRIMARY KEY, a); INSERT INTO \"it's\" VALUES (1, NULL);"
                       "PRAGMA writable_schema = ON;")
    damage = ("UPDATE sqlite_schema SET sql = replace(sql, 'a)', 'a NOT NULL)')"
              " WHERE name = 'it''s';")
    assert bench.findings(before, before + damage)[0] == ("damaged", None, None, False, True)


@pytest.mark.parametrize("column", [
    "extra AS (1)", "extra AS (1) STORED", "extra DEFAULT 'it''s'", "extra DEFAULT -1.5",
    "extra DEFAULT CURRENT_TIME", "extra DEFAULT x'00'", 'extra DEFAULT "a ""b"""',
    "extra DEFAULT (1 + 1)"])
def test_violations_beside_a_value_that_would_be_computed(bench, column):
    """Removing a row of switches updates lamps. If that would compute a value, it is refused."""
    is_literal = not column.endswith((")", "STORED"))
    before = CHILDREN.replace("ON DELETE SET NULL", f"ON DELETE SET NULL, {column}").replace(
        "INTO lamps", "INTO lamps (id, switch, other)")
    found = bench.findings(before, before + "DELETE FROM lamps WHERE id = 2;"
                           "UPDATE lamps SET other = NULL; DELETE FROM switches WHERE id = 3")
    assert (("violations-removed:switches", None, 1, False, False) in found) is is_literal
    assert (("rows-lost:switches", None, 1, False, True) in found) is not is_literal


def test_unreadable(bench):
    bench.verdict(FIELDS, None)
    sound = (bench.folder / "before.sqlite").read_bytes()
    page = sound.rfind("Südhang".encode()) // 4096 * 4096
    broken = sound[:page] + b"\7" + sound[page + 1:]
    assert ("unreadable:fields", None, None, False, True) in bench.findings(sound, broken)
    assert ("unreadable:fields", None, None, True, False) in bench.findings(broken, sound)
    cut = sound[:100] + b"\7" + sound[101:]
    assert bench.findings(sound, cut) == [("unreadable", None, None, False, True)]
    assert bench.findings(cut, sound) == [("unreadable", None, None, True, False)]


CHILDREN = ("CREATE TABLE parents (id INTEGER PRIMARY KEY); INSERT INTO parents VALUES (1);"
            "CREATE TABLE switches (id INTEGER PRIMARY KEY, parent REFERENCES parents (id));"
            "CREATE TABLE lamps (id INTEGER PRIMARY KEY, switch REFERENCES switches (id) "
            "ON DELETE CASCADE, other REFERENCES switches (id) ON DELETE SET NULL);"
            "INSERT INTO switches VALUES (1, 1), (2, 7), (3, 8);"
            "INSERT INTO lamps VALUES (1, 1, 2), (2, 2, NULL), (3, 1, 1);")


def test_unreadable_beside_rows_that_the_run_removes(bench):
    bench.verdict(FIELDS + CHILDREN, None)
    sound = (bench.folder / "before.sqlite").read_bytes()
    page = sound.rfind("Südhang".encode()) // 4096 * 4096
    broken = sound[:page] + b"\7" + sound[page + 1:]
    assert ("unreadable:fields", None, None, False, True) in bench.findings(sound, broken)


def test_without_room_for_the_repairs_nobody_has_judged(bench):
    for scratch, lacked in (("/proc/none", True), (str(bench.folder), False)):
        verdict = bench.verdict(CHILDREN, CHILDREN + "DELETE FROM switches WHERE id = 1",
                                scratch=scratch)
        assert verdict["lackedRoom"] is lacked


def test_violations_removed(bench):
    after = CHILDREN + ("DELETE FROM switches WHERE id > 1; DELETE FROM lamps WHERE id = 2;"
                        "UPDATE lamps SET other = NULL WHERE id = 1;")
    removed = [("violations-removed:lamps", None, 1, False, False),
               ("violations-removed:switches", None, 2, False, False)]
    assert bench.findings(CHILDREN, after) == removed
    assert bench.findings(CHILDREN, after + "DELETE FROM lamps WHERE id = 3") == [
        ("rows-lost:lamps", None, 1, False, True), *removed]


def test_a_violation_that_could_not_be_removed(bench):
    after = CHILDREN + "DELETE FROM switches WHERE id = 2; DELETE FROM lamps WHERE id = 2;"
    for new in ("", "INSERT INTO switches VALUES (0, 1)"):
        assert ("violations-removed:switches", None, 1, False, False) in bench.findings(
            CHILDREN, after + new)


def test_a_violation_that_could_not_be_removed_where_a_step_renames_the_key(bench):
    key = {"forward": {"switches": {"columnsRenamed": {"id": "number"}}}, "backward": {}}
    table = {**TABLE, "versions": {**TABLE["versions"], "2": key}}
    before = CHILDREN + "DELETE FROM lamps;"
    after = before + "ALTER TABLE switches RENAME COLUMN id TO number;"
    assert bench.findings(before, after, target=2, table=table) == []


def test_orphans_removed(bench):
    orphans = ("CREATE TABLE parents (id INTEGER PRIMARY KEY); INSERT INTO parents VALUES (1);"
               "CREATE TABLE orphans (id INTEGER PRIMARY KEY, parent);"
               "INSERT INTO orphans VALUES (1, 1), (2, 2), (3, 3);")
    assert bench.findings(orphans, orphans + "DELETE FROM orphans WHERE id > 1") == [
        ("orphans-removed", None, 2, False, False)]
    assert bench.findings(orphans, orphans + "DELETE FROM orphans") == [
        ("rows-lost:orphans", None, 1, False, True), ("orphans-removed", None, 2, False, False)]


def test_no_trigger_view_or_computed_column_is_evaluated(bench):
    hostile = ("CREATE TABLE fields (id INTEGER PRIMARY KEY, displayName, "
               "area AS (1));"
               "INSERT INTO fields (id) VALUES (1), (2);"
               "CREATE TABLE parents (id INTEGER PRIMARY KEY);"
               "CREATE TABLE orphans (id INTEGER PRIMARY KEY, parent REFERENCES parents (id));"
               "INSERT INTO orphans VALUES (1, 1);"
               "CREATE TRIGGER t BEFORE DELETE ON orphans BEGIN SELECT RAISE(ABORT, 'no'); END;"
               "CREATE VIEW systemFiles AS SELECT * FROM no_table;")
    after = hostile + "DROP TRIGGER t; DELETE FROM orphans; DELETE FROM fields WHERE id = 2"
    assert bench.findings(hostile, after, target=2) == [
        ("rows-lost:fields", None, 1, False, True),
        ("violations-removed:orphans", None, 1, False, False)]


def test_renamed(bench):
    after = FIELDS + ("UPDATE fields SET displayName = 'North_2' WHERE id = 1;"
                      "UPDATE fields SET displayName = 'SOUTH_2_13' WHERE id = 2;"
                      "UPDATE fields SET displayName = 'Südhang_' WHERE id = 3")
    assert bench.findings(FIELDS, after) == [
        ("values-lost:fields.displayName", None, 1, False, True),
        ("renamed:fields", None, 2, False, False)]
    assert bench.verdict(FIELDS, after)["findings"][1]["rows"][0] == {
        "table": "fields", "key": "1", "before": "'North'", "after": "'North_2'"}


def test_what_the_program_writes_itself(bench):
    before = "INSERT INTO tableVersion VALUES ('mainSqlDb', 1, 'a');"
    after = before + "UPDATE tableVersion SET version = 2, MirelVersion = 'b'"
    assert bench.findings(before, after) == []
    assert bench.findings(before, before + "DELETE FROM tableVersion") == [
        ("rows-lost:tableVersion", None, 1, False, True)]


def test_target_missed(bench):
    log = log_of(1, 2, "Migration to version 2 FAILED!\n", reached=1)
    assert bench.findings(FIELDS, None, target=2, reached=1, log=log) == [
        ("target-missed:1", None, None, False, True), ("step-failed:2", None, None, False, True)]
    bench.verdict(FIELDS, None, target=2, reached=1, log=log)
    verdict = bench.judge.verdict({**bench.request, "from": None, "to": None})
    assert verdict["findings"][0]["code"] == "target-missed:none"
    assert verdict["lines"][0] == "the database is at no version, not at version 2"


@pytest.mark.parametrize("source, target, lines, failed", [
    (24, 26, ["Migration to version 25 was successful.\n", "Migration to version 26 FAILED!\n"],
     {26: True}),
    (24, 26, ["Migration to version 26 was successful.\n"], {25: True}),
    (31, 32, ["The ALTER TABLE RENAME query in updateToVersion32() failed!  The query error was: x"
              "\n", "Migration to version 32 failed\n"], {32: True}),
    (5, 6, ["DatabaseMigrator::addColumn - Failed to add column named isoNodeName to a\n",
            "DatabaseMigrator::addColumn - duplicate column name\n",
            "Database migration to version 6 completed successfully!\n"], {6: True}),
    (26, 24, ["Reverting from version 26 FAILED!!\n"], {26: True}),
    (26, 23, ["Failed to revert from version 24 to 23\n"], {24: True}),
    (26, 23, ["Error while reverting to version 24. Error was: x\n"], {25: True}),
    (26, 20, ["Failed to create preferredGpsSolutions table.\n"], {21: True}),
    (30, 28, ["Could not rename table back to reverseSenseSettings while\n"], {29: True}),
    (24, 22, ["DatabaseMigrator::dropColumnSaveParameters - Failed to drop column named modified"
              " to PC_Mix\n"], {23: True}),
    (24, 22, ["DatabaseMigrator::setColumnValue - Failed to set column named unit to 0\n"],
     {23: True}),
    (24, 22, ["DatabaseMigrator::addColumn - Failed to add column named a to b\n"],
     {"unknown": True}),
    (22, 22, ["Corruption detected: applying update to db for version 21\n",
              "updateToVersion21 - Failed to select entries from preferredGpsSolutions\n",
              "Migration to version 21 FAILED!\n"], {21: False}),
    (24, 22, ["Corruption detected: applying update to db for version 5\n",
              "DatabaseMigrator::addColumn - Failed to add column named fence to c\n",
              "DatabaseMigrator::dropColumnSaveParameters - Failed to drop column named modified"
              " to PC_Mix\n"], {5: False, 23: True}),
    (6, 7, ["\n"], {7: False}),
], ids=str)
def test_step_failed(bench, source, target, lines, failed):
    """failed: the versions, and whether they count. systemFiles, which a step needs, is missing."""
    table = json.loads(VERSIONS_FILE.read_text(encoding="utf-8"))
    needed = {name for entry in table["versions"].values() for name in entry["needs"]}
    before = "".join(f"CREATE TABLE {name} (a);" for name in needed - {"systemFiles"})
    found = bench.verdict(before, None, source=source, target=target, table=table,
                          log=log_of(source, target, *lines))["findings"]
    assert {finding["object"]: finding["counts"] for finding in found
            if finding["kind"] == "step-failed"} == {str(version): counts for version, counts
                                                     in failed.items()}


@pytest.mark.parametrize("there, seventeen, failed", [
    pytest.param("internalGpsReceiverSettings", "was successful.", {26: True},
                 id="17 has made what 26 needs"),
    pytest.param("serialDevices", "FAILED!", {17: False, 26: False}, id="17 could not make it"),
    pytest.param("internalGpsReceiverSettings", "FAILED!", {17: True, 26: True},
                 id="17 has failed for another reason"),
    pytest.param("supportedHarloReceiverSettings", "FAILED!", {17: False, 26: True},
                 id="it was there before")])
def test_what_a_step_needs_may_be_made_by_an_earlier_one(bench, there, seventeen, failed):
    table = json.loads(VERSIONS_FILE.read_text(encoding="utf-8"))
    lines = {version: "was successful." for version in range(17, 27)}
    lines.update({17: seventeen, 26: "FAILED!"})
    # The other steps have what they need.
    table["versions"] = {version: {**entry, "needs": entry["needs"] if version in ("17", "26")
                                   else []} for version, entry in table["versions"].items()}
    found = bench.findings(f"CREATE TABLE {there} (a);", None, source=16, target=26, table=table,
                           log=log_of(16, 26, *(f"Migration to version {version} {end}\n"
                                                for version, end in lines.items())))
    assert {code: counts for code, _, _, _, counts in found if code.startswith("step-")} == {
        f"step-failed:{version}": counts for version, counts in failed.items()}


@pytest.mark.parametrize("version", [12, 13, 19])
def test_a_table_that_is_only_dropped_if_it_is_there_is_no_excuse(bench, version):
    """If such a step fails, it has another cause."""
    table = json.loads(VERSIONS_FILE.read_text(encoding="utf-8"))
    needed = table["versions"][str(version)]["needs"]
    dropped = [name for name, taken in table["versions"][str(version)]["forward"].items()
               if taken.get("dropped") and name not in needed]
    assert dropped
    before = "".join(f"CREATE TABLE {name} (a);" for name in needed)
    assert ("step-failed:" + str(version), None, None, False, True) in bench.findings(
        before, None, source=version - 1, target=version, table=table,
        log=log_of(version - 1, version, f"Migration to version {version} FAILED!\n"))


def test_reapplied(bench):
    log = log_of(3, 3, "Corruption detected: applying update to db for version 2\n",
                 "Migration to version 2 was successful.\n")
    after = FIELDS + "DELETE FROM fields WHERE id = 1"
    assert bench.findings(FIELDS, after, source=3, target=3, log=log) == [
        ("reapplied:2", None, None, False, False), ("rows-lost:fields", 2, 1, False, False)]


def test_accepted(bench):
    after = FIELDS + "DELETE FROM fields WHERE id = 3"
    verdict = bench.verdict(FIELDS, after, accept=["rows-lost:fields"])
    assert verdict["counting"] == 0 and verdict["findings"][0]["accepted"]
    for other in ("rows-lost", "rows-lost:Fields", "rows-lost:fields.area"):
        assert bench.verdict(FIELDS, after, accept=[other])["counting"] == 1


def test_words_of_users(bench):
    mixes = "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY); INSERT INTO PC_Mix VALUES (1), (2);"
    assert bench.verdict(mixes, mixes + "DELETE FROM PC_Mix")["lines"] == [
        "2 rows of mixes were lost: look at before-migration.sqlite"]


def test_without_rows_there_are_no_contents(bench):
    secret = ("CREATE TABLE fields (id TEXT PRIMARY KEY, displayName TEXT, area REAL);"
              "INSERT INTO fields VALUES ('secret key', 'secret name', 1), ('b', 'secret', 2);")
    after = secret + ("DELETE FROM fields WHERE area = 1; UPDATE fields SET area = -765.25;"
                      "UPDATE fields SET displayName = 'secret_2'")
    full = bench.verdict(secret, after)
    assert "secret key" in json.dumps(full) and "secret_2" in json.dumps(full)
    short = json.dumps(bench.judge.verdict({**bench.request, "withoutRows": True}))
    assert "secret" not in short and "765.25" not in short and str(bench.folder) not in short
    assert '"rows": 1' in short


@pytest.mark.parametrize("name", [
    'a"b', "a'b; DROP TABLE x", "line\nbreak", "<b>&amp;", "\u202egnp",
    pytest.param("x" * 1_000_000, id="long"), "ünï", "%1", "a.b", pytest.param("", id="empty")])
def test_codes_are_one_printable_word(bench, name):
    quoted = '"' + name.replace('"', '""') + '"'
    table = (f"CREATE TABLE {quoted} ({quoted} INTEGER PRIMARY KEY);"
             f"INSERT INTO {quoted} VALUES (1);")
    verdict = bench.verdict(table, table + f"DELETE FROM {quoted}")
    finding, = verdict["findings"]
    assert finding["kind"] == "rows-lost" and finding["numbers"]["rows"] == 1
    assert re.fullmatch(r"rows-lost:[!-~]{1,80}", finding["code"])
    assert len(finding["sentence"]) < 200 and finding["sentence"].isprintable()
    assert finding["code"] == "rows-lost:" + finding["object"]
    assert f" of {finding['object']} was lost" in finding["sentence"]


def test_a_point_is_no_part_of_a_name_in_a_code(bench):
    tables = ('CREATE TABLE "a.b" (id INTEGER PRIMARY KEY, c); INSERT INTO "a.b" VALUES (1, 2);'
              'CREATE TABLE a (id INTEGER PRIMARY KEY, "b.c", ""); INSERT INTO a VALUES (1, 2, 3);')
    after = tables + 'UPDATE "a.b" SET c = 9; UPDATE a SET "b.c" = 9, "" = 9'
    assert {code for code, *_ in bench.findings(tables, after)} == {
        "values-lost:a%2Eb.c", "values-lost:a.b%2Ec", 'values-lost:a.""'}

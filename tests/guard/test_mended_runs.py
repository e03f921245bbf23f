"""`run --mend` puts right what cut runs have left, before the program is given the copy."""

import pytest
from conftest import contents
from support.versions import NEWEST

# Copies that step 25 can leave when it is cut: one beside the whole table, one in the table's
# place, and one with rows that the table has lost.
CUT = ("CREATE TABLE growers_temp AS SELECT * FROM growers;"
       "PRAGMA legacy_alter_table = ON; ALTER TABLE farms RENAME TO farms_temp;"
       "CREATE TABLE fields_temp AS SELECT * FROM fields;"
       "DELETE FROM fields WHERE rowid IN (SELECT rowid FROM fields LIMIT 2);")
EXTRA_COPY = "CREATE TABLE growers_temp AS SELECT * FROM growers;"
OTHER_ROWS = ("CREATE TABLE growers_temp AS SELECT * FROM growers;"
              "UPDATE growers_temp SET displayName = 'Secret' || id;")


def findings(device, *kinds):
    return [finding for finding in device.verdict()["findings"] if finding["kind"] in kinds]


def codes(device):
    return [finding["code"] for finding in device.verdict()["findings"]]


def mended(copy, table, way, rows, returned, sentence):
    return {"code": f"mended:{copy}", "kind": "mended", "object": copy, "table": table,
            "mending": way, "numbers": {"rows": rows, "rowsReturned": returned},
            "sentence": sentence, "before": False, "onPurpose": None, "accepted": False,
            "counts": False}


def undisturbed_findings(other_device, version, target):
    other_device.install(version)
    assert other_device.migrate(target) == 0
    return other_device.verdict()


@pytest.mark.parametrize("mode", ["delete", "wal"])
def test_a_mended_walk_ends_as_an_undisturbed_one(device, other_device, expected, mode):
    undisturbed = undisturbed_findings(other_device, 24, 25)
    device.install(24, CUT, mode=mode)
    before = device.contents()
    rows = {table: device.rows(f"SELECT count(*) FROM {table}")[0][0]
            for table in ("growers", "farms_temp", "fields_temp")}
    run = device.run("run", 25, "--mend")
    assert run.returncode == 0
    assert run.stderr.splitlines()[-1] == (
        "migration-guard: from 24 to 25, target 25, guarded, changed, status 0")
    assert (device.contents(), device.log()) == expected(24, 25, mode=mode)
    verdict = device.verdict()
    assert verdict["findings"] == undisturbed["findings"] + [
        mended("farms_temp", "farms", "name-given", rows["farms_temp"], rows["farms_temp"],
               "the table of farms was only there as farms_temp: it has its name again, with "
               f"{rows['farms_temp']} rows"),
        mended("fields_temp", "fields", "rows-returned", rows["fields_temp"], 2,
               "2 rows of fields came back from fields_temp, which a cut run had left"),
        mended("growers_temp", "growers", "copy-removed", rows["growers"], 0,
               "growers_temp, a copy that a cut run had left, was removed: all its rows "
               f"({rows['growers']}) are in growers")]
    # The rows were back when the program began.
    assert verdict["tables"] == undisturbed["tables"]
    # The database of before is kept as it was, without the mending.
    assert contents(device.kept) == before


def test_without_the_option_nothing_is_mended(device):
    device.install(24, CUT)
    assert device.migrate(25) == 4
    assert {"step-failed:25", "target-missed:24"} <= set(codes(device))
    assert findings(device, "mended") == []
    assert device.rows("SELECT count(*) FROM farms_temp")[0][0] > 0


@pytest.fixture
def settled(device):
    """A device on which an ordinary boot changes nothing."""
    device.install(NEWEST)
    for _ in range(2):
        assert device.migrate(NEWEST) == 0
    assert not device.last_run()["changed"]
    return device


def test_what_only_mending_has_changed_is_committed(settled):
    content = settled.contents()
    settled.sql(EXTRA_COPY)
    rows = settled.rows("SELECT count(*) FROM growers")[0][0]
    assert settled.migrate(NEWEST, "--mend") == 0
    assert settled.contents() == content
    assert settled.end_of_last_run() == {
        "command": "run", "from": NEWEST, "to": NEWEST, "target": NEWEST, "way": "guarded",
        "staging": "memory", "changed": True, "kept": False, "status": 0}
    assert findings(settled, "mended") == [
        mended("growers_temp", "growers", "copy-removed", rows, 0,
               "growers_temp, a copy that a cut run had left, was removed: all its rows "
               f"({rows}) are in growers")]
    assert settled.migrate(NEWEST, "--mend") == 0
    assert not settled.last_run()["changed"] and findings(settled, "mended") == []


def test_where_there_is_nothing_to_mend_no_byte_is_written(settled):
    before = settled.database.stat()
    assert settled.migrate(NEWEST, "--mend") == 0
    assert settled.database.stat() == before
    assert (settled.last_run()["changed"], settled.verdict()["counting"]) == (False, 0)


@pytest.mark.parametrize("target", [NEWEST, NEWEST - 1], ids=["an idle run", "a walk"])
def test_what_cannot_be_mended_is_reported(settled, target):
    settled.sql(OTHER_ROWS)
    copy = settled.rows("SELECT * FROM growers_temp")
    assert settled.migrate(target, "--mend") == 0
    assert settled.rows("SELECT * FROM growers_temp") == copy
    assert findings(settled, "mended", "left-behind", "table-lost") == [{
        "code": "left-behind:growers_temp", "kind": "left-behind", "object": "growers_temp",
        "numbers": {"rows": len(copy)}, "before": True, "onPurpose": None, "accepted": False,
        "counts": False, "sentence": f"a copy of a table was left behind: growers_temp, with "
                                     f"{len(copy)} rows, as before this run"}]
    text = settled.last.read_text()
    assert "Secret" not in text and "each have rows" not in text


def test_rows_that_came_back_and_that_the_program_loses_are_lost(device):
    device.install(24, CUT)
    device.replace_program('/app/migrator "$@"; sqlite3 /app/databases/my.db.sqlite '
                           '"PRAGMA foreign_keys = OFF; DELETE FROM fields; DELETE FROM farms"')
    rows = {table: device.rows(f"SELECT count(*) FROM {table}_temp")[0][0]
            for table in ("farms", "fields")}
    assert device.migrate(25, "--mend") == 4
    assert {finding["code"]: finding["numbers"]["rows"]
            for finding in device.verdict()["findings"] if finding["counts"]} == {
                "rows-lost:fields": rows["fields"], "rows-lost:farms": rows["farms"]}


def test_a_copy_that_the_program_leaves_again_counts(settled):
    settled.sql(EXTRA_COPY)
    settled.replace_program('/app/migrator "$@"; sqlite3 /app/databases/my.db.sqlite '
                            '"CREATE TABLE growers_temp AS SELECT * FROM growers"')
    content = settled.contents()
    assert settled.migrate(NEWEST, "--mend") == 3
    assert codes(settled)[0] == "left-behind:growers_temp"
    assert settled.contents() == content


def test_strictly_mending_is_thrown_away_with_the_rest(device):
    device.install(24, CUT)
    before = device.contents()
    assert device.migrate(NEWEST + 1, "--mend", "--strict") == 3
    assert (device.contents(), device.log()) == (before, "")
    assert device.migrate(25, "--mend", "--strict") == 0


def test_a_direct_run_mends_nothing(device):
    device.install(24, EXTRA_COPY)
    run = device.run("run", 24, "--mend", bubblewrap=False)
    assert run.returncode == 4
    assert ("migration-guard: nothing is mended: the program runs on the real database"
            in run.stderr.splitlines())
    assert codes(device) == ["direct:no-bubblewrap"]
    assert device.rows("SELECT count(*) FROM growers_temp") == device.rows(
        "SELECT count(*) FROM growers")


def test_staging_in_memory_has_room_for_the_mended_copy(device):
    device.install(24, CUT + "CREATE TABLE filler (a);"
                             "INSERT INTO filler VALUES (zeroblob(5000000));")
    assert device.migrate(25, "--mend") == 0
    assert device.last_run()["staging"] == "memory"


def test_a_newer_database_is_not_mended(device):
    device.install(NEWEST, EXTRA_COPY + f"UPDATE tableVersion SET version = {NEWEST + 1};")
    before = device.contents()
    assert device.migrate(NEWEST, "--mend") == 3
    assert device.contents() == before
    assert codes(device) == ["newer-than-program"]

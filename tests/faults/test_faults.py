"""A sample of the cases of campaign.py, and the proof that the harness notices broken rules."""

import json
import os
import pathlib
import sqlite3
from contextlib import closing

import device
import pytest
from campaign import prepare, start_databases, without_comments
from cascades import Cascades, rebuilt_with_foreign_keys
from deviations import Deviations, cause_of
from document import DOCUMENT, Figures, GuardFigures, document
from invariant import Invariant
from log_rules import LogRules
from multiply import multiply
from recording import Event, Recording
from states import Reader, differences, lost_rows
from subjects import MIGRATOR, files_of_program
from support.places import scratch_directory
from support.versions import dump_of
from workers import workers

WALKS = ("1 to 4", "4 to 1")


@pytest.fixture(scope="module")
def sandbox():
    """A worker that knows the walks between versions 1 and 4, with its folder and these walks."""
    program, shim = (pathlib.Path(os.environ[name]) for name in ("DATABASE_MIGRATOR", "FAULT_SHIM"))
    with scratch_directory() as kept:
        start_databases(kept)
        with workers(1, kept, MIGRATOR.module, files_of_program(program, shim)) as (worker,):
            yield worker, kept, prepare(MIGRATOR, kept, worker, WALKS)


def run_cases(sandbox, walk, kind, end, stride):
    worker, *_ = sandbox
    return worker.answer({"kind": kind, "scenario": walk, "numbers": [0, end, stride]})


def complaints(walk, answer):
    return answer["violations"] + Deviations().unlisted(walk, answer)


@pytest.mark.parametrize("walk", WALKS)
def test_rows_that_arrive_are_there_all_the_way(sandbox, walk):
    assert sandbox[2][walk]["lost for a time"] == []


@pytest.mark.parametrize("walk", WALKS)
@pytest.mark.parametrize("kind, stride", [
    ("kill", 61), ("kill in a write", 67), ("EIO once", 61), ("EIO from then on", 131),
    ("ENOSPC once", 73), ("ENOSPC from then on", 131), ("short write once", 67),
    ("short writes from then on", 151), ("power cut", 43)])
def test_faults_leave_a_sound_database_that_the_next_run_accepts(sandbox, walk, kind, stride):
    answer = run_cases(sandbox, walk, kind, sandbox[2][walk]["operations"], stride)
    assert answer["cases"] > 0
    assert complaints(walk, answer) == []
    if not kind.endswith("once"):  # A single error may be harmless.
        recovered = sum(counts.get("recovered", 0) for counts in answer["outcomes"].values())
        assert recovered < answer["cases"]


@pytest.mark.parametrize("walk", WALKS)
@pytest.mark.parametrize("kind", ["no memory once", "no memory from then on"])
def test_lack_of_memory_leaves_a_sound_database(sandbox, walk, kind):
    end = sandbox[2][walk]["allocations"]
    answer = run_cases(sandbox, walk, kind, end, end // 8)
    assert complaints(walk, answer) == []


@pytest.mark.parametrize("walk", WALKS)
@pytest.mark.parametrize("kind, end, stride", [
    ("full disk", 12, 4), ("locked for some statements", 6, 1), ("pair of faults", 4, 1)])
def test_trouble_around_the_program_leaves_a_sound_database(sandbox, walk, kind, end, stride):
    assert complaints(walk, run_cases(sandbox, walk, kind, end, stride)) == []


@pytest.mark.parametrize("walk", WALKS)
def test_locked_database_stays_as_it_is(sandbox, walk):
    answer = run_cases(sandbox, walk, "locked throughout", 3, 1)
    assert (answer["cases"], complaints(walk, answer)) == (3, [])


# Mistakes that the harness has to notice.


def test_power_cut_without_syncs_is_noticed(sandbox):
    answer = run_cases(sandbox, "1 to 4", "power cut without syncs", 100, 7)
    assert any("not a state after" in violation for violation in answer["violations"])
    assert any("not sound" in violation for violation in answer["violations"])


def violations_of(statements, start, invariant=None):
    """Runs statements. Without an invariant, returns the invariant of their states; with one,
    returns the violations of it."""
    found = []
    with scratch_directory() as folder:
        copy = folder / "copy.sqlite"
        copy.write_bytes(start.read_bytes())
        gathered = invariant or Invariant(Reader().read(copy))
        with closing(sqlite3.connect(copy, isolation_level=None)) as database:
            for statement in statements:
                try:
                    database.execute(statement).fetchall()
                except sqlite3.DatabaseError:
                    pass  # One of the reference scripts, or the insertion that finds no table.
                state = Reader().read(copy)
                if invariant:
                    found += invariant.violations(state, "any")
                else:
                    gathered.gather(state)
    return found if invariant else gathered


def test_drop_before_its_insertion_is_noticed(sandbox):
    folder = sandbox[1]
    start = folder / "1 to 4" / "final.sqlite"
    statements = json.loads((folder / "4 to 1" / "statements.json").read_text())
    copied = next(i for i, text in enumerate(statements)
                  if "INTO ombrixMasterSettings_temp" in text)
    dropped = statements.index("DROP TABLE ombrixMasterSettings")
    assert dropped == copied + 1
    invariant = violations_of(statements, start)
    assert violations_of(statements, start, invariant) == []
    statements[copied:dropped + 1] = statements[dropped], statements[copied]
    found = violations_of(statements, start, invariant)
    assert "ombrixmastersettings: rows without a copy" in found


@pytest.mark.parametrize("statement, violations", [
    ("DELETE FROM languages WHERE code = 'el'",
     ["untouched table languages changed", "languages: rows without a copy"]),
    ("UPDATE systemControl SET brightness = 1234",
     ["untouched table systemcontrol changed", "systemcontrol: brightness has a value of its own"]),
    ("DROP TABLE languages",
     ["untouched table languages changed", "languages: rows without a copy",
      "languages: columns without a copy"])])
def test_change_that_no_step_makes_is_noticed(sandbox, statement, violations):
    start = sandbox[1] / "start.sqlite"
    invariant = violations_of(["SELECT 1"], start)
    assert violations_of([statement], start, invariant) == violations


OFF, ON = "PRAGMA foreign_keys = OFF", "PRAGMA foreign_keys = ON"


@pytest.mark.parametrize("begun, events, tables", [
    pytest.param("", [Event("S", OFF), Event("S", "DROP TABLE farms")], set(), id="turned off"),
    pytest.param("", [Event("S", OFF), Event("E", "out of memory", OFF),
                      Event("S", "DROP TABLE farms"), Event("S", ON),
                      Event("S", "DROP TABLE fields")], {"farms"}, id="not turned off"),
    pytest.param(OFF, [Event("E", "out of memory"), Event("S", "DROP TABLE farms")], {"farms"},
                 id="not turned off, after it had begun"),
    pytest.param(OFF, [Event("S", "SELECT 1"), Event("E", "out of memory"),
                       Event("S", "DROP TABLE farms")], set(), id="a later failure"),
    pytest.param(ON, [Event("E", "out of memory"), Event("S", "DROP TABLE farms")], set(),
                 id="not turned on")])
def test_rebuild_with_foreign_keys_is_told_from_others(begun, events, tables):
    assert rebuilt_with_foreign_keys(events, begun) == tables


def test_tables_below_others_may_lose_rows_with_them(sandbox):
    start = Reader().read(sandbox[1] / "start.sqlite")
    assert Cascades(start).below({"farms"}) == {"fields", "guidancelines", "jp_jobprofile"}
    invariant = violations_of(["SELECT 1"], sandbox[1] / "start.sqlite")
    del start.tables["languages"]
    assert invariant.losses(start, "any", {"languages"}) == []
    assert invariant.losses(start, "any", {"farms"}) != []


def test_only_lack_of_memory_excuses_an_empty_text(sandbox, tmp_path):
    start = sandbox[1] / "start.sqlite"
    invariant = violations_of(["SELECT 1"], start)
    copy = tmp_path / "copy.sqlite"
    copy.write_bytes(start.read_bytes())
    with closing(sqlite3.connect(copy)) as database:
        database.execute("UPDATE languages SET code = '' WHERE code = 'el'")
        database.commit()
    found = invariant.violations(Reader().read(copy), "any")
    assert "languages: code has a value of its own" in found
    found = invariant.violations(Reader().read(copy), "any", memory_lacks=True)
    assert "languages: code has a value of its own" not in found


@pytest.mark.parametrize("statement, lines, lost", [
    ("DELETE FROM languages", ["languages rows missing"], ["languages"]),
    ("UPDATE languages SET code = 'xx' WHERE code = 'el'", ["languages other values"], []),
    ("ALTER TABLE languages ADD COLUMN further",
     ["languages column further more", "languages other definition"], []),
    ("ALTER TABLE languages RENAME TO languages_old",
     ["languages missing with its rows", "languages_old left over with rows"], []),
    ("CREATE TABLE languages_temp (id)", ["languages_temp left over with no rows"], []),
    ("CREATE INDEX codes ON languages (code)", ["languages index codes differs"], [])])
def test_difference_from_an_undisturbed_run_is_noticed(sandbox, tmp_path, statement, lines, lost):
    copy = tmp_path / "copy.sqlite"
    copy.write_bytes((sandbox[1] / "start.sqlite").read_bytes())
    reference = Reader().read(copy)
    with closing(sqlite3.connect(copy)) as database:
        database.execute(statement)
        database.commit()
    state = Reader().read(copy)
    assert (differences(state, reference), lost_rows(state, reference)) == (lines, lost)
    assert state.hash != reference.hash
    assert differences(reference, reference) == []


def test_left_file_is_noticed(tmp_path, monkeypatch):
    monkeypatch.setattr(device, "DATABASES", tmp_path)
    (tmp_path / "etilqs_1").touch()
    assert device.further_files() == ["left the file etilqs_1"]


BEGUN = "SELECT version FROM tableVersion WHERE tableName = 'mainSqlDb'"
ADDITION = "ALTER TABLE systemControl ADD COLUMN languageSelected BOOLEAN DEFAULT 0"
NOT_ADDED = ("DatabaseMigrator::addColumn - Failed to add column named languageSelected"
             " to systemControl\n")
ERROR = "DatabaseMigrator::addColumn - disk I/O error Unable to fetch row\n"
UNDISTURBED = [
    Event("S", BEGUN), Event("L", "\nBeginning\n"), Event("S", ADDITION),
    Event("L", "Database migration to version 4 completed successfully!\n"),
    Event("S", "DELETE FROM OutgoingFiles"),
    Event("L", "Database migration to version 7 completed successfully!\n")]
FAILED = Event("E", "disk I/O error", ADDITION)


@pytest.mark.parametrize("lines, violations", [
    pytest.param([NOT_ADDED, ERROR], [], id="as required"),
    pytest.param([ERROR], [f"log of 4: nothing says that {ADDITION[:60]} failed"],
                 id="a line is missing"),
    pytest.param([NOT_ADDED.replace("named l", "named L"), ERROR],
                 [f"log of 4: nothing says that {ADDITION[:60]} failed"], id="another letter case"),
    pytest.param([NOT_ADDED, ERROR.replace("disk I/O error", "database is locked")],
                 [f"log of 4: nothing says that {ADDITION[:60]} failed"], id="another error"),
    pytest.param([NOT_ADDED, ERROR, UNDISTURBED[3].text],
                 ["log of 4: success in spite of a failure"], id="success in spite of it"),
    pytest.param([NOT_ADDED, ERROR, "Could not\n"],
                 ["log of 4: Could not has no reason"], id="a line too much")])
def test_wrong_log_of_a_failure_is_noticed(lines, violations):
    rules = LogRules(Recording(events=UNDISTURBED),
                     lambda number: ("before", "before", "4", "7")[number], forward=True)
    events = [FAILED, *(Event("L", line) for line in lines), *UNDISTURBED[4:]]
    assert rules.violations(3, events) == violations


def test_wrong_log_without_a_failure_is_noticed():
    rules = LogRules(Recording(events=UNDISTURBED),
                     lambda number: ("before", "before", "4", "7")[number], forward=True)
    assert rules.violations(0, UNDISTURBED) == []
    assert rules.violations(0, UNDISTURBED[:3] + UNDISTURBED[4:]) == [
        "log of 4: other lines though nothing failed"]


def test_deviation_that_is_not_in_the_list_is_noticed():
    answer = {"differences": {"4": {"systemControl missing with its rows": 1}}}
    assert Deviations().unlisted("1 to 4", answer) == [
        "0: not in the list after a fault in step 4: systemControl missing with its rows"]


def test_every_deviation_has_a_cause():
    assert [key for key in Deviations().steps if cause_of(*key) is None] == []


# The parts of the campaign.


@pytest.mark.parametrize("name, texts, other", [
    ("a.c", ('f("/*//"); // one\n', '/* two\n */\n  f("/*//");\n'), 'f("/*");\n'),
    ("a.py", ('"""One."""\nfor i in "#":  # one\n    i\n', 'for i in "#":\n    i\n'),
     'for i in "":\n    i\n')])
def test_campaign_starts_over_for_code_but_not_for_comments(tmp_path, name, texts, other):
    def text_of(text):
        (tmp_path / name).write_text(text, encoding="utf-8")
        return without_comments(tmp_path / name)

    assert text_of(texts[0]) == text_of(texts[1]) != text_of(other)


def test_multiplied_database_is_in_good_order():
    with closing(sqlite3.connect(":memory:")) as database:
        def rows():
            return {table: database.execute(f"SELECT count(*) FROM {table}").fetchone()[0]
                    for table, in database.execute(
                        "SELECT name FROM sqlite_master WHERE type = 'table'"
                        " AND name NOT IN ('tableVersion', 'sqlite_sequence')").fetchall()}

        database.executescript(dump_of(1))
        expected = {table: 10 * number for table, number in rows().items()}
        multiply(database, 10)
        assert rows() == expected
        assert database.execute("PRAGMA foreign_key_check").fetchall() == []
        assert database.execute("PRAGMA integrity_check").fetchall() == [("ok",)]


def test_page_is_made_of_the_figures_and_the_list():
    text = DOCUMENT.read_text(encoding="utf-8")
    assert text == document(Figures.read(), Deviations(), GuardFigures.read())
    assert len(text.splitlines()) <= 280

"""The program is not started on a newer database, with a library that cannot run every step, or
after a requested mending has failed."""

import os
import shutil

import pytest
from conftest import contents
from rehearsals import Untouched, rehearse
from support.versions import NEWEST

MARK = "touch /app/started; "
KILLS = range(1, 400, 1 if "CAMPAIGN" in os.environ else 45)
PROGRAM = 'exec env -u LD_PRELOAD -u FAULT_AT -u FAULT_ACTION /app/migrator "$@"'
# What the guard needs from its SQLite library and not every library has.
NEEDED = ("sqlite_schema", "pragma_table_info", "pragma_table_xinfo", "pragma_index_list",
          "pragma_index_xinfo", "pragma_quick_check", "pragma_foreign_key_check", "row_number",
          "EXCEPT")
FALL_BACK = ("run", NEWEST, "--fall-back", "--wait", "2")


def forget(device, newest):
    """Makes the program one that knows only the versions up to this one."""
    file = device.app / "schema-versions.json"
    text = file.read_text()
    file.write_text(text.replace(f'"newest": {NEWEST}', f'"newest": {newest}'))


def make_newer(device):
    device.sql(f"UPDATE tableVersion SET version = {NEWEST + 1} WHERE tableName = 'mainSqlDb'; "
               "UPDATE growers SET displayName = displayName || ' newer';")


@pytest.fixture
def newer(device):
    """A database of a newer program, and the kept database of before its migration."""
    device.install(NEWEST - 1)
    assert device.migrate(NEWEST) == 0
    device.before = contents(device.kept)
    make_newer(device)
    device.newer = device.contents()
    return device


@pytest.mark.parametrize("bubblewrap", [True, False])
def test_a_newer_database_is_left_alone(newer, bubblewrap):
    newer.replace_program(MARK + 'exec /app/migrator "$@"')
    log = newer.log()
    run = newer.run("run", NEWEST, bubblewrap=bubblewrap)
    assert run.returncode == 3
    assert run.stderr.splitlines()[-1] == (
        f"migration-guard: the database is at version {NEWEST + 1}, but the program knows versions "
        f"up to {NEWEST}: it was not started")
    assert not (newer.app / "started").exists()
    assert (newer.contents(), newer.log()) == (newer.newer, log)
    assert newer.last_run()["reason"] == "newer-than-program"
    finding = newer.verdict()["findings"][0]
    assert (finding["code"], finding["numbers"]) == (
        "newer-than-program", {"recorded": NEWEST + 1, "newest": NEWEST})
    assert not newer.note.exists()


def test_falling_back_brings_the_kept_one_and_keeps_the_newer_one(newer):
    assert newer.migrate(NEWEST, "--fall-back") == 0
    assert newer.version() == NEWEST
    # The walk from the kept version does not replace the newer database.
    assert contents(newer.kept) == newer.newer
    assert newer.end_of_last_run() == {
        "command": "run", "from": NEWEST + 1, "to": NEWEST, "target": NEWEST, "way": "guarded",
        "staging": "memory", "changed": True, "kept": True, "status": 0}
    finding, = (each for each in newer.verdict()["findings"]
                if each["code"] == "newer-than-program")
    assert (finding["accepted"], finding["counts"]) == (True, False)
    assert newer.migrate(NEWEST, "--fall-back") == 0
    assert contents(newer.kept) == newer.newer


def test_falling_back_without_a_sandbox(newer):
    assert newer.migrate(NEWEST, "--fall-back", bubblewrap=False) == 4
    assert newer.version() == NEWEST
    assert contents(newer.kept) == newer.newer


@pytest.mark.parametrize("take_away", [
    lambda device: device.kept.unlink(),
    lambda device: device.kept.write_bytes(b"junk" * 2000),
    lambda device: forget(device, NEWEST - 2)])
def test_without_a_kept_one_that_the_program_knows_nothing_changes(newer, take_away):
    take_away(newer)
    log, kept = newer.log(), newer.kept.exists() and newer.kept.read_bytes()
    run = newer.run("run", NEWEST - 2, "--fall-back")
    assert run.returncode == 3
    assert "not changed, newer-than-program (" in run.stderr
    assert (newer.contents(), newer.log()) == (newer.newer, log)
    assert (newer.kept.exists() and newer.kept.read_bytes()) == kept


def test_a_database_that_is_known_does_not_fall_back(device):
    device.install(NEWEST - 1)
    assert device.migrate(NEWEST, "--fall-back") == 0
    assert device.version() == NEWEST


def test_strictly_nothing_falls_back(newer):
    assert newer.migrate(NEWEST, "--strict", "--fall-back") == 2
    assert newer.contents() == newer.newer


def test_a_guard_that_is_killed_while_it_falls_back_leaves_one_of_the_two(newer):
    newer.replace_program(PROGRAM)
    for variable, name in (("FAULT_SHIM", "shim.so"), ("FATAL_MOMENTS", "moments.so")):
        shutil.copy(os.environ[variable], newer.app / name)
    start = {path.name: path.read_bytes() for path in newer.databases.iterdir()}
    assert newer.run(*FALL_BACK).returncode == 0
    after = newer.contents()
    for number in KILLS:
        for path in newer.databases.iterdir():
            path.unlink()
        for name, content in start.items():
            (newer.databases / name).write_bytes(content)
        newer.run(*FALL_BACK, options=(
            "--setenv LD_PRELOAD /app/shim.so:/app/moments.so "
            f"--setenv FAULT_AT {number} --setenv FAULT_ACTION kill"))
        assert newer.contents() in (newer.newer, newer.before, after), number
        whole = [newer.database, *newer.databases.glob("before-migration.sqlite*")]
        assert newer.newer in [contents(path) for path in whole if path.suffix != ".tmp"], number
        for _ in range(2):
            if newer.run(*FALL_BACK).returncode == 0:
                break
        assert (newer.contents(), contents(newer.kept)) == (after, newer.newer), number


@pytest.mark.parametrize("bubblewrap", [True, False])
def test_a_library_that_refuses_texts_is_told_before_anything_runs(device, bubblewrap):
    device.install(1)
    before = device.contents()
    device.replace_program(MARK + 'exec /app/migrator "$@"')
    shutil.copy(os.environ["SQLITE_WITHOUT_TEXTS"], device.app / "library.so")
    run = device.run("run", NEWEST, bubblewrap=bubblewrap,
                     options="--setenv LD_PRELOAD /app/library.so")
    assert run.returncode == 3
    assert "not changed, library-unfit, status 3" in run.stderr
    assert run.stderr.splitlines()[-1] == (
        "migration-guard: the SQLite library refuses texts in double quotes, which versions 6 and "
        "16 need: the program was not started")
    assert device.verdict()["findings"][0]["code"] == "library-unfit"
    assert not (device.app / "started").exists()
    assert (device.contents(), device.log()) == (before, "")
    assert device.migrate(NEWEST) == 0


def option_without(device, name):
    """The option with which a device's programs get an SQLite library that lacks this name."""
    shutil.copy(os.environ["SQLITE_WITHOUT_NAME"], device.app / "library.so")
    return f"--setenv LD_PRELOAD /app/library.so --setenv SQLITE_LACKS {name}"


@pytest.mark.parametrize("bubblewrap", [True, False])
@pytest.mark.parametrize("name", NEEDED)
def test_a_library_without_what_the_guard_needs_is_told_before_anything_runs(
        device, name, bubblewrap):
    device.install(24, "CREATE TABLE growers_temp AS SELECT * FROM growers;")
    before = device.contents()
    device.replace_program(MARK + 'exec env -u LD_PRELOAD /app/migrator "$@"')
    run = device.run("run", 25, "--mend", bubblewrap=bubblewrap,
                     options=option_without(device, name))
    assert run.returncode == 3
    assert f"not changed, library-unfit (no {name}), status 3" in run.stderr
    assert run.stderr.splitlines()[-1] == (
        f"migration-guard: the guard needs SQLite 3.33 or newer with {name}, which this library "
        "does not have: the program was not started")
    assert device.last_run()["reason"] == "library-unfit"
    finding, = device.verdict()["findings"]
    assert (finding["code"], finding["counts"]) == (f"library-unfit:{name}", True)
    assert not (device.app / "started").exists()
    assert (device.contents(), device.log()) == (before, "")
    assert device.migrate(25, "--mend") == 0


def test_a_rehearsal_with_such_a_library_starts_nothing(device):
    device.install(1)
    device.replace_program(MARK + 'exec env -u LD_PRELOAD /app/migrator "$@"')
    option = option_without(device, NEEDED[0])
    untouched = Untouched(device.databases)
    rehearsed = rehearse(device, NEWEST, options=option)
    assert (rehearsed.status, rehearsed.codes()) == (3, [f"library-unfit:{NEEDED[0]}"])
    assert rehearsed.report["reason"] == "library-unfit"
    untouched.check()


@pytest.mark.parametrize("name", NEEDED)
def test_a_restore_with_such_a_library_changes_nothing(device, name):
    device.install(1)
    assert device.migrate(2) == 0
    option = option_without(device, name)
    untouched = Untouched(device.databases)
    for arguments in (("restore",), ("restore", "--dry-run")):
        run = device.run(*arguments, options=option)
        assert (run.returncode, run.stdout) == (3, "")
        assert f"not changed, library-unfit (no {name}), status 3" in run.stderr
    untouched.check()
    assert device.run("restore").returncode == 0
    assert device.version() == 1


def test_a_restore_needs_no_texts_in_double_quotes(device):
    device.install(1)
    assert device.migrate(2) == 0
    shutil.copy(os.environ["SQLITE_WITHOUT_TEXTS"], device.app / "library.so")
    assert device.run("restore", options="--setenv LD_PRELOAD /app/library.so").returncode == 0
    assert device.version() == 1


@pytest.mark.parametrize("bubblewrap", [True, False])
def test_where_mending_fails_nothing_runs(device, bubblewrap):
    device.install(24, "CREATE TABLE growers_temp AS SELECT * FROM growers;")
    before = device.contents()
    device.replace_program(MARK + PROGRAM)
    shutil.copy(os.environ["SQLITE_WITHOUT_FUNCTIONS"], device.app / "library.so")
    options = {"options": "--setenv LD_PRELOAD /app/library.so", "bubblewrap": bubblewrap}
    # A direct run mends nothing.
    assert device.migrate(25, "--mend", **options) == (3 if bubblewrap else 4)
    assert (device.app / "started").exists() is not bubblewrap
    if bubblewrap:
        assert device.end_of_last_run() == {
            "command": "run", "from": 24, "to": 24, "target": 25, "way": "guarded",
            "changed": False, "status": 3, "reason": "mending-failed"}
        assert (device.contents(), device.log()) == (before, "")
        assert device.migrate(25, **options) == 4
        assert device.migrate(25, "--mend") == 0

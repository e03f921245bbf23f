"""Another process reads, writes, locks or replaces the database before, during and after a run."""

import os
import sqlite3
import time
from contextlib import closing

import pytest
from conftest import contents, leave, wait_for
from support.versions import NEWEST

# The program does its work. Then the test can act before the guard commits.
PAUSED = """
/app/migrator "$@"
touch /app/waiting
while [ ! -e /app/go ]; do sleep 0.01; done
rm /app/go /app/waiting
"""


def write(device, value):
    device.sql(f"CREATE TABLE IF NOT EXISTS notes (a); INSERT INTO notes VALUES({value});")


def paused_run(device, *turns, arguments=(), user=None):
    """Runs the guard; before each commit the test can act. Returns the run's output."""
    process = device.start("run", NEWEST, *arguments, user=user)
    for turn in turns:
        wait_for(device.app / "waiting")
        turn()
        (device.app / "go").touch()
        while (device.app / "waiting").exists() and process.poll() is None:
            time.sleep(0.005)
    output, errors = process.communicate(timeout=120)
    return process.returncode, errors


@pytest.fixture
def paused(device):
    device.install(1)
    device.replace_program(PAUSED)
    return device


def test_a_write_before_the_commit_is_not_lost(paused):
    status, errors = paused_run(paused, lambda: write(paused, 1), lambda: None)
    assert status == 0, errors
    assert paused.version() == NEWEST
    assert paused.rows("SELECT * FROM notes") == [(1,)]
    assert "another program has written" in errors
    assert paused.log().count("Beginning database migration") == 1


def test_after_three_writes_nothing_is_changed(paused):
    turns = [lambda value=value: write(paused, value) for value in range(3)]
    status, _ = paused_run(paused, *turns)
    assert status == 3
    assert paused.version() == 1
    assert paused.rows("SELECT * FROM notes") == [(0,), (1,), (2,)]
    assert paused.last_run()["reason"] == "written-meanwhile"
    assert paused.log() == ""
    assert not paused.kept.exists()


def test_a_write_to_a_write_ahead_log_is_not_lost(device):
    device.install(1, mode="wal")
    device.replace_program(PAUSED)
    with closing(sqlite3.connect(device.database, isolation_level=None)) as other:
        def write_and_keep_open():
            other.execute("CREATE TABLE notes (a)")
        assert paused_run(device, write_and_keep_open, lambda: None)[0] == 0
        # A connection that stays open reads the new content.
        assert other.execute("SELECT version FROM tableVersion WHERE tableName = 'mainSqlDb'"
                             ).fetchall() == [(NEWEST,)]
        assert other.execute("SELECT * FROM notes").fetchall() == []


def test_a_foreign_checkpoint_does_no_harm(device):
    device.install(1, mode="wal")
    device.replace_program(PAUSED)
    with closing(sqlite3.connect(device.database, isolation_level=None)) as other:
        other.execute("PRAGMA wal_autocheckpoint = 0")
        other.execute("CREATE TABLE notes (a)")
        status, errors = paused_run(
            device, lambda: other.execute("PRAGMA wal_checkpoint(TRUNCATE)").fetchall(),
            lambda: None)
    assert status == 0, errors
    assert device.version() == NEWEST
    assert device.rows("SELECT * FROM notes") == []


def test_a_connection_that_stays_open_reads_the_new_content(paused):
    with closing(sqlite3.connect(paused.database, isolation_level=None)) as other:
        assert other.execute("SELECT count(*) FROM languages").fetchall() != [(0,)]
        assert paused_run(paused, lambda: None)[0] == 0
        assert other.execute("SELECT version FROM tableVersion WHERE tableName = 'mainSqlDb'"
                             ).fetchall() == [(NEWEST,)]
        assert other.execute(
            "SELECT name FROM sqlite_schema WHERE name = 'languages'").fetchall() == []
        other.execute("UPDATE tableVersion SET MirelVersion = 'x'")
    assert paused.rows("PRAGMA integrity_check") == [("ok",)]


@pytest.mark.parametrize("lock", ["BEGIN EXCLUSIVE", "BEGIN IMMEDIATE", "BEGIN"])
def test_a_lock_at_the_commit_is_waited_for(paused, lock):
    with closing(sqlite3.connect(paused.database, isolation_level=None)) as other:
        def hold():
            other.execute(lock)
            other.execute("SELECT * FROM tableVersion").fetchall()
        process = paused.start("run", NEWEST)
        wait_for(paused.app / "waiting")
        hold()
        (paused.app / "go").touch()
        time.sleep(0.5)
        assert process.poll() is None
        other.execute("ROLLBACK")
        process.communicate(timeout=120)
        assert process.returncode == 0
    assert paused.version() == NEWEST


@pytest.mark.parametrize("lock", ["BEGIN EXCLUSIVE", "BEGIN IMMEDIATE", "BEGIN"])
def test_a_lock_that_stays_at_the_commit_changes_nothing(paused, lock):
    before = paused.contents()
    with closing(sqlite3.connect(paused.database, isolation_level=None)) as other:
        def hold():
            other.execute(lock)
            other.execute("SELECT * FROM tableVersion").fetchall()
        status, _ = paused_run(paused, hold, arguments=("--wait", "0"))
    assert status == 3
    assert paused.last_run()["reason"] == "locked"
    assert (paused.contents(), paused.log(), paused.kept.exists()) == (before, "", False)
    # It does not make the next run work on the disk.
    assert not paused.note.exists()


def test_a_lock_before_the_copy_is_waited_for_then_nothing_is_run(device):
    device.install(1)
    device.replace_program("touch /app/started")
    with closing(sqlite3.connect(device.database, isolation_level=None)) as other:
        other.execute("BEGIN EXCLUSIVE")
        begin = time.monotonic()
        assert device.migrate(NEWEST, "--wait", 1) == 3
        assert time.monotonic() - begin >= 1
    assert device.last_run()["reason"] == "locked"
    assert not (device.app / "started").exists()


def test_an_unlocked_reader_before_the_copy_does_not_matter(device):
    device.install(1)
    with closing(sqlite3.connect(device.database, isolation_level=None)) as other:
        other.execute("SELECT * FROM tableVersion").fetchall()
        assert device.migrate(NEWEST) == 0


def moved(device):
    device.database.rename(device.databases / "elsewhere.sqlite")


def deleted(device):
    device.database.unlink()


def replaced(device):
    copy = device.databases / "copy.sqlite"
    copy.write_bytes(device.database.read_bytes())
    copy.rename(device.database)


def by_a_directory(device):
    device.database.unlink()
    device.database.mkdir()


@pytest.mark.parametrize("mode", ["delete", "wal"])
@pytest.mark.parametrize("change", [moved, deleted, replaced, by_a_directory])
def test_a_database_that_is_no_longer_there_takes_no_commit(device, mode, change):
    device.install(1, mode=mode)
    before = device.contents()
    device.replace_program(PAUSED)
    status, _ = paused_run(device, lambda: change(device))
    assert status == 3
    assert device.last_run()["reason"] in ("replaced", "commit-failed")
    for file in device.databases.glob("*.sqlite"):
        if file.is_file():
            assert contents(file) == before
    assert device.log() == ""
    assert not device.kept.exists()


@pytest.mark.skipif(os.geteuid() != 0, reason="takes root")
@pytest.mark.parametrize("mode, name, expected", [
    ("delete", "databases", 3),
    # SQLite has the file open for writing already, and goes on.
    ("delete", "database", 0), ("wal", "database", 0)])
def test_what_becomes_read_only(device, mode, name, expected):
    device.install(1, mode=mode)
    device.replace_program(PAUSED)
    before, pool, place = device.contents(), device.pool_files(), getattr(device, name)
    for path in (device.root, *device.root.rglob("*")):
        os.chown(path, 65534, 65534)

    def make_read_only():
        place.chmod(place.stat().st_mode & ~0o222)
    status, errors = paused_run(device, make_read_only, user=65534)
    place.chmod(place.stat().st_mode | 0o200)
    assert status == expected, errors
    if expected == 0:
        assert device.version() == NEWEST
    else:
        assert "commit-failed" in errors
        assert (device.contents(), device.log(), device.pool_files()) == (before, "", pool)


def test_two_guards_one_after_the_other(paused):
    first = paused.start("run", NEWEST)
    wait_for(paused.app / "waiting")
    record = paused.last.exists()
    second = paused.run("run", NEWEST, "--wait", 0)
    assert second.returncode == 3
    assert "locked (another guard is at work)" in second.stderr
    assert paused.last.exists() == record
    (paused.app / "go").touch()
    first.communicate(timeout=120)
    assert first.returncode == 0


def test_the_second_guard_waits_for_the_first(device):
    device.install(1)
    runs = [device.start("run", NEWEST) for _ in range(3)]
    for run in runs:
        run.communicate(timeout=120)
    assert [run.returncode for run in runs] == [0, 0, 0]
    assert device.version() == NEWEST
    assert device.log().count("from version: 1 ") == 1


def test_two_links_have_one_lock(paused):
    """Two application directories that share one database."""
    second = paused.app / "second"
    second.mkdir()
    for name in ("migrator", "migration-guard"):
        (second / name).write_bytes((paused.app / name).read_bytes())
        (second / name).chmod(0o755)
    (second / "migrator").rename(second / "database-migrator")
    (second / "databases").symlink_to("../databases")
    first = paused.start("run", NEWEST)
    wait_for(paused.app / "waiting")
    assert paused.migrate(NEWEST, "--wait", 0, guard="/app/second/migration-guard") == 3
    (paused.app / "go").touch()
    first.communicate(timeout=120)
    assert first.returncode == 0


def test_linked_databases_are_migrated_where_they_are(device, expected):
    device.install(1)
    elsewhere = device.app / "data"
    device.databases.rename(elsewhere)
    device.databases.symlink_to("data")
    assert device.migrate(NEWEST) == 0
    assert device.contents() == expected(1, NEWEST)[0]
    assert device.databases.is_symlink()


def test_a_linked_database_is_migrated_where_it_is(device, expected):
    device.install(1)
    elsewhere = device.app / "data"
    elsewhere.mkdir()
    device.database.rename(elsewhere / "real.sqlite")
    device.database.symlink_to("../data/real.sqlite")
    assert device.migrate(NEWEST) == 0
    assert device.contents() == expected(1, NEWEST)[0]
    assert device.database.is_symlink()
    assert [file.name for file in elsewhere.iterdir()] == ["real.sqlite"]


def test_a_linked_program_is_run_where_it_is(device, expected):
    device.install(1)
    links = device.app / "links"
    links.mkdir()
    (links / "database-migrator").symlink_to("../database-migrator")
    assert device.migrate(NEWEST, "--app-dir", "/app/links") == 0
    assert device.contents() == expected(1, NEWEST)[0]


@pytest.mark.parametrize("pages", [pytest.param(None, id="a sound journal"),
                                   pytest.param(1 << 31, id="a journal for a far larger file")])
def test_the_old_connection_of_a_hot_journal_is_rolled_back_first(device, expected, pages):
    device.install(1)
    whole = device.database.read_bytes()
    with closing(sqlite3.connect(device.database, isolation_level=None)) as other:
        other.execute("PRAGMA cache_size = 5")
        other.execute("BEGIN")
        other.execute("DELETE FROM files")
        other.execute("CREATE TABLE filler AS SELECT zeroblob(200000)")
        half = device.database.read_bytes()
        journal = bytearray((device.databases / "my.db.sqlite-journal").read_bytes())
    if pages:
        # The rollback gives the file that many pages.
        journal[16:20] = pages.to_bytes(4, "big")
    device.database.write_bytes(half)
    (device.databases / "my.db.sqlite-journal").write_bytes(journal)
    assert half != whole
    assert device.migrate(NEWEST) == 0
    assert device.contents() == expected(1, NEWEST)[0]
    assert contents(device.kept) == contents_of(whole, device)


def contents_of(content, device):
    file = device.root / "whole.sqlite"
    file.write_bytes(content)
    return contents(file)


def test_an_ordinary_boot_does_not_write_to_a_write_ahead_database(device):
    device.install(NEWEST, mode="wal")
    for _ in range(2):
        assert device.migrate(NEWEST) == 0
    before = device.database.read_bytes(), device.database.stat().st_mtime_ns
    assert device.migrate(NEWEST) == 0
    assert (device.database.read_bytes(), device.database.stat().st_mtime_ns) == before


def test_an_ordinary_boot_leaves_a_write_ahead_log_as_it_is(device):
    """The content that another process left in its write-ahead log when it died stays there."""
    device.install(NEWEST, mode="wal")
    for _ in range(2):
        assert device.migrate(NEWEST) == 0
    log = device.databases / "my.db.sqlite-wal"
    with closing(sqlite3.connect(device.database, isolation_level=None)) as other:
        other.execute("CREATE TABLE notes AS SELECT 1 AS a")
        left = device.database.read_bytes(), log.read_bytes()
    for path in device.databases.glob("my.db.sqlite*"):
        path.unlink()
    device.database.write_bytes(left[0])
    log.write_bytes(left[1])
    assert device.migrate(NEWEST) == 0
    assert (device.database.read_bytes(), log.read_bytes()) == left
    assert device.rows("SELECT * FROM notes") == [(1,)]


def test_a_write_ahead_log_is_read_whatever_the_header_says(device):
    """SQLite reads one wherever there is one."""
    device.install(1, mode="wal")
    leave(device, "-wal", "CREATE TABLE notes AS SELECT 1 AS a")
    content = bytearray(device.database.read_bytes())
    assert content[18:20] == b"\2\2"
    content[18:20] = b"\1\1"
    device.database.write_bytes(content)
    assert device.migrate(NEWEST) == 0
    assert device.rows("SELECT * FROM notes") == [(1,)]


def test_a_write_ahead_database_that_changes_its_layout_goes_direct(device):
    device.install(NEWEST, mode="wal")
    device.replace_program(
        '/app/migrator "$@"; sqlite3 /app/databases/my.db.sqlite '
        '"PRAGMA journal_mode = delete; CREATE TABLE x (a);" >/dev/null')
    run = device.run("run", NEWEST)
    assert run.returncode == 4
    assert "layout-changed" in run.stderr
    assert device.last_run()["way"] == "direct"

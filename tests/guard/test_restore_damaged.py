"""Bringing the kept database back when the current one can no longer be read."""

import fcntl
import shutil
import sqlite3
import subprocess
from contextlib import closing

import pytest
from conftest import DAMAGES, contents
from support.versions import NEWEST


@pytest.fixture(params=["delete", "wal"])
def migrated(request, device):
    device.install(1, mode=request.param)
    device.database.chmod(0o640)
    device.before = device.contents()
    assert device.migrate(NEWEST) == 0
    return device


@pytest.mark.parametrize("damage", DAMAGES)
def test_the_kept_one_comes_back(migrated, damage):
    damaged = DAMAGES[damage](migrated.database.read_bytes())
    migrated.database.write_bytes(damaged)
    inode = migrated.database.stat().st_ino
    run = migrated.run("restore")
    assert run.returncode == 0, run.stderr
    first, second, _ = run.stdout.splitlines()
    assert first == "before-migration.sqlite comes back."
    assert second.startswith("The database that it replaces cannot be read: ")
    assert migrated.contents() == migrated.before == contents(migrated.kept)
    status = migrated.database.stat()
    assert (status.st_ino, status.st_mode & 0o777) == (inode, 0o640)
    if damaged:
        assert migrated.replaced.read_bytes() == damaged
        assert migrated.replaced.stat().st_mode & 0o777 == 0o640
    assert migrated.last_run()["command"] == "restore"
    assert migrated.last_run()["to"] == 1
    assert migrated.files() == [
        "before-migration.sqlite", "lastMigration.json", "my.db.sqlite",
        *(["replaced-by-restore.sqlite"] if damaged else []), "sqlMigrationErrorLog.txt"]


def test_it_comes_back_where_there_is_none(migrated):
    migrated.database.unlink()
    assert migrated.run("restore").returncode == 0
    assert migrated.contents() == migrated.before
    assert migrated.database.stat().st_mode & 0o777 == 0o640
    assert not migrated.replaced.exists()


def test_it_comes_back_to_where_a_link_leads(device):
    device.install(1)
    before = device.contents()
    assert device.migrate(NEWEST) == 0
    place = device.app / "elsewhere.sqlite"
    place.write_bytes(b"junk")
    device.database.unlink()
    device.database.symlink_to("../elsewhere.sqlite")
    assert device.run("restore").returncode == 0
    assert (contents(place), device.database.is_symlink()) == (before, True)
    place.unlink()
    run = device.run("restore")
    assert "database-link-broken" in run.stderr
    assert (run.returncode, place.exists()) == (3, False)


def test_junk_does_not_come_back(migrated):
    migrated.database.write_bytes(b"x" * 5000)
    assert migrated.run("restore").returncode == 0
    run = migrated.run("restore")
    assert run.returncode == 3
    assert "kept-damaged (replaced-by-restore.sqlite: file is not a database)" in run.stderr
    assert (migrated.contents(), migrated.replaced.read_bytes()) == (migrated.before, b"x" * 5000)


def test_the_next_run_migrates(migrated):
    migrated.database.write_bytes(b"x" * 5000)
    assert migrated.run("restore").returncode == 0
    assert migrated.migrate(NEWEST) == 0
    assert migrated.version() == NEWEST


VERSION = "SELECT version FROM tableVersion WHERE tableName = 'mainSqlDb'"


def damage_by_another_process(device):
    """Closing the file here would end the locks of this process's connections."""
    subprocess.run(["dd", "if=/dev/zero", f"of={device.database}", "bs=100", "count=1",
                    "conv=notrunc", "status=none"], check=True)


def leave_log(device):
    """A write-ahead log that is left beside a database whose file is damaged."""
    log = device.databases / "my.db.sqlite-wal"
    with closing(sqlite3.connect(device.database, isolation_level=None)) as database:
        database.execute("UPDATE growers SET displayName = 'in the log'")
        left = log.read_bytes()
    device.database.write_bytes(b"x" * 20000)
    log.write_bytes(left)
    return left


def test_a_write_ahead_log_that_is_left_is_kept_beside_it(device):
    device.install(1, mode="wal")
    before = device.contents()
    assert device.migrate(NEWEST) == 0
    left = leave_log(device)
    assert device.run("restore").returncode == 0
    assert device.contents() == before
    kept_log = device.databases / "replaced-by-restore.wal"
    assert (device.replaced.read_bytes(), kept_log.read_bytes()) == (b"x" * 20000, left)
    assert device.migrate(NEWEST) == 0
    now = device.contents()
    assert device.run("restore").returncode == 0
    assert contents(device.replaced) == now
    assert not kept_log.exists()


def test_what_a_journal_heals_is_not_damaged(device):
    device.install(1)
    before = device.contents()
    assert device.migrate(NEWEST) == 0
    after = device.contents()
    journal = device.databases / "my.db.sqlite-journal"
    with closing(sqlite3.connect(device.database, isolation_level=None)) as database:
        database.executescript("PRAGMA cache_spill = 1; PRAGMA cache_size = 1; BEGIN;"
                               "CREATE TABLE more (a); UPDATE growers SET displayName = 'x';")
        left, content = journal.read_bytes(), device.database.read_bytes()
    device.database.write_bytes(bytes(100) + content[100:])
    journal.write_bytes(left)
    assert device.run("restore").returncode == 0
    assert (device.contents(), contents(device.replaced)) == (before, after)


def test_a_lock_of_another_program_is_waited_for(migrated):
    migrated.database.write_bytes(b"x" * 5000)
    files = migrated.files()
    with open(migrated.database, "r+b") as file:
        fcntl.lockf(file, fcntl.LOCK_EX, 512, 0x40000000)
        run = migrated.run("restore", "--wait", "0")
    assert (run.returncode, "locked" in run.stderr) == (3, True)
    assert (migrated.database.read_bytes(), migrated.files()) == (b"x" * 5000, files)


def test_a_program_that_has_it_open_finds_the_kept_one(device):
    device.install(1)
    assert device.migrate(NEWEST) == 0
    with closing(sqlite3.connect(device.database, isolation_level=None)) as other:
        assert other.execute(VERSION).fetchone() == (NEWEST,)
        damage_by_another_process(device)
        assert device.run("restore").returncode == 0
        assert other.execute(VERSION).fetchone() == (1,)
        other.execute("UPDATE growers SET displayName = 'written by the other program'")
    assert device.rows("SELECT DISTINCT displayName FROM growers") == [
        ("written by the other program",)]


def test_a_program_that_has_one_with_a_write_ahead_log_open_has_to_end_first(device):
    device.install(1, mode="wal")
    assert device.migrate(NEWEST) == 0
    with closing(sqlite3.connect(device.database, isolation_level=None)) as other:
        assert other.execute(VERSION).fetchone() == (NEWEST,)
        damage_by_another_process(device)
        run = device.run("restore", "--wait", "0")
        assert (run.returncode, "locked" in run.stderr) == (3, True)
    assert device.run("restore").returncode == 0
    assert device.version() == 1


def test_a_newer_one_that_a_cut_run_has_prepared_comes_back(device):
    device.install(1)
    assert device.migrate(20) == 0
    now = device.contents()
    shutil.copy(device.database, device.databases / "before-migration.sqlite.new")
    device.database.write_bytes(b"x" * 5000)
    assert device.run("restore", "--dry-run").returncode == 0
    assert device.run("restore").returncode == 0
    assert device.contents() == now == contents(device.kept)


def test_no_room_changes_nothing(migrated):
    migrated.database.write_bytes(b"x" * 5000)
    (migrated.databases / "replaced-by-restore.sqlite.tmp").mkdir()
    run = migrated.run("restore")
    assert (run.returncode, migrated.database.read_bytes()) == (3, b"x" * 5000)
    assert not migrated.replaced.exists()

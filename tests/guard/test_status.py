"""`status` reports what there is, or why it cannot, and changes nothing. So does a dry run."""

import fcntl
import json
import os
import shutil
import sqlite3
import subprocess
from contextlib import closing

import pytest
from conftest import JOURNAL, leave
from support.versions import NEWEST


@pytest.fixture
def migrated(device):
    device.install(1)
    assert device.migrate(NEWEST) == 0
    return device


def everything(device):
    """Bytes and times of all files and directories of the device."""
    found = {}
    for path in sorted(device.root.rglob("*")):
        status = path.lstat()
        found[str(path)] = status.st_mtime_ns, status.st_ctime_ns, status.st_ino, status.st_mode
    # Closing a database here would end the locks of this process's connections.
    sums = subprocess.run(["find", device.root, "-type", "f", "-exec", "sha256sum", "{}", "+"],
                          capture_output=True, check=True).stdout
    return found, sorted(sums.splitlines())


def first_line(device):
    """The recorded version in the output of `status`, which must change nothing."""
    before = everything(device)
    run = device.run("status")
    assert (run.returncode, run.stderr) == (0, "")
    assert everything(device) == before
    return run.stdout.splitlines()[0].removeprefix("recorded version: ")


def test_it_tells_what_there_is(migrated):
    before = everything(migrated)
    run = migrated.run("status")
    assert (run.returncode, run.stderr) == (0, "")
    lines = run.stdout.splitlines()
    assert lines[:3] == [
        f"recorded version: {NEWEST}", f"newest version that the program knows: {NEWEST}",
        "kept database of before: version 1, /app/databases/before-migration.sqlite"]
    assert json.loads(lines[3].removeprefix("last run: ")) == migrated.last_run()
    assert json.loads(lines[4].removeprefix("last change: ")) == migrated.record()["lastChange"]
    assert len(lines) == 5
    assert everything(migrated) == before


def test_an_empty_device(device):
    (device.app / "schema-versions.json").unlink()
    run = device.run("status")
    assert run.returncode == 0
    assert run.stdout.splitlines() == [
        "recorded version: unknown (there is no database, or nothing in it)",
        "newest version that the program knows: unknown",
        "kept database of before: none", "last run: none", "last change: none"]


@pytest.mark.parametrize("mode", ["EXCLUSIVE", "IMMEDIATE"])
def test_a_lock_of_another_program_is_told(migrated, mode):
    with closing(sqlite3.connect(migrated.database, isolation_level=None)) as other:
        other.execute(f"BEGIN {mode}")
        other.execute("UPDATE tableVersion SET version = 5")
        assert first_line(migrated) == f"{NEWEST} (locked by another program)"


def test_a_journal_that_is_left_is_told(migrated):
    leave(migrated, "-journal", JOURNAL)
    assert first_line(migrated) == f"{NEWEST} (a journal is left; the next run rolls it back)"
    assert migrated.migrate(NEWEST) == 0


def test_a_journal_that_a_program_keeps_is_none(migrated):
    migrated.sql("PRAGMA journal_mode = PERSIST; UPDATE growers SET displayName = 'x';")
    assert (migrated.databases / "my.db.sqlite-journal").stat().st_size > 0
    assert first_line(migrated) == str(NEWEST)


def test_a_write_ahead_log_is_read(device):
    device.install(3, mode="wal")
    assert first_line(device) == "3"
    leave(device, "-wal", "UPDATE tableVersion SET version = 5")
    assert first_line(device) == "5"
    with closing(sqlite3.connect(device.database, isolation_level=None)) as other:
        other.execute("UPDATE tableVersion SET version = 7")
        other.execute("BEGIN IMMEDIATE")
        other.execute("UPDATE tableVersion SET version = 8")
        assert first_line(device) == "7"


@pytest.mark.parametrize("content, text", [
    (b"junk" * 2000, "unknown (cannot be read: file is not a database)"),
    (b"", "unknown (there is no database, or nothing in it)"),
])
def test_damage_is_told(device, content, text):
    device.database.write_bytes(content)
    assert first_line(device) == text


def test_a_database_without_a_version_has_none(device):
    device.sql("CREATE TABLE tableVersion (tableName, version)")
    assert first_line(device) == "no version"
    device.sql("DROP TABLE tableVersion; CREATE TABLE other (a);")
    assert first_line(device) == "unknown (cannot be read: no such table: tableVersion)"


def test_a_kept_database_that_cannot_be_read_is_told(migrated):
    migrated.kept.write_bytes(b"junk" * 2000)
    assert migrated.run("status").stdout.splitlines()[2] == (
        "kept database of before: version unknown (cannot be read: file is not a database), "
        "/app/databases/before-migration.sqlite")


def leave_nothing(device):
    del device


def leave_all_that_a_cut_run_leaves(device):
    for name in ("before-migration.sqlite", "replaced-by-restore.sqlite"):
        shutil.copy(device.kept, device.databases / f"{name}.new")
        (device.databases / f"{name}.tmp").write_bytes(b"half of one")
    (device.databases / "migration-guard.copy").write_bytes(b"copy")
    (device.databases / "migration-guard.staging").mkdir()
    (device.databases / "lastMigration.json.new").write_bytes(b"{")
    device.note.write_text(json.dumps({"staging": "disk", "failed": True, "schemaCookie": -2,
                                       "poolFiles": ["readme.txt"]}))


LEFT = {
    "at rest": leave_nothing,
    "a cut run": leave_all_that_a_cut_run_leaves,
    "a journal": lambda device: leave(device, "-journal", JOURNAL),
    "a write-ahead log": lambda device: leave(
        device, "-wal", "PRAGMA journal_mode = wal; UPDATE tableVersion SET version = 5"),
    "junk": lambda device: device.database.write_bytes(b"junk" * 2000),
    "no database": lambda device: device.database.unlink(),
}


@pytest.mark.parametrize("left", LEFT)
def test_a_dry_run_only_prints(migrated, left):
    LEFT[left](migrated)
    before = everything(migrated)
    run = migrated.run("restore", "--dry-run")
    assert run.returncode == 0, run.stderr
    assert run.stdout.startswith("before-migration.sqlite comes back.\n")
    assert everything(migrated) == before
    assert migrated.run("restore").stdout == run.stdout
    assert migrated.version() == 1


def test_a_dry_run_waits_for_nobody(migrated):
    with closing(sqlite3.connect(migrated.database, isolation_level=None)) as other:
        other.execute("BEGIN EXCLUSIVE")
        before = everything(migrated)
        assert migrated.run("restore", "--dry-run", "--wait", "0").returncode == 0
        assert everything(migrated) == before


def test_a_dry_run_does_not_wait_for_a_guard(migrated):
    descriptor = os.open(migrated.databases, os.O_RDONLY)
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX)
        run = migrated.run("restore", "--dry-run", "--wait", "0")
    finally:
        os.close(descriptor)
    assert (run.returncode, run.stdout.splitlines()[0]) == (
        0, "before-migration.sqlite comes back.")


def test_a_dry_run_takes_no_room_beside_the_database(migrated):
    """The databases are on a small disk that is full."""
    shutil.copytree(migrated.databases, migrated.app / "start")
    shell = migrated.app / "shell"
    shell.write_text(
        "#!/usr/bin/dash\ncp /app/start/* /app/databases/\n"
        "free=$(($(stat -f -c '%a * %S' /app/databases)))\n"
        "fallocate -l $free /app/databases/ballast\n"
        'exec /app/migration-guard restore "$@"\n')
    shell.chmod(0o755)
    options = "--size 4000000 --tmpfs /app/databases"
    outputs = [migrated.run(*arguments, guard="/app/shell", options=options)
               for arguments in (["--dry-run"], [])]
    assert [run.returncode for run in outputs] == [0, 3], outputs
    assert outputs[0].stdout.splitlines()[0] == "before-migration.sqlite comes back."
    assert "no-room" in outputs[1].stderr


def test_a_dry_run_of_an_undo_only_prints(migrated):
    assert migrated.run("restore").returncode == 0
    before = everything(migrated)
    run = migrated.run("restore", "--dry-run")
    assert run.stdout.startswith("replaced-by-restore.sqlite comes back.\n")
    assert everything(migrated) == before


def test_nothing_is_left_where_the_copies_are(migrated):
    place = migrated.app / "temporary"
    place.mkdir()
    options = "--setenv TMPDIR /app/temporary"
    assert migrated.run("status", options=options).returncode == 0
    assert migrated.run("restore", "--dry-run", options=options).returncode == 0
    assert os.listdir(place) == []
    run = migrated.run("status", options="--setenv TMPDIR /proc")
    assert run.stdout.startswith("recorded version: unknown (cannot be read: no copy in /proc: ")

"""Keeping the database of before, and bringing it back."""

import json
import shutil
import sqlite3
from contextlib import closing

import pytest
from conftest import contents
from support.versions import NEWEST

LAST_LINE = "The next start migrates again unless the image changes."


@pytest.fixture
def migrated(device):
    device.install(1)
    device.before = device.contents()
    assert device.migrate(NEWEST) == 0
    device.after = device.contents()
    return device


def test_the_database_of_before_is_kept(migrated):
    assert contents(migrated.kept) == migrated.before
    assert migrated.last_run()["kept"] is True


def test_without_backup_nothing_is_kept(device):
    device.install(1)
    assert device.migrate(NEWEST, "--no-backup") == 0
    assert not device.kept.exists()
    assert device.last_run()["kept"] is False


def test_it_is_kept_only_when_the_version_changes(migrated):
    (migrated.app / "quillmoor" / "softwareversion.txt").write_text("5.0.0\n")
    assert migrated.migrate(NEWEST) == 0
    assert migrated.last_run()["changed"] is True
    assert contents(migrated.kept) == migrated.before


def test_it_is_replaced_only_after_a_run_that_ended_well(device):
    device.install(24, "CREATE TABLE fields_temp (a);")
    whole = device.contents()
    assert device.migrate(26) == 4
    # An ordinary boot does not put the database in order.
    assert device.migrate(26) == 0
    device.sql("DROP TABLE fields_temp")
    assert device.migrate(30) == 0
    assert contents(device.kept) == whole
    # That walk has ended well.
    now = device.contents()
    assert device.migrate(31) == 0
    assert contents(device.kept) == now


def test_a_boot_that_only_changes_a_definition_does_not_count_for_it(device):
    device.install(30, "CREATE TABLE systemControl_temp (a);")
    whole = device.contents()
    assert device.migrate(NEWEST) == 4
    device.sql("DROP TABLE systemControl_temp")
    assert device.migrate(NEWEST) == 0
    assert device.last_run()["changed"]
    assert device.migrate(1) == 0
    assert contents(device.kept) == whole


def test_a_restore_puts_the_database_in_order(device):
    device.install(24, "CREATE TABLE fields_temp (a);")
    assert device.migrate(26) == 4
    assert device.run("restore").returncode == 0
    device.sql("DROP TABLE fields_temp")
    now = device.contents()
    assert device.migrate(26) == 0
    assert contents(device.kept) == now


@pytest.mark.parametrize("keeps", [True, False])
def test_a_directory_of_its_name_is_left_alone_and_told(device, keeps):
    device.install(1)
    device.kept.mkdir()
    arguments = () if keeps else ("--no-backup",)
    run = device.run("run", NEWEST, *arguments)
    assert (run.returncode, device.last_run()["kept"]) == (0, False)
    told = "before-migration.sqlite is not kept: a directory has its name"
    assert (told in run.stderr) == keeps
    assert list(device.kept.iterdir()) == []
    assert device.files() == ["before-migration.sqlite", "lastMigration.json", "my.db.sqlite",
                              "sqlMigrationErrorLog.txt"]


def test_a_prepared_one_goes_where_a_directory_has_its_name(migrated):
    migrated.kept.rename(migrated.databases / "before-migration.sqlite.new")
    migrated.kept.mkdir()
    run = migrated.run("run", NEWEST)
    assert run.returncode == 0
    assert "before-migration.sqlite is not kept: Is a directory" in run.stderr
    assert "before-migration.sqlite.new" not in migrated.files()


def test_a_run_that_changed_nothing_does_not_count_against_it(migrated):
    with closing(sqlite3.connect(migrated.database, isolation_level=None)) as other:
        other.execute("BEGIN EXCLUSIVE")
        assert migrated.migrate(1, "--wait", 0) == 3
    now = migrated.contents()
    assert migrated.migrate(1) == 0
    assert contents(migrated.kept) == now


@pytest.mark.parametrize("target", [NEWEST, 1])
def test_one_that_a_cut_before_the_commit_has_left_goes(device, target):
    device.install(NEWEST)
    for _ in range(2):
        device.migrate(NEWEST)
    shutil.copy(device.database, device.databases / "before-migration.sqlite.new")
    (device.databases / "before-migration.sqlite.tmp").write_bytes(b"half of one")
    before = device.contents()
    assert device.migrate(target) == 0
    assert not device.kept.exists() if target == NEWEST else contents(device.kept) == before
    assert [name for name in device.files() if name.endswith((".new", ".tmp"))] == []


def test_one_that_a_cut_after_the_commit_has_left_gets_its_name(migrated):
    migrated.kept.rename(migrated.databases / "before-migration.sqlite.new")
    migrated.last.unlink()
    assert migrated.migrate(NEWEST) == 0
    assert contents(migrated.kept) == migrated.before
    assert "before-migration.sqlite.new" not in migrated.files()


def cut_after_the_commit(device, names):
    """Writes the note of a run that was cut between its commit and its end."""
    device.note.write_text(json.dumps(
        {"staging": "memory", "failed": False, "boot": "another", "schemaCookie": -2,
         "poolFiles": names}))


def test_files_of_the_pool_go_at_the_next_start_after_a_cut(migrated):
    (migrated.pool / "VT 1%.iop").touch()
    cut_after_the_commit(migrated, ["VT%201%25.iop"])
    assert migrated.migrate(NEWEST) == 0
    assert migrated.pool_files() == ["readme.txt"]
    assert not migrated.note.exists()


def test_files_of_the_pool_stay_when_the_commit_has_not_happened(device):
    device.install(NEWEST)
    cookie, = device.rows("PRAGMA schema_version")[0]
    cut_after_the_commit(device, ["VT-01.iop"])
    device.note.write_text(device.note.read_text().replace("-2", str(cookie)))
    assert device.migrate(NEWEST) == 0
    assert device.pool_files() == ["VT-01.iop", "VT-02.IOP", "readme.txt"]


def test_what_a_cut_has_left_unfinished_goes(migrated):
    for name in ("migration-guard.copy", "migration-guard.note.new", "lastMigration.json.new"):
        (migrated.databases / name).write_text("half")
    files = ["before-migration.sqlite", "lastMigration.json", "my.db.sqlite",
             "sqlMigrationErrorLog.txt"]
    assert migrated.migrate(NEWEST) == 0
    assert migrated.files() == files


def test_restore_brings_it_back_and_a_second_one_undoes_that(migrated):
    for content, version, file in ((migrated.before, 1, "before-migration.sqlite"),
                                   (migrated.after, NEWEST, "replaced-by-restore.sqlite"),
                                   (migrated.before, 1, "before-migration.sqlite")):
        run = migrated.run("restore")
        assert run.returncode == 0, run.stderr
        assert run.stdout.splitlines()[0] == f"{file} comes back."
        assert run.stdout.splitlines()[-1] == LAST_LINE
        assert (migrated.contents(), migrated.version()) == (content, version)
        assert migrated.last_run()["command"] == "restore"
    assert contents(migrated.replaced) == migrated.after
    assert migrated.migrate(NEWEST) == 0
    assert migrated.version() == NEWEST
    assert contents(migrated.replaced) == migrated.after


def test_restore_prints_the_rows_that_go_and_come_back(device):
    device.install(20)
    assert device.migrate(21) == 0
    device.sql("""
        DELETE FROM growers WHERE id = 3;
        UPDATE growers SET displayName = displayName || 'x' WHERE id IN (1, 2);
        INSERT INTO growers (id, displayName) VALUES (900, 'New'), (901, 'Newer');
        """)
    before = device.database.read_bytes()
    files = device.files()
    run = device.run("restore", "--dry-run")
    assert run.returncode == 0
    assert ("growers: 2 rows go (900, 901), 1 row comes back (3), 2 rows change"
            in run.stdout.splitlines())
    assert "gpsReceivers: the table goes, rows: " in run.stdout
    assert "preferredGpsSolutions: the table comes back, rows: 10" in run.stdout
    assert device.database.read_bytes() == before
    assert device.files() == files


def test_restore_without_a_kept_database_changes_nothing(device):
    device.install(1)
    before = device.contents()
    run = device.run("restore")
    assert (run.returncode, device.contents()) == (3, before)
    assert "nothing-kept" in run.stderr


def test_restore_refuses_a_damaged_one(migrated):
    content = bytearray(migrated.kept.read_bytes())
    content[8192:20000] = bytes(11808)
    migrated.kept.write_bytes(content)
    run = migrated.run("restore")
    assert (run.returncode, migrated.contents()) == (3, migrated.after)
    assert "kept-damaged" in run.stderr
    assert not migrated.replaced.exists()


@pytest.mark.parametrize("lock", ["BEGIN EXCLUSIVE", "BEGIN IMMEDIATE"])
def test_restore_takes_the_same_locks(migrated, lock):
    with closing(sqlite3.connect(migrated.database, isolation_level=None)) as other:
        other.execute(lock)
        run = migrated.run("restore", "--wait", "0")
    assert (run.returncode, migrated.contents()) == (3, migrated.after)
    assert "locked" in run.stderr
    assert not migrated.replaced.exists()
    assert not (migrated.databases / "replaced-by-restore.sqlite.new").exists()


def test_restore_to_a_write_ahead_database(device):
    device.install(1, mode="wal")
    before = device.contents()
    assert device.migrate(NEWEST) == 0
    after = device.contents()
    assert device.run("restore").returncode == 0
    assert device.contents() == before
    assert device.run("restore").returncode == 0
    assert device.contents() == after


def test_an_empty_database_does_not_come_back(migrated):
    migrated.kept.write_bytes(b"")
    assert migrated.run("restore").returncode == 3
    assert migrated.contents() == migrated.after


def test_a_restore_ends_the_note_of_a_run_that_was_cut(migrated):
    """The note names files in the pool. They stay if the run was not committed."""
    cookie = migrated.rows("PRAGMA schema_version")[0][0]
    migrated.note.write_text(json.dumps({"staging": "memory", "boot": "another",
                                         "schemaCookie": cookie, "poolFiles": ["readme.txt"]}))
    assert migrated.run("restore").returncode == 0
    assert not migrated.note.exists()
    assert migrated.migrate(1) == 0
    assert "readme.txt" in migrated.pool_files()


def test_a_restore_that_was_cut_before_its_record_is_undone(migrated):
    record = migrated.last.read_text()
    assert migrated.run("restore").returncode == 0
    migrated.last.write_text(record)
    migrated.replaced.rename(migrated.databases / "replaced-by-restore.sqlite.new")
    run = migrated.run("restore")
    assert run.stdout.splitlines()[0] == "replaced-by-restore.sqlite comes back."
    assert (run.returncode, migrated.contents()) == (0, migrated.after)


@pytest.mark.parametrize("command", [("run", NEWEST), ("restore",)])
def test_the_copy_of_a_restore_that_was_cut_goes_at_the_next_start(migrated, command):
    copy = migrated.databases / "migration-guard.copy"
    copy.write_bytes(b"left")
    assert migrated.run(*command).returncode == 0
    assert not copy.exists()

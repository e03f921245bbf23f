"""Whatever state the database is in, a run ends well and loses nothing."""

import random

import pytest
from conftest import NO_TABLES, NOT_OPEN, READ_ONLY, every_statement_fails, expected_log

RENAME_FAILED = "The ALTER TABLE RENAME query in updateToVersion2() failed!  The query error was: "


@pytest.mark.parametrize("damage, error", [
    pytest.param(lambda sound: bytes(len(sound)), "file is not a database", id="zero-filled"),
    pytest.param(lambda sound: random.Random(1).randbytes(len(sound)), "file is not a database",
                 id="random bytes"),
    pytest.param(lambda sound: sound[:len(sound) // 2], "database disk image is malformed",
                 id="truncated"),
    pytest.param(lambda sound: sound[:50], "database disk image is malformed",
                 id="truncated within the header"),
])
def test_damaged_file_is_left_as_it_is(device, damage, error):
    device.install(version=2)
    damaged = damage(device.database.read_bytes())
    device.database.write_bytes(damaged)
    device.run("2")
    assert device.log() == expected_log(
        0, 2, f"{RENAME_FAILED}{error}\n", (0, "1.2.3"), every_statement_fails(error))
    assert device.database.read_bytes() == damaged


@pytest.mark.parametrize("present", [
    pytest.param(False, id="missing"),
    pytest.param(True, id="an empty file"),
])
def test_database_without_tables_stays_without_tables(device, present):
    device.software_version.write_text("1.2.3\n")
    if present:
        device.database.touch()
    device.run("2")
    assert device.log() == expected_log(
        0, 2, f"{RENAME_FAILED}no such table: productControl_productSettings\n", (0, "1.2.3"),
        NO_TABLES)
    assert device.contents() == ["BEGIN TRANSACTION;", "COMMIT;", "PRAGMA foreign_keys=OFF;"]


def test_directory_in_place_of_the_database_is_left_as_it_is(device):
    device.software_version.write_text("1.2.3\n")
    device.database.mkdir()
    device.run("2")
    assert device.log() == expected_log(0, 2, f"{RENAME_FAILED}\n", (0, "1.2.3"), NOT_OPEN)
    assert list(device.database.iterdir()) == []


def test_database_in_wal_mode_walks_and_stays_in_wal_mode(device):
    device.install(version=1)
    assert device.sql("PRAGMA journal_mode = WAL;") == "wal\n"
    device.run("2")
    assert device.log() == expected_log(
        1, 2, "Database migration to version 2 completed successfully!\n", (2, "1.2.3"))
    assert device.versions() == "mainSqlDb|2|'1.2.3'\naltSqlDb|1|NULL\n"
    assert device.sql("PRAGMA journal_mode;") == "wal\n"
    assert set(device.database.parent.iterdir()) == {device.database, device.log_file}


def test_read_only_file_system_is_left_without_a_log(device):
    device.install(version=1)
    database = device.database.read_bytes()
    device.run("2", options="--remount-ro /app")
    assert not device.log_file.exists()
    assert device.database.read_bytes() == database


def test_read_only_database_file_is_left_as_it_is(device):
    device.install(version=1)
    database = device.database.read_bytes()
    path = "databases/my.db.sqlite"
    device.run("2", options=f"--ro-bind {device.app / path} /app/{path}")
    assert device.log() == expected_log(
        1, 2, f"{RENAME_FAILED}attempt to write a readonly database\n", (1, "1.2.3"), READ_ONLY)
    assert device.database.read_bytes() == database


def test_without_the_databases_directory_nothing_is_written(device):
    device.database.parent.rmdir()
    before = set(device.app.iterdir())
    device.run("2")
    assert {entry for entry in device.app.iterdir() if entry.name != device.program.name} == before


def test_file_in_place_of_the_databases_directory_is_left_as_it_is(device):
    device.database.parent.rmdir()
    device.database.parent.write_text("a file")
    device.run("2")
    assert device.database.parent.read_text() == "a file"


def test_directory_in_place_of_the_log_costs_the_log_only(device):
    device.install(version=1)
    contents = device.contents()
    device.log_file.mkdir()
    device.run("2")
    device.run("1")
    assert device.versions() == "mainSqlDb|1|'1.2.3'\naltSqlDb|2|NULL\n"
    assert device.contents() == contents
    assert list(device.log_file.iterdir()) == []

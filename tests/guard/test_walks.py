"""A guarded run ends like a run of the program alone, in one transaction, and reports how."""

import os

import pytest
from support.versions import NEWEST

WALKS = [(1, NEWEST), (NEWEST, 1), (20, 26), (NEWEST, NEWEST), (26, 25)]


@pytest.mark.parametrize("mode", ["delete", "wal"])
@pytest.mark.parametrize("version, target", WALKS)
def test_content_log_and_pool_are_those_of_the_program_alone(
        device, expected, other_device, version, target, mode):
    device.install(version, mode=mode)
    content, log = expected(version, target, mode=mode)
    other_device.install(version, mode=mode)
    other_device.run_program(target)

    assert device.migrate(target) == 0
    assert device.contents() == content
    assert device.log() == log
    assert device.pool_files() == other_device.pool_files()


@pytest.mark.parametrize("version, target", [(24, 26), (NEWEST, 1)])
def test_the_other_platform(device, other_device, version, target):
    for each in (device, other_device):
        each.install(version)
        each.platform.write_text("TORVIKMAX\n")
    other_device.run_program(target)
    assert device.migrate(target) == 0
    assert device.contents() == other_device.contents()
    assert (device.log(), device.pool_files()) == (other_device.log(), other_device.pool_files())


def test_steps_and_the_end_are_told_on_the_terminal(device):
    device.install(1)
    run = device.run("run", 3)
    assert (run.returncode, run.stdout) == (0, "")
    assert run.stderr == (
        "migration-guard: Database migration to version 2 completed successfully!\n"
        "migration-guard: Database migration to version 3 completed successfully!\n"
        "migration-guard: from 1 to 3, target 3, guarded, changed, status 0\n")


def test_an_ordinary_boot_writes_no_byte_of_the_database(device, expected):
    device.install(NEWEST)
    # The first run may change a definition's text; the second run reports that.
    for _ in range(2):
        assert device.migrate(NEWEST) == 0
    os.utime(device.database, (1, 1))
    before, log = device.database.read_bytes(), device.log()
    record = device.last.stat()
    assert device.migrate(NEWEST) == 0
    assert device.database.read_bytes() == before
    assert device.database.stat().st_mtime == 1
    assert device.log().startswith(log) and len(device.log()) > len(log)
    after = device.last.stat()
    assert (after.st_mtime_ns, after.st_ino) == (record.st_mtime_ns, record.st_ino)
    assert device.verdict()["counting"] == 0
    assert device.end_of_last_run() == {
        "command": "run", "from": NEWEST, "to": NEWEST, "target": NEWEST, "way": "guarded",
        "staging": "memory", "changed": False, "status": 0}


def test_the_file_its_owner_and_its_mode_stay(device):
    device.install(1)
    device.database.chmod(0o640)
    if os.geteuid() == 0:
        os.chown(device.database, 1234, 4321)
    before = device.database.stat()
    assert device.migrate(NEWEST) == 0
    after = device.database.stat()
    kept = device.kept.stat()
    assert ((before.st_ino, before.st_uid, before.st_gid, before.st_mode)
            == (after.st_ino, after.st_uid, after.st_gid, after.st_mode))
    assert ((kept.st_uid, kept.st_gid, kept.st_mode)
            == (before.st_uid, before.st_gid, before.st_mode))


def test_nothing_else_is_left_beside_the_database(device):
    device.install(1)
    assert device.migrate(NEWEST) == 0
    assert device.files() == ["before-migration.sqlite", "lastMigration.json", "my.db.sqlite",
                              "sqlMigrationErrorLog.txt"]
    assert sorted(path.name for path in device.app.iterdir()) == [
        "database-migrator", "databases", "migration-guard", "quillmoor", "refMachines.sql",
        "refProducts.sql", "schema-versions.json"]


def test_a_step_that_fails_is_to_be_looked_at(device, expected):
    blocked = "CREATE TABLE fields_temp (a);"
    device.install(24, blocked)
    assert device.migrate(26) == 4
    assert device.contents() == expected(24, 26, extra=blocked)[0]
    assert device.last_run()["reason"] == "step-failed"
    assert device.record()["lastChange"] == device.last_run()


def test_a_target_that_the_program_does_not_know_is_missed(device):
    device.install(33)
    assert device.migrate(NEWEST + 6) == 4
    assert device.version() == NEWEST
    assert device.last_run()["reason"] == "target-missed"
    # The previous version is recorded once more; after that nothing changes.
    device.migrate(NEWEST + 6)
    assert device.migrate(NEWEST + 6) == 3


@pytest.mark.parametrize("extra, target", [("CREATE TABLE fields_temp (a);", 26), ("", NEWEST + 1)])
def test_strict_throws_away_what_would_have_to_be_looked_at(device, extra, target):
    device.install(24, extra)
    before = device.contents()
    assert device.migrate("--strict", target) == 3
    assert device.contents() == before
    assert device.log() == ""
    assert device.pool_files() == ["VT-01.iop", "VT-02.IOP", "readme.txt"]


def test_the_last_change_outlives_idle_runs(device):
    device.install(1)
    assert device.migrate(NEWEST) == 0
    change = device.record()["lastChange"]
    for _ in range(3):
        assert device.migrate(NEWEST) == 0
    assert device.record()["lastChange"] == change
    assert change["from"] == 1 and device.last_run()["from"] == NEWEST


def test_damage_is_copied_as_it_is(device, expected):
    device.install(20)
    page = 4096
    content = bytearray(device.database.read_bytes())
    content[-3 * page:-page] = bytes(2 * page)
    device.database.write_bytes(content)
    damaged = bytes(content)
    assert device.migrate(25) in (0, 4)
    guarded, log = device.database.read_bytes(), device.log()
    assert device.last_run()["way"] == "guarded"
    device.log_file.unlink()
    device.database.write_bytes(damaged)
    device.run_program(25)
    assert device.log() == log
    assert device.database.stat().st_size == len(guarded)

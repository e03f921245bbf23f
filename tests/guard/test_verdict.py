"""The verdict decides the status: it weighs what was lost only here and what was accepted."""

import pytest
from support.versions import NEWEST

LOSES_ROWS = ('/app/migrator "$@"; '
              'sqlite3 /app/databases/my.db.sqlite "PRAGMA foreign_keys = OFF; '
              "DELETE FROM fields WHERE rowid IN (SELECT rowid FROM fields LIMIT 2)\"")
LOST = "2 rows of fields were lost"
SENTENCE = f"{LOST}: look at before-migration.sqlite"


def findings(device):
    return device.verdict()["findings"]


@pytest.fixture
def losing(device):
    device.install(1)
    device.replace_program(LOSES_ROWS)
    return device


def test_rows_that_only_this_device_loses_are_told(losing):
    run = losing.run("run", 3)
    assert run.returncode == 4
    assert run.stderr.splitlines()[-2:] == [
        "migration-guard: from 1 to 3, target 3, guarded, changed, rows-lost, status 4",
        f"migration-guard: {SENTENCE}"]
    assert losing.last_run()["reason"] == "rows-lost"
    found = findings(losing)[0]
    assert (found["code"], found["numbers"]["rows"], found["counts"]) == (
        "rows-lost:fields", 2, True)
    assert losing.verdict()["counting"] == 1


@pytest.mark.parametrize("target, option, status", [
    pytest.param(3, "--no-backup", 4, id="not wanted"),
    pytest.param(3, "--strict", 3, id="thrown away"),
    pytest.param(1, "--wait=9", 4, id="the version is as it was")])
def test_what_is_not_kept_cannot_be_looked_at(losing, target, option, status):
    # The finding of an earlier run is about another state.
    losing.kept.write_bytes(losing.database.read_bytes())
    run = losing.run("run", target, option)
    assert run.returncode == status
    assert run.stderr.splitlines()[-1] == f"migration-guard: {LOST}"
    assert findings(losing)[0]["sentence"] == LOST
    assert "look at before-migration" not in losing.last.read_text()


def test_what_is_accepted_is_reported_and_does_not_count(losing):
    run = losing.run("run", 3, "--accept", "rows-lost:fields", "--accept", "damaged")
    assert run.returncode == 0
    assert run.stderr.splitlines()[-1].endswith("guarded, changed, status 0")
    accepted = [finding for finding in findings(losing) if finding["accepted"]]
    assert [finding["code"] for finding in accepted] == ["rows-lost:fields"]


def test_another_code_accepts_nothing(losing):
    assert losing.migrate(3, "--accept", "rows-lost") == 4


def test_strictly_what_counts_is_thrown_away(losing):
    before = losing.contents()
    assert losing.migrate(3, "--strict") == 3
    assert (losing.contents(), losing.log()) == (before, "")
    assert losing.last_run()["reason"] == "rows-lost"
    assert losing.migrate(3, "--strict", "--accept", "rows-lost:fields") == 0
    assert losing.version() == 3


@pytest.mark.parametrize("version, target", [(1, NEWEST), (NEWEST, 1)])
def test_in_a_healthy_walk_nothing_counts(device, version, target):
    device.install(version)
    assert device.migrate(target) == 0
    verdict = device.verdict()
    assert (verdict["counting"], verdict["unknownVersions"]) == (0, [])
    # Every walk takes something on purpose.
    assert {finding["onPurpose"] for finding in verdict["findings"]} - {None}


def test_what_was_so_before_does_not_count(device):
    device.install(33, "CREATE TABLE growers_temp (a);")
    assert device.migrate(34) == 0
    left, = (each for each in findings(device) if each["kind"] == "left-behind")
    assert (left["code"], left["before"], left["counts"]) == (
        "left-behind:growers_temp", True, False)


def test_of_a_run_that_changes_nothing_the_log_is_judged(device):
    device.install(NEWEST)
    for _ in range(2):
        device.migrate(NEWEST + 6)
    assert device.migrate(NEWEST + 6) == 3
    assert device.last_run()["reason"] == "target-missed"
    assert device.migrate(NEWEST + 6, "--accept", f"target-missed:{NEWEST}") == 0


def test_rows_that_a_script_of_the_image_changes_are_not_lost(losing):
    with (losing.app / "refMachines.sql").open("a") as script:
        script.write("\nDELETE FROM fields WHERE fieldId = 'none of them';\n")
    assert losing.migrate(3) == 0
    lost, = (each for each in findings(losing) if each["code"] == "rows-lost:fields")
    assert (lost["onPurpose"], lost["counts"]) == ("script", False)


def test_the_platform_decides_about_values(device):
    """On this platform version 25 sets the ports."""
    (device.root / "etc" / "harlo" / "platform").write_text("TORVIKMAX\n")
    device.install(24)
    assert device.migrate(25) == 0
    assert device.migrate(24) == 0


SUCCESSES = [f"Migration to version {version} was successful." for version in (25, 26, 27)]
FAILURE = [SUCCESSES[0], "Migration to version 26 FAILED!", SUCCESSES[2]]


@pytest.mark.parametrize("extra, lines, found", [
    pytest.param("", FAILURE, [("step-failed:26", True)], id="a step that fails"),
    pytest.param("DROP TABLE supportedHarloReceiverSettings;", FAILURE,
                 [("step-failed:26", False)], id="one that lacks a table"),
    pytest.param("", SUCCESSES, [], id="none")])
def test_of_a_direct_run_the_log_is_judged(device, extra, lines, found):
    device.install(24, extra)
    log = "/app/databases/sqlMigrationErrorLog.txt"
    # What earlier runs have logged says nothing about this one.
    device.log_file.write_text("*****Beginning database migration from version: 1 to version: 9\n"
                               "Migration to version 9 FAILED!\n")
    (device.app / "words").write_text(
        "\n*****Beginning database migration from version: 24 to version: 27\n"
        + "\n".join(lines) + "\n*****Updating version in DB to: 27\n")
    device.replace_program(
        f"while read -r line; do echo \"$line\"; done < /app/words >> {log};"
        "sqlite3 /app/databases/my.db.sqlite"
        " \"UPDATE tableVersion SET version = 27 WHERE tableName = 'mainSqlDb'\"")
    assert device.migrate(27, bubblewrap=False) == 4
    assert [(finding["code"], finding["counts"]) for finding in findings(device)] == [
        ("direct:no-bubblewrap", True), *found]
    status = 4 if ("step-failed:26", True) in found else 0
    device.sql("UPDATE tableVersion SET version = 24 WHERE tableName = 'mainSqlDb'")
    accept = ("--accept", "direct:no-bubblewrap")
    assert device.migrate(27, *accept, bubblewrap=False) == status
    device.sql("UPDATE tableVersion SET version = 24 WHERE tableName = 'mainSqlDb'")
    assert device.migrate(27, *accept, "--accept", "step-failed:26", bubblewrap=False) == 0


def test_of_a_direct_run_without_a_log_nothing_is_said_of_the_steps(device):
    device.install(24)
    device.log_file.mkdir()
    assert device.migrate(25, bubblewrap=False) == 4
    assert [finding["code"] for finding in findings(device)] == ["direct:no-bubblewrap"]


def test_a_direct_run_is_a_finding_that_can_be_accepted(device):
    device.install(1)
    run = device.run("run", NEWEST, bubblewrap=False)
    assert run.returncode == 4
    assert run.stderr.splitlines()[-1] == (
        "migration-guard: the program ran without the guard's protection: no-bubblewrap")
    assert [finding["code"] for finding in findings(device)] == ["direct:no-bubblewrap"]
    assert device.migrate(NEWEST, "--accept", "direct:no-bubblewrap", bubblewrap=False) == 0
    assert device.last_run()["reason"] == "no-bubblewrap"
    assert device.migrate(NEWEST + 1, "--accept", "direct:no-bubblewrap", bubblewrap=False) == 4
    assert findings(device)[1]["code"] == f"target-missed:{NEWEST}"


@pytest.mark.parametrize("content", [b"TORVIKMAX", b"TORVIKMAX\r\n", b"\xef\xbb\xbfTORVIKMAX\r\nx"])
def test_the_platform_is_the_first_line_as_the_program_reads_it(device, content):
    """What a version makes of it there is on purpose, also if the file was written on Windows."""
    device.install(20)
    (device.root / "etc" / "harlo" / "platform").write_bytes(content)
    assert device.migrate(NEWEST) == 0
    on_purpose = {finding["code"]: finding["onPurpose"] for finding in findings(device)
                  if finding["kind"] == "values-lost"}
    device.database.unlink()
    device.install(20)
    (device.root / "etc" / "harlo" / "platform").write_text("TORVIKMAX\n")
    assert device.migrate(NEWEST) == 0
    assert on_purpose == {finding["code"]: finding["onPurpose"] for finding in findings(device)
                          if finding["kind"] == "values-lost"}

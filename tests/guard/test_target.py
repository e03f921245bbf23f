"""The texts that the guard accepts as a target version: the program would read any other as 0."""

import pytest
from support.versions import NEWEST

WRONG = ["99999999999", "4294967297", "2147483648", "1000000", "0", "", " ", "-5", "+5", "34.0",
         "0x22", "abc", "34 35", "３４", "٣٤", "34a"]


@pytest.mark.parametrize("target", WRONG)
def test_a_wrong_target_starts_nothing(device, target):
    device.install(2)
    device.replace_program("touch /app/started")
    before = device.database.read_bytes()
    assert device.migrate("--", target) == 2
    (device.app / "schemaversion.txt").write_text(target + "\n", encoding="utf-8")
    assert device.migrate() == 2
    assert device.database.read_bytes() == before
    assert device.files() == ["my.db.sqlite"]
    assert not (device.app / "started").exists()


@pytest.mark.parametrize("text", ["34", " 34\n", "\t034\r\n", "000034"])
def test_a_target_is_passed_on_in_canonical_form(device, text):
    device.install(34)
    device.replace_program('echo "$@" >/app/started; exec /app/migrator "$@"')
    assert device.migrate(text) == 0
    assert (device.app / "started").read_text() == "34\n"
    (device.app / "schemaversion.txt").write_text(text)
    assert device.migrate() == 0


@pytest.mark.parametrize("content", [None, "", "34\n35\n", "x" * 5000, "\x0034"])
def test_without_a_version_in_the_file_nothing_starts(device, content):
    device.install(2)
    if content is not None:
        (device.app / "schemaversion.txt").write_text(content)
    run = device.run("run")
    assert run.returncode == 2
    assert run.stderr == "migration-guard: no schema version in schemaversion.txt\n"
    assert not device.log_file.exists()


@pytest.mark.parametrize("arguments", [
    (), ("walk",), ("run", "34", "35"), ("run", "34", "--dry-run"), ("run", "34", "--wait", "x"),
    ("run", "34", "--wait", "-1"), ("status", "34"), ("status", "--strict"), ("restore", "34"),
    ("run", "34", "--unknown"), ("run", "34", "--accept", ""),
    ("status", "--accept", "damaged"), ("run", "34", "--json"), ("restore", "--exit-code"),
    ("run", "34", "--strict", "--fall-back"), ("run", "34", "--staging", ""),
    ("run", "34", "--app-dir=")])
def test_a_wrong_call_is_told_and_changes_nothing(device, arguments):
    device.install(2)
    run = device.run(*arguments)
    assert (run.returncode, run.stdout) == (2, "")
    assert run.stderr.endswith("migration-guard --help says more\n")
    assert device.files() == ["my.db.sqlite"]


def test_version_and_help(device):
    run = device.run("--version")
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout.splitlines()[1] == f"newest schema version {NEWEST}"
    run = device.run("--help")
    assert (run.returncode, run.stderr) == (0, "")
    assert "--inside" not in run.stdout


def test_the_help_says_all_that_there_is(device):
    text = device.run("--help").stdout
    words = " ".join(text.split())
    for sentence in (
            "Shows the recorded version, the newest version that the program knows, the kept "
            "database of before, the last run, and the last run that changed the version or ended "
            "with 3 or 4.",
            "if the run would end with 4, or there is no database, changes nothing and ends "
            "with 3.",
            "waits at most SECONDS for other programs that hold a lock, all waits together. "
            "Without this option 30."):
        assert sentence in words
    for option in ("--version", "--app-dir <DIR>", "--wait <SECONDS>", "--strict",
                   "--accept <CODE>", "--fall-back", "--mend", "--no-backup", "--json",
                   "--exit-code", "--staging <DIR>", "--dry-run"):
        assert f"\n  {option}" in text
    # The width of a terminal.
    assert max(map(len, text.splitlines())) <= 80

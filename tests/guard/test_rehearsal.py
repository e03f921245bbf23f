"""A rehearsal predicts a run word for word, and touches nothing."""

import json
import os
import shutil
from contextlib import contextmanager

import pytest
import test_direct
from conftest import IDENTIFIER, JOURNAL, KNOWN_VERSIONS, GuardedDevice, leave
from random_devices import (
    KINDS, RandomDevice, can_have_damaged_pages, case, contents, files_of, target_of)
from rehearsals import Untouched, rehearse
from support.places import scratch_directory
from support.versions import NEWEST
from test_direct import small  # noqa: F401
from test_mended_runs import CUT

DEVICES = 1000 if "CAMPAIGN" in os.environ else 3 * len(KINDS)
RUNS_OF_CHANCE = 20
COMMON = ("from", "to", "target", "status", "reason", "way", "changed")
WALKS = [(1, NEWEST), (NEWEST, 1), (20, 26), (NEWEST, NEWEST), (26, 25)]


@contextmanager
def device_and_place():
    """A device, and a directory for the results of rehearsals."""
    with scratch_directory() as root:
        for name in ("device", "out"):
            (root / name).mkdir()
        yield root / "device", root / "out"


@pytest.fixture
def pair():
    with device_and_place() as (root, out):
        yield GuardedDevice(root), out


@pytest.fixture(scope="module")
def random_pair():
    with device_and_place() as (root, out):
        yield RandomDevice(root), out


def without_rows(verdict):
    """A verdict as lastMigration.json has it."""
    if verdict is None:
        return None
    for finding in verdict["findings"]:
        for name in ("rows", "hasAllRows", "detail"):
            finding.pop(name, None)
    return verdict


def rehearse_into(device, out, *arguments):
    """Rehearses; returns how it ended and the resulting database."""
    result = out / "result.sqlite"
    result.unlink(missing_ok=True)
    done = rehearse(device, *arguments, "--result", "/out/result.sqlite",
                    options=f"--bind {out} /out")
    return done, result


def common(report):
    return {name: report.get(name) for name in COMMON}


def lines_of(log):
    """The lines of a log, without the random identifiers of a run."""
    return IDENTIFIER.sub("{}", log).split("\n")


def predicted(done):
    report = done.report
    return {**common(report), "exit": done.status, "verdict": without_rows(report["verdict"]),
            "log": lines_of(report["log"])}


def ended(device, run, earlier=b""):
    """The same results from the run itself. Where it could not write its record, what it leaves
    besides that.

    earlier: the log of before; None where it is no file, and a run does without it
    """
    log = None
    if earlier is not None:
        log = device.log_file.read_bytes() if device.log_file.exists() else b""
        log = lines_of(log.removeprefix(earlier).decode(errors="replace"))
    found = {"exit": run.returncode, "log": log}
    if device.last.exists():
        last = device.last_run()
        found |= {**common(last), "verdict": last.get("verdict")}
    return found


def has_same_content(result, database):
    """From a damaged page SQLite can read bytes outside the page, which differ every time."""
    has_database = database.is_file() and database.stat().st_size > 0
    if not result.exists() or not has_database:
        return result.exists() == has_database
    return (result.read_bytes() == database.read_bytes()
            or contents(result) == contents(database))


def rehearse_and_run(pair, *arguments):
    """Rehearses without touching anything, then runs, which ends as rehearsed."""
    device, out = pair
    before = Untouched(device.root)
    done, result = rehearse_into(device, out, *arguments)
    before.check()
    run = device.run("run", *arguments)
    assert predicted(done) == ended(device, run)
    assert has_same_content(result, device.database)
    return done


@pytest.mark.parametrize("mode", ["delete", "wal"])
@pytest.mark.parametrize("version, target", WALKS)
def test_it_predicts_the_run(pair, version, target, mode):
    device, _ = pair
    device.install(version, mode=mode)
    assert rehearse_and_run(pair, target).status == 0


def test_a_log_with_bytes_that_are_no_text(pair):
    device, out = pair
    device.install(33)
    (device.app / "refProducts.sql").write_bytes(b"'a \r \xff \xe2\x80\xae b\n")
    done, _ = rehearse_into(device, out, NEWEST)
    run = device.run("run", NEWEST)
    assert predicted(done) == ended(device, run)
    assert "unrecognized token" in done.report["log"]


LEFT = [pytest.param("-journal", "delete", id="a journal that has to be rolled back"),
        pytest.param("-wal", "wal", id="a write-ahead log that was not brought in")]


@pytest.mark.parametrize("suffix, mode", LEFT)
def test_what_a_crash_has_left_is_recovered_in_the_copy(pair, suffix, mode):
    device, _ = pair
    device.install(20, mode=mode)
    leave(device, suffix, JOURNAL + ("COMMIT" if mode == "wal" else ""))
    done = rehearse_and_run(pair, NEWEST)
    assert done.report["from"] == (5 if mode == "wal" else 20)


@pytest.mark.parametrize("mend", [(), ("--mend",)], ids=["left", "mended"])
@pytest.mark.parametrize("version, target", [(24, 25), (25, 25)])
def test_copies_that_are_left(pair, version, target, mend):
    device, _ = pair
    device.install(version, CUT)
    done = rehearse_and_run(pair, target, *mend)
    kinds = [entry["kind"] for entry in done.report["mending"]]
    assert kinds == ["name-given", "rows-returned", "copy-removed"]


def nothing(path):
    path.unlink()


ODD = [pytest.param(nothing, "no-database", id="none"),
       pytest.param(lambda path: path.write_bytes(b""), "no-database", id="0 bytes"),
       pytest.param(lambda path: path.write_bytes(b"x" * 5000), "not-copied", id="no database"),
       pytest.param(lambda path: (path.unlink(), path.mkdir()), "not-copied", id="a directory"),
       pytest.param(lambda path: (path.unlink(), path.symlink_to("/nowhere/x")),
                    "database-link-broken", id="a link to nothing")]


@pytest.mark.parametrize("strict", [(), ("--strict",)])
@pytest.mark.parametrize("make, reason", ODD)
def test_what_is_no_database(pair, make, reason, strict):
    device, out = pair
    device.install(20)
    make(device.database)
    before = Untouched(device.root)
    done, result = rehearse_into(device, out, NEWEST, *strict)
    before.check()
    run = device.run("run", NEWEST, *strict)
    assert predicted(done) == ended(device, run)
    assert result.exists() == (device.database.is_file() and device.database.stat().st_size > 0
                               and run.returncode != 3)
    assert (done.report["reason"], done.status) == (reason, run.returncode)


LOSING = """/app/second/migrator "$@"
sqlite3 /app/second/databases/my.db.sqlite "DELETE FROM growers WHERE rowid = 1"
"""
ROOM = [(size, mode, "", ()) for mode in ("delete", "wal")
        for size in (340_000, 600_000, 800_000, 1_000_000, 8_000_000)]
ROOM += [(size, "delete", test_direct.LARGE, strict)
         for strict in ((), ("--strict",)) for size in (13_000_000, 16_000_000, 28_000_000)]


@pytest.fixture
def ends_as_rehearsed(device, small, monkeypatch):  # noqa: F811
    """Returns a function that rehearses and runs on a disk of a size, and compares the two."""
    rehearsal = "/app/second/migration-guard rehearse --json=/app/report \"$@\" 2>/dev/null\n"
    monkeypatch.setattr(test_direct, "SHELL", test_direct.SHELL.replace(
        "/app/second/migration-guard run", f"{rehearsal}/app/second/migration-guard run"))

    def check(size, *arguments):
        status, output = small(size, *arguments)
        report = json.loads((device.app / "report").read_text())
        assert (report["status"], f", {report['way']}," in output) == (status, True), output
        assert ("no-room" in output) == (report.get("reason") == "no-room")
        # There may be no room for the record.
        if device.last.exists():
            last = device.last_run()
            assert ({**common(report), "verdict": without_rows(report["verdict"])}
                    == {**common(last), "verdict": last.get("verdict")})
        return output
    return check


@pytest.mark.parametrize("size, mode, extra, strict", ROOM)
def test_room_on_the_device(device, ends_as_rehearsed, size, mode, extra, strict):
    """The device has less room than the copies of a rehearsal."""
    device.install(1, extra, mode=mode)
    ends_as_rehearsed(size, *strict)


@pytest.mark.parametrize("size, is_kept", [(1_000_000, False), (8_000_000, True)])
def test_room_to_keep_the_database(device, ends_as_rehearsed, size, is_kept):
    """A finding on lost rows names the kept database only if the run will keep it."""
    device.install(33)
    device.replace_program(LOSING)
    shutil.copy(KNOWN_VERSIONS, device.app / "second")
    assert "rows-lost" in ends_as_rehearsed(size)
    lost = next(finding for finding in device.verdict()["findings"]
                if finding["code"] == "rows-lost:growers")
    assert ("before-migration.sqlite" in lost["sentence"]) == is_kept


def differences_of(device, files, target, done, result):
    """The parts of the run that differ from the rehearsal."""
    device.fill(files)
    earlier = b""
    if os.path.lexists(device.log_file):
        earlier = device.log_file.read_bytes() if device.log_file.is_file() else None
    run = device.run("run", target)
    expected, found = predicted(done), ended(device, run, earlier)
    if earlier is None or (run.returncode == 3 and found["log"] == [""]):
        # The log cannot be written, or the result was not kept.
        expected["log"] = found["log"]
    differences = [name for name in found if found[name] != expected[name]]
    if run.returncode != 3 and not has_same_content(result, device.database):
        differences.append("content")
    return differences


@pytest.mark.parametrize("first", range(len(KINDS)), ids=KINDS)
def test_random_devices_end_as_rehearsed(random_pair, first):
    device, out = random_pair
    differences = []
    for seed in range(first, DEVICES, len(KINDS)):
        made = case(seed)
        target, files = target_of(made, seed), files_of(made, seed)
        device.fill(files)
        before = Untouched(device.root)
        done, result = rehearse_into(device, out, target)
        before.check()
        found = [differences_of(device, files, target, done, result)]
        runs = RUNS_OF_CHANCE if can_have_damaged_pages(seed) else 1
        while found[-1] and len(found) < runs:
            found.append(differences_of(device, files, target, done, result))
        if found[-1]:
            differences.append((seed, target, found[-1]))
    assert differences == []

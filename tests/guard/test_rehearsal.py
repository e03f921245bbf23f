"""A rehearsal tells what a run then does, to the word, and touches nothing."""

import os
import sqlite3
from contextlib import closing, contextmanager

import pytest
from conftest import GuardedDevice, leave
from rehearsals import Untouched, rehearse
from support.places import scratch_directory
from support.versions import NEWEST
from test_same_result import (
    IDENTIFIER, KINDS, RandomDevice, case, contents, target_of, text)

DEVICES = 1000 if "CAMPAIGN" in os.environ else 3 * len(KINDS)
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
    """Rehearses; returns how it ended and what it has made of the database."""
    result = out / "result.sqlite"
    result.unlink(missing_ok=True)
    done = rehearse(device, *arguments, "--result", "/out/result.sqlite",
                    options=f"--bind {out} /out")
    return done, result


def common(report):
    return {name: report.get(name) for name in COMMON}


def predicted(done, result):
    report = done.report
    return {**common(report), "exit": done.status, "verdict": without_rows(report["verdict"]),
            "log": IDENTIFIER.sub("{}", report["log"]), "content": contents(result) or None}


def ended(device, run, earlier=""):
    """The same of the run itself.

    earlier: the log of before, None where it is no file: then a run does without it.
    """
    last = device.last_run()
    return {**common(last), "exit": run.returncode, "verdict": last.get("verdict"),
            "log": None if earlier is None else (text(device.log_file) or "").removeprefix(earlier), "content": contents(device.database) or None}


@pytest.mark.parametrize("mode", ["delete", "wal"])
@pytest.mark.parametrize("version, target", WALKS)
def test_it_predicts_the_run(pair, version, target, mode):
    device, out = pair
    device.install(version, mode=mode)
    before = Untouched(device.root)
    done, result = rehearse_into(device, out, target)
    before.check()
    run = device.run("run", target)
    assert predicted(done, result) == ended(device, run)
    assert done.status == 0


LEFT = [pytest.param("-journal", "delete", id="a journal that has to be rolled back"),
        pytest.param("-wal", "wal", id="a write-ahead log that was not brought in")]
WRITING = ("PRAGMA cache_spill = 1; PRAGMA cache_size = 1; BEGIN;"
           "UPDATE tableVersion SET version = 5; UPDATE growers SET displayName = 'x';")


@pytest.mark.parametrize("suffix, mode", LEFT)
def test_what_a_crash_has_left_is_recovered_in_the_copy(pair, suffix, mode):
    device, out = pair
    device.install(20, mode=mode)
    leave(device, suffix, WRITING + ("COMMIT" if mode == "wal" else ""))
    before = Untouched(device.root)
    done, result = rehearse_into(device, out, NEWEST)
    before.check()
    run = device.run("run", NEWEST)
    assert predicted(done, result) == ended(device, run)
    assert done.report["from"] == (5 if mode == "wal" else 20)


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
    assert predicted(done, result) == ended(device, run)
    assert (done.report["reason"], done.status) == (reason, run.returncode)


@pytest.mark.parametrize("first", range(len(KINDS)), ids=KINDS)
def test_random_devices_end_as_rehearsed(random_pair, first):
    device, out = random_pair
    differences = []
    for seed in range(first, DEVICES, len(KINDS)):
        made = case(seed)
        target = target_of(made, seed)
        device.fill(made.files)
        before = Untouched(device.root)
        done, result = rehearse_into(device, out, target)
        before.check()
        expected = predicted(done, result)
        earlier = text(device.log_file) if os.path.lexists(device.log_file) else ""
        if earlier is None:
            expected["log"] = None
        run = device.run("run", target)
        if not device.last.exists():
            continue
        found = ended(device, run, earlier)
        if run.returncode == 3 and found["log"] == "":
            # That of a result that is not kept is not appended.
            expected["log"] = ""
        if expected != found:
            differences.append((seed, target, done.errors, run.stderr))
    assert differences == []

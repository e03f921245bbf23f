"""Faults at the guard's own operations on the disk: the old database or the new one is left.

The next run ends like an undisturbed one. The suite tries a sample of the operations. All of them
are tried by tests/faults/guard_campaign.py, and with --mend here, in the campaign."""

import os
import pathlib
import re
import shutil

import pytest
from conftest import JOURNAL, GuardedDevice, contents, guarded_device, leave
from support.versions import NEWEST

SHIM = pathlib.Path(os.environ["FAULT_SHIM"])
MOMENTS = pathlib.Path(os.environ["FATAL_MOMENTS"])
WHOLE = "CAMPAIGN" in os.environ
# More operations than a walk has: a fault beyond the last one disturbs nothing.
OPERATIONS = 400
STRIDE = 1 if WHOLE else 100
ACTIONS = ("kill", "half", "EIO", "ENOSPC", "short")
# Only the guard meets the fault.
PROGRAM = 'exec env -u LD_PRELOAD -u FAULT_AT -u FAULT_ACTION -u FAULT_FOREVER /app/migrator "$@"'


class FaultyDevice:
    """A device that begins every run with the same files."""

    def __init__(self, device: GuardedDevice, version, target, mode, extra="", options=()):
        self.device = device
        self.arguments = target, *options
        device.install(version, extra, mode)
        device.replace_program(PROGRAM)
        shutil.copy(SHIM, device.app / "shim.so")
        shutil.copy(MOMENTS, device.app / "moments.so")
        self.start = device.database.read_bytes()
        self.pool = device.pool_files()
        self.old = device.contents()
        self.run()
        self.new, self.log = device.contents(), device.log()
        self.new_pool = device.pool_files()
        self.run()
        self.settled = device.contents()

    def begin(self):
        for path in self.device.databases.iterdir():
            path.unlink()
        self.device.database.write_bytes(self.start)
        for name in self.pool:
            (self.device.pool / name).touch()

    def run(self, **switches):
        options = " ".join(f"--setenv {name} {value}" for name, value in switches.items())
        if switches:
            # Without the second library the inner guard could not kill itself.
            options += " --setenv LD_PRELOAD /app/shim.so:/app/moments.so"
        run = self.device.run("run", *self.arguments, "--wait", 2, options=options)
        self.said = run.stderr
        return run.returncode

    def check(self, what, status):
        device = self.device
        found = device.contents()
        assert found in (self.old, self.new), what
        is_known = "commit-unknown" not in self.said
        if found == self.new != self.old:
            assert device.log().endswith(self.log), what
            assert status != 3 or not is_known, what
        if status in (0, 4):
            assert found == self.new, what
        for _ in range(3):
            if self.run() == 0:
                break
        assert device.contents() in (self.new, self.settled), what
        assert device.pool_files() == self.new_pool, what
        left = [name for name in device.files()
                if name.endswith((".new", ".tmp", ".note", "staging"))]
        assert left == [], what
        if device.kept.exists():
            assert contents(device.kept) == self.old, what


# The copies that a cut step has left; all of them can be mended.
CUT = ("CREATE TABLE growers_temp AS SELECT * FROM growers;"
       "PRAGMA legacy_alter_table = ON; ALTER TABLE farms RENAME TO farms_temp;")
WALKS = {"forward": (1, NEWEST, "delete"), "write-ahead log": (1, NEWEST, "wal"),
         "mended": (24, 25, "delete", CUT, ("--mend",))}


@pytest.fixture(scope="module", params=("mended",) if WHOLE else WALKS)
def faulty(request):
    with guarded_device() as device:
        yield FaultyDevice(device, *WALKS[request.param])


@pytest.mark.parametrize("forever", (0, 1) if WHOLE else (0,))
@pytest.mark.parametrize("action", ACTIONS)
def test_a_fault_leaves_the_old_database_or_the_new_one(faulty, action, forever):
    for number in range(1 + 17 * ACTIONS.index(action) % STRIDE, OPERATIONS, STRIDE):
        faulty.begin()
        status = faulty.run(FAULT_AT=number, FAULT_ACTION=action, FAULT_FOREVER=forever)
        faulty.check((action, number, forever, status), status)


@pytest.mark.parametrize("action, words", [
    ("EIO", "Input/output error"), ("ENOSPC", "No space left on device")])
def test_nothing_changes_if_the_disk_fails_when_the_log_is_made(action, words):
    """That is the first of the log's operations."""
    with guarded_device() as device:
        faulty = FaultyDevice(device, *WALKS["mended"])
        for number in range(1, OPERATIONS):
            faulty.begin()
            status = faulty.run(FAULT_AT=number, FAULT_ACTION=action)
            is_of_log = f"log: {words}" in faulty.said
            faulty.check((action, number, 0, status), status)
            if is_of_log:
                break
        assert status == 3


def test_a_commit_whose_end_is_not_known_is_settled_by_the_next_run():
    """The disk fails for good while the database is written: its content is unknown."""
    with guarded_device() as device:
        faulty = FaultyDevice(device, *WALKS["forward"])
        for number in range(240, OPERATIONS, 8):
            faulty.begin()
            device.kept.write_text("kept before")
            status = faulty.run(FAULT_AT=number, FAULT_ACTION="EIO", FAULT_FOREVER=1)
            if "commit-unknown" in faulty.said:
                break
        assert status == 3
        line = f"from 1 to unknown, target {NEWEST}, guarded, commit-unknown .*, status 3\n"
        assert re.search(line, faulty.said)
        assert "not an error" not in faulty.said
        assert device.kept.read_text() == "kept before"
        assert device.pool_files() == faulty.pool
        assert faulty.run() == 0
        assert (device.contents(), device.pool_files()) == (faulty.new, faulty.new_pool)
        assert contents(device.kept) == faulty.old


def test_a_commit_without_room_sends_the_next_run_to_the_disk_and_the_third_is_direct():
    with guarded_device() as device:
        faulty = FaultyDevice(device, *WALKS["forward"])

        def run_without_room(number):
            return faulty.run(FAULT_AT=number, FAULT_ACTION="ENOSPC")

        def last_end():
            return [device.last_run().get(name) for name in ("way", "staging", "reason")]
        commit = 240
        faulty.begin()
        assert run_without_room(commit) == 3
        assert last_end() == ["guarded", "memory", "no-room"]
        assert faulty.run() == 0
        assert last_end() == ["guarded", "disk", None]
        assert device.contents() == faulty.new
        # A run on the disk has other operations before its commit.
        for number in range(commit, OPERATIONS, 8):
            faulty.begin()
            assert run_without_room(commit) == 3
            if run_without_room(number) == 3:
                break
        assert last_end() == ["guarded", "disk", "no-room"]
        assert faulty.run() == 4
        assert last_end() == ["direct", None, "earlier-runs-failed"]
        assert device.contents() == faulty.new


def test_a_restore_whose_end_is_not_known_says_so(device):
    device.install(1)
    before = device.contents()
    assert device.migrate(NEWEST) == 0
    shutil.copy(SHIM, device.app / "shim.so")
    for number in range(240, OPERATIONS, 8):
        run = device.run("restore", options=(
            f"--setenv LD_PRELOAD /app/shim.so --setenv FAULT_AT {number} "
            "--setenv FAULT_ACTION EIO --setenv FAULT_FOREVER 1"))
        if "commit-unknown" in run.stderr:
            break
    assert run.returncode == 3
    assert re.search(f"from {NEWEST} to unknown, commit-unknown .*, status 3\n", run.stderr)
    assert device.run("restore").returncode == 0
    assert device.contents() == before


@pytest.mark.parametrize("action", ["ENOSPC", "short"])
@pytest.mark.parametrize("mode, suffix, statements", [
    pytest.param("delete", "-journal", JOURNAL, id="a journal is rolled back"),
    pytest.param("wal", "-wal", "UPDATE growers SET displayName = 'x'", id="an index is made")])
def test_a_disk_that_fails_while_it_is_read_is_no_reason_for_a_direct_run(
        device, action, mode, suffix, statements):
    """Staging is in memory: it is the disk of the database that fails."""
    device.install(1, mode=mode)
    device.replace_program(PROGRAM)
    shutil.copy(SHIM, device.app / "shim.so")
    leave(device, suffix, statements)
    start = {path: path.read_bytes() for path in device.databases.iterdir()}
    before = device.contents()
    for number in (1, 2, 5, 8, 11):
        for path in device.databases.iterdir():
            path.unlink()
        for path, content in start.items():
            path.write_bytes(content)
        run = device.run("run", NEWEST, "--wait", 2, options=(
            f"--setenv LD_PRELOAD /app/shim.so --setenv FAULT_AT {number} "
            f"--setenv FAULT_ACTION {action} --setenv FAULT_FOREVER 1"))
        assert (run.returncode, "guarded, not changed" in run.stderr) == (3, True), run.stderr
        assert device.contents() == before


def test_a_fault_is_met(faulty):
    """The proof that the harness does something, and that it looks at every operation."""
    faulty.begin()
    assert faulty.run(FAULT_AT=12, FAULT_ACTION="kill") not in (0, 2, 3, 4)
    faulty.begin()
    assert faulty.run(FAULT_AT=OPERATIONS, FAULT_ACTION="kill") == 0

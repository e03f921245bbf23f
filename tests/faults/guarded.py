"""The subject of the campaign: the program under the guard.

The guard, bubblewrap and the program are run into faults. After each fault the database has to be
the old or the new one, and the next run has to end as an undisturbed one does. The files that a
fault leaves are judged once: a later case that leaves the same files gets the same answer.
"""

import json
import pathlib
import pickle
import random
import signal
import sqlite3
import time
from collections import Counter
from contextlib import closing, contextmanager

import device
import tree
from device import DATABASE
from directory_disk import DirectoryDisk
from disks import PAGE, SURVIVALS
from guarded_device import (FOREIGN_TABLE, KEPT, POOL, PREPARED, Readings, Snapshot, empty_pool,
                            fill, last_run, snapshot)
from guarded_scenario import EARLIER_LOG, ERRORS, KILLS, MEMORY, SIGNALS, Scenario

BOOT = pathlib.Path("/proc/sys/kernel/random/boot_id")
OTHER_BOOT = b"00000000-0000-4000-8000-000000000000"
DISK_STEP = 512 * 1024  # bytes; the guard wants some five times the database
MEMORY_STEP = 128 * 1024  # bytes; a walk takes at most some 300 kB
ROOM_STEP = 640 * 1024  # bytes; the guard's own size is some 7 MB
MOMENT = 0.003  # seconds; a run takes some 0.3
# After these faults the guard itself may be gone.
MAY_DIE = (*KILLS, *SIGNALS, *MEMORY, "SIGKILL at any moment")


def prepare(task, folder):
    """Records the undisturbed run of a scenario, for all workers."""
    tree.become_parent_of_orphans()
    scenario = Scenario(task["scenario"], task["target"])
    (folder / "scenario").write_bytes(pickle.dumps(scenario))
    return scenario.figures()


class Cases:
    """Runs cases and counts their outcomes."""

    def __init__(self, folder):
        """folder: the scenario's files that all workers share."""
        tree.become_parent_of_orphans()
        self.scenario = pickle.loads((folder / "scenario").read_bytes())
        self._readings = Readings()
        self._judgements = folder / "judgements"
        self._judgements.mkdir(exist_ok=True)
        # Switches of the shim that plant a mistake, or UNSYNCED: a file that is not flushed.
        self.mistake = {}

    def run(self, task):
        """Runs the cases at these positions among the places of a kind. With a planted mistake it
        ends as soon as the mistake is noticed."""
        self.violations, self.outcomes, self.states = [], Counter(), set()
        kind, self.mistake = task["kind"], task.get("mistake", {})
        device.software_version("1.2.3")
        places = self.scenario.places[kind]
        for position in range(*task["numbers"]):
            if position < len(places) and not (self.mistake and self.violations):
                self._position = position
                self._case(kind, places[position])
        return {"cases": sum(self.outcomes.values()), "violations": self.violations,
                "outcomes": self.outcomes, "states": sorted(self.states)}

    def _case(self, kind, number):
        if kind in ERRORS:
            self._run(kind, self.scenario.describe(number), AT=number, **ERRORS[kind][0])
        elif kind in KILLS:
            self._kill(kind, number)
        elif kind in MEMORY:
            self._run(kind, f"allocation {number}", AT=number, **MEMORY[kind][0])
        elif kind in SIGNALS:
            self._pause(kind, number, lambda run: run.send(*SIGNALS[kind]))
        elif kind == "SIGKILL at any moment":
            self._kill_guard(kind, number)
        elif kind == "another process writes":
            self._pause(kind, number, lambda _: write_as_other())
        elif kind == "full disk":
            self._full_disk(number)
        elif kind == "full memory":
            self._run(kind, f"{number * MEMORY_STEP} bytes left", FILL=number * MEMORY_STEP)
        elif kind == "small memory":
            self._run(kind, f"{(number + 1) * ROOM_STEP} bytes", ROOM=(number + 1) * ROOM_STEP)
        else:
            self._power_cut(number)

    def _run(self, kind, what, expected=None, **switches):
        """expected: the key of the files that the run must leave."""
        fill(self.scenario.start)
        with same_file() as replaced:
            run = tree.run(self.scenario.command(), **switches, **self.mistake)
        found = snapshot()
        if expected not in (None, found.key):
            replaced.append("left other files than the recording tells")
        if run.faults > 0:
            self._note(kind, what, found, run, replaced)

    def _kill(self, kind, number):
        """A kill of the guard leaves the files that are on the disk at that moment. A kill of the
        program leaves the same files at all its operations."""
        scenario = self.scenario
        expected = scenario.key_without_program
        if scenario.is_guards(number):
            expected = scenario.key_before(number, half=kind == "kill in a write")
        self._run(kind, scenario.describe(number), expected, AT=number, **KILLS[kind][0])

    def _kill_guard(self, kind, number):
        """A kill after a time, not before an operation: while the guard starts a process there are
        none."""
        fill(self.scenario.start)
        run = tree.Tree(self.scenario.command(), {})
        with same_file() as replaced:
            time.sleep(number * MOMENT)
            run.send(signal.SIGKILL, "guard")
            ended = run.result()
        self._note(kind, f"after {number * MOMENT:.3f} s", snapshot(), ended, replaced)

    def _pause(self, kind, number, act):
        """Something happens while a process waits before an operation, if it is possible there."""
        fill(self.scenario.start)
        run = tree.Tree(self.scenario.command(), {"ACTION": "pause", "AT": number, **self.mistake})
        has_happened = False
        with same_file() as replaced:
            if run.waits():
                has_happened = act(run)
                run.go_on()
            ended = run.result()
        if has_happened:
            self._note(kind, self.scenario.describe(number), snapshot(), ended, replaced)

    def _full_disk(self, number):
        room = DirectoryDisk(self.scenario.start).size() + PAGE + number * DISK_STEP
        with device.small_disk(self.scenario.start, room):
            empty_pool(self.scenario.start)
            with same_file() as replaced:
                run = tree.run(self.scenario.command())
        self._note("full disk", f"{room} bytes", snapshot(), run, replaced)

    def _power_cut(self, number):
        """The power goes before an operation on the disk, or after the last."""
        operations = self.scenario.on_disk()
        at, survival = divmod(number, len(SURVIVALS))
        survival = SURVIVALS[survival]
        if at == len(operations):
            what = "after the end"
        else:
            operation = operations[at]
            what = f"{operation.process} {operation.kind} {operation.path}"
        unsynced = self.mistake.get("UNSYNCED")
        if unsynced:
            operations = [operation for operation in operations
                          if operation.kind != "Y" or not operation.path.endswith(unsynced)]
        disk = DirectoryDisk(self.scenario.start)
        for operation in operations[:at]:
            disk.apply(operation)
        files = disk.files_after_power_cut(survival, random.Random(number))
        boot = BOOT.read_bytes().strip()
        self._note("power cut", f"operation on the disk {at}: {what}, {survival.__name__}",
                   Snapshot({path: content.replace(boot, OTHER_BOOT)
                             for path, content in files.items()}, ()))

    def _note(self, kind, what, found, run=None, violations=()):
        """Judges the files that a fault has left, and the result of the next run. After a power cut
        there is no run to judge, and the files are not on the device yet."""
        is_written = kind == "another process writes"
        may_lack_kept = kind in ERRORS or kind in MEMORY or kind == "full disk"
        file = self._judgements / f"{found.key}-{is_written}-{may_lack_kept}.json"
        if file.exists() and not self.mistake:
            position, lasting = json.loads(file.read_text())
        else:
            if run is None:
                fill(found.files)
            position, lasting = self._judge(found, is_written, may_lack_kept)
        if not file.exists() and not self.mistake:
            new = file.with_suffix(f".{random.getrandbits(64):x}")
            new.write_text(json.dumps((position, lasting)))
            new.rename(file)
        self.states.add(found.key[:16])
        ends = self._wrong_end(kind, run, position, found) if run is not None else ()
        violations = [*violations, *ends, *lasting]
        outcome = position
        if run is not None and run.ran_directly:
            violations = [f"run directly: {text}" for text in violations]
            outcome = "direct" if violations else position
        elif violations:
            outcome = "wrong"
        self.outcomes[outcome] += 1
        self.violations += [f"{self._position}: {text} [{what}]" for text in violations]

    def _judge(self, found, is_written, may_lack_kept):
        """Returns which database is there, None if it is neither, and what is wrong with the files
        and with the next run."""
        state = self._readings.database(found.files)
        position = None
        if state is None:
            violation = "not sound"
        elif state[1] != is_written:
            violation = "what another process has written is lost"
        else:
            violation = "neither the old nor the new database"
            position = {self.scenario.old: "old", self.scenario.new: "new"}.get(state[0])
        violations = [violation] if position is None else self._wrong_files(found, position)
        violations = [f"{text}{how_it_ended(found)}" for text in violations]
        # The other process's table stays, and no undisturbed run has it.
        if position is not None and not is_written and not self.mistake:
            violations += self._recover(position, found, may_lack_kept)
        return position, violations

    def _wrong_end(self, kind, run, position, found):
        scenario = self.scenario
        changes = scenario.old != scenario.new
        if run.orphans:
            yield f"went on: {', '.join(run.orphans)}"
        if isinstance(run.status, str):
            yield run.status
        elif run.status not in (0, 3, 4) and kind not in MAY_DIE:
            yield f"ended with {run.status}"
        # After a direct run, status 4 only says that the result should be looked at.
        answered = (0,) if run.ran_directly else (0, 4)
        if run.status in answered and position == "old" and changes:
            yield f"status {run.status}, but the database is the old one{how_it_ended(found)}"
        is_unknown = last_run(found).get("reason") == "commit-unknown"
        if run.status == 3 and position == "new" and changes and not is_unknown:
            yield f"status 3, but the database is the new one{how_it_ended(found)}"
        if kind == "full disk" and run.ran_directly and (
                position != "new" or found.pool != scenario.next_of_old["pool"]):
            yield "has not ended like an undisturbed run"

    def _wrong_files(self, found, position):
        scenario = self.scenario
        changes = scenario.old != scenario.new
        if not found.log.startswith(EARLIER_LOG):
            yield "an earlier log was lost"
        text = found.log[len(EARLIER_LOG):]
        if changes and position == "new" and text != scenario.next_of_old["text"]:
            yield "the log lacks what the database shows"
        if self._keeps_another(found):
            yield "the kept database is not the old one"
        if changes and position == "old" and found.pool != sorted(
                path for path in scenario.start if path.startswith(str(POOL))):
            yield "files of the pool went before the commit"

    def _keeps_another(self, found):
        """True if a database of before is kept or prepared, but is not the right one."""
        kept = [found.files[str(path)] for path in (KEPT, PREPARED) if str(path) in found.files]
        states = [self._readings.read(content) for content in kept]
        return any(state is None or state[0] != self.scenario.old for state in states)

    def _recover(self, position, before, may_lack_kept):
        """The faults found after the next run."""
        scenario = self.scenario
        expected = scenario.next_of_new if position == "new" else scenario.next_of_old
        run = tree.run(scenario.command())
        found = snapshot()
        state = self._readings.database(found.files)
        violations = []
        if state is None or state[0] != expected["content"]:
            violations.append("the next run left other content")
        if run.status != expected["status"]:
            violations.append(f"the next run ended with {run.status}")
        if not found.log.startswith(before.log):
            violations.append("the next run lost lines of the log")
        elif found.log[len(before.log):] != expected["text"]:
            violations.append("the next run has another log")
        if found.pool != expected["pool"]:
            violations.append("the next run left another pool")
        names, own = set(found.names), set(expected["names"])
        if scenario.keeps and not may_lack_kept:
            own.add(KEPT.name)
        if names - own - {KEPT.name}:
            violations.append(f"left {', '.join(sorted(names - own - {KEPT.name}))}")
        lacking = own - names - ({KEPT.name} if may_lack_kept else set())
        if lacking:
            violations.append(f"lacks {', '.join(sorted(lacking))}")
        if self._keeps_another(found):
            violations.append("the kept database is not the old one after the next run")
        return [f"{text}{how_it_ended(found)}" for text in violations]


@contextmanager
def same_file():
    """Gives a list. Afterwards it says whether the database is another file."""
    before, found = DATABASE.stat(), []
    yield found
    after = DATABASE.stat() if DATABASE.exists() else None
    if after is None or (before.st_ino, before.st_mode, before.st_uid, before.st_gid) != (
            after.st_ino, after.st_mode, after.st_uid, after.st_gid):
        found.append("the database is another file, or its mode or owner has changed")


def write_as_other():
    """Another process adds a table; false if it cannot."""
    with closing(sqlite3.connect(DATABASE, timeout=0)) as other:
        try:
            other.execute(f"CREATE TABLE {FOREIGN_TABLE} (value)")
            other.commit()
        except sqlite3.OperationalError:
            return False
    return True


def how_it_ended(found):
    """The guard's words on a disturbed last run, for a report; empty for an undisturbed one."""
    last = last_run(found)
    return f" ({last['way']}: {last['reason']})" if "reason" in last else ""

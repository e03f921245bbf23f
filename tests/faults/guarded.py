"""The subject of the campaign: the program under the guard.

The guard, bubblewrap and the program are run into faults. After each, the database has to be the
old one or the new one, and the next run has to end as an undisturbed one does.
"""

import json
import pathlib
import pickle
import random
import re
import shutil
import sqlite3
from collections import Counter
from contextlib import closing, contextmanager

import device
import tree
from device import DATABASE, JOURNAL, LOG
from directory_disk import DirectoryDisk
from disks import PAGE, SURVIVALS
from guarded_device import (FOREIGN_TABLE, KEPT, LAST, POOL, PREPARED, READING,
                            SHARED_MEMORY, WRITE_AHEAD_LOG, Readings, empty_pool, fill, snapshot)
from states import Reader, identifiers
from support.versions import dump_of

GUARD_PROCESSES = ("guard", "guard in memory")
WAIT = "2"  # seconds for locks that others hold
EARLIER_LOG = b"a line of an earlier run\n"
POOL_FILES = ("VT-01.iop", "VT-02.iop")
IDENTIFIER = re.compile(rb"\{[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}\}")
BOOT = pathlib.Path("/proc/sys/kernel/random/boot_id")
OTHER_BOOT = b"00000000-0000-4000-8000-000000000000"
DISTANCE_OF_ALLOCATIONS = 10
SIZES = 12
DISK_STEP = 512 * 1024  # bytes; the guard wants some five times the database
MEMORY_STEP = 128 * 1024  # bytes; a walk takes at most some 300 kB
ROOM_STEP = 640 * 1024  # bytes; the guard's own size is some 7 MB

# kind of fault: the shim's switches, and the kinds of operations that can have the fault.
ERRORS = {
    "EIO once": ({"ACTION": "EIO"}, "COWTYUMR"),
    "EIO from then on": ({"ACTION": "EIO", "FOREVER": 1}, "COWTYUMR"),
    "ENOSPC once": ({"ACTION": "ENOSPC"}, "CWMR"),
    "ENOSPC from then on": ({"ACTION": "ENOSPC", "FOREVER": 1}, "CWMR"),
    "short write once": ({"ACTION": "short"}, "W"),
    "short writes from then on": ({"ACTION": "short", "FOREVER": 1}, "W"),
}
ENDS = {
    "kill": ({"ACTION": "kill"}, "COWTYUMR"),
    "kill in a write": ({"ACTION": "half"}, "W"),
    **{f"{signal} to {process}": ({"ACTION": action, "PROCESS": number}, "COWTYUMR")
       for signal, action in (("SIGTERM", "term"), ("SIGKILL", "end"))
       for number, process in enumerate(tree.PROCESSES)},
}
MEMORY = {"no memory once": {"ACTION": "memory"},
          "no memory from then on": {"ACTION": "memory", "FOREVER": 1}}


def make_start(name, folder):
    """The files of a device before the run of a scenario; the name tells which."""
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    database = folder / DATABASE.name
    version = int(name.split()[0])
    with closing(sqlite3.connect(database)) as connection:
        if "write-ahead log" in name:
            connection.execute("PRAGMA journal_mode = WAL")
        connection.executescript(dump_of(version))
        connection.commit()
        paths = [DATABASE]
        if "write-ahead log" in name:
            # The last transaction is in the log only.
            connection.execute("PRAGMA wal_checkpoint(TRUNCATE)")
            connection.execute("UPDATE languages SET code = code")
            connection.commit()
            paths.append(WRITE_AHEAD_LOG)
        if "hot journal" in name:
            # Half of a transaction is in the file, and the journal takes it back.
            connection.execute("PRAGMA cache_size = 1")
            for table, in connection.execute(
                    "SELECT name FROM sqlite_master WHERE type = 'table'"
                    " AND name NOT LIKE 'sqlite%'").fetchall():
                connection.execute(f"DELETE FROM {table} WHERE random() IS NOT NULL")
            paths.append(JOURNAL)
        files = {str(path): (folder / path.name).read_bytes() for path in paths}
    shutil.rmtree(folder)
    files[str(LOG)] = EARLIER_LOG
    return files | {str(POOL / name): b"" for name in POOL_FILES}


def without_identifiers(text):
    return IDENTIFIER.sub(b"{}", text)


def is_page(operation):
    """True for one of the many writes of a database or its journal."""
    return operation.kind == "W" and ".sqlite" in operation.path


def spread(items):
    """The items in an order, always the same, of which every beginning is spread over all."""
    items = list(items)
    random.Random(0).shuffle(items)
    return items


class Scenario:
    """A walk of the guard, and what is known of the undisturbed one."""

    def __init__(self, name, target):
        self.name, self.target = name, target
        device.software_version("1.2.3")
        self.start = make_start(name, READING)
        fill(self.start)
        self.reader = Reader()
        if name.split()[0] == str(target):
            # An ordinary boot: the first run after a walk may still change a definition.
            self._undisturbed()
            self.start[str(DATABASE)] = DATABASE.read_bytes()
            fill(self.start)
        with closing(sqlite3.connect(DATABASE)) as database:
            database.execute("SELECT count(*) FROM sqlite_master").fetchone()
        first = self.reader.read(DATABASE)
        self.reader = Reader(identifiers(first))
        readings = Readings(self.reader)
        if JOURNAL in map(pathlib.Path, self.start):
            assert readings.read(self.start[str(DATABASE)]) != readings.database(self.start)
        self.old = readings.database(self.start)[0]
        fill(self.start)
        self.next_of_old = self._undisturbed(readings)
        self.recording, self.allocations = tree.recording(), self._run.allocations
        self.new = self.next_of_old["content"]
        self._check_replay()
        self.next_of_new = self._undisturbed(readings)
        assert self._undisturbed(readings) == self.next_of_new, "no idle run after two runs"
        self.keeps = str(KEPT) in snapshot().files
        self.places = self._places()

    def command(self):
        return ["/app/migration-guard", "run", str(self.target), "--wait", WAIT]

    def _undisturbed(self, readings=None):
        log = snapshot().log
        self._run = tree.run(self.command())
        found = snapshot()
        assert self._run.status in (0, 4) and not self._run.orphans, self._run
        assert found.log.startswith(log)
        return readings and {
            "content": readings.database(found.files)[0], "status": self._run.status,
            "text": without_identifiers(found.log[len(log):]), "names": found.names,
            "pool": found.pool}

    def on_disk(self):
        """The operations on the files that a power cut leaves."""
        return [operation for operation in self.recording if operation.place == "disk"
                and operation.path != str(SHARED_MEMORY)]

    def _check_replay(self):
        """The recording must lack nothing."""
        disk = DirectoryDisk(self.start)
        for operation in self.on_disk():
            disk.apply(operation)
            replaced = operation.kind == "R" and operation.data.decode() == str(DATABASE)
            assert not replaced, "a file is renamed over the database"
        found = snapshot().files
        found.pop(str(SHARED_MEMORY), None)
        assert disk.files() == found, disk.files().keys() ^ found.keys()

    def _places(self):
        """By kind of fault, the numbers at which it is tried, in an order that tells most first:
        the guard's operations but for its many writes, those writes, and the other operations. Each
        part of it is spread over the run."""
        numbered = spread(enumerate(self.recording, 1))
        own = sorted((entry for entry in numbered if entry[1].process in GUARD_PROCESSES),
                     key=lambda entry: is_page(entry[1]))
        others = [entry for entry in numbered if entry[1].process not in GUARD_PROCESSES]
        return {
            **{kind: [number for number, operation in own if operation.kind in kinds]
               for kind, (_, kinds) in ERRORS.items()},
            **{kind: [number for number, operation in own + others if operation.kind in kinds]
               for kind, (_, kinds) in ENDS.items()},
            **dict.fromkeys(MEMORY, spread(range(1, self.allocations + 1,
                                                 DISTANCE_OF_ALLOCATIONS))),
            "power cut": self._power_cuts(),
            "another process writes": [number for number, _ in own],
            **dict.fromkeys(("full disk", "full memory", "small memory"), list(range(SIZES)))}

    def _power_cuts(self):
        """Every operation on the disk, and the end, with everything that can survive there."""
        operations = self.on_disk()
        return sorted(spread(range((len(operations) + 1) * len(SURVIVALS))),
                      key=lambda number: number // len(SURVIVALS) < len(operations)
                      and is_page(operations[number // len(SURVIVALS)]))

    def describe(self, number):
        operation = self.recording[number - 1]
        return (f"operation {number}: {operation.process} {operation.kind} {operation.path}"
                f" ({operation.place})")


def prepare(task, folder):
    """Records the undisturbed run of a scenario, for all workers."""
    tree.become_parent_of_orphans()
    scenario = Scenario(task["scenario"], task["target"])
    (folder / "scenario").write_bytes(pickle.dumps(scenario))
    processes = Counter(operation.process for operation in scenario.recording)
    return {"places": {kind: len(places) for kind, places in scenario.places.items()},
            "operations": dict(processes), "on the disk": len(scenario.on_disk()),
            "allocations": scenario.allocations}


class Cases:
    """Runs cases and counts what came of them."""

    def __init__(self, folder):
        """folder: what all workers share of the scenario."""
        tree.become_parent_of_orphans()
        self.scenario = pickle.loads((folder / "scenario").read_bytes())
        self._readings = Readings(self.scenario.reader)
        self._recoveries = folder / "recoveries"
        self._recoveries.mkdir(exist_ok=True)
        self.mistake = {}  # switches of the shim that plant one, or UNSYNCED: no flush of a file

    def run(self, task):
        """Runs the cases at these positions among the places of a kind. With a planted mistake it
        ends at the first that is noticed."""
        self.violations, self.outcomes = [], Counter()
        kind, self.mistake = task["kind"], task.get("mistake", {})
        device.software_version("1.2.3")
        places = self.scenario.places[kind]
        for position in range(*task["numbers"]):
            if position < len(places) and not (self.mistake and self.violations):
                self._position = position
                self._case(kind, places[position])
        return {"cases": sum(self.outcomes.values()), "violations": self.violations,
                "outcomes": self.outcomes, "differences": {}}

    def _case(self, kind, number):
        if kind in ERRORS:
            self._fault(kind, number, ERRORS[kind][0])
        elif kind in ENDS:
            self._fault(kind, number, ENDS[kind][0])
        elif kind in MEMORY:
            self._fault(kind, number, MEMORY[kind])
        elif kind == "full disk":
            self._full_disk(number)
        elif kind == "full memory":
            self._run(kind, f"{number * MEMORY_STEP} bytes left", FILL=number * MEMORY_STEP)
        elif kind == "small memory":
            self._run(kind, f"{(number + 1) * ROOM_STEP} bytes", ROOM=(number + 1) * ROOM_STEP)
        elif kind == "another process writes":
            self._write_meanwhile(number)
        else:
            self._power_cut(number)

    def _fault(self, kind, number, switches):
        what = (f"allocation {number}" if kind in MEMORY else self.scenario.describe(number))
        self._run(kind, what, AT=number, **switches)

    def _run(self, kind, what, **switches):
        fill(self.scenario.start)
        with self._same_file() as replaced:
            run = tree.run(self.scenario.command(), **switches, **self.mistake)
        if run.faults > 0:
            self._note(kind, what, run, replaced)

    @contextmanager
    def _same_file(self):
        """Gives a list that says afterwards whether the database is another file."""
        before, found = DATABASE.stat(), []
        yield found
        after = DATABASE.stat() if DATABASE.exists() else None
        if after is None or (before.st_ino, before.st_mode, before.st_uid, before.st_gid) != (
                after.st_ino, after.st_mode, after.st_uid, after.st_gid):
            found.append("the database is another file, or its mode or owner has changed")

    def _full_disk(self, number):
        room = DirectoryDisk(self.scenario.start).size() + PAGE + number * DISK_STEP
        with device.small_disk(self.scenario.start, room):
            empty_pool(self.scenario.start)
            with self._same_file() as replaced:
                run = tree.run(self.scenario.command())
        self._note("full disk", f"{room} bytes", run, replaced)

    def _write_meanwhile(self, number):
        """Another process writes before an operation, if it can."""
        fill(self.scenario.start)
        started = tree.Tree(self.scenario.command(), tree.as_variables(
            {"ACTION": "pause", "AT": number, **self.mistake}))
        is_written = False
        with self._same_file() as replaced:
            if started.waits():
                is_written = write_as_other()
                started.go_on()
            run = started.result()
        if is_written:
            self._note("another process writes", self.scenario.describe(number), run, replaced,
                       is_written)

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
        fill({path: content.replace(boot, OTHER_BOOT) for path, content in files.items()})
        self._note("power cut", f"operation on the disk {at}: {what}, {survival.__name__}", None)

    def _note(self, kind, what, run, replaced=(), is_written=False):
        """Judges what a fault has left, and what the next run makes of it."""
        found = snapshot()
        state = self._readings.database(found.files)
        violations = list(replaced)
        position = None
        if state is None:
            violations.append("not sound")
        elif state[1] != is_written:
            violations.append("what another process has written is lost")
        elif state[0] == self.scenario.new:
            position = "new"
        elif state[0] == self.scenario.old:
            position = "old"
        else:
            violations.append("neither the old nor the new database")
        if run is not None:
            violations += self._wrong_end(kind, run, position)
        if position is not None:
            violations += self._wrong_files(found, position)
        is_direct = run is not None and run.ran_directly
        violations = [f"{text}{how_it_ended(found)}" for text in violations]
        # The foreign table stays, and no undisturbed run has it.
        if position is not None and not is_written and not self.mistake:
            violations += self._recovery(kind, position, found)
        if violations:
            position = "direct" if is_direct else "wrong"
        if is_direct:
            violations = [f"run directly: {text}" for text in violations]
        self.outcomes[position] += 1
        self.violations += [f"{self._position}: {text} [{what}]" for text in violations]

    def _wrong_end(self, kind, run, position):
        scenario = self.scenario
        if run.orphans:
            yield f"went on: {', '.join(run.orphans)}"
        if isinstance(run.status, str):
            yield run.status
        elif (run.status not in (0, 3, 4) and kind not in ENDS and kind not in MEMORY):
            yield f"ended with {run.status}"
        # After a direct run 4 only says that somebody should look.
        answered = (0,) if run.ran_directly else (0, 4)
        if run.status in answered and position == "old" and scenario.old != scenario.new:
            yield f"status {run.status}, but the database is the old one"
        if run.status == 3 and position == "new" and scenario.old != scenario.new:
            yield "status 3, but the database is the new one"

    def _wrong_files(self, found, position):
        scenario = self.scenario
        changes = scenario.old != scenario.new
        if not found.log.startswith(EARLIER_LOG):
            yield "an earlier log was lost"
        text = without_identifiers(found.log[len(EARLIER_LOG):])
        if changes and position == "new" and text != scenario.next_of_old["text"]:
            yield "the log lacks what the database shows"
        if self._keeps_another(found):
            yield "the kept database is not the old one"
        if changes and position == "old" and found.pool != sorted(
                path for path in scenario.start if path.startswith(str(POOL))):
            yield "files of the pool went before the commit"

    def _keeps_another(self, found):
        """True if the database of before is kept or prepared, but is another one."""
        kept = [found.files[str(path)] for path in (KEPT, PREPARED) if str(path) in found.files]
        states = [self._readings.read(content) for content in kept]
        return any(state is None or state[0] != self.scenario.old for state in states)

    def _recovery(self, kind, position, found):
        """What is wrong after the next run. Equal devices recover once."""
        may_lack_kept = kind in ERRORS or kind in MEMORY or kind == "full disk"
        file = self._recoveries / f"{found.key}-{position}-{may_lack_kept}.json"
        if not file.exists():
            new = file.with_suffix(f".{random.getrandbits(64):x}")
            new.write_text(json.dumps(list(self._recover(position, found, may_lack_kept))))
            new.rename(file)
        return json.loads(file.read_text())

    def _recover(self, position, before, may_lack_kept):
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
        elif without_identifiers(found.log[len(before.log):]) != expected["text"]:
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
    """What the guard says of a disturbed last run, for a report; empty for an undisturbed one."""
    try:
        last = json.loads(found.files.get(str(LAST), b"{}")).get("lastRun", {})
    except ValueError:
        return " (no JSON)"
    if "reason" not in last:
        return ""
    return f" ({last['way']}: {last['reason']})"

"""A walk of the guard: its undisturbed run, and the places where it can meet a fault."""

import random
import shutil
import signal
import sqlite3
from collections import Counter
from contextlib import closing
from itertools import groupby

import device
import tree
from device import DATABASE, JOURNAL, LOG
from directory_disk import DirectoryDisk
from disks import SURVIVALS
from guarded_device import (KEPT, POOL, READING, SHARED_MEMORY, WRITE_AHEAD_LOG, Readings, Snapshot,
                            fill, snapshot)
from support.versions import dump_of

GUARD_PROCESSES = ("guard", "guard in memory")
AROUND_PROGRAM = ("guard", "outer bubblewrap", "guard in memory")  # also without the program
WAIT = "2"  # seconds for locks that others hold
EARLIER_LOG = b"a line of an earlier run\n"
POOL_FILES = ("VT-01.iop", "VT-02.iop")
SIZES = 12
MOMENTS = 100
# How many of the program's operations are tried. It works in memory, where all of them are alike.
KILLS_OF_PROGRAM = 200
SIGNALS_AT_PROGRAM = 20

# kind of fault: the shim's switches, and the kinds of operations that can meet the fault.
ERRORS = {
    "EIO once": ({"ACTION": "EIO"}, "COWTYUMR"),
    "EIO from then on": ({"ACTION": "EIO", "FOREVER": 1}, "COWTYUMR"),
    "ENOSPC once": ({"ACTION": "ENOSPC"}, "CWMR"),
    "ENOSPC from then on": ({"ACTION": "ENOSPC", "FOREVER": 1}, "CWMR"),
    "short write once": ({"ACTION": "short"}, "W"),
    "short writes from then on": ({"ACTION": "short", "FOREVER": 1}, "W"),
}
KILLS = {"kill": ({"ACTION": "kill"}, "COWTYUMR"), "kill in a write": ({"ACTION": "half"}, "W")}
# The switches, and the distance between the allocations that fail.
MEMORY = {"no memory once": ({"ACTION": "memory"}, 10),
          "no memory from then on": ({"ACTION": "memory", "FOREVER": 1}, 50)}
# kind of fault: the signal, and the process that gets it
SIGNALS = {f"{number.name} to {process}": (number, process)
           for number in (signal.SIGTERM, signal.SIGKILL) for process in tree.PROCESSES}


def make_start(name, folder):
    """The files of a device before the run of a scenario, found by the scenario's name."""
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
            # The last transaction is in the write-ahead log only.
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


def half_of(operation):
    """The first half of a write; any other operation unchanged."""
    if operation.kind != "W":
        return operation._replace(kind="O")
    return operation._replace(data=operation.data[:len(operation.data) // 2])


def is_page(operation):
    """True for one of the many writes of a database or its journal."""
    return operation.kind == "W" and ".sqlite" in operation.path


def spread(items):
    """The items in a fixed order: the first N of it are spread over all items, for every N."""
    items = list(items)
    random.Random(0).shuffle(items)
    return items


def evenly(items, number):
    """About this many of the items, including the first one."""
    return items[::max(1, len(items) // number)]


class Scenario:
    """A walk of the guard, and the recording of its undisturbed run."""

    def __init__(self, name, target):
        self.name, self.target = name, target
        device.software_version("1.2.3")
        self.start = make_start(name, READING)
        fill(self.start)
        readings = Readings()
        if name.split()[0] == str(target):
            # A run comes before the ordinary boot: the first one after a walk may still change a
            # definition.
            self._undisturbed(readings)
            self.start[str(DATABASE)] = DATABASE.read_bytes()
            fill(self.start)
        if str(JOURNAL) in self.start:
            assert readings.read(self.start[str(DATABASE)]) != readings.database(self.start)
        self.old = readings.database(self.start)[0]
        self.next_of_old = self._undisturbed(readings)
        self.recording, self.allocations = self._recording, self._run.allocations
        self.new = self.next_of_old["content"]
        self.states = self._replay()
        self.next_of_new = self._undisturbed(readings)
        assert self._undisturbed(readings) == self.next_of_new, "no idle run after two runs"
        self.keeps = str(KEPT) in snapshot().files
        self.places = self._places()
        self.key_without_program = self._run_without_program()

    def command(self):
        return ["/app/migration-guard", "run", str(self.target), "--wait", WAIT]

    def _undisturbed(self, readings):
        log = snapshot().log
        self._run, self._recording = tree.recorded_run(self.command())
        found = snapshot()
        assert self._run.status in (0, 4) and not self._run.orphans, self._run
        assert found.log.startswith(log)
        return {"content": readings.database(found.files)[0], "status": self._run.status,
                "text": found.log[len(log):], "names": found.names, "pool": found.pool}

    def _run_without_program(self):
        """The files that a run leaves when its program is killed at once."""
        fill(self.start)
        tree.run(self.command(), AT=self._program()[0], ACTION="kill")
        return snapshot().key

    def on_disk(self, end=None):
        """The operations on the disk, before this one: a power cut leaves their files."""
        return [operation for operation in self.recording[:end] if operation.place == "disk"
                and operation.path != str(SHARED_MEMORY)]

    def _replay(self):
        """Checks that the recording lacks nothing. Returns how many different states of the disk
        there are between the operations and half-way through the writes."""
        disk, states = DirectoryDisk(self.start), set()
        for operation in self.on_disk():
            assert operation.process in GUARD_PROCESSES, "the program has worked on the disk"
            replaced = operation.kind == "R" and operation.data.decode() == str(DATABASE)
            assert not replaced, "a file is renamed over the database"
            for part in (half_of(operation), operation):
                states.add(Snapshot(disk.files(), ()).key)
                disk.apply(part)
        found = snapshot().files
        found.pop(str(SHARED_MEMORY), None)
        assert disk.files() == found, disk.files().keys() ^ found.keys()
        return len(states | {Snapshot(found, ()).key})

    def key_before(self, number, half=False):
        """The files that are there if everything ends before an operation, or half-way through
        it."""
        disk = DirectoryDisk(self.start)
        for operation in self.on_disk(number - 1):
            disk.apply(operation)
        if half and self.recording[number - 1].place == "disk":
            disk.apply(half_of(self.recording[number - 1]))
        return Snapshot(disk.files(), ()).key

    def _program(self):
        """The numbers of the program's operations."""
        return [number for number, operation in enumerate(self.recording, 1)
                if operation.process == "program"]

    def is_guards(self, number):
        return self.recording[number - 1].process in GUARD_PROCESSES

    def _ends_of_series(self):
        """The first and the last of several like operations in a row, such as many writes of
        pages."""
        ends = set()
        for _, alike in groupby(enumerate(self.recording, 1),
                                lambda entry: (entry[1].kind, entry[1].process, entry[1].path)):
            numbers = [number for number, _ in alike]
            ends |= {numbers[0], numbers[-1]}
        return ends

    def _places(self):
        """For each kind of fault, the numbers of the operations at which it is tried. Those that
        tell most come first: the guard's operations without its many writes, then those writes,
        then some of the program's. Each part is spread over the run."""
        own = sorted(spread(filter(self.is_guards, range(1, len(self.recording) + 1))),
                     key=lambda number: is_page(self.recording[number - 1]))
        ends = list(filter(self._ends_of_series().__contains__, own))
        kills, signals = (spread(evenly(self._program(), number))
                          for number in (KILLS_OF_PROGRAM, SIGNALS_AT_PROGRAM))

        def with_kinds(kinds, numbers):
            return [number for number in numbers if self.recording[number - 1].kind in kinds]

        return {
            **{kind: with_kinds(kinds, own) for kind, (_, kinds) in ERRORS.items()},
            **{kind: with_kinds(kinds, own + kills) for kind, (_, kinds) in KILLS.items()},
            **{kind: signals + (ends if process in AROUND_PROGRAM else [])
               for kind, (_, process) in SIGNALS.items()},
            "SIGKILL at any moment": list(range(MOMENTS)),
            **{kind: spread(range(1, self.allocations + 1, distance))
               for kind, (_, distance) in MEMORY.items()},
            "power cut": self._power_cuts(),
            "another process writes": ends,
            **dict.fromkeys(("full disk", "full memory", "small memory"), list(range(SIZES)))}

    def _power_cuts(self):
        """Every operation on the disk, and the end of the run, with everything that can survive a
        cut there."""
        operations = self.on_disk()
        return sorted(spread(range((len(operations) + 1) * len(SURVIVALS))),
                      key=lambda number: number // len(SURVIVALS) < len(operations)
                      and is_page(operations[number // len(SURVIVALS)]))

    def describe(self, number):
        operation = self.recording[number - 1]
        return (f"operation {number}: {operation.process} {operation.kind} {operation.path}"
                f" ({operation.place})")

    def figures(self):
        """How many operations the run has, and how often it meets each kind of fault."""
        processes = Counter(operation.process for operation in self.recording)
        return {"operations of the guard": sum(processes[name] for name in GUARD_PROCESSES),
                "operations of the program": processes["program"],
                "operations on the disk": len(self.on_disk()),
                "different states of the disk": self.states,
                "allocations of the guard": self.allocations,
                "places": {kind: len(places) for kind, places in self.places.items()}}

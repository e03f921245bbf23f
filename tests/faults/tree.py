"""Runs a program and every process that it starts under the shim of tree_shim/."""

import contextlib
import ctypes
import fcntl
import mmap
import os
import pathlib
import select
import signal
import struct
import subprocess
import time
from typing import NamedTuple

from device import DATABASES
from runs import end_of

SHIM = pathlib.Path("/faults/tree_shim.so")
SHARED = pathlib.Path("/tmp/shared")
RECORDED = pathlib.Path("/tmp/tree-recording")
OUTPUT = pathlib.Path("/tmp/output")
# How long a process may live on after the guard has ended. The machine may be busy.
SECONDS_FOR_ORPHANS = 5
# The processes in the order in which they start, with their names in the system (15 letters).
PROCESSES = {"guard": "migration-guard", "outer bubblewrap": "bwrap",
             "guard in memory": "migration-guard", "bubblewrap": "bwrap",
             "program": "database-migrat"}
PLACES = ("", "disk", "staging on the disk", "staging in memory")
HEAD = struct.Struct("<cBBHIQ")
COUNTS = struct.Struct(f"<{6 + len(PROCESSES)}q")
# The number in the shared file that says that a process waits, and its place there.
WAITS = struct.Struct("<q"), 4 * 8
PR_SET_CHILD_SUBREAPER = 36
PAUSE = 0.001  # seconds


class Operation(NamedTuple):
    kind: str
    path: str
    data: bytes  # of an operation on the disk
    offset: int
    process: str
    place: str


class Run(NamedTuple):
    status: int  # negative for a signal
    allocations: int
    faults: int  # how many operations the run had
    orphans: list  # the names of processes that had to be killed
    ran_directly: bool  # true if the program has worked on the device's own files


def become_parent_of_orphans():
    """Processes whose parent dies become children of this one, which can wait for them."""
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1)


class Tree:
    """A run that is under way."""

    def __init__(self, command, switches):
        """switches: those of the shim, without FAULT_."""
        SHARED.write_bytes(bytes(COUNTS.size))
        real = DATABASES.stat()
        with open(OUTPUT, "wb") as output:
            self._process = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=output, stderr=output, env={
                    "LC_ALL": "C", "LD_PRELOAD": str(SHIM), "FAULT_SHARED": str(SHARED),
                    "FAULT_DATABASES": f"{real.st_dev}:{real.st_ino}",
                    **{f"FAULT_{name}": str(value) for name, value in switches.items()}})

    def waits(self):
        """Waits until a process waits; false if the run has ended before."""
        number, place = WAITS
        while self._process.poll() is None:
            if number.unpack_from(SHARED.read_bytes(), place)[0] == 1:
                return True
            time.sleep(PAUSE)
        return False

    @staticmethod
    def go_on():
        number, place = WAITS
        with open(SHARED, "r+b") as file, mmap.mmap(file.fileno(), 0) as shared:
            number.pack_into(shared, place, 2)

    def send(self, number, name):
        """Sends a signal to a process, lets a process that waits go on at that moment, and waits
        until the first one has ended. False if there is no such process."""
        with contextlib.suppress(ProcessLookupError, FileNotFoundError):
            process = self._processes().get(name)
            end = process and os.pidfd_open(process)
            if not end:
                return False
            self.go_on()
            signal.pidfd_send_signal(end, number)
            select.select([end], [], [], SECONDS_FOR_ORPHANS)
            os.close(end)
            return True
        return False

    def _processes(self):
        """The process numbers by name. Each process is the only child of the one before."""
        found, below = {}, [self._process.pid]
        while below:
            name = list(PROCESSES)[len(found)]
            # Bubblewrap may have made a copy of itself.
            if pathlib.Path(f"/proc/{below[0]}/comm").read_text().strip() == PROCESSES[name]:
                found[name] = below[0]
            below = children(below[0]) if len(found) < len(PROCESSES) else []
        return found

    def result(self):
        """Waits for all processes."""
        status = end_of(self._process)
        orphans = self._end_orphans()
        _, allocations, faults, _, _, unguarded, *_ = COUNTS.unpack(SHARED.read_bytes())
        return Run(status, allocations, faults, orphans, unguarded > 0)

    def _end_orphans(self):
        """Waits for the processes that are left; returns the names of those that had to be
        killed."""
        end, killed = time.monotonic() + SECONDS_FOR_ORPHANS, {}
        with contextlib.suppress(ChildProcessError):
            while True:
                if os.waitpid(-1, os.WNOHANG)[0] == 0:
                    if time.monotonic() > end:
                        lock = "" if killed or not is_locked() else ", with the guard's lock"
                        for child in children(os.getpid()):
                            killed.setdefault(child, description_of(child) + lock)
                            os.kill(child, signal.SIGKILL)
                    time.sleep(PAUSE)
        return sorted(killed.values())


def children(process):
    own = pathlib.Path(f"/proc/{process}/task/{process}/children")
    return [int(child) for child in own.read_text().split()]


def is_locked():
    """True if a process still has the guard's lock: every later run would end as locked."""
    directory = os.open(DATABASES, os.O_RDONLY)
    try:
        fcntl.flock(directory, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        return True
    finally:
        os.close(directory)
    return False


def description_of(process):
    """The beginning of its command line, and whether its caller would wait for it."""
    folder = pathlib.Path(f"/proc/{process}")
    command = " ".join((folder / "cmdline").read_text().split("\0")[:2])
    waited_for = any(file.exists() and file.samefile(OUTPUT) for file in (folder / "fd").iterdir())
    return command + (", with the caller's output" if waited_for else "")


def run(command, **switches):
    return Tree(command, switches).result()


def recorded_run(command):
    """Returns the run and its operations."""
    RECORDED.write_bytes(b"")
    ended = run(command, RECORD=RECORDED)
    content, position, found = memoryview(RECORDED.read_bytes()), 0, []
    while position < len(content):
        kind, process, place, path_size, data_size, offset = HEAD.unpack_from(content, position)
        position += HEAD.size
        path = str(content[position:position + path_size], "utf-8")
        position += path_size
        data = bytes(content[position:position + data_size])
        position += data_size
        found.append(Operation(kind.decode(), path, data, offset, list(PROCESSES)[process],
                               PLACES[place]))
    return ended, found

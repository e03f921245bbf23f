"""Runs of a program with all that it starts, under the shim of tree_shim/."""

import contextlib
import ctypes
import fcntl
import mmap
import os
import pathlib
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
SECONDS_FOR_ORPHANS = 5  # to end by themselves
PROCESSES = ("guard", "outer bubblewrap", "guard in memory", "bubblewrap", "program")
PLACES = ("", "disk", "staging on the disk", "staging in memory")
HEAD = struct.Struct("<cBBHIQ")
COUNTS = struct.Struct(f"<{5 + len(PROCESSES)}q")
WAITS = struct.Struct("<q"), 4 * 8  # the number that says that a process waits, and its place
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
    operations: int
    allocations: int
    faults: int  # how many were met
    orphans: list  # the names of processes that had to be killed
    ran_directly: bool  # true if the program has worked on the device's own files


def become_parent_of_orphans():
    """Processes whose parent dies become children of this one, which can wait for them."""
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1)


class Tree:
    """A run that has begun."""

    def __init__(self, command, switches):
        SHARED.write_bytes(bytes(COUNTS.size))
        RECORDED.write_bytes(b"")
        real = DATABASES.stat()
        self._process = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL, env={
                "LC_ALL": "C", "LD_PRELOAD": str(SHIM), "FAULT_SHARED": str(SHARED),
                "FAULT_RECORD": str(RECORDED),
                "FAULT_DATABASES": f"{real.st_dev}:{real.st_ino}", **switches})

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

    def result(self):
        """Waits for all processes."""
        status = end_of(self._process)
        orphans = self._end_orphans()
        operations, allocations, faults, *_ = COUNTS.unpack(SHARED.read_bytes())
        ran_directly = any(operation.process == "program" and operation.place == "disk"
                           for operation in recording())
        return Run(status, operations, allocations, faults, orphans, ran_directly)

    def _end_orphans(self):
        """Waits for those that are left; returns the names of those that had to be killed."""
        end, killed = time.monotonic() + SECONDS_FOR_ORPHANS, {}
        with contextlib.suppress(ChildProcessError):
            while True:
                if os.waitpid(-1, os.WNOHANG)[0] == 0:
                    if time.monotonic() > end:
                        lock = "" if killed or not is_locked() else ", with the guard's lock"
                        for child in children():
                            killed.setdefault(child, command_of(child) + lock)
                            os.kill(child, signal.SIGKILL)
                    time.sleep(PAUSE)
        return sorted(killed.values())


def children():
    own = pathlib.Path(f"/proc/self/task/{os.getpid()}/children")
    return [int(child) for child in own.read_text().split()]


def is_locked():
    """True if somebody has the guard's lock, which would let every later run end as locked."""
    directory = os.open(DATABASES, os.O_RDONLY)
    try:
        fcntl.flock(directory, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        return True
    finally:
        os.close(directory)
    return False


def command_of(process):
    return " ".join(pathlib.Path(f"/proc/{process}/cmdline").read_text().split("\0")[:2])


def run(command, **switches):
    """switches: those of the shim, without FAULT_."""
    return Tree(command, as_variables(switches)).result()


def as_variables(switches):
    return {f"FAULT_{name}": str(value) for name, value in switches.items()}


def recording():
    """The operations of the last run."""
    content, position, found = memoryview(RECORDED.read_bytes()), 0, []
    while position < len(content):
        kind, process, place, path_size, data_size, offset = HEAD.unpack_from(content, position)
        position += HEAD.size
        path = str(content[position:position + path_size], "utf-8")
        position += path_size
        data = bytes(content[position:position + data_size])
        position += data_size
        found.append(Operation(kind.decode(), path, data, offset, PROCESSES[process],
                               PLACES[place]))
    return found

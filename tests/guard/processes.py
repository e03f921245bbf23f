"""The processes of a guarded run, and those that are left after it."""

import ctypes
import fcntl
import os
import select
import signal
import time
from contextlib import contextmanager

PR_SET_CHILD_SUBREAPER = 36
MEMBERS = ("migration-guard", "bwrap", "database-migrat")
PLACES = ("outer guard", "its bubblewrap", "inner guard", "its second bubblewrap", "program")
SECONDS_FOR_THE_END = 30


def descendants(pid):
    try:
        children = [int(child) for child in open(f"/proc/{pid}/task/{pid}/children").read().split()]
    except OSError:
        children = []
    return [found for child in children for found in (child, *descendants(child))]


def name_of(pid):
    try:
        return open(f"/proc/{pid}/comm").read().strip()
    except OSError:
        return ""


def is_alive(pid):
    try:
        return open(f"/proc/{pid}/stat").read().rsplit(")", 1)[1].split()[0] not in "ZX"
    except OSError:
        return False


def still_alive(pids):
    """Waits for the end of processes; returns the names of those that do not end."""
    end = time.monotonic() + SECONDS_FOR_THE_END
    while any(map(is_alive, pids)) and time.monotonic() < end:
        time.sleep(0.01)
    return [name_of(pid) for pid in pids if is_alive(pid)]


def guards_of(process):
    """The guard and what it has started, in the order of PLACES; each has started the next."""
    found = [pid for pid in descendants(process.pid) if name_of(pid) in MEMBERS]
    # The scratch device's own bubblewrap comes first.
    while found and name_of(found[0]) == "bwrap":
        found.pop(0)
    return found


@contextmanager
def parent_of_orphans():
    """Processes that lose their parent become children of this one."""
    system = ctypes.CDLL(None)
    system.prctl(PR_SET_CHILD_SUBREAPER, 1)
    yield
    system.prctl(PR_SET_CHILD_SUBREAPER, 0)


def left_over(seconds=SECONDS_FOR_THE_END):
    """Waits for the children of this process; returns the command lines of those that do not end,
    and ends them."""
    end, left = time.monotonic() + seconds, []
    while time.monotonic() < end:
        try:
            if os.waitpid(-1, os.WNOHANG)[0] == 0:
                time.sleep(0.002)
        except ChildProcessError:
            return left
    for child in descendants(os.getpid()):
        left.append(open(f"/proc/{child}/cmdline").read().replace("\0", " "))
        os.kill(child, signal.SIGKILL)
    return left


def output_ends(process):
    """True if the output of an ended process can be read to its end: no other process has it
    open."""
    for pipe in (process.stdout, process.stderr):
        end = time.monotonic() + SECONDS_FOR_THE_END
        while select.select([pipe], [], [], max(0, end - time.monotonic()))[0]:
            if os.read(pipe.fileno(), 1 << 16) == b"":
                break
        else:
            return False
    return True


def is_locked(directory):
    """True if a process has the guard's lock on it."""
    descriptor = os.open(directory, os.O_RDONLY)
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        return True
    finally:
        os.close(descriptor)
    return False

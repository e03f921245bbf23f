"""The power of a computer, which can be cut at any moment."""

import contextlib
import ctypes
import os
import pathlib
import signal
import subprocess
import time
from typing import NamedTuple

SECONDS = 300  # for one command, on a busy machine
PR_SET_CHILD_SUBREAPER = 36


class PowerCut(Exception):
    """The power was cut: everything that ran has ended."""


def children():
    """The processes whose parent this one is."""
    lists = pathlib.Path("/proc/self/task").glob("*/children")
    return [int(number) for file in lists for number in file.read_text().split()]


def end_all(process):
    """Ends a process in the sandbox with all that it has started.

    Bubblewrap's own child ends with it only after it has prepared the sandbox. If bubblewrap is
    killed before that, this process becomes the parent of the child, which is the first process of
    a PID namespace.
    """
    process.kill()
    process.wait()
    while others := children():
        for number in others:
            with contextlib.suppress(ProcessLookupError, ChildProcessError):
                os.kill(number, signal.SIGKILL)
                os.waitpid(number, 0)


class Moment(NamedTuple):
    """A moment at which the power can be cut: a point, or a part of a command's duration."""

    name: str
    part: float = None

    def __str__(self):
        return self.name if self.part is None else f"{self.part:.2f} of {self.name}"


class Power:
    """Cuts the power at the given moments, each once, in their order."""

    def __init__(self, cuts=(), durations=None):
        """durations: how long each command takes undisturbed, in seconds, by its name"""
        self.cuts = list(cuts)
        self.known = durations or {}
        self.points, self.durations = [], {}  # the points and commands that came by
        ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1)

    def _next_is(self, name, is_command):
        return self.cuts and self.cuts[0].name == name and \
            (self.cuts[0].part is not None) == is_command

    def point(self, name):
        """A point between two steps. Raises PowerCut if the power is cut here."""
        self.points.append(name)
        if self._next_is(name, False):
            self.cuts.pop(0)
            raise PowerCut(name)

    def run(self, name, command):
        """Runs a command in a sandbox; returns its status and its output."""
        seconds, is_cut = SECONDS, self._next_is(name, True)
        if is_cut:
            seconds = self.cuts.pop(0).part * self.known[name]
        begun = time.monotonic()
        with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, errors="replace") as process:
            try:
                output, _ = process.communicate(timeout=seconds)
            except subprocess.TimeoutExpired:
                end_all(process)
                process.communicate()
                if not is_cut:
                    raise
        if is_cut:  # at its end at the latest
            raise PowerCut(name)
        self.durations[name] = time.monotonic() - begun
        return process.returncode, output

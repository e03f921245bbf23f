"""The power of a computer, which can be cut at any moment."""

import subprocess
import time
from typing import NamedTuple

SECONDS = 300  # for one command, on a busy machine


class PowerCut(Exception):
    """Everything that ran has ended."""


class Moment(NamedTuple):
    """Where the power can be cut: at a point, or when a part of a command's time is over."""

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
        self.points, self.durations = [], {}  # what came by

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
        """Runs a command that ends with all that it has started; returns status and output."""
        seconds, is_cut = SECONDS, self._next_is(name, True)
        if is_cut:
            seconds = self.cuts.pop(0).part * self.known[name]
        begun = time.monotonic()
        with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, errors="replace") as process:
            try:
                output, _ = process.communicate(timeout=seconds)
            except subprocess.TimeoutExpired:
                process.kill()
                process.communicate()
                if not is_cut:
                    raise
        if is_cut:  # at its end at the latest
            raise PowerCut(name)
        self.durations[name] = time.monotonic() - begun
        return process.returncode, output

"""Runs of the program on damaged devices, forked from a server that waits in the sandbox."""

import os
import shutil
import signal
import subprocess
from contextlib import contextmanager, suppress
from dataclasses import dataclass

from support.device import PROGRAM_NAME, Device
from support.places import scratch_directory

# The sanitizers' own records of allocations are short: they would take most of the time. Repeat a
# run to see where memory was allocated. The suite looks for leaks.
QUICK_SANITIZERS = "malloc_context_size=1:quarantine_size_mb=1"
QUICKEST_SANITIZERS = f"{QUICK_SANITIZERS}:detect_leaks=0"
# Processor time: on a busy machine a run may take longer.
MOST_SECONDS = 10
TOO_LONG = (signal.SIGXCPU, signal.SIGALRM)


@dataclass
class Run:
    status: int
    milliseconds: int
    kilobytes: int
    output: str

    def verdict(self):
        """What is wrong with the run, empty when nothing is."""
        killer = os.WTERMSIG(self.status) if os.WIFSIGNALED(self.status) else 0
        if killer:
            return "over 10 s" if killer in TOO_LONG else "signal"
        if "Sanitizer" in self.output or "runtime error" in self.output:
            return "report"
        return "exit status" if self.status or self.output else ""


class Runner:
    """A scratch device with a server in its sandbox."""

    def __init__(self, root, server, sanitizers=""):
        self.device = Device(root).make_folders()
        program = self.device.app / PROGRAM_NAME
        shutil.copy2(server, program)
        self.process = self.device.start(
            program, options="--remount-ro /", environment={"ASAN_OPTIONS": sanitizers},
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def run(self, device, seconds=MOST_SECONDS):
        self.device.fill(device.files)
        request = f"{seconds} {len(device.arguments)}\n".encode() + b"".join(
            argument + b"\0" for argument in device.arguments)
        self.process.stdin.write(request)
        self.process.stdin.flush()
        answer = self.process.stdout.readline().split()
        if not answer:
            raise ChildProcessError("the server has ended")
        status, milliseconds, kilobytes, size = map(int, answer)
        output = self.process.stdout.read(size).decode(errors="replace")
        return Run(status, milliseconds, kilobytes, output)

    def end(self):
        with suppress(BrokenPipeError):
            self.process.stdin.close()
        self.process.wait()


@contextmanager
def runner(server, sanitizers=""):
    with scratch_directory() as root:
        started = Runner(root, server, sanitizers)
        try:
            yield started
        finally:
            started.end()

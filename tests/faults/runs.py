"""Runs of a program under the shim: undisturbed, recorded, or into a fault."""

import os
import pathlib
import select
import signal
import subprocess

from recording import operations_of, read_recording

SHIM = pathlib.Path("/faults/shim.so")
RECORDED = pathlib.Path("/tmp/recording")
SECONDS = 120  # The most time for a run, on a busy machine too.
NO_END = f"no end in {SECONDS} s"


def start(command, switches, **options):
    return subprocess.Popen(
        command, env={"LC_ALL": "C", "LD_PRELOAD": str(SHIM), **switches},
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **options)


def is_ready(file):
    """Waits until a descriptor can be read; returns false if that takes too long."""
    return bool(select.select([file], [], [], SECONDS)[0])


def end_of(process):
    """Returns the exit status, negative for a signal."""
    # Popen.wait with a limit asks again and again, with pauses as long as a whole run.
    end = os.pidfd_open(process.pid)
    in_time = is_ready(end)
    os.close(end)
    if not in_time:
        process.kill()
    status = process.wait()
    return status if in_time else NO_END


def run(command, switches):
    """Returns the exit status and the number of operations."""
    RECORDED.unlink(missing_ok=True)
    status = end_of(start(command, {**switches, "FAULT_RECORD": str(RECORDED)}))
    return status, operations_of(RECORDED)


def recorded_run(command, switches):
    """Returns the exit status and what the run did."""
    return run(command, switches)[0], read_recording(RECORDED)


class Channel:
    """A run that waits at the numbers that it is told."""

    def __init__(self, command, switches):
        numbers, self._numbers = os.pipe()
        self._answers, answers = os.pipe()
        RECORDED.unlink(missing_ok=True)
        self.process = start(
            command, {**switches, "FAULT_CHANNEL": f"{numbers},{answers}",
                      "FAULT_RECORD": str(RECORDED)},
            pass_fds=(numbers, answers), start_new_session=True)
        os.close(numbers)
        os.close(answers)

    def go_on_to(self, number):
        os.write(self._numbers, f"{number}\n".encode())

    def answer(self):
        """Returns a number, None if the run has ended."""
        if not is_ready(self._answers):
            os.killpg(self.process.pid, signal.SIGKILL)
            return NO_END
        answer = os.read(self._answers, 32)
        return int(answer) if answer else None

    def go_on_to_the_end(self):
        os.close(self._numbers)
        os.close(self._answers)
        return end_of(self.process)


class Trunk:
    """A run that goes on undisturbed while copies of it meet faults.

    It finds the files as it left them, whatever has happened to them since.
    """

    def __init__(self, command, switches):
        self._start = lambda: Channel(command, switches)
        self._channel = self._start()

    def branch(self, number):
        """Lets a copy meet the fault at this number; returns its exit status and what it did from
        there on."""
        RECORDED.unlink(missing_ok=True)
        self._channel.go_on_to(number)
        status = self._channel.answer()
        if status == NO_END:
            self._channel.go_on_to_the_end()
            self._channel = self._start()
            return status, read_recording(RECORDED)
        return os.waitstatus_to_exitcode(status), read_recording(RECORDED)

    def end(self):
        return self._channel.go_on_to_the_end()

"""Runs of the program on damaged devices, forked from a server that stands ready."""

import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
from contextlib import contextmanager, suppress
from dataclasses import dataclass

from devices import MEMORY

TESTS = pathlib.Path(__file__).parent.parent
# Most of the time would go into the sanitizers' book-keeping; to see where memory came from, a run
# is repeated. Leaks are looked for in the suite.
QUICK_SANITIZERS = "malloc_context_size=1:quarantine_size_mb=1"
QUICKEST_SANITIZERS = f"{QUICK_SANITIZERS}:detect_leaks=0"
# Of processor time: on a busy machine a run may take longer.
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
        self.root = root
        app = root / "app"
        app.mkdir()
        shutil.copy2(server, app / "database-migrator")
        environment = dict(
            os.environ, ASAN_OPTIONS=sanitizers, DEVICE_OPTIONS="--remount-ro /")
        self.process = subprocess.Popen(
            [TESTS / "support" / "on_device.sh", root, app / "database-migrator"],
            env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def run(self, device, seconds=MOST_SECONDS):
        fill(self.root, device.files)
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


def fill(root, files):
    """Makes a device of these files and no others."""
    app = root / "app"
    for path in app.iterdir() if app.exists() else ():
        if path.name != "database-migrator":
            remove(path)
    # What stands outside of app/ is mounted in the sandbox.
    for folder in (root / "Harlo", root / "etc" / "harlo", root / "pool"):
        folder.mkdir(parents=True, exist_ok=True)
        for path in folder.iterdir():
            remove(path)
    for path, content in files.items():
        place = root / path
        place.parent.mkdir(parents=True, exist_ok=True)
        if content is None:
            place.mkdir()
        elif isinstance(content, pathlib.Path):
            place.symlink_to(content)
        else:
            place.write_bytes(content)


def remove(path):
    if path.is_dir() and not path.is_symlink():
        shutil.rmtree(path)
    else:
        path.unlink()


@contextmanager
def runner(server, sanitizers=""):
    with tempfile.TemporaryDirectory(prefix="fuzz.", dir=MEMORY) as root:
        started = Runner(pathlib.Path(root), server, sanitizers)
        try:
            yield started
        finally:
            started.end()

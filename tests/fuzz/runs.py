"""Runs of the program on damaged devices, forked from a server that stands ready."""

import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
from contextlib import contextmanager, suppress
from dataclasses import dataclass

TESTS = pathlib.Path(__file__).parent.parent
MEMORY = "/dev/shm"
FOLDERS = ("app/databases", "app/quillmoor", "Harlo", "etc/harlo", "pool")
# Most of a campaign's time would go into the sanitizers' book-keeping. The suite looks for leaks.
QUICK_SANITIZERS = "detect_leaks=0:malloc_context_size=1:quarantine_size_mb=1"
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

    def run(self, device):
        self._fill(device.files)
        request = f"{len(device.arguments)}\n".encode() + b"".join(
            argument + b"\0" for argument in device.arguments)
        self.process.stdin.write(request)
        self.process.stdin.flush()
        answer = self.process.stdout.readline().split()
        if not answer:
            raise ChildProcessError("the server has ended")
        status, milliseconds, kilobytes, size = map(int, answer)
        output = self.process.stdout.read(size).decode(errors="replace")
        return Run(status, milliseconds, kilobytes, output)

    def _fill(self, files):
        for folder in FOLDERS:
            empty(self.root / folder)
        for path in (self.root / "app").iterdir():
            if path.name != "database-migrator":
                remove(path)
        for folder in FOLDERS:
            if folder not in files and (folder != "app/databases" or any(
                    path.startswith("app/databases/") for path in files)):
                (self.root / folder).mkdir(parents=True, exist_ok=True)
        for path, content in files.items():
            place = self.root / path
            if content is None:
                place.mkdir()
            elif isinstance(content, pathlib.Path):
                place.symlink_to(content)
            else:
                place.write_bytes(content)

    def end(self):
        with suppress(BrokenPipeError):
            self.process.stdin.close()
        self.process.wait()


def remove(path):
    if path.is_dir() and not path.is_symlink():
        shutil.rmtree(path)
    else:
        path.unlink()


def empty(folder):
    if folder.is_dir() and not folder.is_symlink():
        for path in folder.iterdir():
            remove(path)


@contextmanager
def runner(server, sanitizers=""):
    with tempfile.TemporaryDirectory(prefix="fuzz.", dir=MEMORY) as root:
        started = Runner(pathlib.Path(root), server, sanitizers)
        try:
            yield started
        finally:
            started.end()

"""The scratch device that a worker runs on, and runs of the program there."""

import hashlib
import os
import pathlib
import select
import shutil
import signal
import subprocess
from contextlib import contextmanager, suppress

from recording import read_recording

APP = pathlib.Path("/app")
PROGRAM = APP / "database-migrator"
DATABASES = APP / "databases"
DATABASE = DATABASES / "my.db.sqlite"
JOURNAL = DATABASES / "my.db.sqlite-journal"
LOG = DATABASES / "sqlMigrationErrorLog.txt"
SOFTWARE_VERSION = APP / "quillmoor" / "softwareversion.txt"
POOL = pathlib.Path("/usr/bin/harlo/pool")
SMALL_DISK = pathlib.Path("/disk")  # a file system of its own
BALLAST = SMALL_DISK / "ballast"
SHIM = pathlib.Path("/faults/shim.so")
COPIED_DATABASE = pathlib.Path("/tmp/copy.sqlite")
COPIED_JOURNAL = pathlib.Path("/tmp/copy.sqlite-journal")
RECORDED = pathlib.Path("/tmp/recording")

SECONDS = 120  # No run is to take longer, on a busy machine either.
NO_END = f"no end in {SECONDS} s"


def software_version(version):
    SOFTWARE_VERSION.parent.mkdir(exist_ok=True)
    SOFTWARE_VERSION.write_text(f"{version}\n", encoding="utf-8")


def fill_device(files):
    if DATABASES.is_symlink():
        DATABASES.unlink()
    shutil.rmtree(DATABASES, ignore_errors=True)
    DATABASES.mkdir()
    for path, content in files.items():
        pathlib.Path(path).write_bytes(content)
    for name in ("VT-01.iop", "VT-02.iop"):
        (POOL / name).write_bytes(b"")


@contextmanager
def small_disk(files, room):
    """The same on a file system that has no more room than this."""
    fill_device({})
    DATABASES.rmdir()
    databases = SMALL_DISK / "databases"
    shutil.rmtree(databases, ignore_errors=True)
    databases.mkdir()
    DATABASES.symlink_to(databases)
    status = os.statvfs(SMALL_DISK)
    with open(BALLAST, "wb") as ballast:
        os.posix_fallocate(ballast.fileno(), 0, status.f_bavail * status.f_frsize - room)
    for path, content in files.items():
        pathlib.Path(path).write_bytes(content)
    try:
        yield
    finally:
        BALLAST.unlink()


def start(target, switches, **options):
    return subprocess.Popen(
        [PROGRAM, str(target)], env={"LC_ALL": "C", "LD_PRELOAD": str(SHIM), **switches},
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **options)


def end_of(process):
    """Its exit status, negative for a signal."""
    try:
        return process.wait(timeout=SECONDS)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        return NO_END


def run(target, switches):
    """Answers the exit status."""
    return end_of(start(target, switches))


def recorded_run(target, switches):
    """Answers the exit status and what the run did."""
    RECORDED.unlink(missing_ok=True)
    status = run(target, {**switches, "FAULT_RECORD": str(RECORDED)})
    return status, read_recording(RECORDED)


class Channel:
    """To a run that stops at the numbers it is told."""

    def __init__(self, target, switches):
        numbers, self._numbers = os.pipe()
        self._answers, answers = os.pipe()
        RECORDED.unlink(missing_ok=True)
        self.process = start(
            target, {**switches, "FAULT_CHANNEL": f"{numbers},{answers}",
                     "FAULT_RECORD": str(RECORDED)},
            pass_fds=(numbers, answers), start_new_session=True)
        os.close(numbers)
        os.close(answers)

    def go_on_to(self, number):
        os.write(self._numbers, f"{number}\n".encode())

    def answer(self):
        """A number, None from a run that has ended."""
        ready, *_ = select.select([self._answers], [], [], SECONDS)
        if not ready:
            os.killpg(self.process.pid, signal.SIGKILL)
            return NO_END
        answer = os.read(self._answers, 32)
        return int(answer) if answer else None

    def go_on_to_the_end(self):
        os.close(self._numbers)
        os.close(self._answers)
        return end_of(self.process)


class Trunk:
    """A run that goes on undisturbed while copies of it run into a fault.

    Whatever was done with the files meanwhile, it finds them as it left them.
    """

    def __init__(self, target, switches):
        self._start = lambda: Channel(target, switches)
        self._channel = self._start()

    def branch(self, number):
        """Lets a copy run into the fault at this number; answers its exit status and what it did
        from there on."""
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


def files():
    return {str(file): file.read_bytes() for file in DATABASES.iterdir()}


def further_files():
    known = {DATABASE, JOURNAL, LOG}
    return [f"left the file {file.name}" for file in DATABASES.iterdir() if file not in known]


def log():
    return LOG.read_bytes() if LOG.exists() else b""


class Readings:
    """Reads the database as the next process would find it; of equal files only one."""

    def __init__(self, reader):
        self._reader = reader
        self._known = {}

    def read(self):
        COPIED_JOURNAL.unlink(missing_ok=True)
        content = DATABASE.read_bytes()
        COPIED_DATABASE.write_bytes(content)
        key = hashlib.sha256(content)
        with suppress(FileNotFoundError):
            content = JOURNAL.read_bytes()
            COPIED_JOURNAL.write_bytes(content)
            key.update(b"journal" + content)
        key = key.digest()
        if key not in self._known:
            if len(self._known) == 100:
                del self._known[next(iter(self._known))]
            self._known[key] = self._reader.read(COPIED_DATABASE)
        return self._known[key]

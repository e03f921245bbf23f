"""The scratch device as a worker sees it from inside the sandbox: its files, a small disk, and what
the next process would read in the database."""

import hashlib
import os
import pathlib
import shutil
from contextlib import contextmanager, suppress

from support.device import Device

DEVICE = Device("/", pool="usr/bin/harlo/pool")
DATABASES, DATABASE, LOG = DEVICE.databases, DEVICE.database, DEVICE.log_file
JOURNAL = DATABASE.with_name(f"{DATABASE.name}-journal")
SMALL_DISK = pathlib.Path("/disk")  # a file system of its own
BALLAST = SMALL_DISK / "ballast"
COPIED_DATABASE = pathlib.Path("/tmp/copy.sqlite")
COPIED_JOURNAL = pathlib.Path("/tmp/copy.sqlite-journal")
MOST_READINGS = 100  # each takes about a megabyte


def software_version(version):
    DEVICE.software_version.parent.mkdir(exist_ok=True)
    DEVICE.software_version.write_text(f"{version}\n", encoding="utf-8")


def fill(files):
    """Puts these files and no others into the folder of the database, and two into the pool."""
    if DATABASES.is_symlink():
        DATABASES.unlink()
    shutil.rmtree(DATABASES, ignore_errors=True)
    DATABASES.mkdir()
    for path, content in files.items():
        pathlib.Path(path).write_bytes(content)
    for name in ("VT-01.iop", "VT-02.iop"):
        (DEVICE.pool / name).write_bytes(b"")


@contextmanager
def small_disk(files, room):
    """The same on a file system with only so many bytes of room."""
    fill({})
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


def files():
    return {str(file): file.read_bytes() for file in DATABASES.iterdir()}


def further_files():
    known = {DATABASE, JOURNAL, LOG}
    return [f"left the file {file.name}" for file in DATABASES.iterdir() if file not in known]


def log():
    return LOG.read_bytes() if LOG.exists() else b""


class Readings:
    """Reads the database as the next process would find it. Equal files are read once."""

    def __init__(self, reader):
        self._reader = reader
        self._known = {}

    def read(self):
        content, journal = DATABASE.read_bytes(), None
        with suppress(FileNotFoundError):
            journal = JOURNAL.read_bytes()
        key = hashlib.sha256(content).digest(), journal
        if key not in self._known:
            if len(self._known) == MOST_READINGS:
                del self._known[next(iter(self._known))]
            COPIED_DATABASE.write_bytes(content)
            COPIED_JOURNAL.unlink(missing_ok=True)
            if journal is not None:
                COPIED_JOURNAL.write_bytes(journal)
            self._known[key] = self._reader.read(COPIED_DATABASE)
        return self._known[key]

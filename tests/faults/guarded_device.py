"""The scratch device as the guard leaves it, and its databases as the next process reads them."""

import hashlib
import json
import pathlib
import shutil
import sqlite3
from contextlib import closing
from typing import NamedTuple

import device
from device import DATABASE, DATABASES, DEVICE, JOURNAL, LOG
from support.contents import read_sound

POOL = DEVICE.pool
KEPT = DATABASES / "before-migration.sqlite"
PREPARED = KEPT.with_name(f"{KEPT.name}.new")
WRITE_AHEAD_LOG = DATABASE.with_name(f"{DATABASE.name}-wal")
# SQLite makes this file again from the write-ahead log.
SHARED_MEMORY = DATABASE.with_name(f"{DATABASE.name}-shm")
LAST = DATABASES / "lastMigration.json"
READING = pathlib.Path("/tmp/reading")
SETTINGS = "user_version", "application_id", "encoding", "page_size", "auto_vacuum", "journal_mode"
# The table of another process that writes while the guard works.
FOREIGN_TABLE = "other_process"


class Snapshot(NamedTuple):
    files: dict  # content by path, of the databases' directory and the pool
    directories: tuple  # the names of directories in the databases' directory

    @property
    def pool(self):
        return sorted(path for path in self.files if pathlib.Path(path).parent == POOL)

    @property
    def names(self):
        """The names beside the database, except those of SQLite's own write-ahead log."""
        return sorted({pathlib.Path(path).name for path in self.files
                       if pathlib.Path(path).parent == DATABASES}
                      - {WRITE_AHEAD_LOG.name, SHARED_MEMORY.name}) + list(self.directories)

    @property
    def log(self):
        return self.files.get(str(LOG), b"")

    @property
    def key(self):
        text = repr((sorted((path, hashlib.sha256(content).hexdigest())
                            for path, content in self.files.items()
                            if path != str(SHARED_MEMORY)), self.directories))
        return hashlib.sha256(text.encode()).hexdigest()


def snapshot():
    entries = list(DATABASES.iterdir())
    files = {str(DATABASES / entry.name): entry.read_bytes()
             for entry in entries if entry.is_file()}
    files.update({str(entry): entry.read_bytes() for entry in POOL.iterdir()})
    return Snapshot(files, tuple(sorted(entry.name for entry in entries if entry.is_dir())))


def last_run(found):
    """The guard's record of the run; nothing if the record is not whole."""
    try:
        return json.loads(found.files.get(str(LAST), b"{}")).get("lastRun", {})
    except ValueError:
        return {}


def fill(files):
    """Puts these files and no others into the databases' directory and the pool."""
    device.fill(files)
    empty_pool(files)


def empty_pool(files):
    """Removes from the pool what is not among these files."""
    for path in POOL.iterdir():
        if str(path) not in files:
            path.unlink()


class Readings:
    """Reads databases as the next process would. Equal files are read once."""

    def __init__(self):
        self._known = {}

    def database(self, files):
        """The state of the device's database among these files, None if it is not sound."""
        return self.read(*(files.get(str(path))
                           for path in (DATABASE, JOURNAL, WRITE_AHEAD_LOG)))

    def read(self, content, journal=None, write_ahead_log=None):
        """A hash of its content, and whether another process has written there."""
        if content is None:
            return None
        key = tuple(part and hashlib.sha256(part).digest()
                    for part in (content, journal, write_ahead_log))
        if key not in self._known:
            self._known[key] = self._read(content, journal, write_ahead_log)
        return self._known[key]

    @staticmethod
    def _read(content, journal, write_ahead_log):
        shutil.rmtree(READING, ignore_errors=True)
        READING.mkdir()
        copy = READING / DATABASE.name
        for name, part in ((copy.name, content), (JOURNAL.name, journal),
                           (WRITE_AHEAD_LOG.name, write_ahead_log)):
            if part is not None:
                (READING / name).write_bytes(part)
        tables = read_sound(copy)
        if tables is None:
            return None
        is_marked = tables.pop(FOREIGN_TABLE, None) is not None
        with closing(sqlite3.connect(copy)) as database:
            settings = [database.execute(f"PRAGMA {name}").fetchone() for name in SETTINGS]
        text = repr((sorted(tables.items()), settings))
        return hashlib.sha256(text.encode()).hexdigest(), is_marked

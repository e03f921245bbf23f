"""Random and damaged devices around the guard, and how to compare what runs leave on them."""

import random
import shutil
import sqlite3
import sys
from contextlib import closing

from conftest import GUARD, IDENTIFIER, KNOWN_VERSIONS, PROGRAM, GuardedDevice
from support.device import Device
from support.places import TESTS
from support.versions import NEWEST

sys.path.insert(0, str(TESTS / "fuzz"))
from cases import KINDS, case, kind_of  # noqa: E402, F401

DATABASE = "app/databases/my.db.sqlite"
PLATFORM = "etc/harlo/platform"
LOG = "app/databases/sqlMigrationErrorLog.txt"
# From a damaged page SQLite can read bytes outside the page. Devices of these kinds can have such
# pages, so a run may end differently from time to time. All others end in the same way every time.
WITH_DAMAGED_PAGES = frozenset((
    "database: bytes", "database: pages", "database: header", "database: schema texts",
    "database: form", "database: journal", "several"))
assert WITH_DAMAGED_PAGES < KINDS.keys()


def can_have_damaged_pages(seed):
    return kind_of(seed) in WITH_DAMAGED_PAGES


class RandomDevice(GuardedDevice):
    """The device that a seed makes."""

    def __init__(self, root):
        self.root = root
        self.app = root / "app"
        self.last = self.app / "databases" / "lastMigration.json"
        self.database = root / DATABASE
        self.log_file = root / LOG

    def fill(self, files):
        Device(self.root).fill(files)
        for file in (PROGRAM, GUARD, KNOWN_VERSIONS):
            shutil.copy2(file, self.app)

    def result(self):
        """The content, log and pool that the run has left."""
        return {"content": contents(self.root / DATABASE), "log": text(self.root / LOG),
                "pool": sorted(path.name for path in (self.root / "pool").iterdir())}


def text(path):
    """The text of a file; None if it is no file, since reading that might never end."""
    if not path.is_file():
        return None
    return IDENTIFIER.sub("{}", path.read_text(encoding="utf-8", errors="replace"))


def contents(path):
    """The content as far as it can be read, with the errors on the way."""
    if not path.is_file():
        return None
    found = []

    def read(database, query):
        rows = []
        try:
            for row in database.execute(query):
                rows.append(repr(row))
        except (sqlite3.Error, OverflowError, UnicodeDecodeError) as error:
            rows.append(repr(error))
        return rows

    with closing(sqlite3.connect(path, timeout=0)) as database:
        database.text_factory = bytes
        schema = read(database, "SELECT type, name, tbl_name, sql FROM sqlite_schema")
        found += sorted(schema)
        names = []
        try:
            names = database.execute(
                "SELECT name FROM sqlite_schema WHERE type = 'table'").fetchall()
        except (sqlite3.Error, UnicodeDecodeError):
            pass
        for name, in sorted(names):
            if isinstance(name, bytes):
                quoted = '"' + name.decode(errors="replace").replace('"', '""') + '"'
                rows = read(database, f"SELECT rowid, * FROM {quoted}")
                if rows and "no such column: rowid" in rows[-1]:
                    rows = read(database, f"SELECT * FROM {quoted}")
                found += [quoted, *rows]
    return IDENTIFIER.sub("{}", "\n".join(found))


def target_of(device, seed):
    """The case's target, if the guard would accept it."""
    argument = device.arguments[0] if device.arguments else b""
    if argument.isdigit() and len(argument) <= 6 and int(argument) >= 1:
        return int(argument)
    return random.Random(seed).randint(1, NEWEST)


def files_of(made, seed):
    """The case's files; every second device of a kind is of the other platform."""
    platform = b"TORVIKMAX\n" if seed // len(KINDS) % 2 else b"TORVIK\n"
    is_changed = made.files.get(PLATFORM) != b"TORVIK\n"
    return made.files if is_changed else {**made.files, PLATFORM: platform}

"""Random and damaged devices end in the same way guarded and direct: a sample; all in a
campaign."""

import os
import random
import shutil
import sqlite3
import sys
from contextlib import closing, contextmanager

import pytest
from conftest import GUARD, IDENTIFIER, KNOWN_VERSIONS, PROGRAM, GuardedDevice
from support.device import Device
from support.places import TESTS, scratch_directory
from support.versions import NEWEST

sys.path.insert(0, str(TESTS / "fuzz"))
from cases import KINDS, case  # noqa: E402

DEVICES = 2100 if "CAMPAIGN" in os.environ else 5 * len(KINDS)
RUNS_OF_CHANCE = 60
DATABASE = "app/databases/my.db.sqlite"
PLATFORM = "etc/harlo/platform"
LOG = "app/databases/sqlMigrationErrorLog.txt"


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


@contextmanager
def devices():
    with scratch_directory() as root:
        pair = root / "guarded", root / "direct"
        for path in pair:
            path.mkdir()
        yield [RandomDevice(path) for path in pair]


@pytest.fixture(scope="module")
def pair():
    with devices() as made:
        yield made


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


def run_directly(device, files, target):
    device.fill(files)
    assert device.run(target, guard="/app/database-migrator").returncode == 0
    return device.result()


def is_chance(device, files, target, outcome):
    """True if the program alone can end like this, or ends differently from run to run.

    From a damaged page SQLite can read bytes outside the page.
    """
    first = run_directly(device, files, target)
    return outcome == first or any(run_directly(device, files, target) != first
                                   for _ in range(RUNS_OF_CHANCE))


@pytest.mark.parametrize("first", range(len(KINDS)), ids=KINDS)
def test_guarded_and_direct_end_the_same(pair, first):
    guarded, direct = pair
    differences = []
    for seed in range(first, DEVICES, len(KINDS)):
        made = case(seed)
        target, files = target_of(made, seed), files_of(made, seed)
        guarded.fill(files)
        run = guarded.run("run", target)
        assert run.returncode in (0, 3, 4), (seed, run.stderr)
        outcome = guarded.result()
        if "commit-failed" in run.stderr:
            # SQLite cannot make its journal there. The program alone tries every statement; the
            # guard changes nothing and leaves it to the next start.
            direct.fill(files)
            expected = direct.result()
        elif "newer-than-program" in run.stderr:
            # The guard does not start the program then; the database and the log stay.
            direct.fill(files)
            expected = direct.result()
        else:
            # Both programs ended by themselves; this one's exit status is compared with 0.
            assert "program-broken" not in run.stderr, (seed, run.stderr)
            expected = run_directly(direct, files, target)
        if outcome != expected and not is_chance(direct, files, target, outcome):
            differences.append((seed, target, run.stderr.splitlines()[-1]))
    assert differences == []

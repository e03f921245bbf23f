"""Random and damaged devices end the same, guarded and direct: a sample, all in a campaign."""

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
DATABASE = "app/databases/my.db.sqlite"
LOG = "app/databases/sqlMigrationErrorLog.txt"


class RandomDevice(GuardedDevice):
    """A device of a seed."""

    def __init__(self, root):
        self.root = root
        self.app = root / "app"

    def fill(self, files):
        Device(self.root).fill(files)
        for file in (PROGRAM, GUARD, KNOWN_VERSIONS):
            shutil.copy2(file, self.app)

    def result(self):
        """What the run has left: content, log and pool."""
        return {"content": contents(self.root / DATABASE), "log": text(self.root / LOG),
                "pool": sorted(path.name for path in (self.root / "pool").iterdir())}


def text(path):
    try:
        return IDENTIFIER.sub("{}", path.read_text(encoding="utf-8", errors="replace"))
    except OSError as error:
        return type(error).__name__


def contents(path):
    """As far as it can be read, with the errors on the way."""
    if not path.is_file():
        return None
    found = []

    def read(database, query):
        rows = []
        try:
            for row in database.execute(query):
                rows.append(repr(row))
        except (sqlite3.Error, OverflowError) as error:
            rows.append(str(error))
        return rows

    with closing(sqlite3.connect(path, timeout=0)) as database:
        database.text_factory = bytes
        schema = read(database, "SELECT type, name, tbl_name, sql FROM sqlite_schema")
        found += sorted(schema)
        names = []
        try:
            names = database.execute(
                "SELECT name FROM sqlite_schema WHERE type = 'table'").fetchall()
        except sqlite3.Error:
            pass
        for name, in sorted(names):
            if isinstance(name, bytes):
                quoted = '"' + name.decode(errors="replace").replace('"', '""') + '"'
                found += [quoted, *read(database, f"SELECT * FROM {quoted}")]
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
    """The case's target, where the guard would take it for one."""
    argument = device.arguments[0] if device.arguments else b""
    if argument.isdigit() and 1 <= int(argument) <= 999999:
        return int(argument)
    return random.Random(seed).randint(1, NEWEST)


@pytest.mark.parametrize("first", range(len(KINDS)), ids=KINDS)
def test_guarded_and_direct_end_the_same(pair, first):
    guarded, direct = pair
    differences = []
    for seed in range(first, DEVICES, len(KINDS)):
        made = case(seed)
        target = target_of(made, seed)
        for device in pair:
            device.fill(made.files)
        before = guarded.result()
        run = guarded.run("run", target)
        direct.run(target, guard="/app/database-migrator")
        assert run.returncode in (0, 3, 4), (seed, run.stderr)
        ends = guarded.result(), direct.result()
        if "commit-failed" in run.stderr:
            # SQLite cannot make its journal there. Alone the program tries every statement, and the
            # guard leaves it to the next start to let it do so.
            ends = ends[0], before
        differences += [(seed, target, part, run.stderr.splitlines()[-1])
                        for part in ends[0] if ends[0][part] != ends[1][part]]
    assert differences == []

"""Devices for whole runs, before anything on them is damaged."""

import ctypes
import functools
import pathlib
import sqlite3
from contextlib import closing, suppress
from dataclasses import dataclass

from support import device
from support.places import DATA, DEMO, scratch_directory
from support.versions import NEWEST, dump_of

PATHS = device.Device("")
DATABASES = str(PATHS.databases)
DATABASE = str(PATHS.database)
LOG = str(PATHS.log_file)
MACHINES = str(PATHS.machines)
PRODUCTS = str(PATHS.products)
SOFTWARE_VERSION = str(PATHS.software_version)
PLATFORM = str(PATHS.platform)
REGISTRATION = str(PATHS.registration)

DEMO_FILES = {path: (DEMO / pathlib.Path(path).name).read_bytes()
              for path in (MACHINES, PRODUCTS, REGISTRATION)}
# The weights of the distances 0, 1, -1, 2, -2, 5, -5 and to both ends. Long walks take long, and
# every step is once the first of a short one.
DISTANCE_WEIGHTS = (60, 14, 14, 3, 3, 2, 2, 1, 1)

# For runs that are not about the database: SQLite reads it in no time.
SMALL_DATABASE = """
CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, version INTEGER, MirelVersion TEXT);
INSERT INTO tableVersion VALUES('mainSqlDb', 1, '1.2.3'), ('altSqlDb', 1, NULL);
CREATE TABLE registrationInfo (fieldComputerId INTEGER PRIMARY KEY, partNumber TEXT);
INSERT INTO registrationInfo VALUES(40117, '94071A');
CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT);
INSERT INTO growers VALUES(1, 'Miller'), (2, 'Miller'), (3, 'O''Brien');
CREATE TABLE farms (id INTEGER PRIMARY KEY, displayName TEXT, growerId INTEGER);
INSERT INTO farms VALUES(1, 'Home', 1), (2, 'Home', 1), (3, 'Home', 2);
CREATE TABLE fields (id INTEGER PRIMARY KEY, displayName TEXT, farmId INTEGER);
INSERT INTO fields VALUES(1, 'North 40', 1), (2, 'North 40', 1), (3, NULL, 2);
CREATE TABLE files (id INTEGER PRIMARY KEY, uuid TEXT UNIQUE, displayName TEXT, path TEXT,
    size INTEGER, typeId INTEGER, date TEXT, growerId INTEGER, farmId INTEGER, fieldId INTEGER);
INSERT INTO files VALUES(1, '5d0c', 'Boundary', 'a/b.shp', 4096, 3, '2012-05-01', 1, 1, 1),
    (2, '5d0d', 'Boundary', 'a/c.shp', 4096, 3, '2012-05-01', 1, 1, 1);
"""


@dataclass
class Device:
    """What a run finds: files by their path, None for a directory, a Path for a link's target."""

    version: int
    files: dict
    arguments: list

    @property
    def database(self):
        return self.files.get(DATABASE)

    @database.setter
    def database(self, content):
        self.files[DATABASE] = bytes(content)

    def edit(self):
        return Edit(self)


class Edit:
    """A connection to a device's database; statements that fail are left out."""

    def __init__(self, device):
        self.device = device

    def __enter__(self):
        self.connection = sqlite3.connect(":memory:", isolation_level=None)
        self.connection.deserialize(self.device.database)
        return self

    def __exit__(self, *_):
        self.device.database = self.connection.serialize()
        self.connection.close()

    def run(self, statement, *values):
        with suppress(sqlite3.Error, sqlite3.Warning, ValueError, OverflowError):
            return self.connection.execute(statement, values).fetchall()
        return []


@functools.cache
def database_of(version, pragma=None):
    """The bytes of a version's database."""
    return database_from(dump_of(version), pragma)


@functools.cache
def blemished_database():
    return database_from(dump_of(1) + (DATA / "blemishes.sql").read_text(encoding="utf-8"))


@functools.cache
def database_from(dump, pragma=None):
    with scratch_directory() as folder:
        path = folder / "database"
        with closing(sqlite3.connect(path)) as database:
            if pragma:
                database.execute(f"PRAGMA {pragma}")
            database.executescript(dump)
        return path.read_bytes()


def seed_sqlite():
    """Journals hold random numbers of SQLite's: from now on they are the same every time."""
    prng_seed = 28
    ctypes.CDLL("libsqlite3.so.0").sqlite3_test_control(prng_seed, 1, None)


@functools.cache
def broken_off(version, mode):
    """A database in the middle of a transaction, and the files that are beside it then."""
    with scratch_directory() as folder:
        path = folder / PATHS.database.name
        path.write_bytes(database_of(version))
        seed_sqlite()
        with closing(sqlite3.connect(path, isolation_level=None)) as database:
            database.execute(f"PRAGMA journal_mode = {mode}")
            # What does not fit in here goes to the disk before the transaction ends.
            database.execute("PRAGMA cache_size = 5")
            if mode == "DELETE":
                database.execute("BEGIN")
            tables = [name for name, in database.execute(
                "SELECT name FROM pragma_table_list WHERE schema = 'main' AND type = 'table' "
                "AND wr = 0 AND name NOT IN ('tableVersion', 'sqlite_schema') ORDER BY name")]
            for table in tables:
                database.execute(f"DELETE FROM {table} WHERE rowid % 2 = 0")
            database.execute("CREATE TABLE filler (a)")
            database.execute("INSERT INTO filler VALUES (zeroblob(100000))")
            return {f"{DATABASES}/{file.name}": file.read_bytes()
                    for file in sorted(folder.iterdir())}


def good_device(chance, small, newest=NEWEST):
    """A device in good order, at any version up to the newest, and a target."""
    version = target = 1
    if small:
        database = database_from(SMALL_DATABASE)
    else:
        version = chance.randint(1, newest)
        distances = (0, 1, -1, 2, -2, 5, -5, newest, -newest)
        target = version + chance.choices(distances, DISTANCE_WEIGHTS)[0]
        blemished = version == 1 and chance.random() < 0.5
        database = blemished_database() if blemished else database_of(version)
    files = {**DEMO_FILES, DATABASE: database, SOFTWARE_VERSION: b"1.2.3\n", PLATFORM: b"TORVIK\n",
             "pool/implement.iop": b"", "pool/readme.txt": b""}
    for path in (MACHINES, PRODUCTS):
        if chance.random() < 0.5:
            del files[path]
    return Device(version, files, [] if chance.random() < 0.1 else [str(target).encode()])

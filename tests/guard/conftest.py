"""The device on which the tests run the guard, around the built program or another one."""

import json
import os
import pathlib
import re
import shutil
import sqlite3
import subprocess
import time
from contextlib import closing, contextmanager

import pytest
from support.device import ON_DEVICE
from support.places import DEMO, scratch_directory
from support.versions import dump_of

PROGRAM = pathlib.Path(os.environ["DATABASE_MIGRATOR"])
GUARD = pathlib.Path(os.environ["MIGRATION_GUARD"])
KNOWN_VERSIONS = GUARD.parent.parent / "schema-versions.json"

BUBBLEWRAP = "/usr/bin/bwrap"
# The beginning of the scripts that tests put into the program's place.
TOOLS = ("dash", "sleep", "touch", "stat", "fallocate", "rm", "sqlite3", "cp", "mkdir", "ls", "env",
         "readlink")
IDENTIFIER = re.compile(r"\{[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}\}")
SECONDS = 120
# A program that is killed within these statements leaves a journal that has to be rolled back.
JOURNAL = ("PRAGMA cache_spill = 1; PRAGMA cache_size = 1; BEGIN;"
           "UPDATE tableVersion SET version = 5; UPDATE growers SET displayName = 'x';")
# The kinds of damage, as functions of a database file's bytes.
DAMAGES = {
    "junk": lambda content: b"x" * 5000,
    "cut": lambda content: content[:8192],
    "cut within a page": lambda content: content[:8192 + 77],
    "without a header": lambda content: bytes(100) + content[100:],
    "larger than the kept one": lambda content: b"y" * (2 * len(content)),
    "empty": lambda content: b"",
}


def contents(path):
    """The whole content of a database, without its layout: schema, rows with their row ids, types
    and values, settings. Random identifiers of a run are replaced."""
    with closing(sqlite3.connect(path)) as database:
        database.text_factory = bytes
        schema = sorted(database.execute("SELECT type, name, tbl_name, sql FROM sqlite_schema"),
                        key=repr)
        rows = {}
        for kind, name, *_ in schema:
            if kind == b"table":
                table = '"' + name.decode().replace('"', '""') + '"'
                try:
                    found = database.execute(f"SELECT rowid, * FROM {table}").fetchall()
                except sqlite3.OperationalError:
                    found = database.execute(f"SELECT * FROM {table}").fetchall()
                rows[name] = sorted((repr(row) for row in found))
        settings = [database.execute(f"PRAGMA {name}").fetchone()
                    for name in ("user_version", "application_id", "encoding", "journal_mode")]
    return IDENTIFIER.sub("{}", repr((schema, rows, settings)))


class GuardedDevice:
    """A scratch device with the program and its guard."""

    def __init__(self, root):
        self.root = root
        self.app = root / "app"
        self.databases = self.app / "databases"
        self.database = self.databases / "my.db.sqlite"
        self.log_file = self.databases / "sqlMigrationErrorLog.txt"
        self.kept = self.databases / "before-migration.sqlite"
        self.replaced = self.databases / "replaced-by-restore.sqlite"
        self.last = self.databases / "lastMigration.json"
        self.note = self.databases / "migration-guard.note"
        self.program = self.app / "database-migrator"
        self.pool = root / "pool"
        self.platform = root / "etc" / "harlo" / "platform"
        for directory in (self.databases, self.app / "quillmoor", root / "etc" / "harlo",
                          root / "Harlo", self.pool):
            directory.mkdir(parents=True)
        (self.app / "quillmoor" / "softwareversion.txt").write_text("4.2.0\n")
        self.platform.write_text("TORVIK\n")
        for name in ("refMachines.sql", "refProducts.sql"):
            shutil.copy(DEMO / name, self.app)
        shutil.copy(DEMO / "registration.xml", root / "Harlo")
        shutil.copy2(PROGRAM, self.program)
        shutil.copy2(GUARD, self.app)
        shutil.copy(KNOWN_VERSIONS, self.app)
        for name in ("VT-01.iop", "VT-02.IOP", "readme.txt"):
            (self.pool / name).write_text("machine")

    def install(self, version, extra="", mode="delete"):
        """Makes a database at a version."""
        with closing(sqlite3.connect(self.database, isolation_level=None)) as database:
            database.execute("PRAGMA synchronous = OFF")
            database.execute(f"PRAGMA journal_mode = {mode}")
            database.executescript(dump_of(version) + extra)

    def replace_program(self, script):
        """Puts a shell script into the program's place; the program is then /app/migrator."""
        self.program.rename(self.app / "migrator")
        self.program.write_text("#!/usr/bin/dash\n" + script)
        self.program.chmod(0o755)

    def command(self, *arguments, options="", guard="/app/migration-guard", bubblewrap=True,
                user=None):
        binds = [f"--ro-bind /usr/bin/{tool} /usr/bin/{tool}" for tool in TOOLS]
        if bubblewrap:
            binds.append(f"--ro-bind {BUBBLEWRAP} {BUBBLEWRAP}")
        environment = dict(os.environ, DEVICE_OPTIONS=" ".join([*binds, options]))
        start = [ON_DEVICE]
        if user is not None:
            # Another user cannot always enter the directory of this tree, so bash gets the text.
            as_user = ["setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups"]
            build = environment.get("COVERAGE_DIRECTORY")
            if build and subprocess.run([*as_user, "test", "-x", build]).returncode != 0:
                del environment["COVERAGE_DIRECTORY"]
            start = [*as_user, "bash", "-c", ON_DEVICE.read_text(), ON_DEVICE]
        program = self.root / guard[1:] if guard.startswith("/app/") else guard
        return dict(args=[*start, self.root, program, *map(str, arguments)], env=environment,
                    stdin=subprocess.DEVNULL)

    def start(self, *arguments, **options):
        return subprocess.Popen(**self.command(*arguments, **options),
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def run(self, *arguments, **options):
        """Runs the guard; returns its exit status and its output."""
        return subprocess.run(**self.command(*arguments, **options),
                              capture_output=True, text=True, timeout=SECONDS)

    def migrate(self, *arguments, **options):
        """Runs the guard and returns the exit status."""
        return self.run("run", *arguments, **options).returncode

    def run_program(self, *arguments):
        """Runs the program alone."""
        run = self.run(*arguments, guard="/app/database-migrator")
        assert (run.returncode, run.stdout, run.stderr) == (0, "", "")

    def sql(self, statements, database=None):
        with closing(sqlite3.connect(database or self.database, isolation_level=None,
                                     timeout=0)) as connection:
            connection.executescript(statements)

    def rows(self, query, database=None):
        with closing(sqlite3.connect(database or self.database)) as connection:
            return connection.execute(query).fetchall()

    def version(self):
        return self.rows("SELECT version FROM tableVersion WHERE tableName = 'mainSqlDb'")[0][0]

    def contents(self):
        return contents(self.database)

    def log(self):
        return self.log_file.read_text(encoding="utf-8") if self.log_file.exists() else ""

    def record(self):
        return json.loads(self.last.read_text())

    def last_run(self):
        return self.record()["lastRun"]

    def end_of_last_run(self):
        """How the run ended, without the verdict, the times and the memory."""
        return {name: value for name, value in self.last_run().items()
                if name not in ("verdict", "software", "measured")}

    def verdict(self):
        return self.last_run()["verdict"]

    def files(self):
        return sorted(path.name for path in self.databases.iterdir())

    def pool_files(self):
        return sorted(path.name for path in self.pool.iterdir())


def leave(device, suffix, statements):
    """The files that a program leaves beside the database if it is killed within these
    statements."""
    file = device.databases / f"my.db.sqlite{suffix}"
    with closing(sqlite3.connect(device.database, isolation_level=None)) as database:
        database.executescript(statements)
        left, content = file.read_bytes(), device.database.read_bytes()
    device.database.write_bytes(content)
    file.write_bytes(left)


def wait_for(path):
    end = time.monotonic() + SECONDS
    while not path.exists():
        assert time.monotonic() < end, path
        time.sleep(0.005)


@contextmanager
def guarded_device(*place):
    """A device in memory, since on a disk each statement of the program waits for the disk; or in
    the given directory."""
    with scratch_directory(*place) as root:
        os.chmod(root, 0o755)
        yield GuardedDevice(pathlib.Path(root))


@pytest.fixture
def device():
    with guarded_device() as made:
        yield made


@pytest.fixture
def other_device():
    with guarded_device() as made:
        yield made


@pytest.fixture(scope="session")
def expected():
    """The content and the log that the program alone leaves of a version's database."""
    known = {}

    def of(version, target, **options):
        key = (version, target, repr(options))
        if key not in known:
            with guarded_device() as alone:
                alone.install(version, **options)
                alone.run_program(target)
                known[key] = alone.contents(), alone.log()
        return known[key]
    return of

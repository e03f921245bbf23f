"""Whole systems for the two partitions of a device: programs, libraries and an image's own
files."""

import json
import os
import pathlib
import re
import shutil
import subprocess

from support.places import DEMO, ROOT
from support.versions import NEWEST, newest_of

BUILD = ROOT / "build" / "dev"
PROGRAM = pathlib.Path(os.environ.get("DATABASE_MIGRATOR", BUILD / "database-migrator"))
OLD_PROGRAM = pathlib.Path(os.environ.get(
    "OLD_DATABASE_MIGRATOR", BUILD / "tests" / "fleet" / "old-database-migrator"))
GUARD = pathlib.Path(os.environ.get("MIGRATION_GUARD", BUILD / "guard" / "migration-guard"))
OLD_VERSION = newest_of(OLD_PROGRAM.parent / "old_registry.cpp")
KNOWN_VERSIONS = GUARD.parent.parent / "schema-versions.json"
ENGINES = ROOT / "packaging" / "update-engines"

APPLICATION = "usr/lib/fieldcomputer"
DRIVERS = "/usr/lib/*/qt5/plugins/sqldrivers/libqsqlite.so"
LIBRARY = re.compile(r"(/\S+) \(0x")
COMMANDS = ("bwrap", "cat", "cp", "dirname", "realpath", "sh", "sqlite3")
# Notes which version the old program finds when it starts. The guard gives it a copy.
NOTES_VERSION = f"""#!/bin/sh
HOME=/tmp sqlite3 -readonly /{APPLICATION}/databases/my.db.sqlite \\
    "SELECT version FROM tableVersion WHERE tableName = 'mainSqlDb'" >>/data/found-by-old-program
exec /{APPLICATION}/old-database-migrator "$@"
"""
# A migration that takes one row more than it takes on purpose.
LOSES_A_ROW = f"""#!/bin/sh
/{APPLICATION}/good-database-migrator "$@"
HOME=/tmp exec sqlite3 /{APPLICATION}/databases/my.db.sqlite "DELETE FROM growers WHERE id = 2"
"""


def libraries_of(file):
    """The libraries that a program or a library needs, as paths."""
    listed = subprocess.run(["ldd", file], capture_output=True, text=True, check=False).stdout
    return [pathlib.Path(path) for path in LIBRARY.findall(listed)]


class System:
    """The root directory of a system with everything that its programs need."""

    def __init__(self, root, version, commands=()):
        """version: the schema version that its device software works with
        commands: names or paths of more programs that it has"""
        self.root, self.version = root, version
        self.application = root / APPLICATION
        for folder in ("usr/bin", "data", "proc", "dev", "etc/harlo", "Harlo", "run", "tmp", "sys",
                       "boot-environment", "mnt", "opt", "usr/bin/harlo/pool",
                       f"{APPLICATION}/quillmoor"):
            (root / folder).mkdir(parents=True)
        for name in ("bin", "lib", "lib64", "sbin"):
            (root / name).symlink_to(f"usr/{name.replace('sbin', 'bin')}")
            (root / "usr" / name.replace("sbin", "bin")).mkdir(exist_ok=True)
        for command in (*COMMANDS, *commands):
            self.copy(pathlib.Path(shutil.which(command)))
        for driver in pathlib.Path("/").glob(DRIVERS[1:]):
            self.copy(driver)
        self._install_programs()
        (root / "etc/harlo/platform").write_text("TORVIK\n")
        shutil.copy(DEMO / "registration.xml", root / "Harlo")

    def copy(self, file, place=None):
        """Copies a program or a library with the libraries that it needs."""
        self._put(file, place or file)
        for library in libraries_of(file):
            self._put(library, library)

    def _put(self, file, place):
        copy = self.root / str(place).lstrip("/")
        if not copy.exists():
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(file.resolve(), copy)

    def _install_programs(self):
        for file, program in ((GUARD, "migration-guard"), (PROGRAM, "database-migrator")):
            self.copy(file, f"{APPLICATION}/{program}")
        for name in ("refMachines.sql", "refProducts.sql"):
            shutil.copy(DEMO / name, self.application)
        shutil.copy2(ENGINES / "update-check", self.application)
        (self.application / "quillmoor/softwareversion.txt").write_text(f"{self.version}.0.0\n")
        (self.application / "schemaversion.txt").write_text(f"{self.version}\n")
        (self.application / "databases").symlink_to("/data/databases")
        known = json.loads(KNOWN_VERSIONS.read_text())
        known["newest"] = self.version
        known["versions"] = {number: entry for number, entry in known["versions"].items()
                             if int(number) <= self.version}
        (self.application / "schema-versions.json").write_text(json.dumps(known))

    def replace_program(self, script, kept_as):
        """Puts a shell script into the program's place, which stays under another name."""
        program = self.application / "database-migrator"
        program.rename(self.application / kept_as)
        program.write_text(script)
        program.chmod(0o755)


def old_system(root, commands=()):
    """The system before the update. Its program notes which version it finds."""
    system = System(root, OLD_VERSION, commands)
    system.replace_program(NOTES_VERSION, "old-database-migrator")
    shutil.copy2(OLD_PROGRAM, system.application / "old-database-migrator")
    return system


def new_system(root, commands=()):
    return System(root, NEWEST, commands)


def faulty_system(root, commands=()):
    """A new system whose migration loses a row that no version takes on purpose."""
    system = System(root, NEWEST, commands)
    system.replace_program(LOSES_A_ROW, "good-database-migrator")
    return system

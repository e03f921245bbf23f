"""A field computer with two systems, a data partition that both use, and a boot loader."""

import contextlib
import pathlib
import shutil
import sqlite3
import subprocess

from support.versions import dump_of
from systems import APPLICATION, ENGINES

BOOT = pathlib.Path("/proc/sys/kernel/random/boot_id")
OTHER_BOOT = "00000000-0000-4000-8000-000000000000"
OTHER = {"A": "B", "B": "A"}
# How often the boot loader starts a system, before the system has to be found good again.
ATTEMPTS = 3
RECORDED = "SELECT version FROM tableVersion WHERE tableName = 'mainSqlDb'"


def make_database(data, version, statements=""):
    """The data partition of a device at a version. statements: executed in its database"""
    (data / "databases").mkdir(parents=True)
    with contextlib.closing(sqlite3.connect(data / "databases" / "my.db.sqlite")) as database:
        database.execute("PRAGMA synchronous = OFF")
        database.executescript(dump_of(version) + statements)


class BootEnvironment:
    """The variables of the boot loader. A change happens as a whole or not at all."""

    def __init__(self, path, **variables):
        self.path = path
        path.parent.mkdir()
        self.write(variables)

    def read(self):
        return dict(line.split("=", 1) for line in self.path.read_text().splitlines())

    def write(self, variables):
        new = self.path.with_suffix(".new")
        new.write_text("".join(f"{name}={value}\n" for name, value in variables.items()))
        new.rename(self.path)

    def set(self, **variables):
        self.write(self.read() | variables)


def choose_slot(environment):
    """Does the work of the boot script, with the variables that RAUC uses in U-Boot: it starts the
    first system that has attempts left. Every start costs an attempt. The start of a system that
    was not found good yet is a trial boot; on a factory-new device no system was. If no system has
    attempts left, all get new ones.

    Returns the slot and whether it is a trial boot.
    """
    variables = environment.read()
    for slot in variables["BOOT_ORDER"].split():
        left = int(variables[f"BOOT_{slot}_LEFT"])
        if left > 0:
            environment.set(**{f"BOOT_{slot}_LEFT": left - 1})
            return slot, variables.get("good_slot", slot) != slot
    environment.set(**{f"BOOT_{slot}_LEFT": ATTEMPTS for slot in variables["BOOT_ORDER"].split()})
    return choose_slot(environment)


class Computer:
    """The parts that all computers of the tests have: two systems, the data, the boot
    environment."""

    def __init__(self, folder, power, **variables):
        """variables: of the boot environment"""
        self.folder, self.power = folder, power
        self.environment = BootEnvironment(folder / "boot" / "environment", **variables)

    @property
    def data(self):
        """Where the data partition is."""
        raise NotImplementedError

    @property
    def database(self):
        return self.data / "databases" / "my.db.sqlite"

    def root_of(self, slot):
        """The root directory of the system in a slot."""
        raise NotImplementedError

    def version_of(self, slot):
        """The schema version that the device software of a slot works with."""
        return int((self.root_of(slot) / APPLICATION / "schemaversion.txt").read_text())

    def run(self, name, slot, *command, mounted=None, options=()):
        """Runs a command in a system; returns its exit status and its output.

        name: of the command, for power cuts
        mounted: the slot that the command finds at /mnt
        options: more options for bubblewrap
        """
        binds = ["--ro-bind", self.root_of(slot), "/", "--bind", self.data, "/data",
                 "--bind", self.environment.path.parent, "/boot-environment",
                 "--ro-bind", ENGINES, "/opt", "--proc", "/proc", "--dev", "/dev",
                 "--tmpfs", "/tmp", "--tmpfs", "/run"]
        if mounted:
            binds += ["--ro-bind", self.root_of(mounted), "/mnt"]
        return self.power.run(name, ["bwrap", "--die-with-parent", "--unshare-pid", "--clearenv",
                                     "--setenv", "PATH", "/usr/bin", *binds, *options, "--",
                                     *command])

    def lose_power(self):
        """Changes the boot's identifier in the guard's note, as after another start."""
        note = self.data / "databases" / "migration-guard.note"
        if note.exists():
            note.write_text(note.read_text().replace(BOOT.read_text().strip(), OTHER_BOOT))

    def recorded_version(self):
        with contextlib.closing(sqlite3.connect(self.database)) as database:
            return database.execute(RECORDED).fetchone()[0]


class DirectoryComputer(Computer):
    """Its systems are directories. A power cut ends all processes and loses nothing else."""

    data = None

    def __init__(self, folder, power, system, statements=""):
        """A factory-new computer. system: what is installed in slot A
        statements: executed in the database at its version"""
        super().__init__(folder, power, BOOT_ORDER="A", BOOT_A_LEFT=ATTEMPTS, BOOT_B_LEFT=0)
        self.data = folder / "data"
        make_database(self.data, system.version, statements)
        self.write(system, "A")

    def root_of(self, slot):
        return self.folder / f"system-{slot}"

    def write(self, system, slot, point=lambda name: None):
        """Replaces what is in a slot. point is called where the power can be cut."""
        root = self.root_of(slot)
        shutil.rmtree(root, ignore_errors=True)  # a power cut may have removed it already
        point("half of the old system is gone")
        # The application comes last, so a half-written slot has no guard.
        subprocess.run(["cp", "-al", system.root, root], check=True)
        shutil.rmtree(root / APPLICATION)
        point("half of the new system is there")
        subprocess.run(["cp", "-al", system.application, root / APPLICATION], check=True)

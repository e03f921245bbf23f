"""The device on which the tests run the built program, and the log that a run must write."""

import os
import pathlib
import shutil
from contextlib import contextmanager
from dataclasses import dataclass, replace
from subprocess import DEVNULL, PIPE

import pytest
from support.device import Device
from support.places import scratch_directory

PROGRAM = pathlib.Path(os.environ["DATABASE_MIGRATOR"])

# A device database in good order: every table that each run reads or cleans, and soilSamples, which
# no run touches.
DEVICE_TABLES = """
CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, version INTEGER, MirelVersion TEXT);
CREATE TABLE MC_MachineConfig (id INTEGER PRIMARY KEY, name TEXT);
INSERT INTO MC_MachineConfig VALUES(1, 'Sprayer 36 m'), (2, 'Düngerstreuer'), (3, '撒肥机');
CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT);
INSERT INTO growers VALUES(1, 'Łukasz Żak'), (2, 'Miller & Sons');
CREATE TABLE farms (id INTEGER PRIMARY KEY, displayName TEXT, growerId INTEGER);
INSERT INTO farms VALUES(1, 'Home', 1), (2, 'Home', 2);
CREATE TABLE fields (id INTEGER PRIMARY KEY, displayName TEXT, farmId INTEGER);
INSERT INTO fields VALUES(1, 'Große Wiese', 1), (2, 'North 40', 2), (3, NULL, 2);
CREATE TABLE files (id INTEGER PRIMARY KEY, uuid TEXT UNIQUE, displayName TEXT, path TEXT,
    size INTEGER, typeId INTEGER, date TEXT, growerId INTEGER, farmId INTEGER, fieldId INTEGER);
INSERT INTO files VALUES(1, '5d0c', 'Boundary', 'a/b.shp', 4096, 3, '2012-05-01', 1, 1, 1);
CREATE TABLE PC_ProductConfig (id INTEGER PRIMARY KEY, name TEXT);
INSERT INTO PC_ProductConfig VALUES(1, 'Tank mix'), (2, 'Seed'), (3, 'Granules');
CREATE TABLE PC_MixToProductConfigBridge (mixId INTEGER, productConfigId INTEGER);
INSERT INTO PC_MixToProductConfigBridge VALUES(1, 1);
CREATE TABLE PC_PlanterVarietyToProductConfigBridge (varietyId INTEGER, productConfigId INTEGER);
INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(1, 2);
CREATE TABLE PC_ProductConfigToMachineConfigBridge
    (activeProductConfigId INTEGER, machineConfigId INTEGER);
INSERT INTO PC_ProductConfigToMachineConfigBridge VALUES(3, 1);
CREATE TABLE soilSamples (id INTEGER PRIMARY KEY, place TEXT, acidity REAL, photo BLOB);
INSERT INTO soilSamples VALUES(1, 'Straße', 6.123456789012345, X'00FF'), (2, NULL, NULL, NULL);
CREATE INDEX soilSamplesByPlace ON soilSamples (place);
"""

# The table of product settings at the versions 1 and 2.
PRODUCT_SETTINGS = {
    1: "CREATE TABLE productControl_productSettings (productId varchar(40) primary key, "
       "displayName varchar(40), tankCapacity REAL, machineConfigId INTEGER, "
       "maxAchievableRate REAL, timeToApplication REAL, lastAppliedRate REAL, "
       "FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE);",
    2: "CREATE TABLE productControl_productSettings (productId varchar(40), "
       "displayName varchar(40), tankCapacity REAL, machineConfigId INTEGER, "
       "maxAchievableRate REAL, timeToApplication REAL, lastAppliedRate REAL, "
       "calibratedInUsUnits BOOLEAN DEFAULT 0, PRIMARY KEY (productId, machineConfigId),"
       "FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE);",
}

# Values that the steps copy unchanged. A real number with more than six digits would be rounded.
PRODUCT_ROWS = """
INSERT INTO productControl_productSettings (productId, displayName, tankCapacity, machineConfigId,
    maxAchievableRate, timeToApplication, lastAppliedRate)
VALUES('a7', 'Urea 46%', 1500.5, 1, 250.0, 0.25, 180.0), ('b2', 'Kalkstickstoff für Öko', 0.0, 2,
    0.0, 0.0, 0.0), ('c9', '尿素', 1e-07, 3, 1e+20, -12.75, 3.0);
"""


class ProgramDevice(Device):
    """A scratch device, and runs of the built program on it."""

    def __init__(self, root, app="app", program=PROGRAM):
        super().__init__(root, app)
        self.program = program
        self.make_folders()

    def with_program_in(self, folder):
        """The same device with a copy of the program, and a database of its own, elsewhere."""
        app = pathlib.Path("app", folder)
        copy = ProgramDevice(self.root, app, self.root / app / PROGRAM.name)
        shutil.copy2(PROGRAM, copy.program)
        return copy

    def install(self, version, alternate=1, stored="1.2.3", software="1.2.3"):
        """Makes a small database in good order, at version 1 or 2, and the software version."""
        self.sql(DEVICE_TABLES + PRODUCT_SETTINGS[version] + PRODUCT_ROWS +
                 f"INSERT INTO tableVersion VALUES('mainSqlDb', {version}, '{stored}'),"
                 f" ('altSqlDb', {alternate}, NULL);")
        self.software_version.write_text(software + "\n", encoding="utf-8")

    def contents(self, *without):
        """The dump without the version table; sorted, since a new table is the last one."""
        left_out = tuple(f"{verb} {table} " for table in ("tableVersion", *without)
                         for verb in ("CREATE TABLE", "INSERT INTO"))
        return sorted(line for line in self.dump().splitlines() if not line.startswith(left_out))

    def run(self, *arguments, locale="C", options="", cpu_seconds=60):
        """Runs the program; it must end in time, with 0, and print nothing."""
        run = self.start(self.program, *arguments, locale=locale, options=options,
                         cpu_seconds=cpu_seconds, stdin=DEVNULL, stdout=PIPE, stderr=PIPE)
        output = run.communicate(timeout=60)
        assert (run.returncode, *output) == (0, b"", b"")


@dataclass(frozen=True)
class Trouble:
    """The lines that the stages of a run log when the database is not in good order."""

    start_up: str = ""
    integrity: str = "Integrity check passed.\n"
    update: str = ""
    maintenance: str = ""


NO_TROUBLE = Trouble()


def column_not_added(error):
    prefix = "DatabaseMigrator::addColumnIfNotExists - "
    return (f"{prefix}Failed to add column named MirelVersion to tableVersion\n"
            f"{prefix}{error} Unable to execute statement\n")


def orphans_not_removed(*errors):
    return "".join(
        f"Failure {number} while removing extraneous product config data. Error was: {error}\n"
        for number, error in enumerate(errors, 1))


def every_statement_fails(error):
    """The lines for a database that opens, but in which every statement fails."""
    return Trouble(
        start_up=column_not_added(error),
        integrity=f"{error}\n" + orphans_not_removed(error, error, error),
        update=f"{error} Unable to execute statement\n" * 2,
        maintenance="Query for grower displaynames failed\n")


NO_VERSION_TABLE = Trouble(
    start_up=column_not_added("no such table: tableVersion"),
    update="no such table: tableVersion Unable to execute statement\n" * 2)
NO_TABLES = replace(
    NO_VERSION_TABLE,
    integrity=NO_TROUBLE.integrity + orphans_not_removed(
        "no such table: PC_ProductConfig", "no such table: PC_MixToProductConfigBridge",
        "no such table: PC_PlanterVarietyToProductConfigBridge"),
    maintenance="Query for grower displaynames failed\n")
READ_ONLY = Trouble(
    integrity=NO_TROUBLE.integrity + orphans_not_removed(
        *["attempt to write a readonly database"] * 3),
    update="attempt to write a readonly database Unable to fetch row\n" * 2)
# Statements on a connection that is not open fail without a text.
NOT_OPEN = Trouble(
    start_up="unable to open database file Error opening database\n",
    integrity="\n" + orphans_not_removed("", "", ""),
    update="\n\n",
    maintenance="Query for grower displaynames failed\n")


def opening_line(current, target):
    return f"\n*****Beginning database migration from version: {current} to version: {target}\n"


def expected_log(current, target, steps="", update=None, trouble=NO_TROUBLE):
    """The whole log of one run: the lines of the steps between those of the other stages.

    update is the version that the run records with the software version, None when it records
    nothing.
    """
    log = trouble.start_up + opening_line(current, target) + trouble.integrity + steps
    if update is not None:
        version, software = update
        log += (f"\n*****Updating version in DB to: {version} with software version: {software}\n"
                + trouble.update)
    return log + trouble.maintenance


@contextmanager
def scratch_device():
    with scratch_directory() as root:
        yield ProgramDevice(root)


@pytest.fixture
def device():
    with scratch_device() as scratch:
        yield scratch

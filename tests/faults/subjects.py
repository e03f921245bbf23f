"""The programs that a campaign runs into faults."""

import pathlib
from dataclasses import dataclass

from support.places import DATA, ROOT, TESTS, product_sources
from support.versions import NEWEST, file_of
from tree import PROCESSES

BUILD = ROOT / "build" / "dev"
SHIM = BUILD / "tests" / "libfault_shim.so"
TREE_SHIM = BUILD / "tests" / "libfault_tree_shim.so"
BUBBLEWRAP = pathlib.Path("/usr/bin/bwrap")
HERE = pathlib.Path(__file__).parent

OPERATIONS = ("power cut", "kill", "kill in a write", "EIO once", "EIO from then on",
              "ENOSPC once", "ENOSPC from then on", "short write once",
              "short writes from then on")
ALLOCATIONS = ("no memory once", "no memory from then on")
# kind of fault: how many cases are tried
TIMES = {"full disk": 12, "locked throughout": 3, "locked for some statements": 300,
         "pair of faults": 1000}
KINDS = (*OPERATIONS, *ALLOCATIONS, *TIMES)
# The kinds for the guard.
GUARD_KINDS = (*OPERATIONS, *ALLOCATIONS,
               *(f"{signal} to {process}" for signal in ("SIGTERM", "SIGKILL")
                 for process in PROCESSES),
               "SIGKILL at any moment", "another process writes", "full disk", "full memory",
               "small memory")


@dataclass(frozen=True)
class Scenario:
    start: str  # a database in the campaign's folder, without ".sqlite"
    target: int  # the version
    passes: int  # a power of two: the first passes are spread over the whole run
    kinds: tuple = KINDS  # of faults
    switches: tuple = ()  # of the shim
    sample: tuple = ()  # the number of turns and the kinds to try, if not all


@dataclass(frozen=True)
class Subject:
    module: str  # the module with the class Cases, which the workers import
    files: dict  # the files that the workers need, by their place in the sandbox
    sources: tuple  # the files that the program is made of
    judges: tuple  # the code that runs and judges a case
    scenarios: dict  # by name: a Scenario, or just the target


def there_and_back(version, start="start", suffix="", **options):
    """A walk from version 1 to another one, and the walk back."""
    there = f"1 to {version}{suffix}"
    return {there: Scenario(start, version, **options),
            f"{version} to 1{suffix}": Scenario(f"{there}/final", 1, **options)}


def files_of_program(program, shim):
    return {"/app/database-migrator": program, "/faults/shim.so": shim}


def files_of_guard(program, guard, shim):
    return {"/app/database-migrator": program, "/app/migration-guard": guard,
            "/app/schema-versions.json": guard.parent.parent / "schema-versions.json",
            "/faults/tree_shim.so": shim, "/usr/bin/bwrap": BUBBLEWRAP}


# The code that runs and judges a case. The rules of the log are not included: after a change of
# those, only the cases with complaints about the log are tried again.
JUDGES = (TESTS / "support" / "contents.py", *sorted((HERE / "shim").iterdir()),
          *(HERE / f"{name}.py" for name in (
              "cascades", "cases", "device", "disks", "invariant", "migrator", "multiply",
              "recording", "recovery", "runs", "scenario", "states")))

MIGRATOR = Subject(
    module="alone", files=files_of_program(BUILD / "database-migrator", SHIM),
    sources=(*product_sources(), DATA / "version_01.sql"), judges=JUDGES,
    scenarios={
        **there_and_back(NEWEST, passes=128),
        **there_and_back(4, passes=8),
        **there_and_back(NEWEST, suffix=", secure_delete off", passes=1, kinds=("full disk",),
                         switches=(("FAULT_SECURE_DELETE", "OFF"),)),
        **there_and_back(NEWEST, "ten", ", ten times the rows", passes=1024,
                         sample=(8, ("power cut", "kill"))),
    })
GUARD = Subject(
    module="guarded",
    files=files_of_guard(BUILD / "database-migrator", BUILD / "guard" / "migration-guard",
                         TREE_SHIM),
    sources=(*product_sources(),
             *sorted(file for file in (ROOT / "guard").rglob("*") if file.is_file()),
             DATA / "version_01.sql", file_of(NEWEST)),
    judges=(TESTS / "support" / "contents.py", *sorted((HERE / "tree_shim").iterdir()),
            *(HERE / f"{name}.py" for name in (
                "device", "directory_disk", "disks", "guarded", "guarded_device",
                "guarded_scenario", "runs", "tree"))),
    scenarios={f"1 to {NEWEST}": NEWEST, f"{NEWEST} to 1": 1,
               # An ordinary boot.
               f"{NEWEST} to {NEWEST}": NEWEST,
               f"1 to {NEWEST}, write-ahead log": NEWEST, f"1 to {NEWEST}, hot journal": NEWEST})

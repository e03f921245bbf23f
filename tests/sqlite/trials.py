"""Walks of the program and of its guard with another SQLite library, and how their ends differ."""

import json
import re
import shutil
from subprocess import DEVNULL, PIPE

from conftest import PROGRAM
from steps import STEPS
from support.versions import NEWEST, VERSIONS, dump_of
from walks import (as_departures, database_at, device_with, expected_of_walk, left_on,
                   outcome_of_walk, sample_of_walks, walk)

GUARD = PROGRAM.parent / "guard" / "migration-guard"
KNOWN_VERSIONS = PROGRAM.parent / "schema-versions.json"
SECONDS = 300
NOTHING_CHANGED = 3
FORWARD = [(1, version, "TORVIK") for version in VERSIONS]
GUARDED = [(1, NEWEST, "TORVIK"), (NEWEST, 1, "TORVIK"), (20, 26, "TORVIKMAX")]

# Runs the program, and then removes all growers. The shell has the library of this system.
HARMFUL = """#!/usr/bin/dash
/app/migrator "$@"
exec env -u LD_LIBRARY_PATH sqlite3 /app/databases/my.db.sqlite "DELETE FROM growers"
"""
TOOLS = ("bwrap", "dash", "env", "sqlite3")

# Objects that other software may have added to a device's database. Versions 2 and 25 re-create or
# rebuild their tables, 17 renames one; no step touches cropTypes.
PLANTED = {
    "a view that names a missing table":
        "CREATE VIEW planted AS SELECT id FROM missing;",
    "a view that names a missing column":
        "CREATE VIEW planted AS SELECT missing FROM cropTypes;",
    "a trigger that writes to a missing table":
        "CREATE TRIGGER planted AFTER INSERT ON cropTypes BEGIN"
        " INSERT INTO missing (id) VALUES(1); END;",
    "a view of the table of version 2":
        "CREATE VIEW planted AS SELECT productId FROM productControl_productSettings;",
    "a view of the table of version 17":
        "CREATE VIEW planted AS SELECT id FROM internalGpsReceiverSettings;",
    "a view of a table of version 25":
        "CREATE VIEW planted AS SELECT id FROM growers;",
    "a foreign key to the table of version 2":
        "CREATE TABLE planted (product TEXT, machine INTEGER, FOREIGN KEY (product, machine)"
        " REFERENCES productControl_productSettings (productId, machineConfigId));",
    "a foreign key to the table of version 17":
        "CREATE TABLE planted (id INTEGER REFERENCES internalGpsReceiverSettings (id));",
}
PLANTED_STATEMENT = re.compile(r"^CREATE (?:VIEW|TRIGGER|TABLE) planted.*?;$", re.MULTILINE)
NAMED = re.compile(r'(?:FROM|INTO|REFERENCES) "?(\w+)')


def walks():
    return [*dict.fromkeys([*sample_of_walks(), *FORWARD])]


def with_library(folder):
    """Bubblewrap's options that make a program load the library in this folder."""
    return f"--ro-bind {folder} /sqlite --setenv LD_LIBRARY_PATH /sqlite"


def loaded_version(folder):
    """The version of SQLite that a program on a device loads."""
    with device_with("") as device:
        run = device.start(GUARD, "--version", options=with_library(folder), stdin=DEVNULL,
                           stdout=PIPE)
        output = run.communicate(timeout=SECONDS)[0].decode()
        return re.search(r"^SQLite library (.*)$", output, re.MULTILINE)[1]


def try_walk(folder, start, end, platform):
    """The differences in the end of a walk of the program."""
    return difference(expected_of_walk(start, end, platform),
                      outcome_of_walk(start, end, platform, with_library(folder)))


def try_guarded(folder, start, end, platform):
    """The differences between the end of a guarded walk and of the program alone; its exit
    status."""
    with device_with(database_at(start, platform), platform) as device:
        shutil.copy(PROGRAM, device.app)
        before = device.dump()
        status = run_guard(device, folder, str(end))
        if status == NOTHING_CHANGED and device.dump() == before:
            # There is no log, and version 1 has no versions to compare.
            return {"missing": [], "added": [], "differs": [], "status": status}
        outcome = as_departures(left_on(device), end)
    return {**difference(expected_of_walk(start, end, platform), outcome), "status": status}


def try_harmful(folder):
    """How a guarded walk of a program that removes all growers ends, and whether the database is as
    it was."""
    with device_with(dump_of(1)) as device:
        shutil.copy(PROGRAM, device.app / "migrator")
        program = device.app / PROGRAM.name
        program.write_text(HARMFUL, encoding="utf-8")
        program.chmod(0o755)
        before = device.dump()
        status = run_guard(device, folder, "--strict", str(NEWEST))
        record = json.loads((device.databases / "lastMigration.json").read_text(encoding="utf-8"))
        return {"status": status, "reason": record["lastRun"].get("reason"),
                "unchanged": device.dump() == before}


def run_guard(device, folder, *arguments):
    """Lets the guard run the program in the application directory; returns its exit status."""
    for file in (GUARD, KNOWN_VERSIONS):
        shutil.copy(file, device.app)
    binds = " ".join(f"--ro-bind /usr/bin/{tool} /usr/bin/{tool}" for tool in TOOLS)
    run = device.start(
        device.app / GUARD.name, "run", *arguments, stdin=DEVNULL, stderr=DEVNULL,
        options=f"{with_library(folder)} {binds}")
    return run.wait(SECONDS)


def try_planted(folder, case):
    """The differences in the end of the walk to the newest version when this is in the database,
    and the table that the planted statement names at the end."""
    outcome = walk(dump_of(1) + PLANTED[case], NEWEST, options=with_library(folder))
    statement = PLANTED_STATEMENT.search(outcome.dump)[0]
    return {**difference(expected_of_walk(1, NEWEST), as_departures(outcome, NEWEST)),
            "names": NAMED.search(statement)[1]}


def difference(expected, actual):
    """Two outcomes as texts: the lines of the log that are missing and those that are added, and
    what else differs."""
    parts = [text.strip("\n").split("\n== ") for text in (expected, actual)]
    (log, *_), (actual_log, *_) = parts
    sections = [dict(section.partition("\n")[::2] for section in part[1:]) for part in parts]
    names = sorted({*sections[0], *sections[1]})
    log, actual_log = log.splitlines(), actual_log.splitlines()
    return {"missing": [line for line in log if line not in actual_log],
            "added": [line for line in actual_log if line not in log],
            "differs": [name for name in names if sections[0].get(name) != sections[1].get(name)]}


def is_none(found):
    """True if a walk has ended equally, under the guard with status 0."""
    return not (found["missing"] or found["added"] or found["differs"] or found.get("status"))


def is_refused(found):
    """True if the guard has changed nothing."""
    return found.get("status") == NOTHING_CHANGED


def is_harmless(found):
    """True if the guard has kept a harmful program's result out of the database."""
    return found["status"] == NOTHING_CHANGED and found["unchanged"]


def failed_versions(found):
    """The versions whose line of success is missing."""
    return [version for version in VERSIONS[1:]
            if STEPS[version][0].splitlines()[-1] in found["missing"]]

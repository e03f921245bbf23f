#!/usr/bin/python3
"""Tries the units of packaging on an emulated computer, and cuts its power.

    campaign.py [--minutes M] [--cuts N]

The computer starts a Debian with systemd from a read-only disk; the database is on another one.
The units have the drop-ins for two systems; RAUC and the tools of U-Boot are stand-ins. Each case
says what the device software, the update engine and the boot loader must find. Then the power is
cut at moments that are spread over a migration and the time after it. The next start has to find
the old or the new database, and has to end as an undisturbed one does. Answers are kept in
build/machine/. The campaign needs root, a build of the preset dev, and the network once.
"""

import contextlib
import json
import pathlib
import sqlite3
import sys
import time
from dataclasses import dataclass

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from machine import APPLICATION, BUILD, ENGINES, HERE, UNITS, DataDisk, Machine
from support.campaign import Campaign, fingerprint, parser
from support.contents import RANDOM_IDENTIFIER
from support.places import scratch_directory
from support.versions import NEWEST

SOFTWARE = "device software: version "
FOUND_GOOD = ("update engine: status mark-good", "boot loader: good_slot=A")
BEGIN = "Starting migration-guard"
END = "Finished migration-guard"
TRIAL = "trial-boot"
# The cuts end at this multiple of the time that an undisturbed migration takes. An emulated
# computer does not always take the same time, and some cuts have to be after the commit.
CUTS_UP_TO = 1.5


@dataclass(frozen=True)
class Case:
    options: str  # of the kernel
    status: object  # of the guard's recorded run, None if there is none
    version: object  # the version that the device software finds, None if it does not start
    is_good: bool  # whether the update engine and the boot loader know the start as good
    statements: str = ""  # executed in the database at version 1
    without: str = ""  # this file of the system
    has_data: bool = True  # whether the data partition can be mounted


# A migration that ends with something to look at: this copy is in the way of version 25.
LOOK_AT_IT = "CREATE TABLE growers_temp (id);"
TOO_NEW = 99
SET_TOO_NEW = f"UPDATE tableVersion SET version = {TOO_NEW};"
TARGET = f"{APPLICATION}/schemaversion.txt"
CASES = {
    "an ordinary start migrates": Case("", 0, NEWEST, True),
    "an ordinary start goes on after status 4": Case("", 4, NEWEST, True, LOOK_AT_IT),
    "an ordinary start goes on after status 3": Case("", 3, TOO_NEW, True, SET_TOO_NEW),
    "an ordinary start goes on without a version in the image":
        Case("", None, 1, True, without=TARGET),
    "an ordinary start goes on without the data partition":
        Case("", None, "unknown", True, has_data=False),
    "an ordinary start goes on if another check fails":
        Case("other-check-fails", 0, NEWEST, True),
    "an ordinary start goes on if it cannot be found good": Case("rauc-fails", 0, NEWEST, False),
    "the first start of an update migrates": Case(TRIAL, 0, NEWEST, True),
    "the first start of an update ends on status 3": Case(TRIAL, 3, None, False, LOOK_AT_IT),
    "the first start of an update ends without a version in the image":
        Case(TRIAL, None, None, False, without=TARGET),
    "the first start of an update ends without the data partition":
        Case(TRIAL, None, None, False, has_data=False),
    "the first start of an update ends if another check fails":
        Case(f"{TRIAL} other-check-fails", 0, None, False),
    "the first start of an update ends if it cannot be found good":
        Case(f"{TRIAL} rauc-fails", 0, None, False),
}


def last_run(files):
    record = files / "lastMigration.json"
    return json.loads(record.read_text())["lastRun"] if record.exists() else {}


def content_of(files):
    """The whole database as text, without random identifiers."""
    with contextlib.closing(sqlite3.connect(files / "my.db.sqlite")) as database:
        return RANDOM_IDENTIFIER.sub("{}", "\n".join(sorted(database.iterdump())))


def found_version(output):
    versions = [line.partition(SOFTWARE)[2].strip() for line in output.splitlines()
                if SOFTWARE in line]
    if not versions:
        return None
    return int(versions[0]) if versions[0].isdecimal() else versions[0]


def try_case(machine, case):
    """The differences from what the case says."""
    with scratch_directory() as folder:
        disk = DataDisk(folder, case.statements)
        before = content_of(disk.files())
        if not case.has_data:
            disk.destroy()
        if case.without:
            machine = machine.without(case.without)
        output = machine.run(disk.path, case.options)
        run = last_run(disk.files()) if case.has_data else {}
        found = {"status": run.get("status"), "version": found_version(output),
                 "is_good": all(text in output for text in FOUND_GOOD)}
        wrong = [f"{name}: {value}" for name, value in found.items()
                 if value != getattr(case, name)]
        if run.get("way", "guarded") != "guarded":
            wrong.append(f"way: {run['way']}")
        if case.status in (3, None) and case.has_data and content_of(disk.files()) != before:
            wrong.append("the database has changed")
        return wrong


def undisturbed(machine):
    """How long a migration takes, in seconds, and the databases before it, after it and after
    another start, which may change a definition once."""
    with scratch_directory() as folder:
        disk = DataDisk(folder)
        before = content_of(disk.files())
        begin = end = 0
        with machine.started(disk.path) as process:
            for line in process.stdout:
                begin = begin or (BEGIN in line and time.monotonic())
                end = end or (END in line and time.monotonic())
        after = content_of(disk.files())
        machine.run(disk.path)
        return {"seconds": end - begin, "before": before, "after": after,
                "later": content_of(disk.files())}


def try_cut(machine, known, part):
    """What is wrong after a power cut at this part of the migration."""
    with scratch_directory() as folder:
        disk = DataDisk(folder)
        machine.cut(disk.path, BEGIN, known["seconds"] * part)
        after_cut = content_of(disk.files())
        wrong = [] if after_cut in (known["before"], known["after"]) else ["neither old nor new"]
        is_new = after_cut == known["after"]
        output = machine.run(disk.path)
        if found_version(output) != NEWEST or \
                content_of(disk.files()) != known["later" if is_new else "after"]:
            wrong.append(f"the next start ends with version {found_version(output)}")
        return {"new": is_new, "wrong": wrong}


def main():
    options = parser(__doc__)
    options.add_argument("--cuts", type=int, default=32)
    arguments = options.parse_args()
    campaign = Campaign("machine", arguments.minutes)
    of = fingerprint(UNITS, ENGINES, HERE, BUILD / "database-migrator",
                     BUILD / "guard" / "migration-guard")
    machine = Machine(campaign.folder)
    broken = False
    for name, case in CASES.items():
        task = ["case", of, name]
        if campaign.answer(task) is None and not campaign.is_over():
            campaign.note(task, try_case(machine, case))
        wrong = campaign.answer(task)
        print(f"{name}: {'not tried' if wrong is None else '; '.join(wrong) or 'as it should'}",
              flush=True)
        broken = broken or bool(wrong)
    task = ["undisturbed", of]
    if campaign.answer(task) is None and not campaign.is_over():
        campaign.note(task, undisturbed(machine))
    known = campaign.answer(task)
    answers = []
    for number in range(arguments.cuts):
        task = ["cut", of, number, arguments.cuts]
        if campaign.answer(task) is None and not campaign.is_over():
            part = CUTS_UP_TO * number / arguments.cuts
            campaign.note(task, try_cut(machine, known, part))
        if answer := campaign.answer(task):
            answers.append(answer)
            for text in answer["wrong"]:
                print(f"cut {number}: {text}", flush=True)
    new = sum(answer["new"] for answer in answers)
    print(f"{len(answers)} power cuts: {new} found the new database, the others the old one;"
          f" {sum(bool(answer['wrong']) for answer in answers)} wrong")
    if len(answers) == arguments.cuts and new in (0, len(answers)):
        print("All cuts were on the same side of the commit: they show half of what they should.")
        broken = True
    return broken or any(answer["wrong"] for answer in answers)


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/python3
"""Runs the program into faults of the disk, lets it recover, and tells what came of it.

    campaign.py [--minutes M] [--workers N] [--kinds KIND,...] [--walks WALK;...]
                [--document] [--pin]

Every kind of fault is tried at every operation of the walks from version 1 to 34 and back, in
passes that are spread over the whole walk; SQLite's memory fails at every tenth allocation. Answers
are kept in build/faults/: a campaign goes on where the last one stopped, and starts anew when the
program or what judges it has changed. --minutes ends it early. --document writes
docs/power-cut.md from what was run so far, --pin what a second run leaves otherwise than an
undisturbed one into deviations.json. Needs the preset dev built.
"""

import argparse
import hashlib
import json
import os
import shutil
import signal
import sqlite3
import sys
import time
from collections import defaultdict
from contextlib import closing

from deviations import Deviations
from document import Figures, write_document
from multiply import multiply
from workers import TESTS, answers, workers

ROOT = TESTS.parent
BUILD = ROOT / "build" / "dev"
PROGRAM = BUILD / "database-migrator"
SHIM = BUILD / "tests" / "libfault_shim.so"
KEPT = ROOT / "build" / "faults"
ANSWERS = KEPT / "answers.jsonl"
DOCUMENT = ROOT / "docs" / "power-cut.md"

OPERATIONS = ("power cut", "kill", "kill in a write", "EIO once", "EIO from then on",
              "ENOSPC once", "ENOSPC from then on", "short write once",
              "short writes from then on")
ALLOCATIONS = ("no memory once", "no memory from then on")
CASES = {"full disk": 12, "locked throughout": 3, "locked for some statements": 300,
         "pair of faults": 1000}
KINDS = (*OPERATIONS, *ALLOCATIONS, *CASES)
SECURE_DELETE_OFF = {"FAULT_SECURE_DELETE": "OFF"}
# walk: what it starts from, SQLite's switches, the kinds of fault, and in how many passes (a power
# of two).
WALKS = {
    "1 to 34": ("start", {}, KINDS, 128),
    "34 to 1": ("1 to 34/final", {}, KINDS, 128),
    "1 to 4": ("start", {}, KINDS, 8),
    "4 to 1": ("1 to 4/final", {}, KINDS, 8),
    "1 to 34, secure_delete off": ("start", SECURE_DELETE_OFF, ("full disk",), 1),
    "34 to 1, secure_delete off": ("1 to 34/final", SECURE_DELETE_OFF, ("full disk",), 1),
    "1 to 34, ten times the rows": ("ten", {}, KINDS, 1024),
    "34 to 1, ten times the rows": ("1 to 34, ten times the rows/final", {}, KINDS, 1024),
}


def fingerprint():
    """What the answers hold for: the program's sources, the data and the code that judges, but for
    the rules of the log."""
    sources = (file for folder in ("app", "schema", "migrations", "maintenance")
               for file in sorted((ROOT / folder).iterdir()))
    harness = (TESTS / "faults" / name for name in (
        "shim.c", "worker.py", "device.py", "contents.py", "cascades.py", "recording.py",
        "multiply.py"))
    files = [*sources, *harness, TESTS / "data" / "version_01.sql"]
    return hashlib.sha256(b"".join(file.read_bytes() for file in files)).hexdigest()


def start_databases():
    text = (TESTS / "data" / "version_01.sql").read_text(encoding="utf-8")
    for name, times in (("start", 1), ("ten", 10)):
        with closing(sqlite3.connect(KEPT / f"{name}.sqlite")) as database:
            database.executescript(text)
            multiply(database, times)


def prepare(worker, walks):
    """Records the undisturbed walks; what they are is kept with the answers."""
    plan_file = KEPT / "plan.json"
    plan = json.loads(plan_file.read_text()) if plan_file.exists() else {}
    if plan.get("fingerprint") != fingerprint():
        for left in KEPT.iterdir():
            shutil.rmtree(left) if left.is_dir() else left.unlink()
        start_databases()
        plan = {"fingerprint": fingerprint()}
    for name in walks:
        if name in plan:
            continue
        start, switches, *_ = WALKS[name]
        prepare(worker, [start.split("/")[0]] if "/" in start else [])
        plan = json.loads(plan_file.read_text()) if plan_file.exists() else plan
        print(f"Recording the walk from {name}", flush=True)
        plan[name] = worker.answer({
            "kind": "prepare", "scenario": name, "switches": switches,
            "target": int(name.split(",")[0].split()[2]), "start": f"/kept/{start}.sqlite"})
        for table in plan[name]["lost for a time"]:
            print(f"  {table}: between two statements some rows are nowhere")
        plan_file.write_text(json.dumps(plan))
    return plan


def number_of_cases(figures, kind):
    """How many cases there are, and at which distance they are tried."""
    if kind in ALLOCATIONS:
        return figures["allocations"], 10
    return CASES.get(kind, figures["operations"]), 1


def turn(number, passes):
    """When a pass has its turn: such that the first ones are spread over the whole walk."""
    bits = passes.bit_length() - 1
    return int(f"{number:0{bits}b}"[::-1], 2)


def tasks(plan, kinds, walks):
    """All of them, such that the walks come forward together, and every kind on them."""
    found = []
    for place, name in enumerate(walks):
        *_, walk_kinds, passes = WALKS[name]
        for kind in (kind for kind in kinds if kind in walk_kinds):
            end, distance = number_of_cases(plan[name], kind)
            for number in range(passes):
                if number * distance < end:
                    numbers = number * distance, end, passes * distance
                    found.append((turn(number, passes), place, {
                        "kind": kind, "scenario": name, "numbers": numbers}))
    return [task for *_, task in sorted(found, key=lambda entry: entry[:2])]


def read_answers():
    if not ANSWERS.exists():
        return []
    return [json.loads(line) for line in ANSWERS.read_text().splitlines()]


def forget_complaints(done):
    """Leaves the answers without complaints about the log: its rules may have been mended. Where
    one was made stricter, build/faults/ has to go."""
    kept = [(task, answer) for task, answer in done
            if not any(": log of " in text for text in answer["violations"])]
    ANSWERS.write_text("".join(json.dumps(entry) + "\n" for entry in kept))
    return kept


def print_violations(done, deviations):
    """Tells what must not be, each with the number of its cases and the first of them."""
    violations = defaultdict(list)
    for task, answer in done:
        for text in answer["violations"] + deviations.unlisted(task["scenario"], answer):
            place, _, rest = text.partition(": ")
            violations[task["scenario"], task["kind"], rest.split(" [")[0]].append(int(place))
    print(f"{sum(map(len, violations.values()))} violations")
    for (name, kind, text), places in sorted(violations.items()):
        print(f"  {name}, {kind}: {text} ({len(places)} cases, first at {min(places)})")
    return bool(violations)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--minutes", type=float, default=float("inf"))
    parser.add_argument("--workers", type=int, default=os.cpu_count())
    parser.add_argument("--kinds", default=",".join(KINDS))
    parser.add_argument("--walks", default=";".join(WALKS))
    parser.add_argument("--document", action="store_true")
    parser.add_argument("--pin", action="store_true")
    arguments = parser.parse_args()
    end = time.monotonic() + arguments.minutes * 60
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended"))  # with the workers' devices
    walks = arguments.walks.split(";")
    KEPT.mkdir(parents=True, exist_ok=True)
    with workers(arguments.workers, KEPT, PROGRAM, SHIM) as started:
        plan = prepare(started[0], walks)
        known = {json.dumps(task) for task, _ in forget_complaints(read_answers())}
        missing = [task for task in tasks(plan, arguments.kinds.split(","), walks)
                   if json.dumps(task) not in known]
        with ANSWERS.open("a") as file:
            for task, answer in answers(started, missing, end):
                file.write(json.dumps((task, answer)) + "\n")
                file.flush()
    done = read_answers()
    deviations = Deviations()
    if arguments.pin:
        deviations.pin(done)
    figures = Figures.of(plan, done)
    print(figures.table())
    broken = print_violations(done, deviations)
    for line in deviations.no_longer_met(done):
        print(f"  no longer met: {line}")
    if arguments.document:
        write_document(DOCUMENT, figures, deviations)
    return broken


if __name__ == "__main__":
    sys.exit(main())

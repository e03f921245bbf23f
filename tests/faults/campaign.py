#!/usr/bin/python3
"""Runs the program into faults of the disk, lets it recover, and tells what came of it.

    campaign.py [--minutes M] [--workers N] [--kinds KIND,...] [--scenarios WALK;...]
                [--document]

Every kind of fault is tried at every operation of the walks from version 1 to 34 and back, in
passes that each take one operation of 128 and are spread over the whole walk; SQLite's memory fails
at every tenth allocation. Answers are kept in build/faults/: a campaign goes on where the last one
stopped, and starts anew with another program. --minutes ends it early, --document writes
docs/power-cut.md from what was run so far. Needs the preset dev built.
"""

import argparse
import hashlib
import json
import os
import shutil
import sqlite3
import sys
import time
from collections import Counter, defaultdict
from contextlib import closing

from document import write_document
from workers import TESTS, answers, workers

ROOT = TESTS.parent
BUILD = ROOT / "build" / "dev"
PROGRAM = BUILD / "database-migrator"
SHIM = BUILD / "tests" / "libfault_shim.so"
KEPT = ROOT / "build" / "faults"
ANSWERS = KEPT / "answers.jsonl"
PASSES = 128
SCENARIOS = {
    "1 to 34": {}, "34 to 1": {}, "1 to 34, secure_delete off": {"FAULT_SECURE_DELETE": "OFF"},
    "34 to 1, secure_delete off": {"FAULT_SECURE_DELETE": "OFF"}}
FIRST_SCENARIO = "1 to 34"
KINDS = ("power cut", "kill", "kill in a write", "EIO once", "EIO from then on", "ENOSPC once",
         "ENOSPC from then on", "short write once", "short writes from then on", "no memory once",
         "no memory from then on", "pair of faults", "locked throughout")
PAIRS = 1000
LOCKS = 3


def fingerprint():
    """What the answers hold for: the program, the data and the code that judges."""
    files = [PROGRAM, SHIM, TESTS / "data" / "version_01.sql",
             *(TESTS / "faults" / name for name in ("worker.py", "contents.py", "recording.py"))]
    return hashlib.sha256(b"".join(file.read_bytes() for file in files)).hexdigest()


def prepare(started, scenarios):
    """Records the undisturbed walks; what they are is kept with the answers."""
    plan_file = KEPT / "plan.json"
    plan = json.loads(plan_file.read_text()) if plan_file.exists() else {}
    if plan.get("fingerprint") != fingerprint():
        for left in KEPT.iterdir():
            shutil.rmtree(left) if left.is_dir() else left.unlink()
        with closing(sqlite3.connect(KEPT / "start.sqlite")) as database:
            database.executescript((TESTS / "data" / "version_01.sql").read_text(encoding="utf-8"))
        plan = {"fingerprint": fingerprint()}
    # The first walk makes what the ones back start from.
    for name in [FIRST_SCENARIO, *scenarios]:
        if name in plan:
            continue
        print(f"Recording the walk from {name}", flush=True)
        target = int(name.split(",")[0].split()[-1])
        start = "start" if target == 34 else f"{FIRST_SCENARIO}/final"
        plan[name] = started[0].answer({
            "kind": "prepare", "scenario": name, "target": target, "switches": SCENARIOS[name],
            "start": f"/kept/{start}.sqlite"})
        for table in plan[name]["lost for a time"]:
            print(f"  {table}: between two statements some rows are nowhere")
        plan_file.write_text(json.dumps(plan))
    return plan


def tasks(plan, kinds, scenarios):
    for number in range(PASSES):
        for kind in kinds:
            for name in scenarios:
                if kind.startswith("no memory"):
                    numbers = number * 10, plan[name]["allocations"], PASSES * 10
                else:
                    end = {"pair of faults": PAIRS, "locked throughout": LOCKS}.get(
                        kind, plan[name]["operations"])
                    numbers = number, end, PASSES
                yield {"kind": kind, "scenario": name, "numbers": numbers}


def read_answers():
    if not ANSWERS.exists():
        return []
    return [json.loads(line) for line in ANSWERS.read_text().splitlines()]


def print_figures(done):
    """Per walk and kind: the cases and their outcomes, then what must not be."""
    figures, violations, passes = defaultdict(Counter), defaultdict(list), Counter()
    for task, answer in done:
        key = task["scenario"], task["kind"]
        passes[key] += 1
        for outcomes in answer["outcomes"].values():
            figures[key].update(outcomes)
        for text in answer["violations"]:
            place, _, rest = text.partition(": ")
            violations[(*key, rest.split(" [")[0])].append(place)
    columns = ("recovered", "copy left behind", "rows lost", "otherwise different", "not sound")
    print(f"{'walk':28}{'fault':27}{'passes':>7}{'cases':>8}"
          + "".join(f"{column:>21}" for column in columns))
    for (name, kind), counts in sorted(figures.items()):
        print(f"{name:28}{kind:27}{passes[name, kind]:>7}{counts.total():>8}"
              + "".join(f"{counts[column]:>21}" for column in columns))
    print(f"\n{sum(map(len, violations.values()))} violations")
    for (name, kind, text), places in sorted(violations.items()):
        print(f"  {name}, {kind}: {text} ({len(places)} cases, first at {min(places, key=int)})")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--minutes", type=float, default=float("inf"))
    parser.add_argument("--workers", type=int, default=os.cpu_count())
    parser.add_argument("--kinds", default=",".join(KINDS))
    parser.add_argument("--scenarios", default=";".join(SCENARIOS))
    parser.add_argument("--document", action="store_true")
    arguments = parser.parse_args()
    scenarios = arguments.scenarios.split(";")
    KEPT.mkdir(parents=True, exist_ok=True)
    with workers(arguments.workers, KEPT, PROGRAM, SHIM) as started:
        plan = prepare(started, scenarios)
        known = {json.dumps(task) for task, _ in read_answers()}
        end = time.monotonic() + arguments.minutes * 60
        missing = (task for task in tasks(plan, arguments.kinds.split(","), scenarios)
                   if json.dumps(task) not in known)
        with ANSWERS.open("a") as file:
            for task, answer in answers(started, missing, end):
                file.write(json.dumps((task, answer)) + "\n")
                file.flush()
    done = read_answers()
    print_figures(done)
    if arguments.document:
        write_document(ROOT / "docs" / "power-cut.md", plan, done)
    return any(answer["violations"] for _, answer in done)


if __name__ == "__main__":
    sys.exit(main())

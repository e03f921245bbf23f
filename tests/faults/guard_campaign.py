#!/usr/bin/python3
"""Runs the guard, bubblewrap and the program into faults, lets the guard run again, and reports the
outcomes.

Every kind of fault is tried at the operations of the guard. Kills and signals are also tried at
some operations of the program below it; docs/power-cut.md says why some are enough. The places that
tell most come first, spread over the run, so a campaign that ends early is a sample. The answers
are kept in build/faults-guard/, and a campaign goes on where the last one stopped. It starts over
when the guard, the program, the shim or the code that judges has changed; comments do not count. It
needs a build of the preset dev.

--case "WALK;KIND;POSITION" repeats one case alone, by the name that the report of a violation gives
it.
"""

import json
import os
import signal
import sys
from collections import defaultdict

# This import is first: it finds the folder of the shared package.
from campaign import fingerprint, run_tasks
from document import GuardFigures, write_document
from guarded import BOOT
from subjects import GUARD, GUARD_KINDS
from support.campaign import Campaign, parser
from workers import workers

CASES_OF_A_TASK = 8


def prepare(folder, worker, names):
    """Records the undisturbed runs; returns what they took, by scenario."""
    plan_file = folder / "plan.json"
    plan = json.loads(plan_file.read_text()) if plan_file.exists() else {}
    for name in names:
        if name not in plan:
            print(f"Recording {name}", flush=True)
            plan[name] = worker.answer(
                {"kind": "prepare", "scenario": name, "target": GUARD.scenarios[name]})
            plan_file.write_text(json.dumps(plan))
    return plan


def tasks(plan, names, kinds, most_cases):
    """All tasks. The scenarios and the kinds advance together."""
    found = []
    for name in names:
        for kind, number in plan[name]["places"].items():
            if kind not in kinds:
                continue
            for first in range(0, min(number, most_cases), CASES_OF_A_TASK):
                end = min(first + CASES_OF_A_TASK, number, most_cases)
                found.append((first, {"kind": kind, "scenario": name, "numbers": (first, end, 1)}))
    return [task for _, task in sorted(found, key=lambda entry: entry[0])]


def print_violations(done):
    """Prints the broken rules, each with the command lines that repeat its cases."""
    violations = defaultdict(list)
    for task, answer in done:
        for text in answer["violations"]:
            position, _, rest = text.partition(": ")
            rest, _, place = rest.partition(" [")
            violations[rest].append(
                f"--case \"{task['scenario']};{task['kind']};{position}\" ({place.rstrip(']')})")
    print(f"{sum(map(len, violations.values()))} violations")
    for text, cases in sorted(violations.items()):
        print(f"  {text}: {len(cases)} cases", *sorted(cases), sep="\n    ")
    return bool(violations)


def run_case(worker, case):
    name, kind, position = case.split(";")
    answer = worker.answer({"kind": kind, "scenario": name,
                            "numbers": (int(position), int(position) + 1, 1)})
    print(json.dumps(answer, indent=1))
    return bool(answer["violations"])


def main():
    options = parser(__doc__)
    options.add_argument("--workers", type=int, default=2 * os.cpu_count(),
                         help="two for each core, since a run waits half of the time")
    options.add_argument("--kinds", default=",".join(GUARD_KINDS), help="of faults, with commas")
    options.add_argument("--walks", default=";".join(GUARD.scenarios), help="with semicolons")
    options.add_argument("--cases", type=int, default=sys.maxsize,
                         help="the most for a kind and a walk")
    options.add_argument("--case", help="this one only: WALK;KIND;POSITION")
    options.add_argument("--document", action="store_true",
                         help="write docs/power-cut.md with what was run so far")
    arguments = options.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended"))  # with the workers' devices
    campaign = Campaign("faults-guard", arguments.minutes)
    # The guard's note of a run distinguishes one start of the machine from another.
    campaign.start_over_unless(fingerprint(GUARD) + BOOT.read_text())
    number = 1 if arguments.case else arguments.workers
    with workers(number, campaign.folder, GUARD.module, GUARD.files) as started:
        names = arguments.walks.split(";")
        plan = prepare(campaign.folder, started[0], names)
        if arguments.case:
            return run_case(started[0], arguments.case)
        run_tasks(campaign, started, tasks(
            plan, names, arguments.kinds.split(","), arguments.cases))
    done = campaign.answers()
    figures = GuardFigures.of(plan, done)
    print(figures.table())
    broken = print_violations(done)
    if arguments.document:
        write_document(guard=figures)
    return broken


if __name__ == "__main__":
    sys.exit(main())

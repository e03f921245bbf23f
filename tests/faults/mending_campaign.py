#!/usr/bin/python3
"""Mends the databases that the program leaves when it is cut, lets it run, and reports the
outcomes.

Every state that a kill or a power cut of a walk leaves is tried once, and counts as often as it
occurs. The answers are kept in build/faults-mending/, and a campaign goes on where the last one
stopped. It starts over when the program, the mending or the code that judges has changed; comments
do not count. It needs a build of the preset dev.
"""

import os
import signal
import sys
from dataclasses import replace

# This import is first: it finds the folder of the shared package.
from campaign import fingerprint, prepare, run_tasks, start_databases
from campaign import tasks as tasks_of_program
from mending_document import DOCUMENT, WAYS, Figures, by_step, causes, document, table
from mended import KILL, KILL_IN_A_WRITE, POWER_CUT
from subjects import BUILD, HERE, MIGRATOR
from support.campaign import Campaign, parser
from support.places import ROOT, TESTS
from workers import workers

STATES_OF_A_TASK = 20
OPERATIONS_OF_A_TASK = 2000
KINDS = (KILL, KILL_IN_A_WRITE, POWER_CUT)
# The walks of campaign.py in which the program is killed or the power is cut.
WALKS = tuple(name for name, scenario in MIGRATOR.scenarios.items()
              if set(KINDS) & set(scenario.sample[1] if scenario.sample else scenario.kinds))
SCHEMA_VERSIONS = ROOT / "guard" / "schema-versions.json"
MEND = BUILD / "tests" / "mend"


def files_of_mending(files, mend):
    return {**files, "/app/mend": mend, "/app/schema-versions.json": SCHEMA_VERSIONS}


MENDING = replace(
    MIGRATOR, module="mended", files=files_of_mending(MIGRATOR.files, MEND),
    sources=(*MIGRATOR.sources, SCHEMA_VERSIONS, TESTS / "guard" / "mend.cpp",
             *(ROOT / "guard" / f"{name}.cpp" for name in (
                 "known_copies", "mending", "recorded_version", "row_key",
                 "verdict/version_table"))),
    judges=(*MIGRATOR.judges, HERE / "mended.py", TESTS / "support" / "kept_rows.py"))


def tasks(plan, names):
    """All tasks; those that count how often each state occurs come first. A walk that campaign.py
    samples has the same sample."""
    for name in names:
        if MENDING.scenarios[name].sample:
            yield from tasks_of_program(MENDING, plan, KINDS, [name])
            continue
        operations = plan[name]["operations"]
        for kind in KINDS:
            for first in range(0, operations, OPERATIONS_OF_A_TASK):
                end = min(first + OPERATIONS_OF_A_TASK, operations)
                yield {"kind": kind, "scenario": name, "numbers": (first, end, 1)}
    for name in names:
        for first in range(0, plan[name]["states"], STATES_OF_A_TASK):
            end = min(first + STATES_OF_A_TASK, plan[name]["states"])
            yield {"kind": "states", "scenario": name, "numbers": (first, end, 1)}


def violations_of(done):
    return sorted({f"{task['scenario']}, state {place}: {text}" for task, answer in done
                   if task["kind"] == "states" for place, state in answer
                   for way in WAYS for text in state[way]["violations"]})


def main():
    options = parser(__doc__)
    options.add_argument("--workers", type=int, default=os.cpu_count(), help="one for each core")
    options.add_argument("--walks", default=";".join(WALKS), help="with semicolons")
    options.add_argument("--document", action="store_true",
                         help="write docs/mending.md from what was run so far")
    arguments = options.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended"))  # with the workers' devices
    campaign = Campaign("faults-mending", arguments.minutes)
    campaign.start_over_unless(fingerprint(MENDING))
    start_databases(campaign.folder)
    with workers(arguments.workers, campaign.folder, MENDING.module, MENDING.files) as started:
        names = arguments.walks.split(";")
        plan = prepare(MENDING, campaign.folder, started[0], names, campaign.is_over)
        names = [name for name in names if name in plan]
        run_tasks(campaign, started, list(tasks(plan, names)))
    done = campaign.answers()
    figures = Figures.of(done)
    print(table([*by_step(figures)]), table([*causes(figures)]), sep="\n")
    violations = violations_of(done)
    print(f"{len(violations)} violations", *violations, sep="\n  ")
    if arguments.document:
        figures.write()
        DOCUMENT.write_text(document(figures), encoding="utf-8")
    return bool(violations)


if __name__ == "__main__":
    sys.exit(main())

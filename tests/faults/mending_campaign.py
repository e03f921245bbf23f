#!/usr/bin/python3
"""Mends what the program leaves when it is cut, lets it run, and tells what came of it.

Every state that a kill or a power cut of a walk leaves is looked at once and counts as often as it
is left. The answers are kept in build/faults-mending/, and a campaign goes on where the last one
stopped. It starts over when the program, the mending or the code that judges has changed; comments
do not count. Needs the preset dev to be built.
"""

import os
import signal
import sys
from collections import Counter, defaultdict
from dataclasses import replace

# First: it finds the folder of the shared package.
from campaign import fingerprint, prepare, run_tasks, start_databases
from mended import KILL, KILL_IN_A_WRITE, POWER_CUT
from subjects import BUILD, HERE, MIGRATOR
from support.campaign import Campaign, parser
from support.places import ROOT, TESTS
from workers import workers

STATES_OF_A_TASK = 20
OPERATIONS_OF_A_TASK = 2000
KINDS = (KILL, KILL_IN_A_WRITE, POWER_CUT)
WAYS = ("alone", "mended", "mended later")
OUTCOMES = ("recovered", "copy left over", "rows lost", "other difference", "not sound")
SCHEMA_VERSIONS = ROOT / "guard" / "schema-versions.json"
MEND = BUILD / "tests" / "mend"


def files_of_mending(files, mend):
    return {**files, "/app/mend": mend, "/app/schema-versions.json": SCHEMA_VERSIONS}


MENDING = replace(
    MIGRATOR, module="mended", files=files_of_mending(MIGRATOR.files, MEND),
    sources=(*MIGRATOR.sources, SCHEMA_VERSIONS, TESTS / "guard" / "mend.cpp",
             *(ROOT / "guard" / f"{name}.cpp" for name in ("known_copies", "mending", "row_key"))),
    judges=(*MIGRATOR.judges, HERE / "mended.py", TESTS / "support" / "kept_rows.py"))


def tasks(plan, names):
    """All tasks; those that count how often a state is left come first."""
    for name in names:
        operations = plan[name]["operations"]
        for kind in KINDS:
            for first in range(0, operations, OPERATIONS_OF_A_TASK):
                end = min(first + OPERATIONS_OF_A_TASK, operations)
                yield {"kind": kind, "scenario": name, "numbers": (first, end, 1)}
    for name in names:
        for first in range(0, plan[name]["states"], STATES_OF_A_TASK):
            end = min(first + STATES_OF_A_TASK, plan[name]["states"])
            yield {"kind": "states", "scenario": name, "numbers": (first, end, 1)}


class Figures:
    """How many kills and power cuts came to which end, by walk, step and way."""

    def __init__(self, done):
        states, self.cases = {}, defaultdict(Counter)
        self.reasons, self.violations = defaultdict(Counter), set()
        for task, answer in done:
            if task["kind"] == "states":
                states.update({(task["scenario"], place): state for place, state in answer})
        for task, answer in done:
            if task["kind"] != "states":
                for place, step, number in answer:
                    state = states.get((task["scenario"], place))
                    if state:
                        self._add(task["scenario"], step, state, number)

    def _add(self, name, step, state, number):
        ends = tuple(state[way]["outcome"] for way in WAYS)
        self.cases[name, step][ends] += number
        for way in WAYS[1:]:
            self.violations.update(f"{name}, {step}: {text}" for text in state[way]["violations"])
            if state["copies"] and state[way]["outcome"] != "recovered":
                self.reasons[way, name, step][
                    "; ".join(state[way]["differences"]), "; ".join(state[way]["done"])] += number

    def counts(self, way, *places):
        """The numbers of a way in the order of the outcomes."""
        result = Counter()
        for place in places or self.cases:
            for ends, number in self.cases[place].items():
                result[ends[WAYS.index(way)]] += number
        return [result[outcome] for outcome in OUTCOMES]

    def table(self):
        lines = [f"{'walk':8} {'step':6}" + "".join(f" {way:>32}" for way in WAYS)]
        for name, step in [*self.cases, ("all", "")]:
            places = [(name, step)] if step else []
            lines.append(f"{name:8} {step:6}" + "".join(
                f" {' / '.join(map(str, self.counts(way, *places))):>32}" for way in WAYS))
        return "\n".join(lines)

    def first_ends(self):
        """For what the program alone left: what the other ways made of it."""
        found = defaultdict(Counter)
        for ends in self.cases.values():
            for (alone, mended, later), number in ends.items():
                found[alone]["at once", mended] += number
                found[alone]["later", later] += number
        return found


def main():
    options = parser(__doc__)
    options.add_argument("--workers", type=int, default=os.cpu_count(), help="one for each core")
    options.add_argument("--walks", default="1 to 4;4 to 1;1 to 34;34 to 1", help="with semicolons")
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
    figures = Figures(campaign.answers())
    print(figures.table())
    for alone, ends in figures.first_ends().items():
        print(alone, *(f"{when}, {end}: {number}" for (when, end), number in sorted(ends.items())),
              sep="\n  ")
    for place, reasons in figures.reasons.items():
        print(*place)
        for (differences, done), number in reasons.most_common():
            print(f"  {number}: {differences or '-'} [{done}]")
    print(f"{len(figures.violations)} violations", *sorted(figures.violations), sep="\n  ")
    return bool(figures.violations)


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/python3
"""Runs the program into faults of the disk, lets it recover, and reports the outcomes.

Every kind of fault is tried at every operation of the walks from version 1 to the newest and back,
in passes that are spread over the whole walk; SQLite's memory fails at every tenth allocation. With
ten times the rows a sample of kills and power cuts is tried. The answers are kept in build/faults/,
and a campaign goes on where the last one stopped. It starts over when the program, its data, the
shim or the code that judges has changed; comments do not count. It needs a build of the preset dev.
"""

import ast
import hashlib
import json
import os
import pathlib
import re
import signal
import sqlite3
import sys
import time
from collections import defaultdict
from contextlib import closing

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from deviations import Deviations
from document import Figures, write_document
from multiply import multiply
from subjects import ALLOCATIONS, KINDS, MIGRATOR, TIMES
from support.campaign import Campaign, parser
from support.versions import dump_of
from workers import answers, workers

DISTANCE_OF_ALLOCATIONS = 10
SECONDS_BETWEEN_REPORTS = 60
LITERAL_OR_COMMENT = re.compile(
    r"""("(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+')|//[^\n]*|/\*.*?\*/""", re.DOTALL)


def without_comments(file):
    """The text of a source, without its comments and the white space at the ends of lines."""
    text = file.read_text(encoding="utf-8")
    if file.suffix in (".c", ".cpp", ".h"):
        text = LITERAL_OR_COMMENT.sub(lambda match: match[1] or "", text)
        return "\n".join(filter(None, map(str.strip, text.splitlines())))
    if file.suffix != ".py":
        return text
    tree = ast.parse(text)
    for node in ast.walk(tree):
        match getattr(node, "body", None):
            case [ast.Expr(value=ast.Constant()), *_]:
                del node.body[0]
    return ast.dump(tree)


def fingerprint(subject):
    """A fingerprint of everything that the answers depend on: the sources and data of the subject,
    the shim, and the code that runs and judges a case, each without its comments."""
    texts = map(without_comments, (*subject.sources, *subject.judges))
    return hashlib.sha256("\0".join(texts).encode()).hexdigest()


def start_databases(folder):
    for name, times in (("start", 1), ("ten", 10)):
        file = folder / f"{name}.sqlite"
        if not file.exists():
            with closing(sqlite3.connect(file)) as database:
                database.executescript(dump_of(1))
                multiply(database, times)


def prepare(subject, folder, worker, names, is_over=lambda: False):
    """Records the undisturbed runs, and returns how many operations and allocations each had, by
    scenario. Once is_over() is true, no further run begins."""
    plan_file = folder / "plan.json"
    plan = json.loads(plan_file.read_text()) if plan_file.exists() else {}
    for name in names:
        if name in plan or is_over():
            continue
        scenario = subject.scenarios[name]
        before, final, _ = scenario.start.partition("/final")
        if final:
            plan = prepare(subject, folder, worker, [before])
        print(f"Recording the walk from {name}", flush=True)
        plan[name] = worker.answer({
            "kind": "prepare", "scenario": name, "switches": dict(scenario.switches),
            "target": scenario.target, "start": f"/kept/{scenario.start}.sqlite"})
        for table in plan[name]["lost for a time"]:
            print(f"  {table}: between two statements some rows are nowhere")
        plan_file.write_text(json.dumps(plan))
    return plan


def number_of_cases(figures, kind):
    """Returns how many cases there are, and at which distance they are tried."""
    if kind in ALLOCATIONS:
        return figures["allocations"], DISTANCE_OF_ALLOCATIONS
    return TIMES.get(kind, figures["operations"]), 1


def turn(number, passes):
    """The turn of a pass: the first turns are spread over the whole walk."""
    bits = passes.bit_length() - 1
    return int(f"{number:0{bits}b}"[::-1], 2)


def tasks(subject, plan, kinds, names, every_case=False):
    """All tasks. A sampled scenario has only its sample, unless every case is asked for. All
    scenarios and all kinds advance together."""
    found = []
    for place, name in enumerate(names):
        scenario = subject.scenarios[name]
        turns, scenario_kinds = scenario.passes, scenario.kinds
        if scenario.sample and not every_case:
            turns, scenario_kinds = scenario.sample
        for kind in (kind for kind in kinds if kind in scenario_kinds):
            end, distance = number_of_cases(plan[name], kind)
            for number in range(scenario.passes):
                if number * distance < end and turn(number, scenario.passes) < turns:
                    numbers = number * distance, end, scenario.passes * distance
                    found.append((turn(number, scenario.passes), place, {
                        "kind": kind, "scenario": name, "numbers": numbers}))
    return [task for *_, task in sorted(found, key=lambda entry: entry[:2])]


def places(task):
    """The number of operations, allocations or times that a task tries."""
    return len(range(*task["numbers"]))


def report(done, all_tasks, begun, places_at_begin):
    """Prints how far the campaign is."""
    here, of = sum(map(places, done)), sum(map(places, all_tasks))
    rate = (here - places_at_begin) / (time.monotonic() - begun)
    print(f"{here:,} of {of:,} places, {rate:.1f} per second, about"
          f" {(of - here) / max(rate, 0.1) / 60:.0f} minutes left", flush=True)


def run_tasks(campaign, started, all_tasks):
    done = [task for task in all_tasks if campaign.answer(task) is not None]
    missing = [task for task in all_tasks if campaign.answer(task) is None]
    begun, places_at_begin = time.monotonic(), sum(map(places, done))
    next_report = begun + SECONDS_BETWEEN_REPORTS
    for task, answer in answers(started, missing, campaign.is_over):
        campaign.note(task, answer)
        done.append(task)
        if time.monotonic() > next_report:
            next_report += SECONDS_BETWEEN_REPORTS
            report(done, all_tasks, begun, places_at_begin)


def print_violations(done, deviations):
    """Prints the broken rules, each with the number of its cases and the first of them."""
    violations = defaultdict(list)
    for task, answer in done:
        for text in answer["violations"] + deviations.unlisted(task["scenario"], answer):
            place, _, rest = text.partition(": ")
            violations[task["scenario"], task["kind"], rest.split(" [")[0]].append(int(place))
    print(f"{sum(map(len, violations.values()))} violations")
    for (name, kind, text), numbers in sorted(violations.items()):
        print(f"  {name}, {kind}: {text} ({len(numbers)} cases, first at {min(numbers)})")
    return bool(violations)


def complains_about_log(_, answer):
    """True for an answer that is to be tried again, since the rules of the log may have been
    corrected. After a rule was made stricter, delete build/faults/."""
    return any(": log of " in text for text in answer["violations"])


def main():
    subject = MIGRATOR
    options = parser(__doc__)
    options.add_argument("--workers", type=int, default=os.cpu_count(), help="one for each core")
    options.add_argument("--kinds", default=",".join(KINDS), help="of faults, with commas")
    options.add_argument("--walks", default=";".join(subject.scenarios), help="with semicolons")
    options.add_argument("--every-case", action="store_true",
                         help="with ten times the rows too: a million cases, which take weeks")
    options.add_argument("--document", action="store_true",
                         help="write docs/power-cut.md from what was run so far")
    options.add_argument("--pin", action="store_true",
                         help="add what a second run leaves different to deviations.json")
    arguments = options.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended"))  # with the workers' devices
    campaign = Campaign("faults", arguments.minutes)
    campaign.start_over_unless(fingerprint(subject))
    campaign.forget(complains_about_log)
    start_databases(campaign.folder)
    with workers(arguments.workers, campaign.folder, subject.module, subject.files) as started:
        names = arguments.walks.split(";")
        plan = prepare(subject, campaign.folder, started[0], names, campaign.is_over)
        names = [name for name in names if name in plan]
        run_tasks(campaign, started, tasks(
            subject, plan, arguments.kinds.split(","), names, arguments.every_case))
    done = campaign.answers()
    deviations = Deviations()
    if arguments.pin:
        deviations.pin(done)
    figures = Figures.of(plan, done)
    print(figures.table())
    broken = print_violations(done, deviations)
    all_tasks = tasks(subject, plan, KINDS, names)
    if all(campaign.answer(task) is not None for task in all_tasks):
        for line in deviations.no_longer_met(done, names):
            print(f"  no longer met: {line}")
    if arguments.document:
        write_document(figures, deviations)
    return broken


if __name__ == "__main__":
    sys.exit(main())

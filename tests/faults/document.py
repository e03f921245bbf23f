"""The figures of a campaign, and docs/power-cut.md, which is made from them and from the list of
deviations."""

import json
import pathlib
from collections import defaultdict

import cascades
from deviations import CAUSES, Deviations, in_order, rows_of_json
from invariant import MISREAD, REQUIRED_LOSSES, REQUIRED_VALUES
from support.places import ROOT
from support.versions import NEWEST
from tree import SECONDS_FOR_ORPHANS

FIGURES = pathlib.Path(__file__).parent / "figures.json"
DOCUMENT = ROOT / "docs" / "power-cut.md"
OUTCOMES = ("recovered", "copy left over", "rows lost", "other difference", "not sound")
GROUPS = {
    "kill, power cut": ("kill", "kill in a write", "power cut"),
    "error of the disk": ("EIO once", "EIO from then on"),
    "no room": ("ENOSPC once", "ENOSPC from then on", "short write once",
                "short writes from then on"),
    "no memory": ("no memory once", "no memory from then on"),
}
LOST = " rows in no table"
GUARD_OUTCOMES = ("old", "new", "direct", "wrong")

INTRODUCTION = """\
# What a power cut leaves

For whoever decides how a device is protected during a migration (buffered power, a copy of the
database, a second try), and for whoever repairs a database after an interrupted one: what the
program alone leaves, how often, and why. Made by `tests/faults/campaign.py --document`, and
`guard_campaign.py --document` for the program under the guard.

The program met faults of the disk, of memory and of locks on the way from version 1 to {newest} and
back, on the database of tests/data/version_01.sql and on one with ten times the rows. After each
fault it was run again to the same version, and once more.

## In short

{cases:,} cases, of which {violations} broke a rule. The rules: the database is sound; after a kill
or a power cut it is the database after some statement of the undisturbed run; tables that no step
changes are unchanged, and rows that a step moves are in the table or in its copy; the log says what
failed; the next run ends well. The last section has the exceptions.

- Every statement is a transaction of its own. A fault stops a walk between two statements, or makes
  one statement fail. The version is recorded at the end of a walk only, so an interrupted walk
  starts over. A step whose work is already done or half done may fail, or do it twice.
- Of {interrupted:,} kills and power cuts, the next run put {recovered:,} right. {copies:,} left a
  copy of a table over, {other:,} left some other difference, {lost:,} cost rows
  ({tables}).

Compared with an undisturbed run, the second run had one of these outcomes. Tables have the numbers
of cases in this order:

- recovered: the same tables, definitions and rows
- copy left over: a copy aside (`_temp`, `_old`) is still there, with rows that the table lacks
- rows lost: rows, by their keys, are in no table
- other difference: no row is missing, but a value, a column or a definition differs
"""

UNDER_THE_GUARD = """\
## The program alone, and under the guard

The same faults. Alone: how many cases the next run put right, and how many cost rows. Under the
guard (docs/guard.md): "right" means that the database was the old or the new one, that the log had
every change that the database has, that no process was left for longer than {seconds} seconds, and
that the next run ended as an undisturbed one does. "direct" counts broken rules after the guard had
run the program directly, without protection. Kills are at the guard's own operations and at some of
the program's, power cuts at operations on the disk, errors and lack of memory at the guard's own.

"""

GUARD_KINDS = """\
The cases under the guard: those that left the old database, those that left the new one, those that
broke a rule in a direct run, those that broke a rule under the guard, and how many different states
of the device they left. Each state was recovered once. "24 of 445" tells how many places were tried
where it is not all of them. Where a fault changes nothing there is no case.

"""

GUARD_UNITS = """\
What an undisturbed run does. The program works in memory: between two operations on the disk a kill
of everything leaves the same files. So there are few states of the disk for many operations. The
guard was killed at every operation, and half-way through every write; each kill left exactly the
state that the recording predicts. If the program is killed, the guard reacts, so each walk has one
resulting state, whatever the operation; this was tried at some 200. Signals came at the first and
the last of similar operations in a row. Every tenth allocation of the guard failed once; every 50th
failed with all after it.

"""

LOST_ROWS = """\
## Rows lost, by table

Cases after which rows of a table, by their keys, were in no table. All these losses are required;
the last section has the reasons. On the way back, the rows of preferredGpsSolutions are still there
as receivers. "any": no step can be named (locks, full disks, pairs of faults).

"""

WHY = """\
## Why a difference is left

The numbers are the steps in which the fault happened. tests/faults/deviations.json has each
difference; it may only get shorter: the tests and the campaign fail at a difference that is not in
it.

"""

HOW_OFTEN = """\
## How often

Every operation meets every kind of fault that is possible for it, and every tenth allocation fails;
with ten times the rows only a sample is tried. If faults in the same step leave equal states, the
next run is tried once and counts for each. Power cuts take turns: what was not synced is dropped,
kept, kept up to some write, kept in part, only its end is kept, or it is torn at 512 bytes.

"""


class Figures:
    """The outcomes of the cases: how many cases had each."""

    def __init__(self, newest, violations, walks, kinds, steps, lost):
        self.newest = newest  # the newest version at the time of the campaign
        self.violations = violations
        self.walks = walks  # operations and allocations by walk
        self.kinds = kinds  # outcomes by walk and kind of fault
        self.steps = steps  # outcomes by walk, step and group of kinds
        self.lost = lost  # cases by walk, table and step: interrupted, no memory, other faults

    @classmethod
    def of(cls, plan, done):
        ways = f"1 to {NEWEST}", f"{NEWEST} to 1"
        groups = {kind: group for group, kinds in GROUPS.items() for kind in kinds}
        kinds, violations = defaultdict(dict), 0
        steps, lost = ({way: defaultdict(dict) for way in ways} for _ in range(2))
        for task, answer in done:
            walk, kind = task["scenario"], task["kind"]
            violations += len(answer["violations"])
            for step, counts in answer["outcomes"].items():
                row = [counts.get(outcome, 0) for outcome in OUTCOMES]
                add(kinds[walk], kind, row)
                if walk in ways and kind in groups:
                    add(steps[walk][step], groups[kind], row[:-1])
            for step, lines in answer["differences"].items() if walk in ways else ():
                for line, number in lines.items():
                    if line.endswith(LOST):
                        group = groups.get(kind)
                        add(lost[walk][line.removesuffix(LOST)], step,
                            [number * (group == "kill, power cut"), number * (group == "no memory"),
                             number * (group not in ("kill, power cut", "no memory"))])
        walks = {name: {unit: plan[name][unit] for unit in ("operations", "allocations")}
                 for name in sorted(kinds)}
        return cls(NEWEST, violations, walks, kinds, steps, lost)

    @classmethod
    def read(cls):
        return cls(**read_figures()["program"])

    @property
    def ways(self):
        return f"1 to {self.newest}", f"{self.newest} to 1"

    def total(self, kinds=None):
        return [sum(column) for column in zip(*(
            row for by_kind in self.kinds.values() for kind, row in by_kind.items()
            if kinds is None or kind in kinds))]

    def table(self):
        """For each walk and kind: the number of places for it, the cases and their outcomes."""
        rows = []
        for walk, by_kind in sorted(self.kinds.items()):
            for kind, row in sorted(by_kind.items()):
                unit = "allocations" if kind in GROUPS["no memory"] else "operations"
                rows.append([walk, kind, f"{self.walks[walk][unit]:,} {unit}", sum(row), *row])
        return table(["walk", "fault", "of", "cases", *OUTCOMES], rows)


class GuardFigures:
    """The outcomes of the cases of the program under the guard."""

    def __init__(self, violations, walks, kinds):
        self.violations = violations
        self.walks = walks  # what an undisturbed run does, by walk
        # By walk and kind of fault: the outcomes, the different states, the places that were tried.
        self.kinds = kinds

    @classmethod
    def of(cls, plan, done):
        kinds, states, violations = defaultdict(dict), defaultdict(set), 0
        for task, answer in done:
            walk, kind = task["scenario"], task["kind"]
            violations += len(answer["violations"])
            new = set(answer["states"]) - states[walk, kind]
            states[walk, kind] |= new
            add(kinds[walk], kind, [
                *(answer["outcomes"].get(outcome, 0) for outcome in GUARD_OUTCOMES), len(new),
                len(range(*task["numbers"]))])
        return cls(violations, {walk: plan[walk] for walk in kinds}, kinds)

    @classmethod
    def read(cls):
        figures = read_figures().get("guard")
        return figures and cls(**figures)

    def table(self):
        """For each walk and kind: the places for it, those that were tried, the states and
        outcomes."""
        return table(["walk", "fault", "places", "tried", "states", *GUARD_OUTCOMES], [
            [walk, kind, self.walks[walk]["places"][kind], tried, states, *row]
            for walk, by_kind in self.kinds.items()
            for kind, (*row, states, tried) in sorted(by_kind.items())])

    def total(self, walks, kinds=None):
        return [sum(column) for column in zip([0] * (len(GUARD_OUTCOMES) + 2), *(
            row for walk in walks for kind, row in self.kinds.get(walk, {}).items()
            if kinds is None or kind in kinds))]


def read_figures():
    return json.loads(FIGURES.read_text(encoding="utf-8"))


def write_figures(by_subject):
    depths = {"walks": 1, "kinds": 2, "steps": 2, "lost": 2}
    subjects = []
    for subject, figures in by_subject.items():
        entries = (f"{json.dumps(name)}: {rows_of_json(value, depths.get(name, 0))}"
                   for name, value in figures.items())
        subjects.append(f"{json.dumps(subject)}: {{\n" + ",\n".join(entries) + "\n}")
    FIGURES.write_text("{\n" + ",\n".join(subjects) + "\n}\n", encoding="utf-8")


def add(rows, key, row):
    rows[key] = [a + b for a, b in zip(rows.get(key, [0] * len(row)), row)]


def table(header, rows, wide=False):
    """A table; one with long cells is not padded."""
    rows = [[str(cell) for cell in row] for row in rows]
    widths = [0 if wide else max(map(len, column)) for column in zip(header, *rows)]
    lines = [header, ["-" * max(3, width) for width in widths], *rows]
    return "".join(
        "| " + " | ".join(map(str.ljust, line, widths)) + " |\n" for line in lines) + "\n"


def cell(counts):
    return " / ".join(map(str, counts[:4])) if counts else ""


def in_order_of(walk, steps):
    """The steps in the order of the walk; "before" is first, "after" and "any" are last."""
    numbers = sorted((step for step in steps if step.isdigit()), key=int,
                     reverse=not walk.startswith("1 "))
    return [step for step in ("before", *numbers, "after", "any") if step in steps]


def by_step(figures):
    text = ""
    for walk in figures.ways:
        rows = figures.steps.get(walk, {})
        text += f"## From version {walk}, by step\n\n"
        text += table(["step", *GROUPS], [
            [step, *(cell(rows[step].get(group)) for group in GROUPS)]
            for step in in_order_of(walk, rows) if step != "any"])
    return text


def lost_rows(figures):
    rows = []
    for walk in figures.ways:
        few = []
        for name, steps in sorted(figures.lost.get(walk, {}).items(), key=str):
            interrupted, memory, other = map(sum, zip(*steps.values()))
            if interrupted or other:
                rows.append([walk, name, ", ".join(in_order_of(walk, steps)), interrupted, memory,
                             other])
            else:
                few.append((name, memory))
        if few:
            rows.append([walk, ", ".join(name for name, _ in few), "several", 0,
                         sum(number for _, number in few), 0])
    return LOST_ROWS + table(
        ["walk", "table", "step", "kill, power cut", "no memory", "other faults"], rows, wide=True)


def causes(deviations):
    forward, back = deviations.by_cause("1 to newest"), deviations.by_cause("newest to 1")
    rows = []
    for cause in dict.fromkeys(cause for *_, cause in CAUSES):
        (steps, tables), (steps_back, tables_back) = forward[cause], back[cause]
        if steps or steps_back:
            rows.append([cause, runs(steps), runs(steps_back),
                         ", ".join(sorted(tables | tables_back, key=str.casefold))])
    return WHY + table(["cause", "forward", "back", "tables"], rows, wide=True)


def runs(steps):
    """Steps as text: 7, 8, 9 as 7-9. Cases for which no step can be named are left out."""
    result = []
    for step in sorted(steps - {"any"}, key=in_order):
        if result and step.isdigit() and result[-1][1] == str(int(step) - 1):
            result[-1][1] = step
        else:
            result.append([step, step])
    return ", ".join(first if first == last else f"{first}-{last}" for first, last in result)


def how_often(figures):
    kinds = dict.fromkeys(kind for by_kind in figures.kinds.values() for kind in by_kind)
    walks = sorted(figures.kinds, key=lambda walk: (-len(figures.kinds[walk]), walk))
    rows = [[kind, *(cell(figures.kinds[walk].get(kind)) for walk in walks)]
            for kind in sorted(kinds)]
    rows += [[unit, *(f"{figures.walks[walk][unit]:,}" for walk in walks)]
             for unit in ("operations", "allocations")]
    return HOW_OFTEN + table(["fault", *walks], rows, wide=True)


def on_purpose():
    return "## What a step gives up on purpose\n\n" + table(
        ["step", "what", "why"],
        [*([step, f"rows of {name}", reason] for (step, name), reason in REQUIRED_LOSSES.items()),
         ["any", "rows that refer to a rebuilt table", cascades.REASON],
         *([step, f"values of {name}.{column}", reason]
           for (step, name, column), reason in REQUIRED_VALUES.items()),
         ["any", "texts", MISREAD]], wide=True)


def under_the_guard(figures, guard):
    """The figures of the program alone and under the guard side by side, and those of the guard
    only."""
    rows = []
    for walk in figures.ways:
        for group, kinds in GROUPS.items():
            alone = [sum(column) for column in zip(*(
                row for kind, row in figures.kinds.get(walk, {}).items() if kind in kinds))]
            *right, direct, wrong, _, _ = guard.total([walk], kinds)
            guarded = sum(right) + direct + wrong
            rows.append([walk, group, f"{sum(alone):,}", percent(alone[0], sum(alone)),
                         f"{sum(alone[2:3]):,}", f"{guarded:,}", percent(sum(right), guarded),
                         direct, wrong])
    walks = guard.walks
    kinds = sorted(dict.fromkeys(kind for walk in guard.kinds.values() for kind in walk))
    units = [unit for unit in next(iter(walks.values())) if unit != "places"]
    others = [[kind, *(guard_cell(guard, walk, kind) for walk in walks)] for kind in kinds]
    return UNDER_THE_GUARD.format(seconds=SECONDS_FOR_ORPHANS) + table(
        ["walk", "fault", "alone: cases", "put right", "rows lost", "guarded: cases", "right",
         "direct", "wrong"], rows, wide=True) + GUARD_KINDS + table(
        ["fault", *walks], others, wide=True) + GUARD_UNITS + table(
        ["an undisturbed run", *walks],
        [[unit, *(f"{walks[walk][unit]:,}" for walk in walks)] for unit in units], wide=True)


def percent(part, whole):
    return f"{100 * part / whole:.4g} %" if whole else ""


def guard_cell(guard, walk, kind):
    row = guard.kinds[walk].get(kind)
    if row is None:
        return ""
    *outcomes, states, tried = row
    places = guard.walks[walk]["places"][kind]
    return " / ".join(map(str, [*outcomes, states])) + (
        f", {tried:,} of {places:,}" if tried < places else "")


def document(figures, deviations, guard=None):
    interrupted = figures.total(GROUPS["kill, power cut"])
    recovered, copies, lost, other, _ = interrupted
    costly = sorted({name for tables in figures.lost.values() for name, steps in tables.items()
                     if any(row[0] for row in steps.values())})
    text = INTRODUCTION.format(
        newest=figures.newest, cases=sum(figures.total()), violations=figures.violations or "none",
        interrupted=sum(interrupted), recovered=recovered, copies=copies, lost=lost,
        tables=", ".join(costly), other=other)
    guarded = under_the_guard(figures, guard) if guard else ""
    return "".join((text, "\n", guarded, by_step(figures), lost_rows(figures), causes(deviations),
                    how_often(figures), on_purpose())).rstrip("\n") + "\n"


def write_document(figures=None, deviations=None, guard=None):
    """Writes the figures and the page. A subject that is not given keeps its figures."""
    by_subject = read_figures()
    if figures:
        by_subject["program"] = vars(figures)
    if guard:
        by_subject["guard"] = vars(guard)
    write_figures(by_subject)
    DOCUMENT.write_text(document(Figures.read(), deviations or Deviations(), GuardFigures.read()),
                        encoding="utf-8")

"""The figures of mending_campaign.py, and docs/mending.md, which is made from them."""

import json
import pathlib
import re
from collections import Counter, defaultdict

from support.places import ROOT
from support.versions import NEWEST

FIGURES = pathlib.Path(__file__).parent / "mending_figures.json"
DOCUMENT = ROOT / "docs" / "mending.md"
WAYS = ("alone", "mended", "mended later")
OUTCOMES = ("recovered", "copy left over", "rows lost", "other difference", "not sound")
RECOVERED, COPY, LOST, OTHER, _ = OUTCOMES
# The cause of what is left after mending: the first pattern that is found among the differences.
CAUSES = {
    r" in no table": "version 29 has dropped both tables before: there is nothing left to mend",
    r"_(temp|old) left over": "later steps have changed values of the table, so the copy has rows"
                              " that the table lacks: it is only reported",
    r" column \w+ more": "the walk is over and its version recorded: no step takes the column away"
                         " that the step that was cut has left",
    r"^files other values$": "version 7 has put its prefix before some paths twice, which is no"
                             " matter of copies",
    r"^tableVersion other values$": "only the version that was recorded before is another one: the"
                                    " walk took one run more",
    r"sqlite_sequence|other definition|other order": "the counter of a table, or the text of its"
                                                     " definition, is another one",
}
OTHER_CAUSE = "a value that later steps have set in a table while the copy was in its place"

TEXT = """\
# Mending what a cut run has left

For whoever decides whether devices are mended, and for whoever looks at one that was. A run of the
program alone that is cut can leave a copy of a table beside it or in its place (docs/power-cut.md).
Every later step on that table then fails. `migration-guard run --mend` puts that right in its copy
of the database, before the program is given it (docs/guard.md, "Mending"). Made by
`tests/faults/mending_campaign.py --document`.

## What is mended

A copy is a table with a name that a step uses for one, such as `farms_temp`. They are listed in
guard/schema-versions.json under `copies`. Any other table whose name ends with `_temp` or `_old` is
somebody's own, and is left alone.

| What is there | What is done |
|---|---|
| every row of the copy is in the table | the copy goes |
| there is no such table | the copy gets its name, and is the table again |
| the table has fewer rows than the copy, and the copy has all of them | the other rows come back, \
and the copy goes |
| anything else | nothing: it is reported |

- A row is the values of all columns that the copy has, with storage class and bytes, as often as it
  is there. Collations do not count. What the step that made the copy changes on purpose may be as
  the step makes it: six digits in version 2, an empty text for NULL in version 32, new names of
  columns in version 29. Rows that come back are as the step makes them.
- A copy that becomes the table keeps its definition. That is the one that the step gives the table,
  or had found. Where versions have different names for a table, the recorded version decides.
- Where two copies of a table are there, but no table, both are reported. So is a copy of a table
  that others have replaced: preferredGpsSolutions, once there are gpsReceivers.
- No trigger fires, and foreign keys are off. What SQLite has rewritten when the step renamed the
  table is written back. No other table changes.
- Everything is one transaction. A failure of the disk or the memory rolls all of it back. If the
  table refuses a row, the copy is left as it was and reported with SQLite's reason.
- A database that fails SQLite's quick check is not mended.

Rows that somebody has deleted from the table since the cut come back if the table has no other rows
that the copy lacks: nobody can tell them from rows that were lost. With a copy its indexes and
triggers go. An undisturbed step takes them too.
"""

FIGURES_TEXT = """
## What it is worth

Every kill and every power cut of the walks between the versions 1 and {newest}, and 1 and 4, on the
database of tests/data/version_01.sql: {cases:,}. After {touched:,} of them the next run of the
program alone leaves a copy over ({copies:,}) or loses rows ({lost:,}). No mending lost a row.

- Mended before the next run, {right:,} of the {touched:,} end as an undisturbed run, {rest:,} with
  some other difference, {still:,} with a copy or with rows lost.
- Mended only after a next run without the guard, {later_right:,} end as an undisturbed run,
  {later_rest:,} with some other difference, {later_still:,} with a copy or with rows lost. Mending
  does not do what that run has left out.

Numbers of cases: right / other difference / copy left over / rows lost.

"""

WHY = """
## Why the rest does not

Of the cases above, those that do not end as an undisturbed run.

"""


def walk_of(name):
    return tuple(map(int, name.split(" to ")))


class Figures:
    """How many kills and power cuts had each outcome. For each walk and step: the outcomes of all
    three ways, with their numbers of cases. For each way and walk: the differences, with theirs."""

    def __init__(self, ends, differences):
        self.ends, self.differences = ends, differences

    @classmethod
    def of(cls, done):
        """The figures from the answers of a campaign."""
        states = {(task["scenario"], place): state for task, answer in done
                  if task["kind"] == "states" for place, state in answer}
        ends, differences = defaultdict(Counter), defaultdict(Counter)
        for task, answer in done:
            if task["kind"] == "states":
                continue
            name = task["scenario"]
            for place, step, number in answer:
                if (name, place) not in states:
                    continue  # Not tried yet.
                state = states[name, place]
                ends[name, step][tuple(state[way]["outcome"] for way in WAYS)] += number
                if state["alone"]["outcome"] in (COPY, LOST):
                    for way in WAYS[1:]:
                        text = "; ".join(state[way]["differences"])
                        differences[way, name][text] += number
        return cls(ends, differences)

    @classmethod
    def read(cls):
        kept = json.loads(FIGURES.read_text(encoding="utf-8"))
        return cls({(name, step): Counter({tuple(ways): number for ways, number in ends})
                    for name, step, ends in kept["ends"]},
                   {(way, name): Counter(dict(counts))
                    for way, name, counts in kept["differences"]})

    def write(self):
        ends = [[*place, sorted(map(list, counts.items()))] for place, counts in self.ends.items()]
        differences = [[*place, sorted(map(list, counts.items()))]
                       for place, counts in self.differences.items()]
        lines = [f'"{name}": [\n' + ",\n".join(map(json.dumps, rows)) + "\n]"
                 for name, rows in (("ends", ends), ("differences", differences))]
        FIGURES.write_text("{\n" + ",\n".join(lines) + "\n}\n", encoding="utf-8")

    def count(self, way, outcomes, places=None, touched=True):
        """The number of cases with one of these outcomes. touched: count only cases in which the
        program alone leaves a copy or loses rows"""
        return sum(number for place in places or self.ends
                   for ends, number in self.ends[place].items()
                   if ends[WAYS.index(way)] in outcomes
                   and (not touched or ends[0] in (COPY, LOST)))

    def places(self):
        """The walks and steps with a copy left over or rows lost, in the order of the walks."""
        def order(place):
            first, last = walk_of(place[0])
            number = int(place[1]) if place[1].isdigit() else 0
            return max(first, last), first > last, number if first < last else -number

        return sorted((place for place in self.ends
                       if self.count("alone", (COPY, LOST), [place])), key=order)


def table(rows):
    """A table of Markdown with cells of equal width."""
    widths = [max(map(len, column)) for column in zip(*rows)]
    lines = ["| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |"
             for row in rows]
    lines.insert(1, "| " + " | ".join("-" * width for width in widths) + " |")
    return "\n".join(lines) + "\n"


def by_step(figures):
    yield "walk", "step", "alone", "mended", "mended later"
    for place in figures.places():
        yield *place, *(" / ".join(
            f"{figures.count(way, (outcome,), [place])}" for outcome in (
                RECOVERED, OTHER, COPY, LOST)) for way in WAYS)


def cause_of(differences):
    for pattern, cause in CAUSES.items():
        if any(re.search(pattern, line) for line in differences.split("; ")):
            return cause
    return OTHER_CAUSE


def causes(figures):
    found = defaultdict(Counter)
    for (way, _), counts in figures.differences.items():
        for differences, number in counts.items():
            if differences:
                found[cause_of(differences)][way] += number
    yield "why", "mended", "mended later"
    for cause in (*CAUSES.values(), OTHER_CAUSE):
        if found[cause]:
            yield cause, *(f"{found[cause][way]:,}" for way in WAYS[1:])


def document(figures):
    touched = figures.count("alone", (COPY, LOST))
    figures_text = FIGURES_TEXT.format(
        newest=NEWEST, cases=figures.count("alone", OUTCOMES, touched=False), touched=touched,
        copies=figures.count("alone", (COPY,)), lost=figures.count("alone", (LOST,)),
        right=figures.count("mended", (RECOVERED,)), rest=figures.count("mended", (OTHER,)),
        still=figures.count("mended", (COPY, LOST)),
        later_right=figures.count("mended later", (RECOVERED,)),
        later_rest=figures.count("mended later", (OTHER,)),
        later_still=figures.count("mended later", (COPY, LOST)))
    return (TEXT + figures_text + table([*by_step(figures)]) + WHY + table([*causes(figures)]))

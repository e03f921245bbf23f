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
    r" column \w+ more": "the walk is over and its version recorded: no step removes the column"
                         " that the cut step has left",
    r"^files other values$": "version 7 has put its prefix before some paths twice; this has"
                             " nothing to do with copies",
    r"^tableVersion other values$": "only the recorded previous version differs: the walk"
                                    " took one more run",
    r"sqlite_sequence|other definition|other order": "the counter of a table, or the text of its"
                                                     " definition, differs",
}
OTHER_CAUSE = "a value that later steps have set in a table while the copy was in its place"

TEXT = """\
# Mending what a cut run has left

For whoever decides whether devices are mended, and for whoever examines a mended device. If a run
of the program alone is cut, it can leave a copy of a table, beside the table or in its place
(docs/power-cut.md). Every later step on that table then fails. `migration-guard run --mend` repairs
this in its copy of the database, before the program gets it (docs/guard.md, "Mending"). Made by
`tests/faults/mending_campaign.py --document`.

## What is mended

A copy is a table with a name that a step uses for copies, such as `farms_temp`.
guard/schema-versions.json lists these names under `copies`. Any other table whose name ends with
`_temp` or `_old` does not come from a step, and is left alone.

| What is there | What is done |
|---|---|
| every row of the copy is in the table | the copy is removed |
| the table is missing | the copy gets the table's name, and is the table again |
| the table has fewer rows than the copy, and the copy has all of them | the other rows come back, \
and the copy goes |
| anything else | nothing: the copy is reported |

- Rows are compared by the values of all columns that the copy has, with storage class and bytes;
  equal rows are counted, and collations do not matter. The table may have the changes that the step
  makes on purpose: six digits in version 2, an empty text for NULL in version 32, new names of
  columns in version 29. Rows that come back have these changes.
- A copy that becomes the table keeps its definition: either the new one from the step, or the one
  that the table had before. If versions have different names for a table, the recorded version
  decides.
- If there are two copies of a table but no table, both are reported. A copy of a table that other
  tables have replaced is reported too: preferredGpsSolutions, once there are gpsReceivers.
- No trigger fires, and foreign keys are off. SQLite changed references to the table when the step
  renamed it; mending changes them back. No other table changes.
- Everything is one transaction. A failure of the disk or the memory rolls all of it back. If the
  table refuses a row, the copy is left as it was and reported with SQLite's reason.
- A database that fails SQLite's quick check is not mended.

Rows that were deleted from the table after the cut come back, unless the table has rows that the
copy lacks: they look the same as rows that were lost. The indexes and triggers of a removed copy go
with it. An undisturbed step removes them too.
"""

FIGURES_TEXT = """
## How much it helps

{cases:,} kills and power cuts of the walks between the versions 1 and {newest}, and 1 and 4: every
one on the database of tests/data/version_01.sql{sample}.
After {touched:,} of them the next run of the program alone leaves a copy over ({copies:,}) or
loses rows ({lost:,}). No mending lost a row.

- Mended before the next run, {right:,} of the {touched:,} end as an undisturbed run, {rest:,} with
  some other difference, {still:,} with a copy or with rows lost.
- Mended only after one more run without the guard, {later_right:,} end as an undisturbed run,
  {later_rest:,} with some other difference, {later_still:,} with a copy or with rows lost. Mending
  does not make up for the steps that failed in that run.

The columns have numbers of cases: right / other difference / copy left over / rows lost.

"""

SAMPLE = ", and a sample with ten times the rows"

WHY = """
## Why the rest ends differently

The cases above that do not end as an undisturbed run, by cause.

"""


def walk_of(name):
    """The versions of a walk, from its name, such as "1 to 4, ten times the rows"."""
    return tuple(map(int, name.partition(",")[0].split(" to ")))


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
        newest=NEWEST, sample=SAMPLE if any("," in name for name, _ in figures.ends) else "",
        cases=figures.count("alone", OUTCOMES, touched=False), touched=touched,
        copies=figures.count("alone", (COPY,)), lost=figures.count("alone", (LOST,)),
        right=figures.count("mended", (RECOVERED,)), rest=figures.count("mended", (OTHER,)),
        still=figures.count("mended", (COPY, LOST)),
        later_right=figures.count("mended later", (RECOVERED,)),
        later_rest=figures.count("mended later", (OTHER,)),
        later_still=figures.count("mended later", (COPY, LOST)))
    return (TEXT + figures_text + table([*by_step(figures)]) + WHY + table([*causes(figures)]))

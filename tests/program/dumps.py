"""Dumps of the device database, and how one differs from another.

tests/data/version_NN.sql is the whole database at a version, as the walk forward from version 1
leaves it. Another way to the same version may leave some tables differently. tests/data/*.diff says
how:

    == userProfiles: 8.. -> 1..7
    -INSERT INTO userProfiles VALUES(1,'Default', ...
    +INSERT INTO userProfiles VALUES(1,'Default', ...

Every walk from version 8 or later to one of the versions 1 to 7 leaves the table userProfiles
without the lines marked - of the version that it reaches, and with the lines marked + instead.
"""

import collections
import difflib
import functools
import re
import sqlite3
import sys

from support.places import DATA

STATEMENT = re.compile(r"(?:CREATE(?: UNIQUE)? (?:TABLE|INDEX|TRIGGER|VIEW)(?: IF NOT EXISTS)?"
                       r'|INSERT INTO|DELETE FROM) "?(\w+)')
RANDOM_IDENTIFIER = re.compile(
    r"^(INSERT INTO (PC_Carrier|PC_Mix|PC_PlanterVariety) VALUES\((\d+),.*?')"
    r"(\{(?!0000000)[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}\})(?=')",
    re.MULTILINE)


def with_stand_ins(dump):
    """The dump with every random identifier replaced by one that names its table and its row.

    An identifier of another form, or the second of two equal ones, stays, so a test notices it.
    """
    tables = {"PC_Carrier": 1, "PC_Mix": 2, "PC_PlanterVariety": 3}
    seen = set()

    def stand_in(match):
        row, table, number, identifier = match.groups()
        if identifier in seen:
            return match.group()
        seen.add(identifier)
        return f"{row}{{{tables[table]:08}-0000-4000-8000-{int(number):012}}}"

    return RANDOM_IDENTIFIER.sub(stand_in, dump)


def statements_by_name(dump):
    """The statements of a dump, by the table, index, trigger or view that they belong to."""
    statements = collections.defaultdict(list)
    pending = ""
    for line in dump.splitlines(keepends=True):
        pending += line
        if sqlite3.complete_statement(pending):
            about = STATEMENT.match(pending)
            if about:
                statements[about[1]].append(pending)
            pending = ""
    # The rows of this table are in the order in which the tables were made.
    statements["sqlite_sequence"].sort()
    return statements


def departures(expected, actual, without=("tableVersion",)):
    """The different lines of two dumps by table: - for expected ones, + for actual ones."""
    expected, actual = statements_by_name(expected), statements_by_name(actual)
    result = {}
    for name in {*expected, *actual}.difference(without):
        if expected[name] != actual[name]:
            difference = difflib.unified_diff("".join(expected[name]).splitlines(),
                                              "".join(actual[name]).splitlines(),
                                              n=0, lineterm="")
            result[name] = "\n".join(line for line in list(difference)[2:]
                                     if not line.startswith("@@ "))
    return result


def runs(numbers):
    """Consecutive numbers as (first, last)."""
    result = []
    for number in sorted(numbers):
        if result and result[-1][1] == number - 1:
            result[-1] = (result[-1][0], number)
        else:
            result.append((number, number))
    return result


def blocks(walks):
    """Walks (start, end) as ((first start, last start), (first end, last end))."""
    ends = collections.defaultdict(list)
    for start, end in walks:
        ends[start].append(end)
    starts = collections.defaultdict(list)
    for start in ends:
        for run in runs(ends[start]):
            starts[run].append(start)
    return sorted((run, end_run) for end_run in starts for run in runs(starts[end_run]))


def as_text(run, newest):
    """A run as text; one up to the newest version has no end and holds for later versions too."""
    first, last = run
    if last == newest:
        return f"{first}.."
    return f"{first}" if first == last else f"{first}..{last}"


def from_text(text):
    first, dots, last = text.partition("..")
    return int(first), int(last or (sys.maxsize if dots else first))


class Departures:
    """A file that says how walks depart from the dump of the version that they reach."""

    HEADING = re.compile(r"^== (\w+): (\S+) -> (\S+)\n", re.MULTILINE)

    def __init__(self, name):
        self.path = DATA / name

    def write(self, comment, departures_by_walk, newest):
        """departures_by_walk: the departures by (start, end)."""
        walks = collections.defaultdict(list)
        for walk, by_table in departures_by_walk.items():
            for table, difference in by_table.items():
                walks[table, difference].append(walk)
        entries = sorted((table.casefold(), block, table, difference)
                         for table, difference in walks
                         for block in blocks(walks[table, difference]))
        self.path.write_text(
            "".join(f"# {line}\n" for line in comment.splitlines()) +
            "".join(f"\n== {table}: {as_text(starts, newest)} -> {as_text(ends, newest)}\n"
                    f"{difference}\n" for _, (starts, ends), table, difference in entries),
            encoding="utf-8")

    @functools.cached_property
    def entries(self):
        """(table, (first start, last start), (first end, last end), difference)"""
        _, *parts = self.HEADING.split(self.path.read_text(encoding="utf-8"))
        return [(table, from_text(starts), from_text(ends), difference.strip("\n"))
                for table, starts, ends, difference in zip(*[iter(parts)] * 4)]

    def of(self, start, end):
        """The departures of one walk, by table."""
        return {table: difference for table, starts, ends, difference in self.entries
                if starts[0] <= start <= starts[1] and ends[0] <= end <= ends[1]}

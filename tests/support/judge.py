"""Finds out what a run has taken from a database: on purpose, or only here.

guard/schema-versions.json says what is on purpose; docs/schema-versions.md has the rules. This code
judges in the slow and simple way, row by row.

tests/verdict/count.py also judges runs, but answers another question. This code asks whether the
file describes the program correctly. That includes what a step leaves but should have taken, which
no verdict reports. It needs devices in good order. count.py asks whether the guard's verdict is
right by the rules of docs/findings.md, with the log and the scripts, and on damaged devices too.
Neither uses the other or the guard, so no mistake can hide in both.
"""

import collections
import contextlib
import dataclasses
import shutil
import sqlite3

from support.contents import identifier, read
from support.places import scratch_directory

FORWARD, BACKWARD = "forward", "backward"
EVERY_RUN = "every run"
# SQLite's own tables.
NOT_JUDGED = ("sqlite_sequence",)


@dataclasses.dataclass
class Judgement:
    """Numbers by object: ("table", "t"), ("column", "t.c"), ("rows", "t") or ("values", "t.c").

    A table or a column counts as one, with all its rows or values. The names are those before the
    run.
    """

    taken: dict  # by (step, *object): on purpose; a step is (version, direction) or EVERY_RUN
    lost: dict  # by object: only here
    left: dict  # by (step, *object): what a step takes, but is still there
    unknown: list  # the versions without an entry


class Walk:
    """The steps of a run."""

    def __init__(self, start, end, applied_again=()):
        """applied_again: the versions that self-repair applied again, before the walk."""
        self.steps = [(version, FORWARD) for version in applied_again]
        self.steps += [(version, FORWARD) for version in range(start + 1, end + 1)]
        self.steps += [(version, BACKWARD) for version in range(start, end, -1)]


class TrackedTable:
    """A table before the run: what becomes of it on the way, and which steps take its rows."""

    def __init__(self, name, columns):
        self.name = name
        self.columns = {column: column for column in columns}  # the present name by the old one
        self.dropped_by = None
        self.column_dropped_by = {}  # old name: (step, the name then)
        self.rows = []  # (step, condition)
        self.values = collections.defaultdict(list)  # old name: (step, its entry)

    def take(self, step, entry, platform):
        if entry.get("dropped"):
            self.dropped_by = step
            return
        if "rows" in entry:
            self.rows.append((step, entry["rows"]))
        present = {new.lower(): old for old, new in self.columns.items()}
        for column, value in entry.get("values", {}).items():
            if column.lower() in present and value.get("platform", platform) == platform:
                self.values[present[column.lower()]].append((step, value))
        for column in entry.get("columnsDropped", ()):
            if column.lower() in present:
                self.column_dropped_by[present[column.lower()]] = step, column
                del self.columns[present[column.lower()]]
        for column, new in entry.get("columnsRenamed", {}).items():
            if column.lower() in present:
                self.columns[present[column.lower()]] = new
        self.name = entry.get("renamed", self.name)


def entry_for(entries, table):
    return next((entry for name, entry in entries.items() if name.lower() == table.lower()), {})


def judge(before, after, table, walk, platform):
    """Compares two database files.

    table: the contents of schema-versions.json; platform: the name of the device's hardware
    """
    with scratch_directory() as folder:
        repaired = folder / "repaired"
        shutil.copyfile(before, repaired)
        with contextlib.closing(sqlite3.connect(repaired, isolation_level=None)) as database, \
                contextlib.closing(sqlite3.connect(after)) as database_after:
            judging = Judging(database, tables_of(database_after), table, platform)
            judging.repair()
            judging.judge(walk)
            return judging.result


def tables_of(database):
    views = database.execute("SELECT name FROM sqlite_schema WHERE type = 'view'")
    return read(database, (*NOT_JUDGED, *(name for name, in views)))


class Judging:
    def __init__(self, database, after, table, platform):
        self.database = database
        self.after = after
        self.names_after = {name.lower(): name for name in after}
        self.table = table
        self.platform = platform
        self.result = Judgement(collections.Counter(), collections.Counter(),
                                collections.Counter(), [])

    def repair(self):
        """Does the work of every run before the first step, and notes the rows that go."""
        counts = {name: self.count(name) for name in tables_of(self.database)}
        self.database.execute("PRAGMA foreign_keys = ON")
        for name, rowid, *_ in self.database.execute("PRAGMA foreign_key_check").fetchall():
            self.database.execute(f"DELETE FROM {identifier(name)} WHERE rowid = ?", (rowid,))
        for entry in self.table["everyRun"]["rows"]:
            with contextlib.suppress(sqlite3.Error):
                self.database.execute(
                    f"DELETE FROM {identifier(entry['table'])} WHERE {entry['rows']}")
        for name, count in counts.items():
            if gone := count - self.count(name):
                self.result.taken[EVERY_RUN, "rows", name] += gone

    def count(self, name):
        return self.database.execute(f"SELECT count(*) FROM {identifier(name)}").fetchone()[0]

    def judge(self, walk):
        versions = self.table["versions"]
        self.result.unknown += [version for version, _ in walk.steps
                                if str(version) not in versions]
        for name, content in tables_of(self.database).items():
            tracked = TrackedTable(name, content.columns)
            for version, direction in walk.steps:
                if not tracked.dropped_by:
                    entries = versions.get(str(version), {}).get(direction, {})
                    tracked.take((version, direction), entry_for(entries, tracked.name),
                                 self.platform)
            self.judge_table(name, content, tracked)

    def judge_table(self, name, content, tracked):
        after = self.after.get(self.names_after.get(tracked.name.lower()))
        if tracked.dropped_by:
            taken = self.result.taken if after is None else self.result.left
            taken[tracked.dropped_by, "table", name] += 1
        elif after is None:
            self.result.lost["table", name] += 1
        else:
            self.judge_columns(name, content, tracked, after)

    def judge_columns(self, name, content, tracked, after):
        spelling = {column.lower(): column for column in after.columns}
        columns = {old: spelling[new.lower()] for old, new in tracked.columns.items()
                   if new.lower() in spelling}
        for column in content.columns:
            if column in tracked.column_dropped_by:
                step, last_name = tracked.column_dropped_by[column]
                taken = self.result.left if last_name.lower() in spelling else self.result.taken
                taken[step, "column", f"{name}.{column}"] += 1
            elif column not in columns:
                self.result.lost["column", f"{name}.{column}"] += 1
        self.judge_rows(name, content, tracked, after, columns)

    def judge_rows(self, name, content, tracked, after, columns):
        """columns: the name after by the one of before"""
        key = self.key_of(content, after, columns)
        rows_after = collections.defaultdict(list)
        for rowid, row in zip(after.row_ids or after.rows, after.rows):
            values = dict(zip(after.columns, row)) | {"rowid": rowid}
            rows_after[tuple(values[columns.get(column, column)] for column in key)].append(values)

        expected = collections.defaultdict(list)
        for row in self.rows_before(name, content, tracked):
            gone_by = next((step for step, goes in row.goes if goes), None)
            row_key = tuple(row.expected.get(column, row.values[column]) for column in key)
            if row_key not in rows_after:
                # The step has failed, and the key has its old value.
                row_key = tuple(row.values[column] for column in key)
            expected[row_key].append((gone_by, row))
        for row_key, rows in expected.items():
            self.judge_rows_of_a_key(name, rows, rows_after[row_key], columns)

    def judge_rows_of_a_key(self, name, rows, found, columns):
        """rows: (the step that takes it or None, row); found: the rows after with the same key."""
        # Only a key with NULL can belong to several rows: unchanged rows first, then in order.
        pairs, rest = [], []
        for row in (row for step, row in rows if step is None):
            same = next((one for one in found if all(
                one[new] == row.expected.get(old, row.values[old])
                for old, new in columns.items())), None)
            if same is None:
                rest.append(row)
            else:
                found.remove(same)
                pairs.append((row, same))
        pairs += zip(rest, found)
        for row, row_after in pairs:
            self.judge_values(name, row, row_after, columns)
        missing = len(rest) - len(found)
        if missing > 0:
            self.result.lost["rows", name] += missing
        still_there = max(-missing, 0)
        for number, step in enumerate(step for step, _ in rows if step is not None):
            counted = self.result.left if number < still_there else self.result.taken
            counted[step, "rows", name] += 1

    @staticmethod
    def key_of(content, after, columns):
        """The columns before the run that identify a row."""
        if content.key and {*content.key} <= {*columns}:
            return content.key
        old_names = {new: old for old, new in columns.items()}
        if after.key and {*after.key} <= {*old_names}:
            return tuple(old_names[column] for column in after.key)
        return ("rowid",)

    def rows_before(self, name, content, tracked):
        """Every row, with the conditions and values of the steps."""
        parts = [f"quote({identifier(column)})" for column in content.columns]
        parts += [f"({condition}) IS TRUE" for _, condition in tracked.rows]
        for column, values in tracked.values.items():
            for _, value in values:
                parts.append(f"quote({value.get('becomes', identifier(column))})")
                parts.append(f"({value.get('any', 'FALSE')}) IS TRUE")
        if content.row_ids:
            parts.append("quote(rowid)")
        for found in self.database.execute(
                f"SELECT {', '.join(parts)} FROM {identifier(name)}"):
            found = iter(found)
            values = {column: next(found) for column in content.columns}
            goes = [(step, next(found)) for step, _ in tracked.rows]
            becomes = {column: [Becomes(step, next(found), next(found), value.get("within", 0))
                                for step, value in of_column]
                       for column, of_column in tracked.values.items()}
            values["rowid"] = next(found, None)
            yield Row(values, goes, becomes)

    def judge_values(self, name, row, row_after, columns):
        for old, new in columns.items():
            before, after = row.values[old], row_after[new]
            becomes = row.becomes.get(old, [])
            column = "values", f"{name}.{old}"
            if after == before:
                if becomes and not any(one.allows(before, after) for one in becomes):
                    self.result.left[becomes[0].step, *column] += 1
                continue
            step = next((one.step for one in becomes
                         if one.allows(before, after) or one.is_near(before, after)), None)
            if step is None and self.is_of_every_run(name, old, before, after):
                step = EVERY_RUN
            if step is None:
                self.result.lost[column] += 1
            else:
                self.result.taken[step, *column] += 1

    def is_of_every_run(self, name, column, before, after):
        every_run = self.table["everyRun"]
        if column in every_run["values"].get(name, ()):
            return True
        return every_run["names"].get(name) == column and is_renamed(before, after)


@dataclasses.dataclass
class Becomes:
    """What a step makes of a value, as an SQL literal."""

    step: object
    value: str
    any: bool  # or any other value is allowed
    within: float  # or a number this close to the old one

    def allows(self, before, after):
        return after == self.value or (self.any and after != before)

    def is_near(self, before, after):
        try:
            change = abs(float(after) - float(before))
            return self.within > 0 and change <= self.within * abs(float(before))
        except ValueError:
            return False


@dataclasses.dataclass
class Row:
    """A row of before, its values as SQL literals."""

    values: dict  # by column; the row id is one of them
    goes: list  # (step, whether its condition is true)
    becomes: dict  # by column: list of Becomes

    @property
    def expected(self):
        return {column: of_column[0].value for column, of_column in self.becomes.items()}


def is_renamed(before, after):
    """Whether a name is another one with "_" and a number after it, once or several times.

    In a column that does not distinguish letter case it is that of the first one.
    """
    length = len(before) - 1
    if not before.endswith("'") or after[:length].lower() != before[:length].lower():
        return False
    first, *numbers = after[length:-1].split("_")
    return first == "" and numbers != [] and all(number.isdigit() for number in numbers)

"""Makes docs/probes.md: what every probe answers when a version's change is missing or looks so,
and what one run does about it."""

import contextlib
import dataclasses
import functools
import re
import sqlite3

from full_rows import with_full_rows
from steps import ALWAYS_REAPPLIED, dropped, taken_out, without
from support.contents import definitions, difference, read_dump, read_file
from support.places import ROOT
from support.versions import NEWEST, dump_of
from walks import device_with

PROBES = ROOT / "docs" / "probes.md"
VERSIONS = range(2, NEWEST + 1)
REAPPLIED = re.compile(r"^Corruption detected: applying update to db for version (\d+)$", re.M)


def reapplied(device, version, options=""):
    """The versions that a run applies again."""
    device.log_file.unlink(missing_ok=True)
    device.run(str(version), options=options)
    return tuple(int(number) for number in REAPPLIED.findall(device.log()))


def answering_false(device, version):
    """The versions whose probes answer false.

    The run cannot write, so it fails to apply them again: every probe sees the same database.
    """
    return reapplied(device, version,
                     f"--ro-bind {device.database} /app/databases/{device.database.name}")


@functools.cache
def last_with_change(version):
    """The newest version that still has the change of a version."""
    def can_be_taken_out(at):
        with contextlib.closing(sqlite3.connect(":memory:")) as database:
            try:
                database.executescript(dump_of(at) + taken_out()[version])
            except sqlite3.OperationalError:
                return False
        return True

    return next(at for at in reversed(VERSIONS) if can_be_taken_out(at))


@dataclasses.dataclass
class Outcome:
    """The probes' answers to a damage, and what one run does about it."""

    false: tuple  # the versions whose probes answer false
    applied: tuple  # those that the run applies again
    false_after: tuple  # the versions whose probes answer false after that
    shape: list  # how the definitions differ from a database where nothing was missing
    stays: list  # the parts that have not got their values or rows back
    spoilt: list  # the parts that were in order before the run and no longer are


def outcome(database, version, before):
    """The outcome for a damaged database; before are its contents without the damage."""
    with device_with(database) as device:
        damaged = read_file(device.database)
        false = answering_false(device, version)
        applied = reapplied(device, version)
        after = read_file(device.database)
        return Outcome(false, applied, answering_false(device, version),
                       shape_of(difference(before, after)), *values_lost(before, damaged, after))


@functools.cache
def intact(version):
    """The contents of a database where nothing is missing, as runs leave it."""
    with device_with(with_full_rows(dump_of(version))) as device:
        device.run(str(version))
        return read_file(device.database)


@functools.cache
def outcome_without(version):
    """The outcome for a database without the change of a version."""
    at = last_with_change(version)
    return outcome(with_full_rows(dump_of(at) + taken_out()[version]), at, intact(at))


def values_lost(before, damaged, after):
    """(table, column or rows) that differ from before: due to the damage, or due to the run."""
    stays, spoilt = [], []
    for name, table in before.items():
        if name not in damaged or name not in after:
            continue
        key = next((key for key in (table.key, ("rowid",))
                    if {*key} <= {"rowid", *damaged[name].columns}))
        rows, rows_damaged, rows_after = (
            contents[name].by_key(key) for contents in (before, damaged, after))
        if rows_after.keys() - rows.keys():
            stays.append((name, "rows"))
        if rows.keys() & rows_damaged.keys() - rows_after.keys():
            spoilt.append((name, "rows"))
        for column in table.columns:
            if column not in damaged[name].columns or column not in after[name].columns:
                continue
            wrong = [number for number in rows.keys() & rows_damaged.keys() & rows_after.keys()
                     if rows[number][column] != rows_after[number][column]]
            if any(rows[number][column] != rows_damaged[number][column] for number in wrong):
                stays.append((name, f"`{column}`"))
            if any(rows[number][column] == rows_damaged[number][column] for number in wrong):
                spoilt.append((name, f"`{column}`"))
    return stays, spoilt


def shape_of(changes):
    """The differences of definitions, in words."""
    result = [f"without `{name}`" for name in changes.gone]
    result += [f"with `{name}`" for name in changes.come]
    for name, table in changes.changed.items():
        parts = ["columns in another order"] * table.moved
        parts += [f"without `{lost}`" for lost in [*table.lost, *table.constraints_lost]]
        parts += [f"with `{gained}`"
                  for gained in [*definitions(table.gained), *table.constraints_gained]]
        parts += [f"`{column} {definition}` is `{column} {other}`"
                  for column, (definition, other) in table.redefined.items()]
        if parts:
            result.append(f"`{name}`: {', '.join(parts)}")
    return result


@functools.cache
def additions():
    """The tables of the newest version that some step changes: the columns that steps added, by
    name."""
    newest = read_dump(dump_of(NEWEST))
    result = {}
    for version in VERSIONS:
        step = difference(*(read_dump(dump_of(at)) for at in (version - 1, version)))
        for name in [*step.come, *step.changed]:
            if name in newest:
                changes = step.changed.get(name)
                columns = [*changes.gained, *changes.renamed.values()] if changes else []
                result.setdefault(name, []).extend(
                    column for column in columns if column in newest[name].columns)
    return result


def with_column_first(name, column):
    table = read_dump(dump_of(NEWEST))[name]
    columns = {column: table.columns[column], **table.columns}
    keys = [one for one in table.constraints if "KEY" in one]
    return (f"CREATE TABLE {name}_ ({', '.join([*definitions(columns), *keys])});\n"
            f"INSERT INTO {name}_ SELECT {', '.join(columns)} FROM {name};\n"
            f"DROP TABLE {name};\nALTER TABLE {name}_ RENAME TO {name};\n")


def edited(edits):
    """CREATE texts changed in place: (table, new text as an expression of the old, sql)."""
    return ("PRAGMA writable_schema = ON;\n" +
            "".join(f"UPDATE sqlite_master SET sql = {new} WHERE type = 'table'"
                    f" AND name = '{name}';\n" for name, new in edits))


def near_misses():
    """Statements after which every change has another form, or only seems to be there."""
    columns = {name: names for name, names in additions().items() if names}
    yield "columns in capital letters", "".join(
        f"ALTER TABLE {name} RENAME COLUMN {column} TO {column.upper()};\n"
        for name, names in columns.items() for column in names)
    yield "tables in capital letters", "".join(
        f"ALTER TABLE {name} RENAME TO {name}_;\nALTER TABLE {name}_ RENAME TO {name.upper()};\n"
        for name in additions())
    yield "columns first in their tables", "".join(
        with_column_first(name, names[0]) for name, names in columns.items())
    yield "ON UPDATE in small letters", edited([
        ("workOrderRxMaps", "replace(sql, 'ON UPDATE CASCADE', 'on update cascade')")])
    yield "columns of another type", "".join(
        without(name, *names) + "".join(f"ALTER TABLE {name} ADD COLUMN {column} BLOB;\n"
                                        for column in names)
        for name, names in columns.items())
    yield "no index and no trigger", "".join(
        f"DROP {kind} {name};\n" for kind, name in (
            ("INDEX", "guidanceLinesByField"), ("TRIGGER", "weatherReadingsWindLimit")))
    yield "views in place of tables", "".join(
        f"ALTER TABLE {name} RENAME TO {name}_;\nCREATE VIEW {name} AS SELECT * FROM {name}_;\n"
        for name in additions())
    yield "no tables", dropped(*additions())
    yield "columns only in a comment", "".join(
        without(name, *names) for name, names in columns.items()) + edited(
        (name, f"substr(sql, 1, length(sql) - 1) || '/* , {' TEXT, '.join(names)} TEXT */)'")
        for name, names in columns.items())
    yield "ON UPDATE only in a comment", edited([
        ("workOrderRxMaps", "replace(sql, 'ON UPDATE CASCADE', '/* ON UPDATE CASCADE */')")])
    yield "a key of two other columns", edited([
        ("PC_IngredientToMixBridge", "replace(sql, '(mixId, productId)', '(mixId, quantity)')")])


@functools.cache
def outcome_of_near_miss(statements):
    with device_with(dump_of(NEWEST) + statements) as device:
        return Outcome(answering_false(device, NEWEST), reapplied(device, NEWEST),
                       answering_false(device, NEWEST), [], [], [])


def mark(outcome, probe, at=NEWEST):
    before, after = probe in outcome.false, probe in outcome.false_after
    return " " if probe > at else "X" if before and after else "x" if before else "!" if after \
        else "."


def matrix(rows):
    """A picture of rows (name, outcome, version of the database), one line per row."""
    width = max(len(name) for name, *_ in rows)
    heads = [(str(probe // 10 or " "), str(probe % 10)) for probe in VERSIONS]
    lines = [" " * width + "  " + " ".join(line) for line in zip(*heads)]
    lines += [f"{name:{width}}  " + " ".join(mark(outcome, probe, at) for probe in VERSIONS)
              for name, outcome, at in rows]
    return "```\n" + "".join(line.rstrip() + "\n" for line in lines) + "```\n"


def named(version):
    return f"`getUpdate{version}Applied`"


def besides_the_usual(versions, version, at):
    """Versions, without those that every run at the version applies again."""
    return [one for one in versions if one == version or one not in ALWAYS_REAPPLIED[at]]


def numbers(versions):
    return ", ".join(map(str, versions)) or "none"


def by_table(parts):
    """(table, part of it) as text."""
    of_table = {}
    for name, part in parts:
        of_table.setdefault(name, []).append(part)
    return "; ".join(f"`{name}`: {', '.join(names)}" for name, names in of_table.items())


def table(heads, rows):
    return "".join(f"| {' | '.join(map(str, row))} |\n"
                   for row in (heads, ["---"] * len(heads), *rows))


INTRODUCTION = """\
# What the probes see

For whoever writes a step, and for whoever looks for the cause of a damaged database. It helps to
decide what a new probe has to look at, and whether a run can repair a damage.

Generated by `tests/program/regenerate_documents.py` from runs of the built program; do not edit.
The databases are those of tests/data with two more rows in every table, one with values that are no
defaults and one with NULL. tests/program/steps.py (`taken_out`) and tests/program/probes.py
(`near_misses`) say how they are damaged.

A line is a damaged database, a column is the probe of a version:

    .  the probe answers true: it finds nothing missing
    x  it answers false, and true after one run, which has applied its version again
    X  it answers false, also after one run
    !  it answers true, and false after one run

Version 33 removes the column that the probe of 30 looks for. From there on that probe answers
false, and every run applies 30 and 33 again; the tables below leave these two out.

## The change of one version taken out

At version {newest}, or at an older one if {newest} has nothing left of the change.

"""

BELOW_THE_MATRIX = """
What one run does about it. In the cases that are not listed it applies that version again,
everything is then as it was, and nothing that was in order is spoilt.

"""

NEAR_MISSES = """
## Near misses

At version {newest}, with every change in another form, or with something that only looks like it.
In the first four lines nothing is missing: a probe that answers false there makes runs apply its
version again for nothing. In the others something is wrong: a probe that answers true there does
not see it. No version adds an index or a trigger.

"""


def probes_document():
    outcomes = [(version, outcome_without(version), last_with_change(version))
                for version in VERSIONS]
    repairs = [(version, numbers(besides_the_usual(outcome.applied, version, at)),
                "; ".join([*outcome.shape, by_table(outcome.stays)]).strip("; "),
                by_table(outcome.spoilt)) for version, outcome, at in outcomes]
    misses = [(name, outcome_of_near_miss(statements), NEWEST)
              for name, statements in near_misses()]
    return (INTRODUCTION.format(newest=NEWEST) +
            matrix([(f"{version:2}" + f" at {at}" * (at != NEWEST), outcome, at)
                    for version, outcome, at in outcomes]) +
            BELOW_THE_MATRIX +
            table(("Taken out", "Applied again", "What then differs from before",
                   "Spoilt by the run"),
                  [row for row in repairs if row[1:] != (str(row[0]), "", "")]) +
            NEAR_MISSES.format(newest=NEWEST) + matrix(misses))

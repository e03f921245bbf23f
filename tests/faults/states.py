"""What a database holds between two statements, and how two such states differ."""

import functools
import hashlib
import re
from collections import Counter
from dataclasses import dataclass

from support.contents import RANDOM_IDENTIFIER, read_sound

COPY = re.compile(r"(.+)_(temp|old)$", re.IGNORECASE)
COUNTERS = "sqlite_sequence"


@dataclass
class Table:
    name: str
    sql: str
    column_names: dict  # by the name in small letters
    key: tuple  # the positions of the columns that identify a row
    rows: list  # tuples of SQL literals
    attached: dict  # its indexes and triggers

    @classmethod
    def of(cls, name, table, known_identifiers):
        columns = {column.lower(): column for column in table.columns}
        key = tuple(i for i, column in enumerate(table.columns) if column in table.key) or (0,)
        rows = table.rows
        if "uuid" in columns:
            place = list(columns).index("uuid")
            rows = [(*row[:place], "(random)", *row[place + 1:])
                    if is_identifier(row[place]) and row[place] not in known_identifiers else row
                    for row in rows]
        return cls(name, table.sql, columns, key, rows, table.attached)

    @functools.cached_property
    def columns(self):
        return tuple(self.column_names)

    def values(self):
        """The columns, each with its values."""
        return zip(self.columns, zip(*self.rows))


@dataclass
class State:
    tables: dict  # by the name in small letters

    @functools.cached_property
    def hash(self):
        return hashlib.sha256(repr([
            (table.name, table.sql, table.attached, table.rows)
            for table in self.tables.values()]).encode()).hexdigest()


def is_identifier(value):
    return RANDOM_IDENTIFIER.fullmatch(value[1:-1]) is not None


def identifiers(state):
    return frozenset(value for table in state.tables.values() for row in table.rows
                     for value in row if is_identifier(value))


class Reader:
    """Reads databases. An identifier that a run has made up is replaced, since it is random."""

    def __init__(self, known_identifiers=frozenset()):
        self.known_identifiers = known_identifiers

    def read(self, file):
        """The state of a sound database, None if it fails the integrity check."""
        contents = read_sound(file)
        return None if contents is None else State({
            name.lower(): Table.of(name, table, self.known_identifiers)
            for name, table in contents.items()})


def lost_rows(state, reference):
    """The names of the tables with rows of the reference that no table has, not even a copy that
    was left over."""
    left = [table for name, table in state.tables.items() if name not in reference.tables]
    found = []
    for name, expected in reference.tables.items():
        table = state.tables.get(name)
        if name == COUNTERS or table and len(table.rows) >= len(expected.rows):
            continue
        key = [expected.columns[i] for i in expected.key]
        missing = {tuple(row[i] for i in expected.key) for row in expected.rows}
        for other in [table, *left] if table else left:
            if set(key) <= set(other.columns):
                places = [other.columns.index(column) for column in key]
                missing -= {tuple(row[i] for i in places) for row in other.rows}
        if missing:
            found.append(expected.name)
    return found


def differences(state, reference):
    """How a state differs from the reference, a line for each. The order of rows does not count."""
    found = []
    for name in sorted(state.tables.keys() | reference.tables.keys()):
        table, expected = state.tables.get(name), reference.tables.get(name)
        if expected is None:
            found.append(f"{table.name} left over with {'rows' if table.rows else 'no rows'}")
        elif table is None:
            found.append(f"{expected.name} missing" + (" with its rows" if expected.rows else ""))
        else:
            found += differences_of_tables(table, expected)
    return found


def differences_of_tables(table, expected):
    fewer = len(table.rows) < len(expected.rows)
    if table.columns != expected.columns:
        missing = [name for column, name in expected.column_names.items()
                   if column not in table.columns]
        more = [name for column, name in table.column_names.items()
                if column not in expected.columns]
        yield from (f"{expected.name} column {column} missing" for column in missing)
        yield from (f"{expected.name} column {column} more" for column in more)
        if not missing and not more:
            yield f"{expected.name} other order of columns"
        if fewer:
            yield f"{expected.name} rows missing"
    elif Counter(table.rows) != Counter(expected.rows):
        yield f"{expected.name} rows missing" if fewer else f"{expected.name} other values"
    if table.sql != expected.sql:
        yield f"{expected.name} other definition"
    for name in sorted(table.attached.keys() | expected.attached.keys()):
        if table.attached.get(name) != expected.attached.get(name):
            yield f"{expected.name} {name} differs"

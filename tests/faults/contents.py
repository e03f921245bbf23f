"""What a database holds, and how two databases differ."""

import functools
import hashlib
import re
import sqlite3
from collections import Counter
from contextlib import closing
from dataclasses import dataclass

RANDOM_IDENTIFIER = re.compile(r"\{[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\}")
COPY = re.compile(r"(.+)_(temp|old)$", re.IGNORECASE)

# Where a step gives a table up on purpose when it cannot be rebuilt.
REQUIRED_LOSSES = {
    ("29", "reversesensesettings"): "the last resort is to drop both tables: the device software "
                                    "creates a new, empty one",
    ("21", "preferredgpssolutions"): "the old table is dropped also when its rows could not be "
                                     "carried over",
    ("27", "pc_ingredienttomixbridge"): "the old table is dropped also when its rows could not be "
                                        "copied",
}

# Values that only a disturbed step writes, and why it is required to.
REQUIRED_VALUES = {
    ("23", "pc_ingredienttomixbridge", "displayunit"):
        "the unit of the ingredient, where that could not be renumbered before",
    ("33", "systemcontrol", "apssid"):
        "the prefix alone, where the registration could not be read",
    ("33", "systemcontrol", "appassword"):
        "the prefix alone, where the registration could not be read",
}
MISREAD = "a text reads as empty where SQLite has no memory to hand it over"


@dataclass
class Table:
    columns: tuple
    key: tuple  # the positions of the columns that identify a row
    rows: list


@dataclass
class Contents:
    schema: list  # type, name, table and text of everything
    tables: dict  # by the name in small letters

    @functools.cached_property
    def hash(self):
        return hashlib.sha256(repr((self.schema, [
            (name, table.rows) for name, table in self.tables.items()])).encode()).hexdigest()


class Reader:
    """Reads databases; identifiers that a run makes up at random are replaced by a stand-in."""

    def __init__(self, known_identifiers=frozenset()):
        self.known_identifiers = known_identifiers

    def read(self, file):
        """The contents of a sound database, None of one that fails the integrity check.

        Opening a database that a process left in the middle of a transaction rolls it back.
        """
        with closing(sqlite3.connect(file)) as database:
            try:
                if database.execute("PRAGMA integrity_check").fetchall() != [("ok",)]:
                    return None
                schema = database.execute(
                    "SELECT type, name, tbl_name, sql FROM sqlite_master").fetchall()
                tables = {name.lower(): self._table(database, name)
                          for kind, name, *_ in schema if kind == "table"}
            except (sqlite3.Error, UnicodeError):
                return None
            return Contents(schema, tables)

    def _table(self, database, name):
        columns = database.execute(f"PRAGMA table_info(\"{name}\")").fetchall()
        key = tuple(i for i, column in enumerate(columns) if column[5]) or (0,)
        columns = tuple(column[1].lower() for column in columns)
        rows = database.execute(f"SELECT * FROM \"{name}\"").fetchall()
        for place in (i for i, column in enumerate(columns) if column == "uuid"):
            rows = [(*row[:place], self._identifier(row[place]), *row[place + 1:]) for row in rows]
        return Table(columns, key, rows)

    def _identifier(self, value):
        if (isinstance(value, str) and RANDOM_IDENTIFIER.fullmatch(value)
                and value not in self.known_identifiers):
            return "{random}"
        return value


def identifiers(contents):
    return frozenset(value for table in contents.tables.values() for row in table.rows
                     for value in row
                     if isinstance(value, str) and RANDOM_IDENTIFIER.fullmatch(value))


class Invariant:
    """What is in every state of an undisturbed run, gathered state by state: the untouched tables,
    the columns and the keys of rows that are never without a copy, and every value ever there."""

    def __init__(self, start):
        self.untouched = {name: table.rows for name, table in start.tables.items()}
        self.columns = {name: set(table.columns) for name, table in start.tables.items()}
        self.keys = {}
        self.key_columns = {}
        self.values = {}
        self._last = {}
        for name, table in start.tables.items():
            self.key_columns[name] = tuple(table.columns[i] for i in table.key)
            self.keys[name] = self._keys(start, name)

    def _keys(self, contents, name):
        found = set()
        for copy in (name, name + "_temp", name + "_old"):
            table = contents.tables.get(copy)
            if table and set(self.key_columns[name]) <= set(table.columns):
                key = [table.columns.index(column) for column in self.key_columns[name]]
                found.update(tuple(row[i] for i in key) for row in table.rows)
        return found

    @staticmethod
    def _columns(contents, name):
        return {column for copy in (name, name + "_temp", name + "_old") if copy in contents.tables
                for column in contents.tables[copy].columns}

    def gather(self, contents):
        changed = {name for name in contents.tables.keys() | self._last.keys()
                   if contents.tables.get(name) != self._last.get(name)}
        self._last = contents.tables
        for name in list(self.untouched):
            table = contents.tables.get(name)
            if name in changed and (table is None or table.rows != self.untouched[name]):
                del self.untouched[name]
        for name in self.keys:
            if not changed.isdisjoint((name, name + "_temp", name + "_old")):
                self.keys[name] &= self._keys(contents, name)
                self.columns[name] &= self._columns(contents, name)
        for name in changed & contents.tables.keys():
            table = contents.tables[name]
            for column, values in zip(table.columns, zip(*table.rows)):
                # Steps rename tables; a column's values go with it.
                self.values.setdefault(column, {None}).update(values)

    def lost_for_a_time(self, start, end):
        """The tables with rows of the start that the end has, but not every state between."""
        return [name for name, keys in self.keys.items()
                if self._keys(start, name) & self._keys(end, name) - keys]

    def losses(self, contents, step, cascaded=frozenset()):
        """What has gone of what is always there; cascaded are tables that rows were deleted from
        along with those that they refer to."""
        found = [f"untouched table {name} changed" for name, rows in self.untouched.items()
                 if name not in cascaded
                 and (name not in contents.tables or contents.tables[name].rows != rows)]
        given_up = cascaded | {name for of, name in REQUIRED_LOSSES if step in (of, "any")}
        for name, keys in self.keys.items():
            if name in given_up:
                continue
            if keys - self._keys(contents, name):
                found.append(f"{name}: rows without a copy")
            if self.columns[name] - self._columns(contents, name):
                found.append(f"{name}: columns without a copy")
        return found

    def violations(self, contents, step, cascaded=frozenset(), memory_lacks=False):
        found = self.losses(contents, step, cascaded)
        misread = {""} if memory_lacks else set()
        for name, table in contents.tables.items():
            if name in ("tableversion", "sqlite_sequence"):
                continue  # A version that could not be left, a row that could not be copied.
            for column, values in zip(table.columns, zip(*table.rows)):
                if (not self.values.get(column, {None}).issuperset(set(values) - misread)
                        and not any(key[1:] == (name, column) and step in (key[0], "any")
                                    for key in REQUIRED_VALUES)):
                    found.append(f"{name}: {column} has a value of its own")
        return found


def lost_rows(contents, reference):
    """The tables with rows of the reference that no table has, not even one left behind."""
    left_behind = [table for name, table in contents.tables.items() if name not in reference.tables]
    found = []
    for name, expected in reference.tables.items():
        table = contents.tables.get(name)
        if name == "sqlite_sequence" or table and len(table.rows) >= len(expected.rows):
            continue
        key = [expected.columns[i] for i in expected.key]
        missing = {tuple(row[i] for i in expected.key) for row in expected.rows}
        for other in [table, *left_behind] if table else left_behind:
            if set(key) <= set(other.columns):
                places = [other.columns.index(column) for column in key]
                missing -= {tuple(row[i] for i in places) for row in other.rows}
        if missing:
            found.append(name)
    return found


def differences(contents, reference):
    """How contents differ from the reference, a line each; the order of rows does not count."""
    found = []
    for name in sorted(contents.tables.keys() | reference.tables.keys()):
        table, expected = contents.tables.get(name), reference.tables.get(name)
        if expected is None:
            found.append(f"{name} left behind with {'rows' if table.rows else 'no rows'}")
        elif table is None:
            found.append(f"{name} missing" + (" with its rows" if expected.rows else ""))
        elif table.columns != expected.columns:
            gone = [column for column in expected.columns if column not in table.columns]
            more = [column for column in table.columns if column not in expected.columns]
            found.append(f"{name} other columns" + "".join(f", -{column}" for column in gone)
                         + "".join(f", +{column}" for column in more))
            if len(table.rows) < len(expected.rows):
                found.append(f"{name} rows missing")
        elif Counter(table.rows) != Counter(expected.rows):
            missing = len(table.rows) < len(expected.rows)
            found.append(f"{name} rows missing" if missing else f"{name} other values")
    text = {(kind, name.lower()): sql for kind, name, _, sql in contents.schema}
    expected_text = {(kind, name.lower()): sql for kind, name, _, sql in reference.schema}
    for kind, name in sorted(text.keys() & expected_text.keys()):
        if text[kind, name] != expected_text[kind, name]:
            found.append(f"{kind} {name} other definition")
    for kind, name in sorted(text.keys() ^ expected_text.keys()):
        if kind != "table":
            found.append(f"{kind} {name} {'more' if (kind, name) in text else 'missing'}")
    return found

"""Checks what became of the rows of tables and their copies when a database was mended. It only
compares the two databases, in a slow and simple way.
"""

import collections
import contextlib
import sqlite3

from support.contents import identifier

IDENTITY = {}
OPPOSITE = {"forward": "backward", "backward": "forward"}


def small(name):
    """A name as SQLite compares it: only for A to Z the letter case does not count."""
    return "".join(letter.lower() if letter.isascii() else letter for letter in name)


class Tables:
    """The tables of a database."""

    def __init__(self, database):
        self.database = database
        # A table whose name is no text cannot be queried.
        self.names = {small(name): name for name, in database.execute(
            "SELECT name FROM sqlite_schema WHERE type = 'table' AND rootpage > 0")
            if name.encode(errors="ignore").decode() == name}

    def columns(self, name):
        return [column for column, in self.database.execute(
            "SELECT name FROM pragma_table_xinfo(?) WHERE hidden = 0", (name,))]

    def rows(self, name, values):
        """How often each row is there. values: SQL expressions"""
        # A literal shows the storage class and every byte.
        selected = ", ".join(f"typeof({value}), quote({value})" for value in values)
        return collections.Counter(self.database.execute(
            f"SELECT {selected} FROM main.{identifier(name)} NOT INDEXED"))

    def all_rows(self, name):
        return self.rows(name, [identifier(column) for column in self.columns(name)])


def other_names(table, versions):
    """The names of a table at different versions, its own name first."""
    entries = [entry[direction].get(table, {}) for entry in versions["versions"].values()
               for direction in OPPOSITE]
    return [table, *(entry["renamed"] for entry in entries if "renamed" in entry)]


def steps_of(copy, versions):
    """The entries of the steps that make a copy: what they take from its table."""
    entry = versions["copies"][copy]
    return [versions["versions"][str(version)][direction].get(entry["table"], {})
            for direction in OPPOSITE for version in entry.get(direction, ())]


def image(step, columns, columns_of_table):
    """The columns of the table and their values, as a step makes them from a row of the copy; None
    when a column would be lost that the step does not take."""
    there = {small(column) for column in columns_of_table}
    result = {}
    for column in columns:
        name = column if small(column) in there else step.get("columnsRenamed", {}).get(
            column, column)
        if small(name) in there:
            becomes = step.get("values", {}).get(column, {}).get("becomes", identifier(column))
            result[name] = becomes
        elif column not in step.get("columnsDropped", ()):
            return None
    return result


def is_in_table(copy, before, table, after, steps):
    """Whether all rows of a copy of before are in a table of after."""
    columns = after.columns(table)
    for step in (IDENTITY, *steps):
        values = image(step, before.columns(copy), columns)
        if values and not before.rows(copy, values.values()) - after.rows(
                table, map(identifier, values)):
            return True
    return False


def lost_rows(file_before, file_after, versions):
    """Tables and copies of before with rows that are neither in the table nor in the copy of
    after, and other tables that changed. versions: guard/schema-versions.json"""
    with contextlib.closing(sqlite3.connect(file_before)) as old, \
            contextlib.closing(sqlite3.connect(file_after)) as new:
        old.text_factory = new.text_factory = lambda text: text.decode(errors="surrogateescape")
        before, after = Tables(old), Tables(new)
        # SQLite's own tables do not count.
        return [name for key, name in before.names.items()
                if not key.startswith("sqlite_") and not is_kept(key, before, after, versions)]


def is_kept(key, before, after, versions):
    name = before.names[key]
    if key in after.names:
        missing = before.all_rows(name) - after.all_rows(after.names[key])
        is_mended = any(small(table) == key for entry in versions["copies"].values()
                        for table in other_names(entry["table"], versions))
        return not missing and (is_mended or before.all_rows(name) == after.all_rows(name))
    for copy, entry in versions["copies"].items():
        if small(copy) == key:
            tables = [after.names[small(table)] for table in other_names(entry["table"], versions)
                      if small(table) in after.names]
            return not before.all_rows(name) or any(
                is_in_table(name, before, table, after, steps_of(copy, versions))
                for table in tables)
    return False

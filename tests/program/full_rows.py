"""Databases that show what a step does to every column, and to indexes and triggers."""

import contextlib
import sqlite3

# Two more rows for every table: a full one with values that are no column's default, and one with
# NULL wherever a column allows it. A reference is never NULL: version 2 would turn it into 0,
# SQLite would refuse that, and the step would fail.
FULL, SPARSE = 901, 902

# The first row of these tables says which device it is.
LEFT_OUT = ("registrationInfo", "tableVersion")


def with_full_rows(dump):
    """The dump with the two rows in every table."""
    with contextlib.closing(sqlite3.connect(":memory:")) as database:
        database.executescript(dump)
        columns = {name: {line[1]: line[2:] for line in
                          database.execute(f"PRAGMA table_info({name})")}
                   for name in tables_of(database)}
        parents = {(name, line[3]): (line[2], line[4]) for name in columns
                   for line in database.execute(f"PRAGMA foreign_key_list({name})")}

    def value(name, column, row):
        declared, not_null, default, key = columns[name][column]
        if (name, column) in parents:
            return value(*parents[name, column], row)
        if row == SPARSE and not (not_null or key or (name, column) in parents.values()):
            return "NULL"
        if "BOOL" in declared:
            return "0" if default == "1" else "1"
        if "INT" in declared:
            return str(row if key else 7)
        if "REAL" in declared:
            return "3.14159265"
        return "X'00ff'" if declared == "BLOB" else f"'{column} {row}'"

    return dump + "".join(
        f"INSERT INTO {name} VALUES("
        f"{', '.join(value(name, column, row) for column in of_table)});\n"
        for name, of_table in columns.items() for row in (FULL, SPARSE))


def with_indexes_and_triggers(dump):
    """The dump with one more index and one more trigger on every table."""
    with contextlib.closing(sqlite3.connect(":memory:")) as database:
        database.executescript(dump)
        last = {name: [line[1] for line in database.execute(f"PRAGMA table_info({name})")][-1]
                for name in tables_of(database)}
    return dump + "".join(
        f"CREATE INDEX index_of_{name} ON {name} ({column});\n"
        f"CREATE TRIGGER trigger_of_{name} AFTER DELETE ON {name} BEGIN SELECT 1; END;\n"
        for name, column in last.items())


def tables_of(database):
    return [name for name, in database.execute(
        "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%'")
        if name not in LEFT_OUT]

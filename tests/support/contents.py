"""What a database holds, and how two databases differ."""

import collections
import contextlib
import dataclasses
import functools
import re
import sqlite3

CHECK = re.compile(r"CHECK\s*\((?:[^()]|\([^()]*\))*\)")
COLLATION = re.compile(r"(\w+)[^,()]*(COLLATE \w+)")
RANDOM_IDENTIFIER = re.compile(r"\{[0-9a-f]{8}(?:-[0-9a-f]{4}){3}-[0-9a-f]{12}\}")
# Not the work of any step: the versions, and SQLite's own notes.
NO_WORK_OF_STEPS = ("tableVersion", "sqlite_sequence")


@dataclasses.dataclass
class Table:
    """A table or a view: its definition as texts, and its rows."""

    sql: str  # its CREATE statement
    columns: dict  # name: type, NOT NULL and DEFAULT, in the order of the table
    key: tuple  # the names of the primary key's columns
    constraints: tuple
    attached: dict  # its indexes and triggers, as "index NAME": CREATE statement
    rows: list  # tuples of SQL literals in the order of the columns; none for a view
    row_ids: list  # as SQL literals; none for a view or a table without rowids

    def by_key(self, key):
        """The rows as {column: value}, by the values of these columns; "rowid" is one too."""
        names = ("rowid", *self.columns) if self.row_ids else tuple(self.columns)
        values = ((rowid, *row) for rowid, row in zip(self.row_ids, self.rows)) \
            if self.row_ids else self.rows
        rows = (dict(zip(names, row)) for row in values)
        return {tuple(row[column] for column in key): row for row in rows}


def identifier(name):
    return '"' + name.replace('"', '""') + '"'


def read(database, without=NO_WORK_OF_STEPS):
    """The tables and views of an open database by name, but for some."""
    schema = database.execute("SELECT type, name, tbl_name, sql FROM sqlite_master").fetchall()
    attached = collections.defaultdict(dict)
    for kind, name, table, sql in schema:
        if kind not in ("table", "view") and sql is not None:
            attached[table][f"{kind} {name}"] = sql
    result = {}
    for kind, name, _, sql in schema:
        if kind in ("table", "view") and name not in without:
            own = kind == "table" and not name.startswith("sqlite_")
            shape = shape_of_table(name, sql) if own else shape_of(database, name, sql)
            rows, row_ids = [], []
            if kind == "table":
                selected = ", ".join(f"quote({identifier(column)})" for column in shape[0])
                if "WITHOUT ROWID" in sql:
                    rows = database.execute(f"SELECT {selected} FROM {identifier(name)}").fetchall()
                else:
                    found = database.execute(
                        f"SELECT {selected}, quote(rowid) FROM {identifier(name)}").fetchall()
                    rows = [row[:-1] for row in found]
                    row_ids = [row[-1] for row in found]
            result[name] = Table(sql, *shape, attached[name], rows, row_ids)
    return result


@functools.cache
def shape_of_table(name, sql):
    """The shape of a table; its CREATE statement alone decides it."""
    with contextlib.closing(sqlite3.connect(":memory:")) as database:
        database.execute(sql)
        return shape_of(database, name, sql)


def shape_of(database, name, sql):
    """The columns, the key and the constraints of a table or a view."""
    info = database.execute(f"PRAGMA table_info({identifier(name)})").fetchall()
    columns = {column: declared + " NOT NULL" * not_null +
               (f" DEFAULT {default}" if default is not None else "")
               for _, column, declared, not_null, default, _ in info}
    key = tuple(column for _, column in sorted((line[5], line[1]) for line in info if line[5]))
    return columns, key, tuple(constraints_of(database, name, sql, key))


def constraints_of(database, name, sql, key):
    def rows(query):
        return database.execute(query).fetchall()

    if key:
        yield f"PRIMARY KEY ({', '.join(key)})"
    if "AUTOINCREMENT" in sql:
        yield "AUTOINCREMENT"
    for index in rows(f"PRAGMA index_list({identifier(name)})"):
        if index[3] == "u":
            parts = rows(f"PRAGMA index_info({identifier(index[1])})")
            columns = ", ".join(line[2] for line in parts)
            yield f"UNIQUE ({columns})"
    foreign_keys = collections.defaultdict(list)
    for line in rows(f"PRAGMA foreign_key_list({identifier(name)})"):
        foreign_keys[line[0]].append(line)
    for lines in foreign_keys.values():
        _, _, parent, _, _, update, delete, _ = lines[0]
        own, others = (", ".join(line[column] or "" for line in lines) for column in (3, 4))
        yield (f"FOREIGN KEY ({own}) REFERENCES {parent}({others})" +
               f" ON UPDATE {update}" * (update != "NO ACTION") +
               f" ON DELETE {delete}" * (delete != "NO ACTION"))
    yield from (" ".join(check.split()) for check in CHECK.findall(sql))
    yield from (f"{collation} ({column})" for column, collation in COLLATION.findall(sql))


def read_dump(dump):
    """The contents of the database that a dump makes."""
    with contextlib.closing(sqlite3.connect(":memory:")) as database:
        database.executescript(dump)
        return read(database)


def read_file(path):
    with contextlib.closing(sqlite3.connect(path)) as database:
        return read(database)


def read_sound(path, without=()):
    """The contents of a sound database file; None when it fails the integrity check.

    Opening a database that a process left in the middle of a transaction rolls it back.
    """
    with contextlib.closing(sqlite3.connect(path)) as database:
        with contextlib.suppress(sqlite3.Error, UnicodeError):
            if database.execute("PRAGMA integrity_check").fetchall() == [("ok",)]:
                return read(database, without)
    return None


def definitions(columns):
    """Columns as a CREATE statement has them."""
    return [f"{name} {definition}".rstrip() for name, definition in columns.items()]


@dataclasses.dataclass(frozen=True)
class Values:
    """The changed values of a column: in how many rows of how many, and those of one row."""

    changed: int
    rows: int
    before: str
    after: str


@dataclasses.dataclass
class Changes:
    """What changed in a table that is there before and after."""

    gained: dict  # name of a column: definition
    lost: list  # names of columns
    renamed: dict  # name: new name
    redefined: dict  # name: (definition, new definition)
    constraints_gained: list
    constraints_lost: list
    attached_gained: list  # "index NAME" or "trigger NAME"
    attached_lost: list
    attached_changed: dict  # "index NAME": (CREATE statement, new CREATE statement)
    moved: bool  # the columns are in another order
    rows_gained: int
    rows_lost: int
    rows: int
    values: dict  # column: Values

    def __bool__(self):
        return any(value for field, value in vars(self).items() if field != "rows")


def compare(before, after):
    """What changed in a table."""
    gone = [column for column in before.columns if column not in after.columns]
    come = [column for column in after.columns if column not in before.columns]
    kept = [column for column in before.columns if column in after.columns]
    key = next((key for key in (before.key, after.key)
                if key and {*key} <= {*before.columns} & {*after.columns}), ("rowid",))
    rows, rows_after = before.by_key(key), after.by_key(key)
    both = [(row, rows_after[number]) for number, row in rows.items() if number in rows_after]

    renamed = {}
    for column in gone:
        for other in come:
            if other not in renamed.values() and any(row[column] != "NULL" for row, _ in both) and \
                    all(row[column] == row_after[other] for row, row_after in both):
                renamed[column] = other
                break

    values = {}
    for column in [*kept, *(column for column in come if column not in renamed.values())]:
        # A new column is compared with one that had its default in every row.
        default = after.columns[column].partition(" DEFAULT ")[2] or "NULL"
        changed = [(row.get(column, default), row_after[column]) for row, row_after in both
                   if row.get(column, default) != row_after[column]]
        if changed:
            values[column] = Values(len(changed), len(both), *changed[0])

    return Changes(
        gained={column: after.columns[column] for column in come
                if column not in renamed.values()},
        lost=[column for column in gone if column not in renamed],
        renamed=renamed,
        redefined={column: (before.columns[column], after.columns[column]) for column in kept
                   if before.columns[column] != after.columns[column]},
        constraints_gained=[one for one in after.constraints if one not in before.constraints],
        constraints_lost=[one for one in before.constraints if one not in after.constraints],
        attached_gained=[name for name in after.attached if name not in before.attached],
        attached_lost=[name for name in before.attached if name not in after.attached],
        attached_changed={name: (text, after.attached[name])
                          for name, text in before.attached.items()
                          if after.attached.get(name, text) != text},
        moved=kept != [column for column in after.columns if column in kept],
        rows_gained=len(rows_after.keys() - rows.keys()),
        rows_lost=len(rows.keys() - rows_after.keys()), rows=len(rows), values=values)


def in_the_spelling_of(other, contents):
    """Contents with the names of tables and columns in the letter case that they have in other."""
    def spelled(names, mapping):
        spelling = {name.lower(): name for name in names}
        return {spelling.get(name.lower(), name): value for name, value in mapping.items()}

    result = spelled(other, contents)
    for name in result.keys() & other.keys():
        columns = spelled(other[name].columns, result[name].columns)
        names = dict(zip(result[name].columns, columns))
        result[name] = dataclasses.replace(
            result[name], columns=columns, key=tuple(names[column] for column in result[name].key))
    return result


@dataclasses.dataclass
class Difference:
    """How a database differs from an earlier one."""

    gone: dict  # name: Table
    come: dict  # name: Table
    renamed: dict  # name: new name
    changed: dict  # name, the new one if there is one: Changes

    def __bool__(self):
        return bool(self.gone or self.come or self.renamed or self.changed)


def difference(before, after):
    """How the contents after differ from those before. Names differ by letter case too."""
    gone = {name: before[name] for name in before if name not in after}
    come = {name: after[name] for name in after if name not in before}
    renamed = {}
    for old, table in gone.items():
        for new, other in come.items():
            if table.rows and {*table.columns} <= {*other.columns} and not compare(
                    table, other).rows_lost and len(table.rows) == len(other.rows):
                renamed[old] = new
    changed = {}
    for name in before:
        new = renamed.get(name, name)
        if new in after:
            changes = compare(before[name], after[new])
            if changes:
                changed[new] = changes
    return Difference({name: table for name, table in gone.items() if name not in renamed},
                      {name: table for name, table in come.items()
                       if name not in renamed.values()}, renamed, changed)
